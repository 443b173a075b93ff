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

struct clip_plane {
    double x, y, z, w, offset; // keeps x X + y Y + z Z + w W + offset >= 0
};

// The planes of one draw.
class clipper {
public:
    clipper(const transform_state& state, uint32_t varying_count);

    // Cuts a closed polygon in place; it may end with no corners.
    void cut(polygon& shape) const;
    // Cuts a line in place; false when nothing is left.
    bool cut(vertex& from, vertex& to) const;
    // Whether a point is inside every plane; what is made of such points alone needs no cutting.
    bool holds(const vertex& point) const;

private:
    template <typename function>
    bool for_each_plane(function call) const;

    std::array<clip_plane, 7> box_{};
    bool any_;                // transformed positions are not clipped
    uint32_t planes_enabled_; // of the user's
    uint32_t varying_count_;
};

} // namespace kalix::device::raster
