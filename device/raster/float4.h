// Four doubles side by side, in two registers of two: lane by lane the same bits as one after the other.
//
// What vertices are worked out with: positions, colours, coordinates. Two doubles are what a register of the plainest
// instruction sets holds, so that nothing has to be chosen for a machine. Sums keep the order that they are written in;
// the build fuses no product with a sum (-ffp-contract=off).
#pragma once

#include <array>
#include <cstring>

namespace kalix::device::raster {

using vector3 = std::array<double, 3>;
using matrix64 = std::array<double, 16>; // row vectors: p' = p m; element 4 row + column

using two = double __attribute__((vector_size(16)));

struct four {
    two low, high;

    double operator[](size_t lane) const { return lane < 2 ? low[lane] : high[lane - 2]; }
};

inline four four_of(double a, double b, double c, double d)
{
    return {two{a, b}, two{c, d}};
}

inline four operator+(const four& a, const four& b)
{
    return {a.low + b.low, a.high + b.high};
}
inline four operator*(const four& a, const four& b)
{
    return {a.low * b.low, a.high * b.high};
}
inline four operator*(const four& a, double by)
{
    return {a.low * by, a.high * by};
}

// From and to memory of any alignment; each half is moved by itself, and so stays in a register.
inline four load_four(const double* from)
{
    four out;
    std::memcpy(&out.low, from, sizeof out.low);
    std::memcpy(&out.high, from + 2, sizeof out.high);
    return out;
}
inline void store_four(double* to, const four& value)
{
    std::memcpy(to, &value.low, sizeof value.low);
    std::memcpy(to + 2, &value.high, sizeof value.high);
}

// A row vector times a matrix; each sum is built up from the first row to the last.
inline four times(const four& v, const matrix64& m)
{
    return load_four(&m[0]) * v.low[0] + load_four(&m[4]) * v.low[1] + load_four(&m[8]) * v.high[0] +
           load_four(&m[12]) * v.high[1];
}

} // namespace kalix::device::raster
