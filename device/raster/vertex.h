// Vertices on their way to the screen, and the values that vary over a primitive.
//
// A vertex lies in its batch's store together with as many values as its draw has, and goes with the batch; shapes
// point at it. It is written by the thread that works its batch out, before any other thread sees it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <kalix/svga3d_types.h>
#include <memory>
#include <new>

namespace kalix::device::raster {

// Where each varying value stands. Coordinates come last, so that only those of stages in use are walked.
enum varying : uint32_t {
    varying_diffuse = 0,     // r, g, b, a
    varying_specular = 4,    // r, g, b, a
    varying_fog = 8,         // depth, or the factor itself
    varying_coordinates = 9, // s, t, r, q of each stage in use; x, y, z in view space behind them, for range fog
    varying_count_max = varying_coordinates + 4 * SVGA3D_TEXTURE_STAGES + 3
};
using varyings = std::array<double, varying_count_max>;

// A vertex in window coordinates.
struct window_vertex {
    int64_t x, y; // 1/256 pixel
    double z;     // depth, finite; pixels clamp it
    double inverse_w;
    const double* values; // of the draw's varying_count
};

// A transformed vertex; nothing of it is set before it is worked out.
struct vertex {
    window_vertex window;       // of a drawable one
    std::array<double, 4> clip; // x, y, z, w before the division
    double point_size;          // pixels, where points are drawn
    double* values;             // the draw's varyings; behind them distances from the user's planes, if one is on
    uint32_t outside;           // bits of the clip planes that lose it
    bool drawable;              // inside all planes, and within reach of the window's coordinates
};

// Vertices with their values, handed out one by one and given up all at once. Its memory is there from the start,
// without pages until they are used, so that threads may take vertices where nothing may fail.
class vertex_store {
public:
    // Gives up all vertices; those to come have so many values.
    void clear(uint32_t values)
    {
        stride_ = (sizeof(vertex) + values * sizeof(double) + 15) / 16 * 16;
        next_ = memory_.get();
        left_ = bytes / stride_;
    }

    size_t left() const { return left_; } // vertices that may be taken

    vertex* take()
    {
        if (left_ == 0)
            std::abort(); // whoever takes has asked what is left
        auto* const at = new (next_) vertex;
        at->values = reinterpret_cast<double*>(next_ + sizeof(vertex));
        next_ += stride_;
        --left_;
        return at;
    }

private:
    static constexpr size_t bytes = size_t{1} << 21;

    std::unique_ptr<std::byte[]> memory_ = std::make_unique_for_overwrite<std::byte[]>(bytes);
    std::byte* next_ = nullptr; // in it
    size_t left_ = 0;           // vertices that it still holds
    size_t stride_ = 0;         // bytes from one vertex to the next
};
static_assert(sizeof(vertex) % alignof(double) == 0);

} // namespace kalix::device::raster
