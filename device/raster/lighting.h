// Lighting: the colours of a vertex under the context's lights and material.
//
// Everything is worked out in view space and in double precision. A light's direction is the way it travels.
#pragma once

#include "device/raster/float4.h"
#include "device/state/context.h"

#include <array>
#include <cstdint>

namespace kalix::device::raster {

struct light_source {
    bool positional, spot;
    vector3 position, toward; // toward: where it comes from, of unit length, for directional lights
    vector3 halfway;          // between that and the viewer, when the viewer is far away as well
    vector3 travel;           // of unit length, for spots
    four diffuse, specular, ambient;
    double range, falloff;
    std::array<double, 3> attenuation;
    double cos_theta, cos_phi; // of the halves
};

// Set as far as light() reads it: nothing behind enabled when that is false, no source beyond count.
struct lighting_state {
    bool enabled;
    bool local_viewer;
    bool shows_specular; // otherwise nothing draws that colour
    uint32_t count;
    std::array<uint32_t, 4> source; // of diffuse, specular, ambient, emissive: 0 material, 1 diffuse, 2 specular colour
    four diffuse, specular, ambient, emissive; // of the material
    four global_ambient;
    double shininess;
    std::array<light_source, SVGA3D_LIGHTS> sources;
};

// Resolved once a draw: angles become cosines here, and what a directional light shares for all vertices is worked out.
// The lights that are on, in view space.
void make_lighting(const context& of, const matrix64& view, bool shows_specular, lighting_state& out);

struct lit_vertex {
    vector3 position, normal; // in view space
    four diffuse, specular;   // the vertex's colours before, and what the light makes of them after
};
// Sums up all lights and replaces the vertex's colours, each clamped to 0..1. The normal is taken as it is: making it
// one of unit length is a state's affair (transform.h).
void light(const lighting_state& by, lit_vertex& vertex);

vector3 unit(const vector3& v); // 0 for a vector without length
double dot(const vector3& a, const vector3& b);

} // namespace kalix::device::raster
