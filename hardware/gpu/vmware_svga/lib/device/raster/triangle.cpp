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

// Where an edge crosses row after row. The crossing is a quotient whose dividend grows by the same each row, so
// that one division serves for all rows.
class edge_walk {
public:
    edge_walk(const edge& e, int64_t y) : side_{e.a > 0 ? 1 : e.a < 0 ? -1 : 0}
    {
        rest_ = e.b * (y * subpixels) + e.c; // keeps a x + rest >= 0
        step_ = e.b * subpixels;
        if (side_ == 0)
            return;
        divisor_ = (e.a > 0 ? e.a : -e.a) * subpixels;
        // To the right of the quotient rounded up, or to the left of it rounded down.
        const int64_t dividend = side_ > 0 ? -rest_ + divisor_ - 1 : rest_;
        const int64_t growth = side_ > 0 ? -step_ : step_;
        quotient_ = floor_div(dividend, divisor_);
        remainder_ = dividend - quotient_ * divisor_;
        quotient_step_ = floor_div(growth, divisor_);
        remainder_step_ = growth - quotient_step_ * divisor_;
    }

    // Narrows left..right (pixels, right not included) to what the edge keeps of its row.
    void narrow(int64_t& left, int64_t& right) const
    {
        if (side_ > 0)
            left = std::max(left, quotient_);
        else if (side_ < 0)
            right = std::min(right, quotient_ + 1);
        else if (rest_ < 0)
            right = left;
    }

    void next_row()
    {
        rest_ += step_;
        quotient_ += quotient_step_;
        remainder_ += remainder_step_;
        if (remainder_ >= divisor_) {
            remainder_ -= divisor_;
            ++quotient_;
        }
    }

private:
    int side_; // 1: keeps what is to the right, -1: to the left, 0: level, keeps rows or not
    int64_t rest_, step_;
    int64_t divisor_ = 1, quotient_ = 0, remainder_ = 0, quotient_step_ = 0, remainder_step_ = 0;
};

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
    int64_t y = of.first_from(top);
    edge_walk edges[3] = {{edge_between(corners[0], corners[1]), y},
                          {edge_between(corners[1], corners[2]), y},
                          {edge_between(corners[2], corners[0]), y}};
    for (; y < bottom; ++y) {
        int64_t left = area_of_target.left;
        int64_t right = of.has(y) ? area_of_target.right : left;
        for (edge_walk& e : edges) {
            e.narrow(left, right);
            e.next_row();
        }
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
