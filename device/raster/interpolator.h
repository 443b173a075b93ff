// Interpolation over a triangle: every value is a plane over the window, in double precision.
//
// A value over w is linear in the window, and so is 1 / w: their quotient at a pixel is the value, correct in
// perspective. Where all corners have one w, the values themselves are linear and nothing is divided. Depth is linear
// as it is. The planes begin at the triangle's first corner and not at the window's, which keeps the terms small; all
// ways of drawing work out a plane by the same operations in the same order, so that all find the same depths and
// texels.
#pragma once

#include "device/raster/numeric.h"
#include "device/raster/primitives.h"

namespace kalix::device::raster {

inline constexpr int64_t subpixels = 256; // of a pixel, each way

// A value that is linear over the window: at + dy (y - y0) + dx (x - x0), from the first corner.
struct plane {
    double at, dx, dy;
    double at_row(double y) const { return at + dy * y; }
    double operator()(double x, double y) const { return at_row(y) + dx * x; }
    bool is_constant() const { return dx == 0 && dy == 0; }
};

// The planes of a triangle.
class interpolator {
public:
    // Corners in an order in which their doubled area is positive.
    interpolator(const draw_setup& setup, const triangle_state& state, const std::array<window_vertex, 3>& corners,
                 int64_t area);

    // A pixel's distance from the first corner, which the planes take.
    double right_of_origin(int64_t x) const { return static_cast<double>(x) - x0_; }
    double below_origin(int64_t y) const { return static_cast<double>(y) - y0_; }

    double depth(int64_t x, int64_t y) const { return clamp01(depth_(right_of_origin(x), below_origin(y)) + bias_); }

    // What a value's plane gives is multiplied by; 1 when the planes hold the values themselves.
    double w_at(double right, double below) const { return affine_ ? 1 : 1 / inverse_w_(right, below); }
    bool is_affine() const { return affine_; }
    const plane& depth_plane() const { return depth_; } // without the bias
    double depth_bias() const { return bias_; }
    const plane& inverse_w_plane() const { return inverse_w_; }

    const plane& value_plane(uint32_t which) const { return values_[which]; }
    bool is_back_face() const { return back_face_; }

    // All values that the draw walks, at a pixel.
    void values(int64_t x, int64_t y, varyings& out) const
    {
        const double right = right_of_origin(x);
        const double below = below_origin(y);
        const double w = w_at(right, below);
        for (uint32_t i = 0; i < count_; ++i)
            out[i] = values_[i](right, below) * w;
    }

private:
    plane through(double v0, double v1, double v2) const;

    uint32_t count_;
    bool back_face_, affine_;
    double x0_, y0_;     // the first corner, pixels
    double x_[2], y_[2]; // the other corners, from the first
    double scale_;       // 1 / doubled area in pixels
    double bias_;
    plane depth_, inverse_w_;
    std::array<plane, varying_count_max> values_; // those that the draw walks
};

} // namespace kalix::device::raster
