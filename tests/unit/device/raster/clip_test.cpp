// Clipping by every plane at once.

#include "device/raster/clip.h"

#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <numbers>

namespace kalix::device::raster {
namespace {

// A triangle around a circle, and planes of every kind that touch the circle elsewhere: near and far through the slope
// of its depth, the guard band's four, and the user's six. What is left has a corner for each and encloses the circle.
TEST(Clipper, KeepsACornerForEachPlaneThatCuts)
{
    constexpr uint32_t varying = 9, planes = 6;
    const auto state = std::make_unique<transform_state>();
    state->transformed = false;
    state->planes_enabled = (1u << planes) - 1;
    state->varying_count = varying;
    state->value_count = varying + planes;
    state->left = state->top = 0;
    state->half_width = state->half_height = 512;
    const clipper clip{*state};
    const double radius = 524288.0 / 512; // the guard band's, in widths of clip space

    const auto across = [](double degrees, double x, double y) {
        const double angle = degrees * std::numbers::pi / 180;
        return x * std::cos(angle) + y * std::sin(angle);
    };
    vertex_store store;
    store.clear(state->value_count);
    polygon shape;
    const double directions[] = {10, 132, 250}; // to the middles of the triangle's sides
    for (size_t i = 0; i < 3; ++i) {
        const double middle = (directions[i] + directions[(i + 1) % 3] + (i == 2 ? 360 : 0)) / 2;
        const double between = (middle - directions[i]) * std::numbers::pi / 180;
        const double x = radius / std::cos(between) * std::cos(middle * std::numbers::pi / 180);
        const double y = radius / std::cos(between) * std::sin(middle * std::numbers::pi / 180);
        vertex* const corner = store.take();
        corner->clip = {x, y, 0.5 + 0.5 * across(45, x, y) / radius, 1};
        std::fill_n(corner->values, varying, 0.0);
        const double user[planes] = {20, 68, 112, 155, 205, 300};
        for (size_t plane = 0; plane < planes; ++plane)
            corner->values[varying + plane] = radius - across(user[plane], x, y);
        corner->outside = clip.outside(*corner);
        shape.corners[shape.count++] = corner;
    }
    clip.cut(shape, store);
    EXPECT_EQ(shape.count, 3u + 12u);
    for (size_t i = 0; i < shape.count; ++i) { // each side touches the circle
        const auto& a = shape.corners[i]->clip;
        const auto& b = shape.corners[(i + 1) % shape.count]->clip;
        EXPECT_NEAR((a[0] * b[1] - b[0] * a[1]) / std::hypot(b[0] - a[0], b[1] - a[1]), radius, 1e-6 * radius) << i;
    }
}

} // namespace
} // namespace kalix::device::raster
