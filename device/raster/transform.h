// Transform: from an attribute's numbers to a vertex in clip space, and from there to the window.
//
// In double precision, from the floats of vertices and states on, so that the rounding to 1/256 pixel is the one that
// shows. A vertex is worked out once for primitives that share it in a batch. Nothing here fails: what comes out
// infinite or as no number is clipped, or not drawable.
#pragma once

#include "device/raster/fragment.h"
#include "device/raster/lighting.h"
#include "device/raster/vertex_fetch.h"

#include <span>

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
    matrix64 world, view, projection;
    lighting_state lighting;
    std::array<coordinate_source, SVGA3D_TEXTURE_STAGES> stages;
    uint32_t stage_count;
    uint32_t varying_count;
    uint32_t value_count;    // of a vertex: with the distances from the user's planes, when one is on
    uint32_t planes_enabled; // bits, one for each plane
    std::array<std::array<double, 4>, SVGA3D_CLIP_PLANES> planes;
    std::array<double, 9> normals; // what takes normals to view space: the inverse transpose of world x view
    // The viewport in pixels, y down; pixel centres lie at whole numbers.
    double left, top, half_width, half_height;
    double z_min, z_range;
    double point_size, point_size_min, point_size_max;
    std::array<double, 3> point_scale;
    double depth_bias;
    bool transformed; // positions are target pixels already
    bool draws_points;
    bool scales_points;  // by their distance
    bool normalizes;     // normals, once they are in view space
    bool needs_normals;  // for light or for coordinates
    bool needs_position; // in view space, for the same
};

// Resolves a context's state for a draw; keeps the setup's and the fetch's addresses.
transform_state made_transform(const context& of, const draw_setup& setup, const vertex_fetch& fetch,
                               bool draws_points);

// Vertices that are transformed together: each step is taken for all of them before the next, so that the
// processor works at several at a time.
inline constexpr size_t together_max = 96;
struct fresh_vertex {
    uint32_t number;
    vertex* at;
};

// Reads vertices, at most together_max, and works out their values and their places in clip space.
void transform(const transform_state& state, std::span<const fresh_vertex> some);

// Puts a vertex that clipping has left into the window, if it is within reach.
void place(const transform_state& state, vertex& at);

} // namespace kalix::device::raster
