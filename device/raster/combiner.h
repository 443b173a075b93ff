// Texture stages: how each combines its arguments into the colour that the next one sees.
//
// A stage is resolved once for a draw; a chain ends at its first disabled stage. Single precision, as texels and vertex
// colours are by then; lanes_stages-inl.h has the same operations, many pixels at a time.
#pragma once

#include "device/raster/sampler.h"

namespace kalix::device::raster {

// What a stage's arguments can name at one pixel.
struct combiner_inputs {
    color constant, previous, diffuse, texture, specular;
};

struct combiner_stage {
    uint32_t color_operation = SVGA3D_TC_DISABLE, alpha_operation = SVGA3D_TC_DISABLE;
    std::array<uint32_t, 3> color_arguments{}, alpha_arguments{}; // arg 0, arg 1, arg 2
    uint32_t coordinates = 0;                                     // which of the vertex's coordinates it samples at
    bool projected = false;                                       // divide by the last coordinate in use
    uint32_t divisor = 3;                                         // which that is: 0 to 3
    sampler texture;
};

struct combiner_chain {
    std::array<combiner_stage, SVGA3D_TEXTURE_STAGES> stages;
    uint32_t count = 0;
    color constant{}; // the texture factor
};

// Resolves the chain; not_supported when a stage needs what is not announced.
draw_result make_chain(const context& of, surface_store& surfaces, combiner_chain& out);

// One stage's result, clamped to 0..1.
color combine(const combiner_stage& stage, const combiner_inputs& inputs);

} // namespace kalix::device::raster
