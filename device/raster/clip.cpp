// Clipping one plane after the other, in double precision, each on what the planes before have left.

#include "device/raster/clip.h"

#include "device/state/limits.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace kalix::device::raster {
namespace {

// What is not a number is outside.
bool is_kept(double d)
{
    return d >= 0;
}

// A triangle's or line's planes that cut something off lie from this one on. There is one: what crosses nothing does
// not come here, and a shift by all 32 bits would have no meaning.
template <typename... vertices>
uint32_t first_cutting(const vertices&... of)
{
    return static_cast<uint32_t>(std::countr_zero((of.outside | ...)));
}

} // namespace

// Sideways the guard band, in widths of clip space: window coordinates then stay within limits::extent to both sides,
// as long as the viewport's middle lies within half of that. A viewport further out has clip space's own sides, and
// what lies beyond the extent all the same is not drawn (place()).
clipper::clipper(const transform_state& state)
    : across_{std::max(1.0, limits::extent / 2.0 / std::max(state.half_width + state.left, 1.0))},
      down_{std::max(1.0, limits::extent / 2.0 / std::max(state.half_height + state.top, 1.0))},
      box_{{{0, 0, 0, 1, -smallest_w},
            {0, 0, 1, 0, 0},
            {0, 0, -1, 1, 0},
            {1, 0, 0, across_, 0},
            {-1, 0, 0, across_, 0},
            {0, 1, 0, down_, 0},
            {0, -1, 0, down_, 0}}},
      any_{!state.transformed}, planes_enabled_{state.planes_enabled}, varying_count_{state.varying_count},
      value_count_{state.value_count}
{
}

double clipper::distance(uint32_t plane, const vertex& v) const
{
    // Distances from the user's planes stand behind the values that vary; they are values like others.
    if (plane >= box_planes)
        return v.values[varying_count_ + plane - box_planes];
    const clip_plane& p = box_[plane];
    return p.x * v.clip[0] + p.y * v.clip[1] + p.z * v.clip[2] + p.w * v.clip[3] + p.offset;
}

uint32_t clipper::tested(const vertex& v) const
{
    uint32_t lost = 0;
    for (uint32_t plane = 0; plane < box_planes; ++plane)
        lost |= (is_kept(distance(plane, v)) ? 0u : 1u) << plane;
    for (uint32_t left = planes_enabled_; left != 0; left &= left - 1) {
        const uint32_t plane = box_planes + static_cast<uint32_t>(std::countr_zero(left));
        lost |= (is_kept(distance(plane, v)) ? 0u : 1u) << plane;
    }
    return lost;
}

// The point where an edge meets a plane, always worked out from the kept end, so that two shapes that share the edge
// get the same point. Everything of a vertex is linear in clip space, so that its values are cut as its place is.
vertex* clipper::crossing(const vertex& kept, const vertex& lost, double kept_distance, double lost_distance,
                          vertex_store& store) const
{
    const double t = kept_distance / (kept_distance - lost_distance);
    const auto between = [t](double a, double b) { return a + (b - a) * t; };
    vertex* const at = store.take();
    std::ranges::transform(kept.clip, lost.clip, at->clip.begin(), between);
    std::transform(kept.values, kept.values + value_count_, lost.values, at->values, between);
    // Nothing that comes later asks: planes are measured, and its place in the window is worked out when it is needed.
    at->outside = 0;
    at->drawable = false;
    return at;
}

void clipper::cut_by(uint32_t plane, polygon& shape, vertex_store& store) const
{
    std::array<double, corners_max> distances;
    bool crosses = false;
    for (size_t i = 0; i < shape.count; ++i) {
        distances[i] = distance(plane, *shape.corners[i]);
        crosses |= !is_kept(distances[i]);
    }
    if (!crosses)
        return;
    polygon rest;
    const auto add = [&rest](vertex* v) {
        if (rest.count < corners_max)
            rest.corners[rest.count++] = v;
    };
    for (size_t i = 0; i < shape.count; ++i) {
        const size_t next = (i + 1) % shape.count;
        vertex* const a = shape.corners[i];
        vertex* const b = shape.corners[next];
        if (is_kept(distances[i]))
            add(a);
        if (is_kept(distances[i]) && !is_kept(distances[next]))
            add(crossing(*a, *b, distances[i], distances[next], store));
        else if (!is_kept(distances[i]) && is_kept(distances[next]))
            add(crossing(*b, *a, distances[next], distances[i], store));
    }
    shape = rest;
}

bool clipper::cut_by(uint32_t plane, vertex*& from, vertex*& to, vertex_store& store) const
{
    const double a = distance(plane, *from);
    const double b = distance(plane, *to);
    if (!is_kept(a) && !is_kept(b))
        return false;
    if (!is_kept(a))
        from = crossing(*to, *from, b, a, store);
    else if (!is_kept(b))
        to = crossing(*from, *to, a, b, store);
    return true;
}

void clipper::cut(polygon& shape, vertex_store& store) const
{
    const auto& corners = shape.corners;
    const uint32_t planes = all_planes();
    for (uint32_t plane = first_cutting(*corners[0], *corners[1], *corners[2]); planes >> plane != 0; ++plane) {
        if (planes >> plane & 1)
            cut_by(plane, shape, store);
        // Fewer than three corners enclose nothing.
        if (shape.count < 3) {
            shape.count = 0;
            return;
        }
    }
}

bool clipper::cut(vertex*& from, vertex*& to, vertex_store& store) const
{
    const uint32_t planes = all_planes();
    for (uint32_t plane = first_cutting(*from, *to); planes >> plane != 0; ++plane)
        if (planes >> plane & 1 && !cut_by(plane, from, to, store))
            return false;
    return true;
}

} // namespace kalix::device::raster
