// Address modes, filters, cubes and levels. Any coordinate is a texel: what is not a number or too large becomes 0 or
// the largest position (numeric.h), and address modes lead that into the texture or to the border.

#include "device/raster/sampler.h"

#include "device/raster/numeric.h"

#include <algorithm>
#include <cmath>

namespace kalix::device::raster {
namespace {

constexpr uint32_t levels_max = 32; // of one face; sizes have 32 bits
constexpr color missing{0, 0, 0, 1};
constexpr int64_t outside = -1;

// The texel that an address mode takes for a position along a side; outside for the border.
int64_t addressed(uint32_t mode, int64_t at, int64_t side)
{
    switch (mode) {
    case SVGA3D_TEX_ADDRESS_MIRROR: {
        // The side and once more backward, again and again.
        const int64_t folded = modulo(at, 2 * side);
        return folded < side ? folded : 2 * side - 1 - folded;
    }
    case SVGA3D_TEX_ADDRESS_CLAMP:
    case SVGA3D_TEX_ADDRESS_EDGE:
        return std::clamp<int64_t>(at, 0, side - 1);
    case SVGA3D_TEX_ADDRESS_BORDER:
        return at >= 0 && at < side ? at : outside;
    case SVGA3D_TEX_ADDRESS_MIRRORONCE:
        // Texel -1 is texel 0 once more, so a mirror stands on the texture's edge and not on a texel.
        return std::min(at < 0 ? -1 - at : at, side - 1);
    default:
        return modulo(at, side);
    }
}

color decoded(const image_view& level, uint32_t x, uint32_t y, uint32_t z)
{
    const format_info& format = *level.format;
    if (!format.decode_block)
        return format.decode(level.texel(x, y, z));
    const std::byte* const block = level.bytes + z * level.slice_bytes +
                                   uint64_t{y / format.block_height} * level.row_bytes +
                                   uint64_t{x / format.block_width} * format.block_bytes;
    return format.decode_block(block, x % format.block_width, y % format.block_height);
}

color texel_at(const sampler& from, const image_view& level, int64_t x, int64_t y, int64_t z)
{
    // What lies beyond a cube's face is not looked for on its neighbour.
    const bool cube = from.shape == texture_shape::cube;
    const int64_t column = addressed(cube ? uint32_t{SVGA3D_TEX_ADDRESS_CLAMP} : from.address_u, x, level.width);
    const int64_t row = addressed(cube ? uint32_t{SVGA3D_TEX_ADDRESS_CLAMP} : from.address_v, y, level.height);
    const int64_t slice = from.shape == texture_shape::volume ? addressed(from.address_w, z, level.depth) : 0;
    if (column == outside || row == outside || slice == outside)
        return from.border;
    return decoded(level, static_cast<uint32_t>(column), static_cast<uint32_t>(row), static_cast<uint32_t>(slice));
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

color nearest(const sampler& from, const image_view& level, const texture_point& at)
{
    return texel_at(from, level, in_texels(at.u, level.width) >> fraction_bits,
                    in_texels(at.v, level.height) >> fraction_bits, in_texels(at.w, level.depth) >> fraction_bits);
}

// Between which two texels a coordinate lies, and how far along.
struct pair_of_texels {
    int64_t first;
    double share; // of the second

    pair_of_texels(double coordinate, uint32_t side)
    {
        // Centres lie at halves: half a texel back is the distance from the first of the two.
        const int64_t position = in_texels(coordinate, side) - one / 2;
        first = position >> fraction_bits;
        share = static_cast<double>(position & (one - 1)) / one;
    }
};

color linear_slice(const sampler& from, const image_view& level, const pair_of_texels& x, const pair_of_texels& y,
                   int64_t z)
{
    const auto row = [&](int64_t at) {
        return mixed(texel_at(from, level, x.first, at, z), texel_at(from, level, x.first + 1, at, z), x.share);
    };
    return mixed(row(y.first), row(y.first + 1), y.share);
}

color linear(const sampler& from, const image_view& level, const texture_point& at)
{
    const pair_of_texels x{at.u, level.width};
    const pair_of_texels y{at.v, level.height};
    if (from.shape != texture_shape::volume)
        return linear_slice(from, level, x, y, 0);
    const pair_of_texels z{at.w, level.depth};
    return mixed(linear_slice(from, level, x, y, z.first), linear_slice(from, level, x, y, z.first + 1), z.share);
}

// An anisotropic filter is a linear one.
color filtered(const sampler& from, uint32_t filter, uint32_t level, const texture_point& at)
{
    const image_view& image = from.image(at.face, level);
    return filter >= SVGA3D_TEX_FILTER_LINEAR ? linear(from, image, at) : nearest(from, image, at);
}

// Along which axes of a direction the coordinates of a cube's face run.
struct cube_axis {
    uint32_t of; // 0 x, 1 y, 2 z
    double sign;
};
struct cube_face {
    cube_axis s, t;
};
constexpr cube_face cube_faces[SVGA3D_FACES] = {
    {{2, -1}, {1, -1}}, {{2, 1}, {1, -1}},  // +x, -x
    {{0, 1}, {2, 1}},   {{0, 1}, {2, -1}},  // +y, -y
    {{0, 1}, {1, -1}},  {{0, -1}, {1, -1}}, // +z, -z
};

// All six faces make a cube, whatever the surface's flags say: they are hints.
texture_shape shape_of(const surface& bound)
{
    const bool has_faces = std::ranges::none_of(bound.mip_levels, [](uint32_t levels) { return levels == 0; });
    if (has_faces)
        return texture_shape::cube;
    return bound.images[0].depth > 1 ? texture_shape::volume : texture_shape::flat;
}

// Takes the images that all faces have and that have memory; none at all leaves the texture missing.
void add_levels(surface_store& surfaces, surface& bound, sampler& to)
{
    if (bound.mip_levels[0] == 0)
        return;
    const texture_shape shape = shape_of(bound);
    const uint32_t faces = shape == texture_shape::cube ? uint32_t{SVGA3D_FACES} : 1;
    uint32_t levels = *std::min_element(bound.mip_levels.begin(), bound.mip_levels.begin() + faces);
    levels = std::min(levels, levels_max);
    for (uint32_t face = 0; face < faces; ++face)
        for (uint32_t level = 0; level < levels; ++level) {
            to.levels.push_back(surfaces.view(bound, face, level));
            if (!to.levels.back())
                return;
        }
    to.level_count = levels;
    to.shape = shape;
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
                 .address_w = states[SVGA3D_TS_ADDRESSW],
                 .magnify = states[SVGA3D_TS_MAGFILTER],
                 .minify = states[SVGA3D_TS_MINFILTER],
                 .between_levels = states[SVGA3D_TS_MIPFILTER],
                 .bias = static_cast<double>(as_float(states[SVGA3D_TS_TEXTURE_LOD_BIAS])),
                 .border = border_color(states[SVGA3D_TS_BORDERCOLOR])};
    surface* const bound = surfaces.find(states[SVGA3D_TS_BIND_TEXTURE]);
    if (bound && format_of(bound->format).can_be_sampled())
        add_levels(surfaces, *bound, made);
    if (made.level_count != 0)
        made.first_level = std::min(states[SVGA3D_TS_TEXTURE_MIPMAP_LEVEL], made.level_count - 1);
    return made;
}

const image_view& sampler::image(uint32_t face, uint32_t level) const
{
    static const image_view none;
    return shape == texture_shape::none ? none : levels[face * level_count + level];
}

texture_point locate_on(const sampler& in, uint32_t face, const direction& coordinate)
{
    const auto [s, t, r] = coordinate;
    if (in.shape != texture_shape::cube)
        return {0, s, t, r};
    const cube_face& axes = cube_faces[face];
    // Towards a neighbour's face the quotient leaves 0..1 and goes on, as a step that is measured must.
    const double major = std::abs(coordinate[face / 2]);
    const auto across = [&](const cube_axis& axis) { return (axis.sign * coordinate[axis.of] / major + 1) / 2; };
    return {face, across(axes.s), across(axes.t), 0};
}

texture_point locate(const sampler& in, const direction& coordinate)
{
    if (in.shape != texture_shape::cube)
        return locate_on(in, 0, coordinate);
    uint32_t axis = 0;
    for (uint32_t other = 1; other < 3; ++other)
        // Of equal ones the first: x before y before z.
        if (std::abs(coordinate[other]) > std::abs(coordinate[axis]))
            axis = other;
    return locate_on(in, 2 * axis + (coordinate[axis] < 0 ? 1 : 0), coordinate);
}

color sample(const sampler& from, const texture_point& at, double detail)
{
    if (from.shape == texture_shape::none)
        return missing;
    if (!(detail > 0)) // nor what is no number, as the lanes decide it
        return filtered(from, from.magnify, from.first_level, at);
    const double last = from.level_count - 1;
    const double wanted = clamped(detail, from.first_level, last);
    switch (from.between_levels) {
    case SVGA3D_TEX_FILTER_NONE:
        // One level alone: the first that may be used, which need not be the largest.
        return filtered(from, from.minify, from.first_level, at);
    case SVGA3D_TEX_FILTER_NEAREST:
        return filtered(from, from.minify, static_cast<uint32_t>(wanted + 0.5), at);
    default: {
        const auto level = static_cast<uint32_t>(wanted);
        const uint32_t next = std::min(level + 1, from.level_count - 1);
        return mixed(filtered(from, from.minify, level, at), filtered(from, from.minify, next, at), wanted - level);
    }
    }
}

double detail_of(const sampler& from, const texture_point& here, const texture_point& right, const texture_point& below)
{
    if (from.shape == texture_shape::none)
        return 0;
    const image_view& first = from.image(0, 0);
    const auto squared_length = [&](const texture_point& to) {
        const double s = (to.u - here.u) * first.width;
        const double t = (to.v - here.v) * first.height;
        // A third coordinate may be there without being a step in a flat texture.
        const double r = from.shape == texture_shape::volume ? (to.w - here.w) * first.depth : 0;
        return s * s + t * t + r * r;
    };
    const double across = squared_length(right);
    const double down = squared_length(below);
    const double longer = across > down ? across : down;
    return (longer > 0 ? 0.5 * log2_of(longer) : -1024) + from.bias;
}

} // namespace kalix::device::raster
