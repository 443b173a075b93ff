// A torus knot: a tube along a closed curve, and the light on it.
#pragma once

#include "tools/demo/matrix.h"

#include <array>
#include <cstdint>
#include <vector>

namespace kalix::demo {

using vector3 = std::array<float, 3>;

struct knot_vertex { // as it lies in the vertex surface
    float x, y, z;
    float u, v;
};
static_assert(sizeof(knot_vertex) == 20);

struct knot {
    std::vector<knot_vertex> vertices;
    std::vector<vector3> normals;  // of unit length
    std::vector<uint16_t> indices; // of a triangle list
};

knot make_knot();

// What light from a direction (of unit length, where it comes from, in the knot's own space) and a viewer at
// a point make of every vertex: words of 0xAARRGGBB.
void shade(const knot& of, const vector3& light, const vector3& viewer, std::vector<uint32_t>& colors);

// A vector turned by the inverse of a rotation matrix.
vector3 turned_back(const matrix& rotation, const vector3& v);

} // namespace kalix::demo
