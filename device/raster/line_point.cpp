// Lines and points: one pixel per step of the longer axis, and squares of pixels around a centre.
//
// Pixel by pixel in the general way. They are rounded to pixels first and cut to the area then, and their fragments
// have no neighbours: null steps mean that nothing is minified.

#include "device/raster/numeric.h"
#include "device/raster/primitives.h"

#include <algorithm>
#include <cmath>

namespace kalix::device::raster {
namespace {

constexpr double subpixels = 256;

double pixels(int64_t fixed)
{
    return static_cast<double>(fixed) / subpixels;
}

int64_t nearest_pixel(double coordinate)
{
    return static_cast<int64_t>(std::floor(coordinate + 0.5));
}

bool holds(const pixel_rect& area, int64_t x, int64_t y)
{
    return x >= area.left && x < area.right && y >= area.top && y < area.bottom;
}

// A flat primitive's colours are those of its first vertex.
void make_flat(const triangle_state& state, varyings& out)
{
    if (state.flat)
        std::copy_n(state.flat, uint32_t{varying_fog}, out.begin());
}

// Values at a fraction of a line, perspective-correct: each end's weight is its part of the line over its w.
void values_between(const draw_setup& setup, const triangle_state& state, const window_vertex& a,
                    const window_vertex& b, double t, varyings& out)
{
    const double from = (1 - t) * a.inverse_w;
    const double to = t * b.inverse_w;
    for (uint32_t i = 0; i < setup.varying_count; ++i)
        out[i] = (a.values[i] * from + b.values[i] * to) / (from + to);
    make_flat(state, out);
}

// The steps of a line along its longer axis, end not included.
struct steps {
    int64_t first, end, step;
};

// Cut to low..high - 1, so that a line that reaches far beyond the target takes no longer for it.
steps cut(const steps& whole, int64_t low, int64_t high)
{
    return whole.step > 0 ? steps{std::max(whole.first, low), std::min(whole.end, high), 1}
                          : steps{std::min(whole.first, high - 1), std::max(whole.end, low - 1), -1};
}

} // namespace

void draw_line(const draw_setup& setup, const triangle_state& state, const window_vertex& from, const window_vertex& to,
               bool last_pixel, share& of)
{
    const double x0 = pixels(from.x);
    const double y0 = pixels(from.y);
    const double dx = pixels(to.x) - x0;
    const double dy = pixels(to.y) - y0;
    const bool across = std::abs(dx) >= std::abs(dy);
    const double start = across ? x0 : y0;
    const double length = across ? dx : dy;
    const int64_t first = nearest_pixel(start);
    const int64_t last = nearest_pixel(start + length);
    const int64_t step = last >= first ? 1 : -1;
    const pixel_rect& area = setup.to.area;
    // The end is the first pixel that is not drawn: the last one, unless it counts.
    const steps drawn = cut({first, last + (last_pixel ? step : 0), step}, across ? area.left : area.top,
                            across ? area.right : area.bottom);
    varyings here;
    for (int64_t at = drawn.first; (drawn.end - at) * step > 0; at += step) {
        // The first and the last pixel's centres may lie beyond the ends: their values are those of the ends.
        const double t = length != 0 ? clamp01((static_cast<double>(at) - start) / length) : 0;
        const int64_t other = nearest_pixel(across ? y0 + t * dy : x0 + t * dx);
        const int64_t x = across ? at : other;
        const int64_t y = across ? other : at;
        // Each thread walks the whole line and draws its own rows.
        if (!holds(area, x, y) || !of.has(y))
            continue;
        values_between(setup, state, from, to, t, here);
        const double depth = clamp01(from.z + t * (to.z - from.z) + state.depth_bias);
        draw_fragment(
            setup,
            {static_cast<uint32_t>(x), static_cast<uint32_t>(y), depth, state.back_face, &here, nullptr, nullptr}, of);
    }
}

pixel_rect point_pixels(const window_vertex& at, double size)
{
    // Centres from x - s/2 on and before x + s/2: both bounds are the first centre not below them.
    const auto first = [](double low) { return static_cast<int64_t>(std::ceil(low)); };
    const double x = pixels(at.x), y = pixels(at.y), half = size / 2;
    return {first(x - half), first(y - half), first(x + half), first(y + half)};
}

void draw_point(const draw_setup& setup, const triangle_state& state, const window_vertex& at, double size, bool sprite,
                share& of)
{
    const double left = pixels(at.x) - size / 2;
    const double top = pixels(at.y) - size / 2;
    const pixel_rect area = intersection(setup.to.area, point_pixels(at, size));
    varyings here;
    std::copy_n(at.values, setup.varying_count, here.begin());
    make_flat(state, here);
    for (int64_t y = area.top; y < area.bottom; ++y)
        for (int64_t x = area.left; x < area.right && of.has(y); ++x) {
            for (uint32_t stage = 0; sprite && stage < setup.chain.count; ++stage) {
                here[varying_coordinates + 4 * stage] = (static_cast<double>(x) - left) / size;
                here[varying_coordinates + 4 * stage + 1] = (static_cast<double>(y) - top) / size;
            }
            draw_fragment(setup,
                          {static_cast<uint32_t>(x), static_cast<uint32_t>(y), clamp01(at.z + state.depth_bias),
                           state.back_face, &here, nullptr, nullptr},
                          of);
        }
}

} // namespace kalix::device::raster
