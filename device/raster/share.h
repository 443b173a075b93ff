// One thread's share of a draw: which rows are its own, and what it counted.
//
// Rows belong to threads in bands, in turn, so that every pixel is drawn by one thread and in the order of the
// primitives: the picture does not depend on how many there are.
#pragma once

#include <cstdint>

namespace kalix::device::raster {

struct share {
    uint32_t index = 0, count = 1; // of the threads that draw
    uint64_t samples = 0;          // fragments that passed all tests

    static constexpr int band_shift = 4; // rows of a band, as a power of two

    // Bands count from the target's first row, so that a pixel falls to the same share in all batches of a draw.
    bool has(int64_t y) const { return static_cast<uint64_t>(y >> band_shift) % count == index; }
    // The first row of its own from y on, at least 0.
    int64_t first_from(int64_t y) const
    {
        while (!has(y))
            y = ((y >> band_shift) + 1) << band_shift;
        return y;
    }
};

} // namespace kalix::device::raster
