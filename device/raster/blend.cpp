// Blending in single precision. Numbers that the interface does not have get a default where they are used, since
// states keep any word.

#include "device/raster/blend.h"

#include "device/raster/numeric.h"

#include <algorithm>

namespace kalix::device::raster {
namespace {

enum mask_bit : uint32_t { mask_red = 1, mask_green = 2, mask_blue = 4, mask_alpha = 8, mask_all = 15 };

color inverse(const color& c)
{
    return {1 - c.r, 1 - c.g, 1 - c.b, 1 - c.a};
}

color all(float value)
{
    return {value, value, value, value};
}

// The factor that a blend factor's number stands for; one that the interface does not have is 0.
color factor_of(uint32_t which, const color& source, const color& destination, const color& constant)
{
    switch (which) {
    case SVGA3D_BLENDOP_ONE:
        return all(1);
    case SVGA3D_BLENDOP_SRCCOLOR:
        return source;
    case SVGA3D_BLENDOP_INVSRCCOLOR:
        return inverse(source);
    case SVGA3D_BLENDOP_SRCALPHA:
        return all(source.a);
    case SVGA3D_BLENDOP_INVSRCALPHA:
        return all(1 - source.a);
    case SVGA3D_BLENDOP_DESTALPHA:
        return all(destination.a);
    case SVGA3D_BLENDOP_INVDESTALPHA:
        return all(1 - destination.a);
    case SVGA3D_BLENDOP_DESTCOLOR:
        return destination;
    case SVGA3D_BLENDOP_INVDESTCOLOR:
        return inverse(destination);
    case SVGA3D_BLENDOP_SRCALPHASAT: {
        const float least = std::min(source.a, 1 - destination.a);
        return {least, least, least, 1};
    }
    case SVGA3D_BLENDOP_BLENDFACTOR:
        return constant;
    case SVGA3D_BLENDOP_INVBLENDFACTOR:
        return inverse(constant);
    default:
        return all(0);
    }
}

// One channel.
// Minimum and maximum ignore the factors; an unknown equation adds.
float joined(uint32_t equation, float source, float source_factor, float destination, float destination_factor)
{
    switch (equation) {
    case SVGA3D_BLENDEQ_SUBTRACT:
        return source * source_factor - destination * destination_factor;
    case SVGA3D_BLENDEQ_REVSUBTRACT:
        return destination * destination_factor - source * source_factor;
    case SVGA3D_BLENDEQ_MINIMUM:
        return std::min(source, destination);
    case SVGA3D_BLENDEQ_MAXIMUM:
        return std::max(source, destination);
    default:
        return source * source_factor + destination * destination_factor;
    }
}

color blended(const output_state& state, const color& source, const color& destination)
{
    const auto& f = state.rgb;
    const color s = factor_of(f.source, source, destination, state.factor);
    const color d = factor_of(f.destination, source, destination, state.factor);
    const auto& g = state.alpha;
    const float sa = factor_of(g.source, source, destination, state.factor).a;
    const float da = factor_of(g.destination, source, destination, state.factor).a;
    return {joined(f.equation, source.r, s.r, destination.r, d.r),
            joined(f.equation, source.g, s.g, destination.g, d.g),
            joined(f.equation, source.b, s.b, destination.b, d.b), joined(g.equation, source.a, sa, destination.a, da)};
}

// What a texel holds, with the fourth byte of a format whose alpha reads as 1, so that a mask can keep it.
color stored(const image_view& target, const std::byte* texel)
{
    const bool hides_alpha = target.format_number == SVGA3D_X8R8G8B8;
    return (hides_alpha ? format_of(SVGA3D_A8R8G8B8).decode : target.format->decode)(texel);
}

color masked(uint32_t mask, const color& written, const color& kept)
{
    return {mask & mask_red ? written.r : kept.r, mask & mask_green ? written.g : kept.g,
            mask & mask_blue ? written.b : kept.b, mask & mask_alpha ? written.a : kept.a};
}

} // namespace

output_state make_output(const context& of)
{
    const auto& states = of.render_states;
    output_state made;
    made.blends = states[SVGA3D_RS_BLENDENABLE] != 0;
    made.rgb = {states[SVGA3D_RS_SRCBLEND], states[SVGA3D_RS_DSTBLEND], states[SVGA3D_RS_BLENDEQUATION]};
    // Alpha is blended as the colours are, unless the state asks for functions of its own.
    made.alpha = made.rgb;
    if (states[SVGA3D_RS_SEPARATEALPHABLENDENABLE])
        made.alpha = {states[SVGA3D_RS_SRCBLENDALPHA], states[SVGA3D_RS_DSTBLENDALPHA],
                      states[SVGA3D_RS_BLENDEQUATIONALPHA]};
    const uint32_t factor = states[SVGA3D_RS_BLENDCOLOR];
    const auto channel = [factor](int shift) { return static_cast<float>(factor >> shift & 255) / 255.0f; };
    made.factor = {channel(16), channel(8), channel(0), channel(24)};
    made.mask = states[SVGA3D_RS_COLORWRITEENABLE] & mask_all;
    return made;
}

void write_color(const output_state& state, const image_view& target, const color& source, std::byte* texel)
{
    color result = source;
    if (state.blends)
        result = blended(state, source, target.format->decode(texel));
    // Where all channels are written, what lies there need not be read.
    if (state.mask != mask_all)
        result = masked(state.mask, result, stored(target, texel));
    target.format->encode(result, texel);
}

} // namespace kalix::device::raster
