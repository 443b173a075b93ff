// Matrices for row vectors, p' = p x m: the translation is the fourth row.
#pragma once

#include <array>
#include <cmath>

namespace kalix::demo {

using matrix = std::array<float, 16>; // row by row

inline constexpr matrix identity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

constexpr matrix translation(float x, float y, float z)
{
    return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1};
}

// Turns about the x axis; a positive angle, in radians, takes y towards z.
inline matrix rotation_x(float angle)
{
    const float c = std::cos(angle), s = std::sin(angle);
    return {1, 0, 0, 0, 0, c, s, 0, 0, -s, c, 0, 0, 0, 0, 1};
}

// Turns about the y axis; a positive angle takes z towards x.
inline matrix rotation_y(float angle)
{
    const float c = std::cos(angle), s = std::sin(angle);
    return {c, 0, -s, 0, 0, 1, 0, 0, s, 0, c, 0, 0, 0, 0, 1};
}

// The viewer looks along z; near and far are mapped to depths 0 and 1. field is the vertical angle of
// view in radians, aspect is width by height.
inline matrix perspective(float field, float aspect, float near, float far)
{
    const float y = 1 / std::tan(field / 2);
    const float depth = far / (far - near);
    return {y / aspect, 0, 0, 0, 0, y, 0, 0, 0, 0, depth, 1, 0, 0, -near * depth, 0};
}

constexpr matrix product(const matrix& a, const matrix& b)
{
    matrix c{};
    for (size_t row = 0; row < 4; ++row)
        for (size_t column = 0; column < 4; ++column)
            for (size_t i = 0; i < 4; ++i)
                c[4 * row + column] += a[4 * row + i] * b[4 * i + column];
    return c;
}

} // namespace kalix::demo
