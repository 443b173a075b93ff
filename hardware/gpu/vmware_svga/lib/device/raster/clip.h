// Clipping: cuts polygons and lines to what can be drawn, in clip space.
//
// Depth and the user's planes are exact. Sideways a guard band, far wider than any viewport, keeps window
// coordinates within range; what it lets through is cut pixel by pixel. What crosses nothing stays as it is.
#pragma once

#include "hardware/gpu/vmware_svga/lib/device/raster/transform.h"

#include <span>
#include <vector>

namespace kalix::device::raster {

// A triangle cut by at most 11 planes has at most 14 corners.
inline constexpr size_t corners_max = 14;

struct polygon {
    std::array<vertex, corners_max> corners;
    size_t count = 0;
};

// Cuts a closed polygon in place; it may end with no corners.
void clip_polygon(const transform_state& state, uint32_t varying_count, polygon& shape);

// Cuts a line in place; false when nothing is left.
bool clip_line(const transform_state& state, uint32_t varying_count, vertex& from, vertex& to);

// Whether a point is inside every plane.
bool is_inside(const transform_state& state, const vertex& point);

} // namespace kalix::device::raster
