#include "hardware/gpu/vmware_svga/lib/device/raster/span.h"

#include <algorithm>

namespace kalix::device::raster {
namespace {

// The pixels of a row to the right of an edge, or on it where the top-left rule gives it to the triangle:
// a x + b y + c > 0, or = 0 for a top or left edge, over pixel centres in 1/256 pixel.
struct edge {
    int64_t a, b, c;
};

// With clockwise corners (y down) the inside is where the function is positive; an edge is on top when it
// runs level to the right, and left when it runs up.
edge edge_between(const window_vertex& from, const window_vertex& to)
{
    const int64_t a = from.y - to.y;
    const int64_t b = to.x - from.x;
    const bool top_left = a > 0 || (a == 0 && b > 0);
    return {a, b, -(a * from.x + b * from.y) - (top_left ? 0 : 1)};
}

// Narrows left..right (pixels, right not included) to what one edge keeps of row y.
void narrow(const edge& e, int64_t y, int64_t& left, int64_t& right)
{
    const int64_t rest = e.b * (y * subpixels) + e.c; // keeps a x + rest >= 0
    if (e.a > 0)
        left = std::max(left, ceil_div(-rest, e.a * subpixels));
    else if (e.a < 0)
        right = std::min(right, floor_div(rest, -e.a * subpixels) + 1);
    else if (rest < 0)
        right = left;
}

bool needs_steps(const draw_setup& setup)
{
    return std::any_of(setup.chain.stages.begin(), setup.chain.stages.begin() + setup.chain.count,
                       [](const combiner_stage& stage) { return stage.texture.needs_detail(); });
}

} // namespace

int64_t doubled_area(const window_vertex& a, const window_vertex& b, const window_vertex& c)
{
    return (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
}

void draw_triangle(const draw_setup& setup, const triangle_state& state, std::array<window_vertex, 3> corners,
                   share& of)
{
    int64_t area = doubled_area(corners[0], corners[1], corners[2]);
    if (area == 0)
        return;
    if (area < 0) {
        std::swap(corners[1], corners[2]);
        area = -area;
    }
    const edge edges[3] = {edge_between(corners[0], corners[1]), edge_between(corners[1], corners[2]),
                           edge_between(corners[2], corners[0])};
    const auto [low, high] = std::minmax({corners[0].y, corners[1].y, corners[2].y});
    const pixel_rect& area_of_target = setup.to.area;
    const int64_t top = std::max(ceil_div(low, subpixels), area_of_target.top);
    const int64_t bottom = std::min(floor_div(high, subpixels) + 1, area_of_target.bottom);
    if (of.first_from(top) >= bottom)
        return;
    const interpolator at{setup, state, corners, area};
    const span_function draws_span = setup.draws_span;
    const bool steps = needs_steps(setup);
    varyings here;
    varyings right_of;
    varyings below;
    for (int64_t y = of.first_from(top); y < bottom; y = of.first_from(y + 1)) {
        int64_t left = area_of_target.left;
        int64_t right = area_of_target.right;
        for (const edge& e : edges)
            narrow(e, y, left, right);
        if (draws_span && left < right)
            draws_span(setup, {y, left, right, at}, of);
        for (int64_t x = left; x < right && !draws_span; ++x) {
            at.values(x, y, here);
            if (steps) {
                at.values(x + 1, y, right_of);
                at.values(x, y + 1, below);
            }
            draw_fragment(setup,
                          {static_cast<uint32_t>(x), static_cast<uint32_t>(y), at.depth(x, y), state.back_face, &here,
                           steps ? &right_of : nullptr, steps ? &below : nullptr},
                          of);
        }
    }
}

} // namespace kalix::device::raster
