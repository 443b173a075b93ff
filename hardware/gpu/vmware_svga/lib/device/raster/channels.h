// Four channels at once: a pixel's blue, green, red and alpha, in the order of its bytes, in single precision.
//
// The compilers' vector types make of it what the machine has; nothing is fused, so that the results are the same
// everywhere. They may lie a level away from the general way's, which works in double precision.
#pragma once

#include <bit>
#include <cstdint>

namespace kalix::device::raster {

using floats [[gnu::vector_size(16)]] = float;
using words [[gnu::vector_size(16)]] = int32_t;

inline floats all_channels(float value)
{
    return floats{value, value, value, value};
}

// Into 0..1; what is not a number becomes 0.
inline floats clamped01(floats v)
{
    const auto positive = std::bit_cast<floats>(std::bit_cast<words>(v) & (v > all_channels(0)));
    const words below = positive < all_channels(1);
    return std::bit_cast<floats>((std::bit_cast<words>(positive) & below) |
                                 (std::bit_cast<words>(all_channels(1)) & ~below));
}

// What a pixel's bytes stand for: 0 to 1.
inline floats unpacked(uint32_t pixel)
{
    const auto byte = [pixel](int shift) { return static_cast<int32_t>(pixel >> shift & 255); };
    return __builtin_convertvector((words{byte(0), byte(8), byte(16), byte(24)}), floats) * (1 / 255.0f);
}

// Four words of 0 to 255 as bytes, in order. Two halves in integer registers: a byte shuffle would go through
// memory where the machine has none.
inline uint32_t low_bytes(words v)
{
    using halves [[gnu::vector_size(16)]] = uint64_t;
    const auto pairs = std::bit_cast<halves>(v);
    const auto folded = [](uint64_t pair) { return static_cast<uint32_t>(pair | pair >> 24) & 0xFFFF; };
    return folded(pairs[0]) | folded(pairs[1]) << 16;
}

// Channels of 0..1 as the nearest bytes; unpacked ones give the bytes that they were.
inline uint32_t packed(floats v)
{
    return low_bytes(__builtin_convertvector(v * 255.0f + 0.5f, words));
}

// From one to the other, by a share of 0..1.
inline floats mixed(floats from, floats to, float share)
{
    return from + (to - from) * share;
}

// Blended by the source's alpha over what lies there.
inline floats over(floats source, floats under)
{
    return source * all_channels(source[3]) + under * all_channels(1 - source[3]);
}

} // namespace kalix::device::raster
