// Shapes of primitives: their vertices first, in groups, and then each primitive cut, culled and put into the window.

#include "device/raster/geometry.h"

#include "device/raster/numeric.h"

#include <algorithm>

namespace kalix::device::raster {
namespace {

constexpr int subpixel_shift = 8; // of 1/256 pixel
constexpr int64_t half_pixel = 1 << (subpixel_shift - 1);

// A pixel's centre lies at a whole coordinate: rounding down and up gives the first centre on either side.
int64_t pixel_down(int64_t fixed)
{
    return fixed >> subpixel_shift;
}
int64_t pixel_up(int64_t fixed)
{
    return -(-fixed >> subpixel_shift);
}
int64_t nearest_pixel(int64_t fixed)
{
    return pixel_down(fixed + half_pixel);
}

// The pixels whose centres lie within a triangle's box.
pixel_rect box_of(const window_vertex& a, const window_vertex& b, const window_vertex& c)
{
    const auto [left, right] = std::minmax({a.x, b.x, c.x});
    const auto [top, bottom] = std::minmax({a.y, b.y, c.y});
    return {pixel_up(left), pixel_up(top), pixel_down(right) + 1, pixel_down(bottom) + 1};
}

// The pixels between those nearest to a line's ends.
pixel_rect box_of(const window_vertex& a, const window_vertex& b)
{
    const auto [left, right] = std::minmax({nearest_pixel(a.x), nearest_pixel(b.x)});
    const auto [top, bottom] = std::minmax({nearest_pixel(a.y), nearest_pixel(b.y)});
    return {left, top, right + 1, bottom + 1};
}

} // namespace

geometry::geometry(const context& of, const draw_setup& setup, const vertex_fetch& fetch, bool has_point_lists)
    : area_{setup.to.area}, state_{made_transform(of, setup, fetch,
                                                  has_point_lists ||
                                                      of.render_states[SVGA3D_RS_FILLMODE] == SVGA3D_FILLMODE_POINT)},
      clip_{state_}
{
    const auto& states = of.render_states;
    fill_ = states[SVGA3D_RS_FILLMODE];
    flat_ = states[SVGA3D_RS_SHADEMODE] == SVGA3D_SHADEMODE_FLAT;
    cull_ = states[SVGA3D_RS_CULLMODE];
    front_is_clockwise_ = states[SVGA3D_RS_FRONTWINDING] != SVGA3D_FRONTWINDING_CCW;
    slope_bias_ = static_cast<double>(as_float(states[SVGA3D_RS_SLOPESCALEDEPTHBIAS]));
}

void geometry::begin(batch& to) const
{
    to.shapes.clear();
    to.pixels = 0;
    to.vertices.clear(state_.value_count);
    to.known.clear();
}

// A plane makes at most as many vertices as the polygon has corners, and a line of an outline one.
size_t geometry::room(const batch& in) const
{
    const size_t vertices = 3 + (corners_max + 3) * clip_.planes();
    return std::min(in.vertices.left() / vertices, (batch::shapes_max - in.shapes.size()) / corners_max);
}

// First the vertices of all, as far as they are not known, and then the shapes.
void geometry::add(batch& to, std::span<const primitive> some) const
{
    std::array<corners_of, added_max> corners;
    std::array<fresh_vertex, together_max> fresh;
    size_t count = 0;
    for (size_t i = 0; i < some.size(); ++i)
        for (uint32_t corner = 0; corner < some[i].corners; ++corner) {
            const uint32_t number = some[i].numbers[corner];
            vertex_cache::place& kept = to.known.of(number);
            if (!to.known.knows(kept, number)) {
                // The place may have been another vertex's of these same primitives; its address has been noted
                // already.
                to.known.put(kept, number, to.vertices.take());
                fresh[count++] = {number, kept.at};
            }
            corners[i][corner] = kept.at;
        }
    const std::span<const fresh_vertex> made{fresh.data(), count};
    transform(state_, made);
    for (const fresh_vertex& each : made) {
        each.at->outside = clip_.outside(*each.at);
        each.at->drawable = false;
        // Of a vertex that a plane loses, 1 / w may not be finite.
        if (each.at->outside == 0)
            place(state_, *each.at);
    }
    for (size_t i = 0; i < some.size(); ++i)
        add(to, some[i], corners[i]);
}

void geometry::add(batch& to, const primitive& what, const corners_of& corners) const
{
    // Of the whole primitive's corner, whether clipping leaves it or not.
    const double* const colors = flat_ ? corners[what.flat]->values : nullptr;
    if (what.corners == 3)
        add_triangle(to, corners, colors);
    else if (what.corners == 2)
        add_line(to, corners[0], corners[1], false, colors);
    else
        add_point(to, corners[0], false, colors);
}

// Puts what clipping has left into the window; false when one corner is beyond what can be drawn, and with it the
// shape.
bool geometry::put_into_window(std::span<vertex* const> corners) const
{
    for (vertex* const each : corners) {
        if (!each->drawable)
            place(state_, *each); // it is new, or too far away once more
        if (!each->drawable)
            return false;
    }
    return true;
}

void geometry::add_triangle(batch& to, const corners_of& corners, const double* flat) const
{
    const uint32_t lost_by_all = corners[0]->outside & corners[1]->outside & corners[2]->outside;
    const uint32_t lost_by_any = corners[0]->outside | corners[1]->outside | corners[2]->outside;
    if (lost_by_any == 0) {
        if (corners[0]->drawable && corners[1]->drawable && corners[2]->drawable)
            add_polygon(to, corners, corners, flat);
        return;
    }
    if (lost_by_all & lost_by_any & (~lost_by_any + 1))
        return; // the first plane that cuts leaves nothing
    polygon shape;
    std::ranges::copy(corners, shape.corners.begin());
    shape.count = corners.size();
    clip_.cut(shape, to.vertices);
    const std::span<vertex* const> left{shape.corners.data(), shape.count};
    if (put_into_window(left))
        add_polygon(to, left, corners, flat);
}

// A polygon that clipping has left, as a fan of triangles, or as the outline or corners of the whole: edges that a
// plane has made are no part of an outline. Its side is that of what is left, since a lost corner may have no place.
void geometry::add_polygon(batch& to, std::span<vertex* const> corners, const corners_of& whole,
                           const double* flat) const
{
    int64_t area = 0;
    for (size_t i = 2; i < corners.size(); ++i)
        area += doubled_area(corners[0]->window, corners[i - 1]->window, corners[i]->window);
    // With y down a positive area is clockwise as seen.
    const bool back_face = (area > 0) != front_is_clockwise_;
    if (area == 0 || is_culled(back_face))
        return;
    if (fill_ == SVGA3D_FILLMODE_POINT) {
        for (vertex* const each : whole)
            add_point(to, each, back_face, flat);
    } else if (fill_ == SVGA3D_FILLMODE_LINE) {
        for (size_t i = 0; i < 3; ++i)
            add_line(to, whole[i], whole[(i + 1) % 3], back_face, flat);
    } else {
        for (size_t i = 2; i < corners.size(); ++i)
            push(to, {{corners[0], corners[i - 1], corners[i]}, flat, 0, 0, 3, back_face},
                 box_of(corners[0]->window, corners[i - 1]->window, corners[i]->window));
    }
}

void geometry::add_line(batch& to, vertex* from, vertex* end, bool back_face, const double* flat) const
{
    if ((from->outside | end->outside) != 0 && !clip_.cut(from, end, to.vertices))
        return;
    if (put_into_window({{from, end}}))
        push(to, {{from, end, end}, flat, 0, 0, 2, back_face}, box_of(from->window, end->window));
}

void geometry::add_point(batch& to, vertex* at, bool back_face, const double* flat) const
{
    if (at->outside == 0 && at->drawable)
        push(to, {{at, at, at}, flat, 0, 0, 1, back_face}, point_pixels(at->window, at->point_size));
}

// Adds a shape that touches pixels of the target.
void geometry::push(batch& to, window_shape shape, const pixel_rect& reach) const
{
    const pixel_rect box = intersection(reach, area_);
    if (box.is_empty())
        return;
    shape.top = static_cast<int32_t>(box.top);
    shape.bottom = static_cast<int32_t>(box.bottom);
    to.pixels += static_cast<uint64_t>((box.right - box.left) * (box.bottom - box.top));
    to.shapes.push_back(shape);
}

bool geometry::is_culled(bool back_face) const
{
    return cull_ == SVGA3D_FACE_FRONT_BACK || cull_ == (back_face ? SVGA3D_FACE_BACK : SVGA3D_FACE_FRONT);
}

} // namespace kalix::device::raster
