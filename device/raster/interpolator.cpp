// The planes through a triangle's corners, for those values that the draw looks at.

#include "device/raster/interpolator.h"

#include <algorithm>
#include <cmath>

namespace kalix::device::raster {
namespace {

double pixels(int64_t fixed)
{
    return static_cast<double>(fixed) / subpixels;
}

} // namespace

interpolator::interpolator(const draw_setup& setup, const triangle_state& state,
                           const std::array<window_vertex, 3>& corners, int64_t area)
    : count_{setup.varying_count}, back_face_{state.back_face}
{
    x0_ = pixels(corners[0].x);
    y0_ = pixels(corners[0].y);
    for (size_t i = 0; i < 2; ++i) {
        x_[i] = pixels(corners[i + 1].x) - x0_;
        y_[i] = pixels(corners[i + 1].y) - y0_;
    }
    // The area counts squares of 1/256 pixel; it is above 0, since triangles without one are not drawn.
    scale_ = static_cast<double>(subpixels * subpixels) / static_cast<double>(area);
    affine_ = corners[0].inverse_w == corners[1].inverse_w && corners[0].inverse_w == corners[2].inverse_w;
    depth_ = through(corners[0].z, corners[1].z, corners[2].z);
    inverse_w_ = through(corners[0].inverse_w, corners[1].inverse_w, corners[2].inverse_w);
    // The larger slope of the two is the interface's; it is one for the whole triangle, as a plane's is.
    bias_ = state.depth_bias + state.slope_bias * std::max(std::abs(depth_.dx), std::abs(depth_.dy));
    for (uint32_t which = 0; which < setup.walked_count; ++which) {
        const uint32_t i = setup.walked[which];
        // Of a flat primitive the colours alone stay the same all over: fog and coordinates go on.
        const bool flat = state.flat && i < varying_fog;
        const auto value = [&](size_t corner) {
            const double v = flat ? state.flat[i] : corners[corner].values[i];
            return affine_ ? v : v * corners[corner].inverse_w;
        };
        values_[i] = through(value(0), value(1), value(2));
    }
}

plane interpolator::through(double v0, double v1, double v2) const
{
    // Differences against the first corner, solved for the growth to the right and down (Cramer's rule).
    const double first = v1 - v0;
    const double second = v2 - v0;
    return {v0, (first * y_[1] - second * y_[0]) * scale_, (second * x_[0] - first * x_[1]) * scale_};
}

} // namespace kalix::device::raster
