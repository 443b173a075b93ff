#include "hardware/gpu/vmware_svga/lib/device/raster/numeric.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/primitives.h"

#include <algorithm>
#include <cmath>

namespace kalix::device::raster {
namespace {

constexpr int64_t subpixels = 256;

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

// A value that is linear over the window: at + dx (x - x0) + dy (y - y0), from the first corner.
struct plane {
    double at, dx, dy;
    double operator()(double x, double y) const { return at + dx * x + dy * y; }
};

class interpolator {
public:
    interpolator(const draw_setup& setup, const triangle_state& state, const std::array<window_vertex, 3>& corners,
                 int64_t area)
        : count_{setup.varying_count}, x0_{pixels(corners[0].x)}, y0_{pixels(corners[0].y)}
    {
        for (size_t i = 0; i < 2; ++i) {
            x_[i] = pixels(corners[i + 1].x) - x0_;
            y_[i] = pixels(corners[i + 1].y) - y0_;
        }
        scale_ = static_cast<double>(subpixels * subpixels) / static_cast<double>(area);
        affine_ = corners[0].inverse_w == corners[1].inverse_w && corners[0].inverse_w == corners[2].inverse_w;
        depth_ = through(corners[0].z, corners[1].z, corners[2].z);
        inverse_w_ = through(corners[0].inverse_w, corners[1].inverse_w, corners[2].inverse_w);
        bias_ = state.depth_bias + state.slope_bias * std::max(std::abs(depth_.dx), std::abs(depth_.dy));
        for (uint32_t i = 0; i < count_; ++i) {
            const bool flat = state.flat && i < varying_fog;
            const auto value = [&](size_t corner) {
                const double v = flat ? (*state.flat)[i] : (*corners[corner].values)[i];
                return affine_ ? v : v * corners[corner].inverse_w;
            };
            values_[i] = through(value(0), value(1), value(2));
        }
    }

    double depth(int64_t x, int64_t y) const
    {
        return clamp01(depth_(static_cast<double>(x) - x0_, static_cast<double>(y) - y0_) + bias_);
    }

    void values(int64_t x, int64_t y, varyings& out) const
    {
        const double right = static_cast<double>(x) - x0_;
        const double below = static_cast<double>(y) - y0_;
        const double w = affine_ ? 1 : 1 / inverse_w_(right, below);
        for (uint32_t i = 0; i < count_; ++i)
            out[i] = values_[i](right, below) * w;
    }

private:
    uint32_t count_;
    double x0_, y0_;
    double x_[2], y_[2]; // the other corners, from the first
    double scale_;       // 1 / doubled area in pixels
    bool affine_;
    plane depth_, inverse_w_;
    double bias_;
    std::array<plane, varying_count_max> values_;

    static double pixels(int64_t fixed) { return static_cast<double>(fixed) / subpixels; }

    plane through(double v0, double v1, double v2) const
    {
        const double first = v1 - v0;
        const double second = v2 - v0;
        return {v0, (first * y_[1] - second * y_[0]) * scale_, (second * x_[0] - first * x_[1]) * scale_};
    }
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

void draw_triangle(draw_setup& setup, const triangle_state& state, std::array<window_vertex, 3> corners)
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
    if (top >= bottom)
        return;
    const interpolator at{setup, state, corners, area};
    const bool steps = needs_steps(setup);
    varyings here;
    varyings right_of;
    varyings below;
    for (int64_t y = top; y < bottom; ++y) {
        int64_t left = area_of_target.left;
        int64_t right = area_of_target.right;
        for (const edge& e : edges)
            narrow(e, y, left, right);
        for (int64_t x = left; x < right; ++x) {
            at.values(x, y, here);
            if (steps) {
                at.values(x + 1, y, right_of);
                at.values(x, y + 1, below);
            }
            draw_fragment(setup, {static_cast<uint32_t>(x), static_cast<uint32_t>(y), at.depth(x, y), state.back_face,
                                  &here, steps ? &right_of : nullptr, steps ? &below : nullptr});
        }
    }
}

} // namespace kalix::device::raster
