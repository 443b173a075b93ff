// A context's state as a draw needs it: looked up, checked and decoded once, so that a pixel asks nothing twice. What
// is not there or not done refuses the draw here.

#include "device/raster/fragment.h"
#include "device/raster/numeric.h"
#include "device/raster/span.h"

#include <algorithm>

namespace kalix::device::raster {
namespace {

void make_depth(const context& of, draw_setup& out)
{
    const auto& states = of.render_states;
    // Without the test nothing is written either, as the interface has it.
    out.tests_depth = states[SVGA3D_RS_ZENABLE] && out.to.depth.view;
    out.writes_depth = states[SVGA3D_RS_ZWRITEENABLE] != 0;
    out.depth_compare = states[SVGA3D_RS_ZFUNC];
}

void make_stencil(const context& of, draw_setup& out)
{
    const auto& states = of.render_states;
    out.tests_stencil = states[SVGA3D_RS_STENCILENABLE] && out.to.stencil.view;
    out.front = {states[SVGA3D_RS_STENCILFUNC], states[SVGA3D_RS_STENCILFAIL], states[SVGA3D_RS_STENCILZFAIL],
                 states[SVGA3D_RS_STENCILPASS]};
    out.back = out.front;
    // Reference and masks are the same for both sides.
    if (states[SVGA3D_RS_STENCILENABLE2SIDED])
        out.back = {states[SVGA3D_RS_CCWSTENCILFUNC], states[SVGA3D_RS_CCWSTENCILFAIL],
                    states[SVGA3D_RS_CCWSTENCILZFAIL], states[SVGA3D_RS_CCWSTENCILPASS]};
    out.stencil_reference = states[SVGA3D_RS_STENCILREF];
    out.stencil_mask = states[SVGA3D_RS_STENCILMASK];
    out.stencil_write_mask = states[SVGA3D_RS_STENCILWRITEMASK];
}

void make_fog(const context& of, bool transformed, fog_state& out)
{
    const auto& states = of.render_states;
    const auto real = [&states](uint32_t state) { return static_cast<double>(as_float(states[state])); };
    const uint32_t mode = states[SVGA3D_RS_FOGMODE];
    const uint32_t argb = states[SVGA3D_RS_FOGCOLOR];
    const auto channel = [argb](int shift) { return static_cast<float>(argb >> shift & 255) / 255.0f; };
    out.enabled = states[SVGA3D_RS_FOGENABLE] != 0;
    // The word's bytes, lowest first: the function, whether per vertex (1) or pixel (2), whether by depth (1) or range
    // (2).
    out.function = mode & 255;
    out.per_pixel = (mode >> 8 & 255) == 2 && out.function != 4;
    // Transformed positions have no place in view space.
    out.by_range = ((mode >> 16 & 255) == 2 || states[SVGA3D_RS_RANGEFOGENABLE]) && !transformed;
    out.start = real(SVGA3D_RS_FOGSTART);
    out.end = real(SVGA3D_RS_FOGEND);
    out.density = real(SVGA3D_RS_FOGDENSITY);
    out.value = {channel(16), channel(8), channel(0), channel(24)};
}

// By ids, so that other faces and levels of a target count as well: that costs speed alone.
bool feeds_back(const context& of, uint32_t stages)
{
    for (uint32_t stage = 0; stage < stages; ++stage) {
        const uint32_t sid = of.texture_states[stage][SVGA3D_TS_BIND_TEXTURE];
        for (const svga3d_render_target target : {SVGA3D_RT_COLOR0, SVGA3D_RT_DEPTH, SVGA3D_RT_STENCIL})
            if (sid != SVGA3D_INVALID_ID && sid == of.targets[target].sid)
                return true;
    }
    return false;
}

// Which values are worked out for every triangle: those that its pixels will ask for.
void choose_walked(draw_setup& out)
{
    const auto add = [&out](uint32_t first, uint32_t count) {
        for (uint32_t i = first; i < first + count; ++i)
            out.walked[out.walked_count++] = static_cast<uint8_t>(i);
    };
    // The general way asks for all of them; lanes and rows look at s and t of flat textures and at what is on.
    if (!out.draws_spans)
        return add(0, out.varying_count);
    add(varying_diffuse, 4);
    if (!out.plain)
        add(varying_specular, 4);
    if (out.fog.enabled)
        add(varying_fog, 1);
    for (uint32_t stage = 0; stage < out.chain.count; ++stage)
        add(varying_coordinates + 4 * stage, 2);
}

} // namespace

draw_result make_setup(const context& of, surface_store& surfaces, bool transformed, draw_setup& out)
{
    const auto& states = of.render_states;
    out.to = targets_of(of, surfaces);
    if (!out.to.any())
        return draw_result::no_target;
    // Drawn all the same, the picture would be a wrong one: refused, it is counted.
    if (states[SVGA3D_RS_VERTEXBLEND] || of.bound_shaders[SVGA3D_SHADERTYPE_VS] != SVGA3D_INVALID_ID ||
        of.bound_shaders[SVGA3D_SHADERTYPE_PS] != SVGA3D_INVALID_ID)
        return draw_result::not_supported;
    if (const draw_result result = make_chain(of, surfaces, out.chain); result != draw_result::done)
        return result;
    out.output = make_output(of);
    make_depth(of, out);
    make_stencil(of, out);
    make_fog(of, transformed, out.fog);
    out.adds_specular = states[SVGA3D_RS_SPECULARENABLE] != 0;
    out.tests_alpha = states[SVGA3D_RS_ALPHATESTENABLE] != 0;
    out.alpha_compare = states[SVGA3D_RS_ALPHAFUNC];
    out.alpha_reference = as_float(states[SVGA3D_RS_ALPHAREF]);
    out.varying_count = varying_coordinates + 4 * out.chain.count;
    if (out.fog.enabled && out.fog.per_pixel && out.fog.by_range) {
        out.fog.place = out.varying_count; // a distance is no plane over the window: its parts are
        out.varying_count += 3;
    }
    out.feeds_back = feeds_back(of, out.chain.count);
    out.draws_spans = choose_spans(out);
    choose_walked(out);
    return draw_result::done;
}

} // namespace kalix::device::raster
