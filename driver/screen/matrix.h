// 4 x 4 matrices of the transforms that the post-processing pass hands to the device.
//
// A matrix is 16 floats, element 4 row + column. Points are row vectors multiplied from the left, so the
// translation lies in elements 12 to 14. All work is in single precision on the caller's storage; nothing
// allocates or fails, and degenerate arguments give the infinities that the divisions give.
#pragma once

namespace kalix {

extern const float gIdentityMatrix[16];

void Matrix_Copy(float* destination, const float* source);

// a becomes a b; both may be the same matrix.
void Matrix_Multiply(float* a, const float* b);

// Multiplies the four columns of m.
void Matrix_Scale(float* m, float sx, float sy, float sz, float sw);

// Adds to the translation elements alone.
void Matrix_Translate(float* m, float tx, float ty, float tz);

// m becomes m times the rotation about an axis; angle in radians.
void Matrix_RotateX(float* m, float angle);
void Matrix_RotateY(float* m, float angle);
void Matrix_RotateZ(float* m, float angle);

// Maps x from left..right and y from bottom..top onto -1..1, and z from -near..-far onto -1..1.
void Matrix_Ortho(float* m, float left, float right, float bottom, float top, float near, float far);

// Left-handed, z from near..far onto 0..1 after the division by w = z; field of view in degrees.
void Matrix_Perspective(float* m, float field_of_view, float aspect, float near, float far);

} // namespace kalix
