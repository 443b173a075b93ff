// Fragments: what happens to one pixel of a primitive, from its varying values to the targets.
//
// Everything that is the same for a whole draw is resolved in draw_setup; draw_fragment does the rest in the order of
// the interface: texture stages, specular, fog, alpha test, stencil, depth, blending, mask.
//
// This is the general way, which can do everything: the others (span.h) give its bytes, or colours within a level of
// them. A setup belongs to one draw and is not changed while threads draw by it; a fragment's texels belong to the
// thread whose row they lie in.
#pragma once

#include "device/raster/blend.h"
#include "device/raster/combiner.h"
#include "device/raster/share.h"
#include "device/raster/targets.h"
#include "device/raster/vertex.h"

#include <span>

namespace kalix::device::raster {

// What happens to the stencil when its own test fails, when the depth test does, and when both pass.
struct stencil_function {
    uint32_t compare = SVGA3D_CMP_ALWAYS, fail = 0, depth_fail = 0, pass = 0;
};

struct fog_state {
    bool enabled = false;
    uint32_t function = 0; // 0 none, 1 exp, 2 exp2, 3 linear, 4 per vertex
    bool per_pixel = false;
    bool by_range = false; // its depth is the distance from the eye
    uint32_t place = 0;    // the first of three varyings that hold a pixel's place, for its distance; 0: not needed
    double start = 0, end = 1, density = 1;
    color value{};
};

// A channel as a product of the texture and the diffuse colour, or one of them; unknown when it is neither.
struct factors {
    bool texture = false, diffuse = false;
    bool known = false;
};
struct stage_factors {
    factors rgb, alpha;
    bool known() const { return rgb.known && alpha.known; }
};

struct span;
struct draw_setup;

class interpolator;

// Draws runs of pixels of a triangle (span.h).
using spans_function = void (*)(const draw_setup& setup, const interpolator& at, std::span<const span> spans,
                                share& of);

struct draw_setup {
    targets to;
    combiner_chain chain;
    output_state output;
    fog_state fog;
    bool adds_specular = false;
    // Samples one of its own targets: the order of pixels shows, so one thread draws them one by one.
    bool feeds_back = false;
    bool tests_alpha = false;
    uint32_t alpha_compare = SVGA3D_CMP_ALWAYS;
    float alpha_reference = 0;
    bool tests_depth = false, writes_depth = false;
    uint32_t depth_compare = SVGA3D_CMP_ALWAYS;
    bool tests_stencil = false;
    stencil_function front, back;
    uint32_t stencil_reference = 0, stencil_mask = ~0u, stencil_write_mask = ~0u;
    uint32_t varying_count = varying_coordinates; // values of a vertex that vary; without those of stages not in use
    spans_function draws_spans = nullptr;         // null: only pixel by pixel
    spans_function draws_lanes = nullptr;         // what it calls where no whole rows can be moved
    // Which of these a triangle works out planes for: those that the chosen way looks at.
    std::array<uint8_t, varying_count_max> walked{};
    uint32_t walked_count = 0;
    // What span.cpp notes: the factors of the one stage that a plain draw has, and whether it is one.
    stage_factors factors;
    bool plain = false; // one texture joined with the diffuse colour, blended by its alpha at most
};

// Resolves a context's state for vertices of a kind; the result that refuses the draw instead when something is not
// there.
draw_result make_setup(const context& of, surface_store& surfaces, bool transformed, draw_setup& out);

// The fog factor of a depth: 1 is no fog.
double fog_factor(const fog_state& fog, double depth);
// How far away a place in view space is.
double distance_to(double x, double y, double z);

struct fragment {
    uint32_t x, y; // inside setup.to.area
    double depth;  // 0..1
    bool back_face;
    const varyings* values;
    // How coordinates change over one pixel to the right and one down; null when nothing needs it.
    const varyings* right;
    const varyings* below;
};

void draw_fragment(const draw_setup& setup, const fragment& what, share& of);

} // namespace kalix::device::raster
