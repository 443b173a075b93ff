// Series of a fixed number of terms, so that their operations and with them their bits are always the same. What they
// leave out is below a double's last place. lanes_levels-inl.h has the logarithm's operations for many values at a
// time.

#include "device/raster/numeric.h"

#include <numbers>

namespace kalix::device::raster {

double log2_of(double value)
{
    if (!(value > 0) || std::isinf(value))
        return value > 0 ? 1100 : -1100;
    int exponent = 0;
    double mantissa = std::frexp(value, &exponent); // exact: splits the bits
    // Into sqrt(1/2) to sqrt(2), on both sides of 1, where t is smallest.
    if (mantissa < std::numbers::sqrt2 / 2) {
        mantissa *= 2;
        --exponent;
    }
    // ln m = 2 (t + t^3 / 3 + t^5 / 5 + ...) with |t| < 0.172: the terms left out are below 2^-56
    const double t = (mantissa - 1) / (mantissa + 1);
    const double square = t * t;
    double sum = 0;
    for (int power = 21; power >= 1; power -= 2)
        sum = sum * square + 1.0 / power;
    return exponent + 2 * t * sum / std::numbers::ln2;
}

double exp_of(double value)
{
    if (std::isnan(value))
        return 0;
    // e^800 is infinite and e^-800 is 0 in doubles, and the exponent below fits an int.
    const double scaled = clamped(value, -800, 800) / std::numbers::ln2;
    const double whole = std::floor(scaled + 0.5);
    const double rest = (scaled - whole) * std::numbers::ln2; // within half of ln 2
    double sum = 1;
    for (int term = 15; term >= 1; --term)
        sum = 1 + sum * rest / term;
    // Exact but at the ends of what a double holds.
    return std::ldexp(sum, static_cast<int>(whole));
}

double power_of(double base, double exponent)
{
    if (exponent == 0)
        return 1;
    return base > 0 ? exp_of(exponent * log2_of(base) * std::numbers::ln2) : 0;
}

double cos_of(double angle)
{
    constexpr double turn = 2 * std::numbers::pi;
    // Keeps the turns that are taken away small beside what a double holds; no light's cone is that wide.
    if (!(std::fabs(angle) < 0x1p20))
        return 1;
    const double rest = angle - std::floor(angle / turn + 0.5) * turn; // within half a turn
    const double square = rest * rest;
    double sum = 1; // 1 - x^2 / 2 (1 - x^2 / 12 (1 - ...)): the terms left out are below 2^-60
    for (int term = 30; term >= 2; term -= 2)
        sum = 1 - sum * square / (term * (term - 1));
    return sum;
}

} // namespace kalix::device::raster
