#include "driver/screen/matrix.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kalix {
namespace {

constexpr double radians_per_degree = 0.017453292519943295;

} // namespace

const float gIdentityMatrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

void Matrix_Copy(float* destination, const float* source)
{
    std::memcpy(destination, source, sizeof gIdentityMatrix);
}

// By way of a matrix of its own, since a may be b.
void Matrix_Multiply(float* a, const float* b)
{
    float product[16];
    for (int row = 0; row < 16; row += 4)
        for (int column = 0; column < 4; ++column)
            product[row + column] = a[row] * b[column] + a[row + 1] * b[4 + column] + a[row + 2] * b[8 + column] +
                                    a[row + 3] * b[12 + column];
    Matrix_Copy(a, product);
}

void Matrix_Scale(float* m, float sx, float sy, float sz, float sw)
{
    const float factors[4] = {sx, sy, sz, sw};
    for (int i = 0; i < 16; ++i)
        m[i] *= factors[i % 4];
}

void Matrix_Translate(float* m, float tx, float ty, float tz)
{
    m[12] += tx;
    m[13] += ty;
    m[14] += tz;
}

// With row vectors a positive angle turns y towards z here, z towards x and x towards y below.
void Matrix_RotateX(float* m, float angle)
{
    const float cs = cosf(angle);
    const float sn = sinf(angle);
    const float rotation[16] = {1, 0, 0, 0, 0, cs, sn, 0, 0, -sn, cs, 0, 0, 0, 0, 1};
    Matrix_Multiply(m, rotation);
}

void Matrix_RotateY(float* m, float angle)
{
    const float cs = cosf(angle);
    const float sn = sinf(angle);
    const float rotation[16] = {cs, 0, -sn, 0, 0, 1, 0, 0, sn, 0, cs, 0, 0, 0, 0, 1};
    Matrix_Multiply(m, rotation);
}

void Matrix_RotateZ(float* m, float angle)
{
    const float cs = cosf(angle);
    const float sn = sinf(angle);
    const float rotation[16] = {cs, sn, 0, 0, -sn, cs, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    Matrix_Multiply(m, rotation);
}

// Both projections set every element of m, whatever it held.
void Matrix_Ortho(float* m, float left, float right, float bottom, float top, float near, float far)
{
    std::fill_n(m, 16, 0.0f);
    m[0] = 2 / (right - left);
    m[5] = 2 / (top - bottom);
    m[10] = -2 / (far - near);
    m[12] = -(right + left) / (right - left);
    m[13] = -(top + bottom) / (top - bottom);
    m[14] = -(far + near) / (far - near);
    m[15] = 1;
}

void Matrix_Perspective(float* m, float field_of_view, float aspect, float near, float far)
{
    const auto half = static_cast<float>(static_cast<double>(field_of_view) * radians_per_degree / 2.0);
    const float g = 1.0f / tanf(half);
    const float q = far / (far - near);
    std::fill_n(m, 16, 0.0f);
    m[0] = g / aspect;
    m[5] = g;
    m[10] = q;
    m[11] = 1;
    m[14] = -q * near;
}

} // namespace kalix
