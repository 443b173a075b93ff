// DRAW_PRIMITIVES: every question first, for all ranges, and then the drawing, which asks none.

#include "hardware/gpu/vmware_svga/lib/device/raster/assembly.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/clip.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/limits.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/numeric.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/primitives.h"

#include <algorithm>

namespace kalix::device {
namespace raster {
namespace {

struct planned_range {
    uint32_t type;
    uint32_t primitives;
    std::vector<uint32_t> numbers; // of the vertices, in order
};

bool is_index_width(const svga3d_primitive_range& range)
{
    return range.index_array.sid == SVGA3D_INVALID_ID || range.index_width == 1 || range.index_width == 2 ||
           range.index_width == 4;
}

// Everything of one range that could be refused.
draw_result plan_range(surface_store& surfaces, const vertex_fetch& fetch, const svga3d_primitive_range& range,
                       planned_range& out)
{
    const uint64_t vertices = vertices_of(range.primitive_type, range.primitive_count);
    const bool known = vertices_of(range.primitive_type, 1) != 0;
    if (!known || range.primitive_count > limits::primitives || !is_index_width(range))
        return draw_result::bad_range;
    std::optional<std::vector<uint32_t>> numbers = read_indices(surfaces, range, vertices);
    if (!numbers || (!numbers->empty() && !fetch.holds(std::ranges::max(*numbers))))
        return draw_result::outside;
    out = {range.primitive_type, range.primitive_count, std::move(*numbers)};
    return draw_result::done;
}

// Keeps the vertices transformed last, by number: neighbours in a mesh share them.
class vertex_cache {
public:
    vertex_cache(const transform_state& state, const vertex_fetch& fetch, const draw_setup& setup)
        : state_{state}, fetch_{fetch}, setup_{setup}
    {
    }

    const vertex& get(uint32_t number)
    {
        entry& at = entries_[number % entries_.size()];
        if (!at.filled || at.number != number)
            at = {true, number, transformed_vertex(state_, fetch_, setup_, number)};
        return at.value;
    }

private:
    struct entry {
        bool filled = false;
        uint32_t number = 0;
        vertex value;
    };
    const transform_state& state_;
    const vertex_fetch& fetch_;
    const draw_setup& setup_;
    std::vector<entry> entries_ = std::vector<entry>(64);
};

// One draw's primitives, once nothing can refuse them any more.
class painter {
public:
    painter(const context& of, draw_setup& setup, const vertex_fetch& fetch)
        : setup_{setup}, state_{make_transform(of, fetch.transformed)}, cache_{state_, fetch, setup}
    {
        const auto& states = of.render_states;
        fill_ = states[SVGA3D_RS_FILLMODE];
        flat_ = states[SVGA3D_RS_SHADEMODE] == SVGA3D_SHADEMODE_FLAT;
        cull_ = states[SVGA3D_RS_CULLMODE];
        front_is_clockwise_ = states[SVGA3D_RS_FRONTWINDING] != SVGA3D_FRONTWINDING_CCW;
        last_pixel_ = states[SVGA3D_RS_LASTPIXEL] != 0;
        sprite_ = states[SVGA3D_RS_POINTSPRITEENABLE] != 0;
        slope_bias_ = static_cast<double>(as_float(states[SVGA3D_RS_SLOPESCALEDEPTHBIAS]));
    }

    void draw(const planned_range& range)
    {
        for (uint32_t i = 0; i < range.primitives; ++i) {
            const assembled parts = assemble(range.type, i);
            std::array<vertex, 3> corners;
            for (uint32_t corner = 0; corner < parts.corners; ++corner)
                corners[corner] = cache_.get(range.numbers[parts.at[corner]]);
            flat_values_ = corners[parts.flat].values;
            if (parts.corners == 3)
                triangle(corners);
            else if (parts.corners == 2)
                line(corners[0], corners[1], false);
            else
                point(corners[0], false);
        }
    }

private:
    draw_setup& setup_;
    transform_state state_;
    vertex_cache cache_;
    uint32_t fill_, cull_;
    bool flat_, front_is_clockwise_, last_pixel_, sprite_;
    double slope_bias_;
    varyings flat_values_{};

    triangle_state surface_state(bool back_face) const
    {
        return {back_face, state_.depth_bias, slope_bias_, flat_ ? &flat_values_ : nullptr};
    }

    bool is_culled(bool back_face) const
    {
        return cull_ == SVGA3D_FACE_FRONT_BACK || cull_ == (back_face ? SVGA3D_FACE_BACK : SVGA3D_FACE_FRONT);
    }

    void triangle(const std::array<vertex, 3>& corners)
    {
        polygon shape;
        std::ranges::copy(corners, shape.corners.begin());
        shape.count = 3;
        clip_polygon(state_, setup_.varying_count, shape);
        std::array<window_vertex, corners_max> window;
        int64_t area = 0;
        for (size_t i = 0; i < shape.count; ++i) {
            const std::optional<window_vertex> at = to_window(state_, shape.corners[i]);
            if (!at)
                return;
            window[i] = *at;
            if (i >= 2)
                area += doubled_area(window[0], window[i - 1], window[i]);
        }
        const bool back_face = (area > 0) != front_is_clockwise_;
        if (area == 0 || is_culled(back_face))
            return;
        if (fill_ == SVGA3D_FILLMODE_LINE)
            outline(corners, back_face);
        else if (fill_ == SVGA3D_FILLMODE_POINT)
            std::ranges::for_each(corners, [&](const vertex& corner) { point(corner, back_face); });
        else
            for (size_t i = 2; i < shape.count; ++i)
                draw_triangle(setup_, surface_state(back_face), {window[0], window[i - 1], window[i]});
    }

    void outline(const std::array<vertex, 3>& corners, bool back_face)
    {
        for (size_t i = 0; i < corners.size(); ++i)
            line(corners[i], corners[(i + 1) % corners.size()], back_face);
    }

    void line(vertex from, vertex to, bool back_face)
    {
        if (!clip_line(state_, setup_.varying_count, from, to))
            return;
        const std::optional<window_vertex> a = to_window(state_, from);
        const std::optional<window_vertex> b = to_window(state_, to);
        if (a && b)
            draw_line(setup_, surface_state(back_face), *a, *b, last_pixel_);
    }

    void point(const vertex& corner, bool back_face)
    {
        if (!is_inside(state_, corner))
            return;
        if (const std::optional<window_vertex> at = to_window(state_, corner))
            draw_point(setup_, surface_state(back_face), *at, corner.point_size, sprite_);
    }
};

draw_result plan(surface_store& surfaces, std::span<const svga3d_vertex_declaration> declarations,
                 std::span<const svga3d_primitive_range> ranges, vertex_fetch& fetch, std::vector<planned_range>& out)
{
    if (const draw_result result = make_fetch(surfaces, declarations, fetch); result != draw_result::done)
        return result;
    uint64_t primitives = 0;
    for (const svga3d_primitive_range& range : ranges) {
        primitives += range.primitive_count;
        if (primitives > limits::primitives)
            return draw_result::bad_range;
        if (const draw_result result = plan_range(surfaces, fetch, range, out.emplace_back());
            result != draw_result::done)
            return result;
    }
    return draw_result::done;
}

} // namespace
} // namespace raster

draw_result draw_primitives(context& of, surface_store& surfaces,
                            std::span<const svga3d_vertex_declaration> declarations,
                            std::span<const svga3d_primitive_range> ranges, std::span<const uint32_t> divisors)
{
    if (std::ranges::any_of(divisors, [](uint32_t divisor) { return divisor > 1; }))
        return draw_result::not_supported;
    raster::vertex_fetch fetch;
    std::vector<raster::planned_range> planned;
    raster::draw_setup setup;
    if (const draw_result result = raster::make_setup(of, surfaces, setup); result != draw_result::done)
        return result;
    if (const draw_result result = raster::plan(surfaces, declarations, ranges, fetch, planned);
        result != draw_result::done)
        return result;
    raster::painter paint{of, setup, fetch};
    for (const raster::planned_range& range : planned)
        paint.draw(range);
    if (of.query.active)
        of.query.samples += setup.samples;
    return draw_result::done;
}

} // namespace kalix::device
