// Transform: from an attribute's numbers to a vertex in clip space, and from there to the window.
#pragma once

#include "hardware/gpu/vmware_svga/lib/device/raster/fragment.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/lighting.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/vertex_fetch.h"

#include <optional>

namespace kalix::device::raster {

// All that turns vertices of one draw into window coordinates.
struct transform_state {
    matrix64 world{}, view{}, projection{};
    std::array<matrix64, SVGA3D_TEXTURE_STAGES> texture{};
    std::array<uint32_t, SVGA3D_TEXTURE_STAGES> texture_flags{};
    std::array<uint32_t, SVGA3D_TEXTURE_STAGES> coordinate_index{}, coordinate_generation{};
    std::array<std::array<double, 4>, SVGA3D_CLIP_PLANES> planes{};
    uint32_t planes_enabled = 0; // bits
    bool transformed = false;    // positions are target pixels already
    double left = 0, top = 0, half_width = 0, half_height = 0;
    double z_min = 0, z_max = 1;
    double point_size = 1, point_size_min = 0, point_size_max = 1;
    bool scales_points = false; // by their distance
    std::array<double, 3> point_scale{};
    lighting_state lighting;
    std::array<double, 9> normals{}; // what takes normals to view space: the inverse transpose of world x view
    bool normalizes = false;         // normals, once they are there
    bool needs_normals = false;
    double depth_bias = 0;
};

transform_state make_transform(const context& of, bool transformed);

// Reads and transforms one vertex.
vertex transformed_vertex(const transform_state& state, const vertex_fetch& fetch, const draw_setup& setup,
                          uint64_t index);

// Window coordinates of a vertex that clipping has left, without values; none for one beyond what can be drawn.
std::optional<window_vertex> to_window(const transform_state& state, const vertex& from);

} // namespace kalix::device::raster
