// The scaling kernels of the software pass: integers alone, one per supported zoom factor.
//
// A kernel keeps some source rows and, of each group of columns, some pixels: their bytes 0 to 2 are copied,
// and byte 3 of the destination stays. The bottom strip is filtered instead, by all kernels but that of a
// third: every pixel becomes one grey value, made from byte 0 of its neighbours in the row and the row above.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kalix {

// Single precision's nearest to 0.333333 and 0.666666, to so many digits: compared exactly, with these same values.
inline constexpr float zoom_third = 0x1.55553ep-2f;
inline constexpr float zoom_half = 0.5f;
inline constexpr float zoom_two_thirds = 0x1.55553ep-1f;
inline constexpr float zoom_three_quarters = 0.75f;

struct scaled_frame {
    uint32_t width, height;    // pixels of four bytes
    std::span<std::byte> from; // rows of width pixels
    std::span<std::byte> to;   // rows of pitch bytes
    uint32_t pitch;
};

// Scales with the kernel of exactly that factor. False, and nothing is touched, when there is no kernel or
// either side is too small. Columns go in whole groups: when the width is no multiple of the group, a row's last
// one takes pixels that lie behind it, and the last one in from for those behind the end; the last row written
// needs room for a whole group.
bool scale(float zoom, const scaled_frame& frame);

} // namespace kalix
