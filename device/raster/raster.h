// Drawing: what CLEAR and DRAW_PRIMITIVES do to the targets of a context.
//
// Reads a context's state and the surfaces that it names, writes its targets and its query's count. Nothing but memory
// is kept between calls. Called by the device's fetching thread.
//
// The way of a draw: draw.cpp asks everything that could refuse it and cuts it into batches; vertex_fetch, transform,
// lighting, clip and geometry make shapes in the window of them; triangle and line_point find their pixels; span
// chooses between whole rows (pictures, rows), many pixels at a time (lanes) and single ones (fragment), which all have
// the same rules. Lack of memory is thrown as std::bad_alloc before the first pixel is drawn.
#pragma once

#include "device/state/context.h"
#include "device/state/surface.h"

#include <kalix/svga3d_types.h>
#include <span>

namespace kalix::device {

namespace raster {
class worker_pool;
}

enum class draw_result {
    done,            // drawn, or nothing to draw (no pixel inside)
    no_target,       // no colour and no depth target that exists and can be drawn to
    bad_declaration, // a declaration's type or a missing position
    bad_range,       // a primitive type, an index width
    outside,         // a vertex or an index would be read outside its surface
    not_supported    // needs something that the device does not announce
};

// Clears colour, depth or stencil inside the rectangles, the viewport and, with the scissor test on,
// the scissor rectangle; with workers (may be null) where there is enough to share. All is cleared when it returns.
draw_result clear_targets(context& of, surface_store& surfaces, const svga3d_clear& how,
                          std::span<const svga3d_rect> rects, raster::worker_pool* workers = nullptr);

// Draws every range, or nothing at all when one of them is refused; with workers (may be null) where there is
// enough to share. All is drawn when it returns.
draw_result draw_primitives(context& of, surface_store& surfaces,
                            std::span<const svga3d_vertex_declaration> declarations,
                            std::span<const svga3d_primitive_range> ranges, std::span<const uint32_t> divisors,
                            raster::worker_pool* workers = nullptr);

} // namespace kalix::device
