// Lighting: the colours of a vertex under the context's lights and material.
//
// Everything is worked out in view space and in double precision. A light's direction is the way it travels.
#pragma once

#include "hardware/gpu/vmware_svga/lib/device/context.h"

#include <array>
#include <cstdint>

namespace kalix::device::raster {

using vector3 = std::array<double, 3>;
using matrix64 = std::array<double, 16>; // row vectors: p' = p m

struct rgba {
    std::array<double, 4> channel{};
};

struct light_source {
    bool positional = false, spot = false;
    vector3 position{}, toward{}; // toward: where it comes from, of unit length, for directional lights
    vector3 travel{};             // of unit length, for spots
    std::array<double, 3> diffuse{}, specular{}, ambient{};
    double range = 0, falloff = 1;
    std::array<double, 3> attenuation{};
    double cos_theta = 1, cos_phi = -1; // of the halves
};

struct lighting_state {
    bool enabled = false;
    std::array<light_source, SVGA3D_LIGHTS> sources;
    uint32_t count = 0;
    rgba diffuse, specular, ambient, emissive; // of the material
    std::array<uint32_t, 4>
        source{}; // of diffuse, specular, ambient, emissive: 0 material, 1 diffuse, 2 specular colour
    std::array<double, 3> global_ambient{};
    double shininess = 0;
    bool local_viewer = false;
};

// The lights that are on, in view space.
lighting_state make_lighting(const context& of, const matrix64& view);

struct lit_vertex {
    vector3 position, normal; // in view space
    rgba diffuse, specular;   // the vertex's colours before, and what the light makes of them after
};
void light(const lighting_state& by, lit_vertex& vertex);

vector3 unit(const vector3& v); // 0 for a vector without length
double dot(const vector3& a, const vector3& b);

} // namespace kalix::device::raster
