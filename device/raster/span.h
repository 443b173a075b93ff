// Spans: runs of neighbouring pixels of one row of a triangle, drawn by one function for the draw's state.
//
// The general way draws pixel by pixel (fragment.h) and can do everything. Most draws need less: a target of 32-bit
// pixels and flat textures of 32-bit texels. For these a function is chosen once a draw: it
// moves whole rows where a picture lies along the axes (rows.h), or draws neighbouring pixels together (lanes.h).
#pragma once

#include "device/raster/interpolator.h"

namespace kalix::device::raster {

// Pixels left to right - 1 of a row, at least one, inside the draw's area.
struct span {
    int64_t y, left, right;
};

// The function for a draw's state, whose factors it notes; null when only the general way will do.
spans_function choose_spans(draw_setup& setup);

// Whether spans are chosen at all; on. For comparing both ways: not to be changed while a device draws.
void set_spans(bool on);

} // namespace kalix::device::raster
