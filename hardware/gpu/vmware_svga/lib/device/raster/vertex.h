// Vertices on their way to the screen, and the values that vary over a primitive.
#pragma once

#include <array>
#include <cstdint>
#include <kalix/svga3d_types.h>

namespace kalix::device::raster {

// Where each varying value stands. Coordinates come last, so that only those of stages in use are walked.
enum varying : uint32_t {
    varying_diffuse = 0,     // r, g, b, a
    varying_specular = 4,    // r, g, b, a
    varying_fog = 8,         // view-space depth, or the factor itself
    varying_coordinates = 9, // s, t, r, q of each stage
    varying_count_max = varying_coordinates + 4 * SVGA3D_TEXTURE_STAGES
};
using varyings = std::array<double, varying_count_max>;

struct vertex {
    std::array<double, 4> clip{};                       // x, y, z, w before the division
    std::array<double, SVGA3D_CLIP_PLANES> distances{}; // from the user's clip planes
    varyings values{};
    double point_size = 1; // pixels
};

// A vertex in window coordinates.
struct window_vertex {
    int64_t x = 0, y = 0; // 1/256 pixel
    double z = 0;         // depth, 0..1
    double inverse_w = 1;
    const double* values = nullptr; // of the draw's varying_count
};

} // namespace kalix::device::raster
