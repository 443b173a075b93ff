// Where a scaled copy samples: destination texel i of dw samples source coordinate (i + 1/2) sw / dw.
//
// A texel's centre lies at its half, so that a copy of equal size takes each texel as it is. The nearest sample is
// worked out in integers: a quotient of doubles could fall on the wrong side of a texel's edge.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace kalix::device {

inline constexpr uint32_t scaled_extent_max = 1u << 30; // texels a side, so that the products below fit 64 bits

// The source texel that holds the coordinate; i < to.
constexpr uint32_t nearest_sample(uint32_t i, uint32_t from, uint32_t to)
{
    return static_cast<uint32_t>((2 * uint64_t{i} + 1) * from / (2 * uint64_t{to}));
}
static_assert(nearest_sample(0, 4, 2) == 1 && nearest_sample(1, 4, 2) == 3 && nearest_sample(3, 2, 4) == 1);

// The two source texels whose centres lie around the coordinate, and how far it is from the first to the
// second. Both stay inside the source.
struct linear_sample {
    uint32_t first, second;
    float weight; // of the second
};

inline linear_sample linear_sample_of(uint32_t i, uint32_t from, uint32_t to)
{
    const double at = (2.0 * i + 1.0) * from / (2.0 * to) - 0.5;
    const double inside = std::clamp(at, 0.0, static_cast<double>(from - 1));
    const auto first = static_cast<uint32_t>(inside);
    return {first, std::min(first + 1, from - 1), static_cast<float>(inside - first)};
}

} // namespace kalix::device
