// Triangles: which pixels of each row lie inside, and who draws them.
//
// Edge functions in 64-bit integers decide. Corners lie within 2^28 steps of 1/256 pixel to both sides of 0, so that
// differences fit 30 bits and products 60. Each row is one span between its edges, found without a look at its pixels.

#include "device/raster/span.h"

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
    // In integers, > 0 is >= 0 of one less: edges that do not own their pixels are moved by the smallest step.
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
        // By pixels: from one to the next the function grows by 256 a.
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

    // By sums alone; the remainder stays in 0..divisor - 1, and carries into the quotient at most once.
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

// The spans of a triangle's rows from y on, one after the other.
class row_walk {
public:
    row_walk(const draw_setup& setup, const std::array<window_vertex, 3>& corners, int64_t y)
        : area_{setup.to.area}, y_{y}, edges_{{edge_between(corners[0], corners[1]), y},
                                              {edge_between(corners[1], corners[2]), y},
                                              {edge_between(corners[2], corners[0]), y}}
    {
    }

    // May be empty.
    span next()
    {
        span row{y_++, area_.left, area_.right};
        // Rows of other threads are walked past as well: a step is a few sums, a start a division.
        for (edge_walk& e : edges_) {
            e.narrow(row.left, row.right);
            e.next_row();
        }
        return row;
    }

private:
    const pixel_rect& area_;
    int64_t y_;
    edge_walk edges_[3];
};

bool needs_steps(const draw_setup& setup)
{
    return std::any_of(setup.chain.stages.begin(), setup.chain.stages.begin() + setup.chain.count,
                       [](const combiner_stage& stage) { return stage.texture.needs_detail(); });
}

// Pixel by pixel, in the general way.
void draw_pixels(const draw_setup& setup, const interpolator& at, bool back_face, row_walk& rows, int64_t bottom,
                 share& of)
{
    const bool steps = needs_steps(setup);
    varyings here;
    varyings right_of;
    varyings below;
    for (span row = rows.next(); row.y < bottom; row = rows.next()) {
        if (!of.has(row.y))
            continue;
        for (int64_t x = row.left; x < row.right; ++x) {
            at.values(x, row.y, here);
            if (steps) {
                // Steps are measured between planes, also where the neighbour lies outside of the triangle.
                at.values(x + 1, row.y, right_of);
                at.values(x, row.y + 1, below);
            }
            draw_fragment(setup,
                          {static_cast<uint32_t>(x), static_cast<uint32_t>(row.y), at.depth(x, row.y), back_face, &here,
                           steps ? &right_of : nullptr, steps ? &below : nullptr},
                          of);
        }
    }
}

// Spans on their way to the function that draws them: what they share is then worked out once for many.
class spans_batch {
public:
    // True when it is full.
    bool add(const span& row)
    {
        rows_[count_++] = row;
        return count_ == rows_.size();
    }
    void draw(const draw_setup& setup, const interpolator& at, share& of)
    {
        if (count_ != 0)
            setup.draws_spans(setup, at, {rows_.data(), count_}, of);
        count_ = 0;
    }

private:
    size_t count_ = 0;
    std::array<span, 64> rows_;
};

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
        // The planes and edges want clockwise corners; whether a face is seen from behind has been decided already.
        std::swap(corners[1], corners[2]);
        area = -area;
    }
    const auto [low, high] = std::minmax({corners[0].y, corners[1].y, corners[2].y});
    const pixel_rect& area_of_target = setup.to.area;
    const int64_t top = std::max(ceil_div(low, subpixels), area_of_target.top);
    const int64_t bottom = std::min(floor_div(high, subpixels) + 1, area_of_target.bottom);
    // Before the planes are worked out: many triangles are low, and none of their rows may be this thread's.
    if (of.first_from(top) >= bottom)
        return;
    const interpolator at{setup, state, corners, area};
    row_walk rows{setup, corners, of.first_from(top)};
    if (!setup.draws_spans)
        return draw_pixels(setup, at, state.back_face, rows, bottom, of);
    spans_batch batch;
    for (int64_t y = of.first_from(top); y < bottom; ++y) {
        const span row = rows.next();
        if (of.has(y) && row.left < row.right && batch.add(row))
            batch.draw(setup, at, of);
    }
    batch.draw(setup, at, of);
}

} // namespace kalix::device::raster
