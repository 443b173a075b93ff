// Four channels at once: a pixel's blue, green, red and alpha, in the order of its bytes.
//
// Every operation is the scalar one of the general way done four times, with the same roundings, so that the
// bytes that come out are the same. The compilers' vector types make of it what the machine has.
#pragma once

#include "hardware/gpu/vmware_svga/lib/device/raster/numeric.h"

#include <bit>
#include <cstdint>

namespace kalix::device::raster {

using float_pair [[gnu::vector_size(8)]] = float;
using floats [[gnu::vector_size(16)]] = float;
using doubles [[gnu::vector_size(16)]] = double; // two
using words [[gnu::vector_size(16)]] = int32_t;
using word_pair [[gnu::vector_size(8)]] = int32_t;
using long_pair [[gnu::vector_size(16)]] = int64_t;

// A double for each channel.
struct wide_channels {
    doubles low, high; // blue and green, red and alpha
};

inline doubles both(double value)
{
    return doubles{value, value};
}

inline wide_channels widened(floats v)
{
    return {__builtin_convertvector(__builtin_shufflevector(v, v, 0, 1), doubles),
            __builtin_convertvector(__builtin_shufflevector(v, v, 2, 3), doubles)};
}

inline floats narrowed(const wide_channels& v)
{
    const float_pair low = __builtin_convertvector(v.low, float_pair);
    const float_pair high = __builtin_convertvector(v.high, float_pair);
    return __builtin_shufflevector(low, high, 0, 1, 2, 3);
}

// Into 0..1; what is not a number becomes 0.
inline doubles clamped01(doubles v)
{
    const auto positive = std::bit_cast<doubles>(std::bit_cast<long_pair>(v) & (v > both(0)));
    const long_pair below = positive < both(1);
    return std::bit_cast<doubles>((std::bit_cast<long_pair>(positive) & below) |
                                  (std::bit_cast<long_pair>(both(1)) & ~below));
}

// What a pixel's bytes stand for: 0 to 1.
inline floats unpacked(uint32_t pixel)
{
    const auto byte = [pixel](int shift) { return static_cast<int32_t>(pixel >> shift & 255); };
    return __builtin_convertvector((words{byte(0), byte(8), byte(16), byte(24)}), floats) / 255.0f;
}

// The lowest byte of each word, in order.
inline uint32_t low_bytes(words v)
{
    using bytes16 [[gnu::vector_size(16)]] = uint8_t;
    const auto bytes = std::bit_cast<bytes16>(v);
    const bytes16 first = __builtin_shufflevector(bytes, bytes, 0, 4, 8, 12, 0, 4, 8, 12, 0, 4, 8, 12, 0, 4, 8, 12);
    return static_cast<uint32_t>(std::bit_cast<words>(first)[0]);
}

// Channels, clamped, as the nearest bytes.
inline uint32_t packed(floats v)
{
    const wide_channels wide = widened(v);
    const word_pair low = __builtin_convertvector(clamped01(wide.low) * 255.0 + 0.5, word_pair);
    const word_pair high = __builtin_convertvector(clamped01(wide.high) * 255.0 + 0.5, word_pair);
    return low_bytes(__builtin_shufflevector(low, high, 0, 1, 2, 3));
}

// from (1 - t) + to t, rounded once.
inline floats mixed(floats from, floats to, double t)
{
    const wide_channels a = widened(from);
    const wide_channels b = widened(to);
    const doubles left = both(1 - t);
    const doubles right = both(t);
    return narrowed({a.low * left + b.low * right, a.high * left + b.high * right});
}

inline floats all_channels(float value)
{
    return floats{value, value, value, value};
}

// Blended by the source's alpha over what lies there.
inline floats over(floats source, floats under)
{
    return source * all_channels(source[3]) + under * all_channels(1 - source[3]);
}

} // namespace kalix::device::raster
