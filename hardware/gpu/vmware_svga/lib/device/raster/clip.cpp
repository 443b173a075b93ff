#include "hardware/gpu/vmware_svga/lib/device/raster/clip.h"

#include "hardware/gpu/vmware_svga/lib/device/raster/limits.h"

#include <algorithm>
#include <cmath>

namespace kalix::device::raster {
namespace {

constexpr double smallest_w = 1.0 / (1 << 30);

// The box of clip space, and w above 0; sideways as wide as the guard band allows.
std::array<clip_plane, 7> box_of(const transform_state& state)
{
    const double reach = limits::extent / 2.0;
    const double across = std::max(1.0, reach / std::max(state.half_width + state.left, 1.0));
    const double down = std::max(1.0, reach / std::max(state.half_height + state.top, 1.0));
    return {{{0, 0, 0, 1, -smallest_w},
             {0, 0, 1, 0, 0},
             {0, 0, -1, 1, 0},
             {1, 0, 0, across, 0},
             {-1, 0, 0, across, 0},
             {0, 1, 0, down, 0},
             {0, -1, 0, down, 0}}};
}

double distance(const clip_plane& plane, const vertex& v)
{
    return plane.x * v.clip[0] + plane.y * v.clip[1] + plane.z * v.clip[2] + plane.w * v.clip[3] + plane.offset;
}

// What is not a number is outside.
bool is_kept(double d)
{
    return d >= 0;
}

// The point where an edge meets a plane, always worked out from the kept end, so that two shapes that share
// the edge get the same point.
vertex crossing(const vertex& kept, const vertex& lost, double kept_distance, double lost_distance,
                uint32_t varying_count)
{
    const double t = kept_distance / (kept_distance - lost_distance);
    const auto between = [t](double a, double b) { return a + (b - a) * t; };
    vertex at = kept;
    std::ranges::transform(kept.clip, lost.clip, at.clip.begin(), between);
    std::ranges::transform(kept.distances, lost.distances, at.distances.begin(), between);
    for (uint32_t i = 0; i < varying_count; ++i)
        at.values[i] = between(kept.values[i], lost.values[i]);
    return at;
}

// Cuts by one plane, given as a function of a vertex.
template <typename function>
void cut_polygon(polygon& shape, uint32_t varying_count, function distance_of)
{
    std::array<double, corners_max> distances{};
    bool crosses = false;
    for (size_t i = 0; i < shape.count; ++i) {
        distances[i] = distance_of(shape.corners[i]);
        crosses |= !is_kept(distances[i]);
    }
    if (!crosses)
        return;
    polygon rest;
    const auto add = [&rest](const vertex& v) {
        if (rest.count < corners_max)
            rest.corners[rest.count++] = v;
    };
    for (size_t i = 0; i < shape.count; ++i) {
        const size_t next = (i + 1) % shape.count;
        const vertex& a = shape.corners[i];
        const vertex& b = shape.corners[next];
        if (is_kept(distances[i]))
            add(a);
        if (is_kept(distances[i]) && !is_kept(distances[next]))
            add(crossing(a, b, distances[i], distances[next], varying_count));
        else if (!is_kept(distances[i]) && is_kept(distances[next]))
            add(crossing(b, a, distances[next], distances[i], varying_count));
    }
    shape = rest;
}

template <typename function>
bool cut_line(vertex& from, vertex& to, uint32_t varying_count, function distance_of)
{
    const double a = distance_of(from);
    const double b = distance_of(to);
    if (!is_kept(a) && !is_kept(b))
        return false;
    if (!is_kept(a))
        from = crossing(to, from, b, a, varying_count);
    else if (!is_kept(b))
        to = crossing(from, to, a, b, varying_count);
    return true;
}

} // namespace

clipper::clipper(const transform_state& state, uint32_t varying_count)
    : box_{box_of(state)}, any_{!state.transformed}, planes_enabled_{state.planes_enabled}, varying_count_{
                                                                                                varying_count}
{
}

// Calls a function with the distance function of every plane that holds; stops when it returns false.
template <typename function>
bool clipper::for_each_plane(function call) const
{
    if (!any_)
        return true;
    for (const clip_plane& plane : box_)
        if (!call([&plane](const vertex& v) { return distance(plane, v); }))
            return false;
    for (size_t i = 0; i < SVGA3D_CLIP_PLANES; ++i)
        if (planes_enabled_ >> i & 1 && !call([i](const vertex& v) { return v.distances[i]; }))
            return false;
    return true;
}

void clipper::cut(polygon& shape) const
{
    for_each_plane([&](auto distance_of) {
        cut_polygon(shape, varying_count_, distance_of);
        return shape.count >= 3;
    });
    if (shape.count < 3)
        shape.count = 0;
}

bool clipper::cut(vertex& from, vertex& to) const
{
    return for_each_plane([&](auto distance_of) { return cut_line(from, to, varying_count_, distance_of); });
}

bool clipper::holds(const vertex& point) const
{
    return for_each_plane([&](auto distance_of) { return is_kept(distance_of(point)); });
}

} // namespace kalix::device::raster
