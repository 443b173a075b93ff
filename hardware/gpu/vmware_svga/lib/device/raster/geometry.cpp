#include "hardware/gpu/vmware_svga/lib/device/raster/geometry.h"

#include "hardware/gpu/vmware_svga/lib/device/raster/numeric.h"

#include <algorithm>

namespace kalix::device::raster {
namespace {

constexpr int64_t subpixel_steps = 256;

// Pixels that a shape may cover, its corners' box cut to the target.
uint64_t box_pixels(const pixel_rect& target, std::span<const window_vertex> corners, double around)
{
    pixel_rect box{INT64_MAX, INT64_MAX, INT64_MIN, INT64_MIN};
    const auto reach = static_cast<int64_t>(around) + 1;
    for (const window_vertex& each : corners) {
        const int64_t x = floor_div(each.x, subpixel_steps);
        const int64_t y = floor_div(each.y, subpixel_steps);
        box = {std::min(box.left, x - reach), std::min(box.top, y - reach), std::max(box.right, x + reach),
               std::max(box.bottom, y + reach)};
    }
    box = intersection(box, target);
    return box.is_empty() ? 0 : static_cast<uint64_t>((box.right - box.left) * (box.bottom - box.top));
}

} // namespace

double* value_store::take(size_t count)
{
    if (blocks_.empty() || used_ + count > block_values) {
        block_ += blocks_.empty() ? 0 : 1;
        used_ = 0;
        if (block_ == blocks_.size())
            blocks_.push_back(std::make_unique<double[]>(block_values));
    }
    double* const at = blocks_[block_].get() + used_;
    used_ += count;
    return at;
}

geometry::geometry(const context& of, const draw_setup& setup, const vertex_fetch& fetch)
    : setup_{setup}, fetch_{fetch}, state_{make_transform(of, fetch.transformed)}, clip_{state_, setup.varying_count},
      kept_(kept_vertices)
{
    const auto& states = of.render_states;
    fill_ = states[SVGA3D_RS_FILLMODE];
    flat_ = states[SVGA3D_RS_SHADEMODE] == SVGA3D_SHADEMODE_FLAT;
    cull_ = states[SVGA3D_RS_CULLMODE];
    front_is_clockwise_ = states[SVGA3D_RS_FRONTWINDING] != SVGA3D_FRONTWINDING_CCW;
    last_pixel_ = states[SVGA3D_RS_LASTPIXEL] != 0;
    slope_bias_ = static_cast<double>(as_float(states[SVGA3D_RS_SLOPESCALEDEPTHBIAS]));
}

void geometry::clear()
{
    shapes_.clear();
    values_.clear();
    pixels_ = 0;
    for (kept_vertex& each : kept_)
        each.placed = false; // its values are gone
}

geometry::kept_vertex& geometry::vertex_of(uint32_t number)
{
    kept_vertex& at = kept_[number % kept_vertices];
    if (!at.filled || at.number != number) {
        at.filled = true;
        at.placed = false;
        at.number = number;
        at.value = transformed_vertex(state_, fetch_, setup_, number);
        at.inside = clip_.holds(at.value);
    }
    if (!at.placed) {
        at.placed = true;
        at.window = at.inside ? placed(at.value) : std::nullopt;
    }
    return at;
}

std::optional<window_vertex> geometry::placed(const vertex& from)
{
    std::optional<window_vertex> at = to_window(state_, from);
    if (at) {
        double* const values = values_.take(setup_.varying_count);
        std::copy_n(from.values.begin(), setup_.varying_count, values);
        at->values = values;
    }
    return at;
}

const double* geometry::flat_values(uint32_t number)
{
    double* const values = values_.take(varying_fog);
    std::copy_n(vertex_of(number).value.values.begin(), uint32_t{varying_fog}, values);
    return values;
}

void geometry::add(const std::array<uint32_t, 3>& numbers, uint32_t corners, uint32_t flat)
{
    const double* const colors = flat_ ? flat_values(numbers[flat]) : nullptr;
    if (corners == 3)
        add_triangle(numbers, colors);
    else if (corners == 2)
        add_line(vertex_of(numbers[0]).value, vertex_of(numbers[1]).value, false, colors);
    else
        add_point(vertex_of(numbers[0]).value, false, colors);
}

void geometry::add_triangle(const std::array<uint32_t, 3>& numbers, const double* flat)
{
    std::array<window_vertex, corners_max> window;
    size_t count = 0;
    bool inside = true;
    for (const uint32_t number : numbers) {
        const kept_vertex& corner = vertex_of(number);
        inside = inside && corner.inside;
        if (inside && !corner.window)
            return; // beyond what can be drawn
        if (inside)
            window[count++] = *corner.window;
    }
    if (!inside) {
        polygon shape;
        for (const uint32_t number : numbers)
            shape.corners[shape.count++] = vertex_of(number).value;
        clip_.cut(shape);
        for (count = 0; count < shape.count; ++count) {
            const std::optional<window_vertex> at = placed(shape.corners[count]);
            if (!at)
                return;
            window[count] = *at;
        }
    }
    add_polygon({window.data(), count}, numbers, flat);
}

// A polygon that clipping has left, as a fan of triangles, or as its outline or corners.
void geometry::add_polygon(std::span<const window_vertex> corners, const std::array<uint32_t, 3>& numbers,
                           const double* flat)
{
    int64_t area = 0;
    for (size_t i = 2; i < corners.size(); ++i)
        area += doubled_area(corners[0], corners[i - 1], corners[i]);
    const bool back_face = (area > 0) != front_is_clockwise_;
    if (area == 0 || is_culled(back_face))
        return;
    if (fill_ == SVGA3D_FILLMODE_POINT) {
        for (const uint32_t number : numbers)
            add_point(vertex_of(number).value, back_face, flat);
    } else if (fill_ == SVGA3D_FILLMODE_LINE) {
        for (size_t i = 0; i < 3; ++i) {
            const vertex from = vertex_of(numbers[i]).value;
            add_line(from, vertex_of(numbers[(i + 1) % 3]).value, back_face, flat);
        }
    } else {
        for (size_t i = 2; i < corners.size(); ++i)
            push(3, back_face, flat, {corners[0], corners[i - 1], corners[i]}, 0);
    }
}

void geometry::add_line(vertex from, vertex to, bool back_face, const double* flat)
{
    if (!clip_.cut(from, to))
        return;
    const std::optional<window_vertex> a = placed(from);
    const std::optional<window_vertex> b = placed(to);
    if (a && b)
        push(2, back_face, flat, {*a, *b, *b}, 0);
}

void geometry::add_point(const vertex& at, bool back_face, const double* flat)
{
    if (!clip_.holds(at))
        return;
    if (const std::optional<window_vertex> placed_at = placed(at))
        push(1, back_face, flat, {*placed_at, *placed_at, *placed_at}, at.point_size);
}

void geometry::push(uint32_t corners, bool back_face, const double* flat, const std::array<window_vertex, 3>& at,
                    double size)
{
    const uint64_t pixels = box_pixels(setup_.to.area, {at.data(), corners}, size / 2);
    if (pixels == 0)
        return;
    pixels_ += pixels;
    shapes_.push_back({corners, {back_face, state_.depth_bias, slope_bias_, flat}, at, last_pixel_, size});
}

bool geometry::is_culled(bool back_face) const
{
    return cull_ == SVGA3D_FACE_FRONT_BACK || cull_ == (back_face ? SVGA3D_FACE_BACK : SVGA3D_FACE_FRONT);
}

} // namespace kalix::device::raster
