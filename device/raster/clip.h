// Clipping: cuts polygons and lines to what can be drawn, in clip space.
//
// Depth and the user's planes are exact. Sideways a guard band, far wider than any viewport, keeps window coordinates
// within range; what it lets through is cut pixel by pixel. What crosses nothing stays as it is.
//
// In clip space, since a place behind the eye has a meaning there and none in the window: the first plane keeps w above
// 0, so that what comes after it can be divided. The user's planes lie in world space; a vertex brings its distances
// from them along (transform.h), which are interpolated like its other values. What is not a number counts as outside.
#pragma once

#include "device/raster/transform.h"

#include <bit>

namespace kalix::device::raster {

// A plane that cuts takes corners away and adds two: one more than before at most, and 13 planes may cut (clip.cpp).
inline constexpr size_t corners_max = 3 + 13;

struct polygon {
    std::array<vertex*, corners_max> corners;
    size_t count = 0;
};

struct clip_plane {
    double x, y, z, w, offset; // keeps x X + y Y + z Z + w W + offset >= 0
};

// The planes of one draw: those of clip space's box, and the user's.
class clipper {
public:
    explicit clipper(const transform_state& state);

    // The planes that lose a vertex, as bits; 0 for one that is inside all.
    uint32_t outside(const vertex& v) const
    {
        return !any_ || (planes_enabled_ == 0 && is_well_inside(v.clip)) ? 0 : tested(v);
    }

    // How many planes may cut.
    size_t planes() const { return static_cast<size_t>(std::popcount(all_planes())); }

    // Cuts a closed polygon or a line, whose vertices know what loses them; new ones come from the store and
    // are without a place in the window. A polygon may end with no corners, a line as false.
    void cut(polygon& shape, vertex_store& store) const;
    bool cut(vertex*& from, vertex*& to, vertex_store& store) const;

private:
    static constexpr uint32_t box_planes = 7;             // w, near, far, and the guard band's four
    static constexpr double smallest_w = 1.0 / (1 << 30); // above 0, so that 1 / w is finite

    // Gives the answer that all planes of the box would give, for numbers that are finite, when it is yes.
    bool is_well_inside(const std::array<double, 4>& at) const
    {
        const auto& [x, y, z, w] = at;
        const double sideways = across_ * w;
        const double upright = down_ * w;
        return w >= smallest_w && w < largest && z >= 0 && z <= w && x >= -sideways && x <= sideways && y >= -upright &&
               y <= upright;
    }
    uint32_t all_planes() const { return ((1u << box_planes) - 1) | planes_enabled_ << box_planes; }
    uint32_t tested(const vertex& v) const;
    double distance(uint32_t plane, const vertex& v) const;
    void cut_by(uint32_t plane, polygon& shape, vertex_store& store) const;
    bool cut_by(uint32_t plane, vertex*& from, vertex*& to, vertex_store& store) const;
    vertex* crossing(const vertex& kept, const vertex& lost, double kept_distance, double lost_distance,
                     vertex_store& store) const;

    static constexpr double largest = 1e200; // products with a guard band's width stay finite

    double across_, down_; // widths of the guard band
    std::array<clip_plane, box_planes> box_;
    bool any_;                // transformed positions are not clipped
    uint32_t planes_enabled_; // of the user's
    uint32_t varying_count_, value_count_;
};

} // namespace kalix::device::raster
