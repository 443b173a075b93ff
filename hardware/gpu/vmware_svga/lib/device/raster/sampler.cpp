#include "hardware/gpu/vmware_svga/lib/device/raster/sampler.h"

#include "hardware/gpu/vmware_svga/lib/device/raster/numeric.h"

#include <algorithm>
#include <cmath>

namespace kalix::device::raster {
namespace {

constexpr color missing{0, 0, 0, 1};
constexpr int64_t fraction_bits = 16;
constexpr int64_t one = 1 << fraction_bits;
constexpr int64_t coordinate_limit = int64_t{1} << 52; // in 2^-16 texels; far beyond any texture
constexpr int64_t outside = -1;

int64_t modulo(int64_t value, int64_t divisor)
{
    const int64_t rest = value % divisor;
    return rest < 0 ? rest + divisor : rest;
}

// The texel that an address mode takes for a position along a side; outside for the border.
int64_t addressed(uint32_t mode, int64_t at, int64_t side)
{
    switch (mode) {
    case SVGA3D_TEX_ADDRESS_MIRROR: {
        const int64_t folded = modulo(at, 2 * side);
        return folded < side ? folded : 2 * side - 1 - folded;
    }
    case SVGA3D_TEX_ADDRESS_CLAMP:
    case SVGA3D_TEX_ADDRESS_EDGE:
        return std::clamp<int64_t>(at, 0, side - 1);
    case SVGA3D_TEX_ADDRESS_BORDER:
        return at >= 0 && at < side ? at : outside;
    case SVGA3D_TEX_ADDRESS_MIRRORONCE:
        return std::min(at < 0 ? -1 - at : at, side - 1);
    default:
        return modulo(at, side);
    }
}

color texel_at(const sampler& from, const image_view& level, int64_t x, int64_t y)
{
    const int64_t column = addressed(from.address_u, x, level.width);
    const int64_t row = addressed(from.address_v, y, level.height);
    if (column == outside || row == outside)
        return from.border;
    return level.format->decode(level.texel(static_cast<uint32_t>(column), static_cast<uint32_t>(row)));
}

// A coordinate of 0..1 across a side, in texels, as a fixed-point number.
int64_t in_texels(double coordinate, uint32_t side)
{
    return to_integer(coordinate * side * one, coordinate_limit);
}

color mixed(const color& a, const color& b, double t)
{
    const auto mix = [t](float from, float to) {
        return static_cast<float>(static_cast<double>(from) * (1 - t) + static_cast<double>(to) * t);
    };
    return {mix(a.r, b.r), mix(a.g, b.g), mix(a.b, b.b), mix(a.a, b.a)};
}

color nearest(const sampler& from, const image_view& level, double u, double v)
{
    return texel_at(from, level, in_texels(u, level.width) >> fraction_bits,
                    in_texels(v, level.height) >> fraction_bits);
}

color linear(const sampler& from, const image_view& level, double u, double v)
{
    const int64_t s = in_texels(u, level.width) - one / 2;
    const int64_t t = in_texels(v, level.height) - one / 2;
    const int64_t x = s >> fraction_bits;
    const int64_t y = t >> fraction_bits;
    const double across = static_cast<double>(s & (one - 1)) / one;
    const double down = static_cast<double>(t & (one - 1)) / one;
    const color upper = mixed(texel_at(from, level, x, y), texel_at(from, level, x + 1, y), across);
    const color lower = mixed(texel_at(from, level, x, y + 1), texel_at(from, level, x + 1, y + 1), across);
    return mixed(upper, lower, down);
}

color filtered(const sampler& from, uint32_t filter, const image_view& level, double u, double v)
{
    return filter >= SVGA3D_TEX_FILTER_LINEAR ? linear(from, level, u, v) : nearest(from, level, u, v);
}

color border_color(uint32_t argb)
{
    const auto channel = [argb](int shift) { return static_cast<float>(argb >> shift & 255) / 255.0f; };
    return {channel(16), channel(8), channel(0), channel(24)};
}

} // namespace

sampler make_sampler(const context& of, surface_store& surfaces, uint32_t stage)
{
    const auto& states = of.texture_states[stage];
    sampler made{.address_u = states[SVGA3D_TS_ADDRESSU],
                 .address_v = states[SVGA3D_TS_ADDRESSV],
                 .magnify = states[SVGA3D_TS_MAGFILTER],
                 .minify = states[SVGA3D_TS_MINFILTER],
                 .between_levels = states[SVGA3D_TS_MIPFILTER],
                 .bias = static_cast<double>(as_float(states[SVGA3D_TS_TEXTURE_LOD_BIAS])),
                 .border = border_color(states[SVGA3D_TS_BORDERCOLOR])};
    surface* const bound = surfaces.find(states[SVGA3D_TS_BIND_TEXTURE]);
    if (!bound || !format_of(bound->format).decode)
        return made;
    const uint32_t levels = std::min(bound->mip_levels[0], levels_max);
    for (uint32_t level = 0; level < levels; ++level) {
        made.levels[level] = surfaces.view(*bound, 0, level);
        if (!made.levels[level])
            return made;
        made.level_count = level + 1;
    }
    return made;
}

color sample(const sampler& from, double u, double v, double detail)
{
    if (from.level_count == 0)
        return missing;
    if (detail <= 0)
        return filtered(from, from.magnify, from.levels[0], u, v);
    const double last = from.level_count - 1;
    const double wanted = clamped(detail, 0, last);
    switch (from.between_levels) {
    case SVGA3D_TEX_FILTER_NONE:
        return filtered(from, from.minify, from.levels[0], u, v);
    case SVGA3D_TEX_FILTER_NEAREST:
        return filtered(from, from.minify, from.levels[static_cast<uint32_t>(wanted + 0.5)], u, v);
    default: {
        const auto level = static_cast<uint32_t>(wanted);
        const uint32_t next = std::min(level + 1, from.level_count - 1);
        return mixed(filtered(from, from.minify, from.levels[level], u, v),
                     filtered(from, from.minify, from.levels[next], u, v), wanted - level);
    }
    }
}

double detail_of(const sampler& from, double du_dx, double dv_dx, double du_dy, double dv_dy)
{
    if (from.level_count == 0)
        return 0;
    const double width = from.levels[0].width;
    const double height = from.levels[0].height;
    const auto squared_length = [](double s, double t) { return s * s + t * t; };
    const double right = squared_length(du_dx * width, dv_dx * height);
    const double down = squared_length(du_dy * width, dv_dy * height);
    const double longer = right > down ? right : down;
    return (longer > 0 ? 0.5 * log2_of(longer) : -1024) + from.bias;
}

} // namespace kalix::device::raster
