// Texture sampling: one stage's texture, and the colour at a coordinate.
//
// Coordinates in texels are rounded to the nearest 2^-16 before a texel is chosen. A texture that is not
// there samples 0, 0, 0, 1.
#pragma once

#include "hardware/gpu/vmware_svga/lib/device/raster/raster.h"

#include <array>
#include <cstdint>

namespace kalix::device::raster {

inline constexpr uint32_t levels_max = 32; // of one face; sizes have 32 bits

struct sampler {
    std::array<image_view, levels_max> levels{};
    uint32_t level_count = 0; // 0: no texture that can be sampled
    uint32_t address_u = SVGA3D_TEX_ADDRESS_WRAP, address_v = SVGA3D_TEX_ADDRESS_WRAP;
    uint32_t magnify = SVGA3D_TEX_FILTER_NEAREST, minify = SVGA3D_TEX_FILTER_NEAREST;
    uint32_t between_levels = SVGA3D_TEX_FILTER_NONE;
    double bias = 0;
    color border{};
    // Whether the level of detail changes what is sampled, so that it is worth working out.
    bool needs_detail() const { return magnify != minify || between_levels != SVGA3D_TEX_FILTER_NONE; }
};

sampler make_sampler(const context& of, surface_store& surfaces, uint32_t stage);

// The colour at (u, v), 0..1 across the texture, at a level of detail (0 and less magnify).
color sample(const sampler& from, double u, double v, double detail);

// Level of detail of a step of one pixel: log2 of the longer of the two, in texels of the first level.
double detail_of(const sampler& from, double du_dx, double dv_dx, double du_dy, double dv_dy);

} // namespace kalix::device::raster
