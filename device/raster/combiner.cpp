// The texture stages' operations, one row each, and what they can name.

#include "device/raster/combiner.h"

#include "device/raster/numeric.h"
#include "device/state/limits.h"

#include <bit>

namespace kalix::device::raster {
namespace {

// Of the transform flags: the bits 1, 2, 4 and 8 say which of s, t, r and q are in use.
constexpr uint32_t project_flag = 0x8000;
constexpr uint32_t component_flags = 0xF;

struct arguments {
    color a0, a1, a2;
};

color each(const color& a, const color& b, float (*with)(float, float))
{
    return {with(a.r, b.r), with(a.g, b.g), with(a.b, b.b), with(a.a, b.a)};
}

color times(const color& a, float factor)
{
    return {a.r * factor, a.g * factor, a.b * factor, a.a * factor};
}

color product(const color& a, const color& b)
{
    return each(a, b, [](float x, float y) { return x * y; });
}

color sum(const color& a, const color& b)
{
    return each(a, b, [](float x, float y) { return x + y; });
}

color difference(const color& a, const color& b)
{
    return each(a, b, [](float x, float y) { return x - y; });
}

color all(float value)
{
    return {value, value, value, value};
}

color blend_by(const arguments& from, float factor)
{
    return sum(times(from.a1, factor), times(from.a2, 1 - factor));
}

// Colours stand for vectors of -1..1: each channel less a half is half of one, so that four times the sum is the
// product.
color dot_product(const color& a, const color& b)
{
    const auto centered = [](float x, float y) { return (x - 0.5f) * (y - 0.5f); };
    return all(4 * (centered(a.r, b.r) + centered(a.g, b.g) + centered(a.b, b.b)));
}

using operation = color (*)(const arguments&, const combiner_inputs&);

// By combiner operation, in the interface's numbers from 0 on; null for those that are not announced. An operation
// works on all four channels, and whoever asks takes the colours or the alpha. Nothing is clamped in between.
constexpr operation operations[SVGA3D_TC_MAX] = {
    nullptr, // none
    nullptr, // disable ends a chain before it is asked for
    [](const arguments& a, const combiner_inputs&) { return a.a1; },
    [](const arguments& a, const combiner_inputs&) { return a.a2; },
    [](const arguments& a, const combiner_inputs&) { return product(a.a1, a.a2); },
    [](const arguments& a, const combiner_inputs&) { return sum(a.a1, a.a2); },
    [](const arguments& a, const combiner_inputs&) { return difference(sum(a.a1, a.a2), all(0.5f)); },
    [](const arguments& a, const combiner_inputs&) { return difference(a.a1, a.a2); },
    [](const arguments& a, const combiner_inputs& in) { return blend_by(a, in.texture.a); },
    [](const arguments& a, const combiner_inputs& in) { return blend_by(a, in.diffuse.a); },
    [](const arguments& a, const combiner_inputs& in) { return blend_by(a, in.previous.a); },
    [](const arguments& a, const combiner_inputs& in) { return blend_by(a, in.constant.a); },
    [](const arguments& a, const combiner_inputs&) { return times(product(a.a1, a.a2), 2); },
    [](const arguments& a, const combiner_inputs&) { return times(product(a.a1, a.a2), 4); },
    nullptr, // dsdt
    [](const arguments& a, const combiner_inputs&) { return dot_product(a.a1, a.a2); },
    [](const arguments& a, const combiner_inputs& in) { return sum(a.a1, times(a.a2, 1 - in.texture.a)); },
    [](const arguments& a, const combiner_inputs&) { return times(difference(sum(a.a1, a.a2), all(0.5f)), 2); },
    [](const arguments& a, const combiner_inputs&) { return difference(sum(a.a1, a.a2), product(a.a1, a.a2)); },
    nullptr, // premodulate
    [](const arguments& a, const combiner_inputs&) { return sum(a.a1, times(a.a2, a.a1.a)); },
    [](const arguments& a, const combiner_inputs&) { return sum(product(a.a1, a.a2), all(a.a1.a)); },
    [](const arguments& a, const combiner_inputs&) { return sum(a.a1, times(a.a2, 1 - a.a1.a)); },
    [](const arguments& a, const combiner_inputs&) {
        return sum(product(difference(all(1), a.a1), a.a2), all(a.a1.a));
    },
    nullptr, // bump luminance
    [](const arguments& a, const combiner_inputs&) { return sum(a.a0, product(a.a1, a.a2)); },
    [](const arguments& a, const combiner_inputs&) {
        return sum(product(a.a0, a.a1), product(difference(all(1), a.a0), a.a2));
    },
};

// An argument that the interface does not have is the stage before.
color argument(uint32_t which, const combiner_inputs& inputs)
{
    switch (which) {
    case SVGA3D_TA_CONSTANT:
        return inputs.constant;
    case SVGA3D_TA_DIFFUSE:
        return inputs.diffuse;
    case SVGA3D_TA_TEXTURE:
        return inputs.texture;
    case SVGA3D_TA_SPECULAR:
        return inputs.specular;
    default:
        return inputs.previous;
    }
}

arguments arguments_of(const std::array<uint32_t, 3>& which, const combiner_inputs& inputs)
{
    return {argument(which[0], inputs), argument(which[1], inputs), argument(which[2], inputs)};
}

bool is_supported(uint32_t which)
{
    return which < SVGA3D_TC_MAX && limits::texture_operations >> which & 1;
}

draw_result make_stage(const context& of, surface_store& surfaces, uint32_t index, combiner_stage& stage)
{
    const auto& states = of.texture_states[index];
    stage.color_operation = states[SVGA3D_TS_COLOROP];
    stage.alpha_operation = states[SVGA3D_TS_ALPHAOP];
    stage.color_arguments = {states[SVGA3D_TS_COLORARG0], states[SVGA3D_TS_COLORARG1], states[SVGA3D_TS_COLORARG2]};
    stage.alpha_arguments = {states[SVGA3D_TS_ALPHAARG0], states[SVGA3D_TS_ALPHAARG1], states[SVGA3D_TS_ALPHAARG2]};
    // What state 14 names has been put in the stage's own place at the vertices (transform.cpp).
    stage.coordinates = index;
    const uint32_t flags = states[SVGA3D_TS_TEXTURETRANSFORMFLAGS];
    stage.projected = flags & project_flag && flags & component_flags;
    if (stage.projected)
        stage.divisor = static_cast<uint32_t>(std::bit_width(flags & component_flags)) - 1;
    stage.texture = make_sampler(of, surfaces, index);
    constexpr uint32_t generations = 3; // eye position, eye normal, reflection vector
    // Asked here once: a chain that is made has a function for each of its operations.
    const bool supported = is_supported(stage.color_operation) && is_supported(stage.alpha_operation) &&
                           states[SVGA3D_TS_TEXCOORDGEN] <= generations;
    return supported ? draw_result::done : draw_result::not_supported;
}

} // namespace

draw_result make_chain(const context& of, surface_store& surfaces, combiner_chain& out)
{
    const uint32_t factor = of.render_states[SVGA3D_RS_TEXTUREFACTOR];
    const auto channel = [factor](int shift) { return static_cast<float>(factor >> shift & 255) / 255.0f; };
    out.constant = {channel(16), channel(8), channel(0), channel(24)};
    while (out.count < limits::texture_stages && of.texture_states[out.count][SVGA3D_TS_COLOROP] != SVGA3D_TC_DISABLE) {
        const draw_result result = make_stage(of, surfaces, out.count, out.stages[out.count]);
        if (result != draw_result::done)
            return result;
        ++out.count;
    }
    return draw_result::done;
}

color combine(const combiner_stage& stage, const combiner_inputs& inputs)
{
    const color rgb = operations[stage.color_operation](arguments_of(stage.color_arguments, inputs), inputs);
    // A stage whose alpha is disabled hands on the alpha that it was given.
    color result{clamp01(rgb.r), clamp01(rgb.g), clamp01(rgb.b), inputs.previous.a};
    if (stage.color_operation == SVGA3D_TC_DOTPRODUCT3)
        result.a = result.r; // fills all four channels
    else if (stage.alpha_operation != SVGA3D_TC_DISABLE)
        result.a = clamp01(operations[stage.alpha_operation](arguments_of(stage.alpha_arguments, inputs), inputs).a);
    return result;
}

} // namespace kalix::device::raster
