// Targets: what a context draws to, and the part of it that a command may touch.
//
// Looked up anew for each draw and clear, since bindings keep any id: what does not exist, or has a format that cannot
// be drawn to, is as if it was not bound. Everything that draws stays inside area, which lies in every bound target,
// and so needs to ask no more where a texel is.
#pragma once

#include "device/raster/depth_stencil.h"
#include "device/raster/raster.h"

namespace kalix::device::raster {

// Pixels left to right - 1, top to bottom - 1; empty when a side has none.
struct pixel_rect {
    int64_t left = 0, top = 0, right = 0, bottom = 0;
    bool is_empty() const { return left >= right || top >= bottom; }
};

pixel_rect intersection(const pixel_rect& a, const pixel_rect& b);
// In 64 bits: a corner and a size of 32 bits each do not add up in as many.
pixel_rect pixels_of(const svga3d_rect& rect);

struct depth_target {
    image_view view; // false: none bound
    depth_layout layout;
};

struct targets {
    image_view color; // colour target 0; false: none bound
    depth_target depth;
    depth_target stencil;
    pixel_rect area; // the smallest bound target, cut to the viewport and the scissor rectangle
    bool any() const { return color || depth.view || stencil.view; }
};

// The targets that exist and can be drawn to; their memory is there.
targets targets_of(const context& of, surface_store& surfaces);

} // namespace kalix::device::raster
