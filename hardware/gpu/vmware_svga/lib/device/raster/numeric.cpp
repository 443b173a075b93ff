#include "hardware/gpu/vmware_svga/lib/device/raster/numeric.h"

#include <numbers>

namespace kalix::device::raster {

double log2_of(double value)
{
    if (!(value > 0) || std::isinf(value))
        return value > 0 ? 1100 : -1100;
    int exponent = 0;
    double mantissa = std::frexp(value, &exponent); // exact: splits the bits
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
    const double scaled = clamped(value, -800, 800) / std::numbers::ln2;
    const double whole = std::floor(scaled + 0.5);
    const double rest = (scaled - whole) * std::numbers::ln2; // within half of ln 2
    double sum = 1;
    for (int term = 15; term >= 1; --term)
        sum = 1 + sum * rest / term;
    return std::ldexp(sum, static_cast<int>(whole));
}

} // namespace kalix::device::raster
