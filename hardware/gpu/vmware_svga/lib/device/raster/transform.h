// Transform: from an attribute's numbers to a vertex in clip space, and from there to the window.
#pragma once

#include "hardware/gpu/vmware_svga/lib/device/raster/fragment.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/lighting.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/vertex_fetch.h"

namespace kalix::device::raster {

// Where the coordinates of one stage come from.
struct coordinate_source {
    uint32_t generation;   // 1 to 3: worked out from where the vertex is; otherwise declared
    const attribute* from; // when they are declared
    bool has_matrix;
    matrix64 by;
};

// All that turns vertices of one draw into window coordinates. Only what the draw needs is set.
struct transform_state {
    const vertex_fetch* fetch;
    const fog_state* fog;
    bool transformed; // positions are target pixels already
    bool draws_points;
    matrix64 world, view, projection;
    uint32_t stage_count;
    std::array<coordinate_source, SVGA3D_TEXTURE_STAGES> stages;
    uint32_t varying_count;
    uint32_t value_count; // of a vertex: with the distances from the user's planes, when one is on
    std::array<std::array<double, 4>, SVGA3D_CLIP_PLANES> planes;
    uint32_t planes_enabled; // bits, one for each plane
    double left, top, half_width, half_height;
    double z_min, z_max;
    double point_size, point_size_min, point_size_max;
    bool scales_points; // by their distance
    std::array<double, 3> point_scale;
    lighting_state lighting;
    std::array<double, 9> normals; // what takes normals to view space: the inverse transpose of world x view
    bool normalizes;               // normals, once they are there
    bool needs_normals;
    double depth_bias;
};

// Resolves a context's state for a draw; keeps the setup's and the fetch's addresses.
transform_state made_transform(const context& of, const draw_setup& setup, const vertex_fetch& fetch,
                               bool draws_points);

// Reads one vertex and works out its values and its place in clip space.
void transform(const transform_state& state, uint64_t index, vertex& out);

// Puts a vertex that clipping has left into the window, if it is within reach.
void place(const transform_state& state, vertex& at);

} // namespace kalix::device::raster
