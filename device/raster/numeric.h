// Arithmetic that gives the same bits on every machine, and conversions that no value can break.
//
// Only sums, products, quotients and square roots are used, all of which IEEE 754 rounds in one way; the C library's
// exponentials and logarithms differ between machines. Conversions take any double: vertices and states are clients'
// words, and a conversion of what an integer cannot hold is undefined.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

namespace kalix::device::raster {

// Into 0..1; what is not a number becomes 0.
template <typename real>
constexpr real clamp01(real value)
{
    return value > 0 ? (value < 1 ? value : real{1}) : real{0};
}

// Into low..high; what is not a number becomes low.
constexpr double clamped(double value, double low, double high)
{
    return value > low ? (value < high ? value : high) : low;
}

// The nearest integer, halves up; saturates at limit to both sides, and is 0 for what is not a number.
inline int64_t to_integer(double value, int64_t limit)
{
    const auto bound = static_cast<double>(limit);
    if (value != value)
        return 0;
    const double up = clamped(value, -bound, bound) + 0.5;
    const auto whole = static_cast<int64_t>(up); // toward zero
    return whole - (static_cast<double>(whole) > up ? 1 : 0);
}

// Added to a value within 2^51 to both sides, leaves the nearest integer (ties to even) in the low bits of the sum.
inline constexpr double rounding_magic = 0x1.8p52;
inline uint32_t nearest_word(double value)
{
    return static_cast<uint32_t>(std::bit_cast<uint64_t>(value + rounding_magic));
}

// Quotients rounded down and up; the divisor is above 0.
constexpr int64_t floor_div(int64_t dividend, int64_t divisor)
{
    return dividend / divisor - (dividend % divisor < 0 ? 1 : 0);
}
constexpr int64_t ceil_div(int64_t dividend, int64_t divisor)
{
    return -floor_div(-dividend, divisor);
}
static_assert(floor_div(-1, 256) == -1 && floor_div(-256, 256) == -1 && floor_div(255, 256) == 0);
static_assert(ceil_div(-255, 256) == 0 && ceil_div(1, 256) == 1 && ceil_div(256, 256) == 1);

// A remainder of 0 to divisor - 1; 0 for a divisor that is not above 0.
constexpr int64_t modulo(int64_t value, int64_t divisor)
{
    const int64_t rest = divisor > 0 ? value % divisor : 0;
    return rest < 0 ? rest + divisor : rest;
}
static_assert(modulo(-1, 3) == 2 && modulo(-3, 3) == 0 && modulo(4, 3) == 1 && modulo(1, 0) == 0);

// Coordinates in texels are fixed-point numbers: one texel, and what they saturate at, far beyond any texture.
inline constexpr int64_t fraction_bits = 16;
inline constexpr int64_t one = 1 << fraction_bits;
inline constexpr int64_t coordinate_limit = int64_t{1} << 52;

constexpr float as_float(uint32_t word)
{
    return std::bit_cast<float>(word);
}

// Base-2 logarithm of a value above 0; -1100 for anything else.
double log2_of(double value);
// e to the power of value: 0 below, and infinity above what a double holds; 0 for what is not a number.
double exp_of(double value);
// base to the power of exponent for a base of 0 and more: 1 for an exponent of 0, 0 for a base of 0 else.
double power_of(double base, double exponent);
// Cosine of an angle in radians; 1 for what is not a number or beyond 2^20.
double cos_of(double angle);

} // namespace kalix::device::raster
