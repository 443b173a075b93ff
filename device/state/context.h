// Rendering contexts: every state that the interface has, as the commands set it.
//
// A context holds plain values; nothing is looked up or checked against surfaces before a draw, and
// bindings keep any id. Used by the device's fetching thread alone.
#pragma once

#include <array>
#include <cstdint>
#include <kalix/svga3d_types.h>
#include <map>
#include <span>
#include <utility>
#include <vector>

namespace kalix::device {

using matrix = std::array<float, 16>; // row vectors: p' = p m; element 4 row + column

struct occlusion_query {
    bool active = false;
    uint64_t samples = 0; // fragments that passed all tests since it began
};

// By the interface's own numbers, some of which start at 1: place 0 is then there and unused. Floats among the states
// stay the words that they came as.
struct context {
    uint32_t cid = 0;
    std::array<uint32_t, SVGA3D_RS_MAX> render_states{};
    std::array<std::array<uint32_t, SVGA3D_TS_MAX>, SVGA3D_TEXTURE_STAGES> texture_states{};
    std::array<matrix, SVGA3D_TRANSFORM_MAX> transforms{};
    float z_min = 0, z_max = 1;
    svga3d_rect viewport{}; // pixels, as is the scissor rectangle, which counts only where its test is on
    svga3d_rect scissor{};
    // In world space, a, b, c, d each: what has a x + b y + c z + d w >= 0 is kept.
    std::array<std::array<float, 4>, SVGA3D_CLIP_PLANES> clip_planes{};
    std::array<svga3d_material, 2> materials{}; // front, back
    std::array<svga3d_light, SVGA3D_LIGHTS> lights{};
    std::array<bool, SVGA3D_LIGHTS> light_enabled{};
    std::array<svga3d_image, SVGA3D_RT_MAX> targets{};
    std::map<std::pair<uint32_t, uint32_t>, std::vector<uint32_t>> shaders;            // by type and id: tokens
    std::array<uint32_t, 3> bound_shaders{};                                           // by type
    std::map<std::pair<uint32_t, uint32_t>, std::array<uint32_t, 5>> shader_constants; // by type, register
    occlusion_query query;
};

// A context as a definition makes it: the interface's initial values.
context new_context(uint32_t cid);

// Each sets one thing; false, and nothing changed, when the index is none of the interface's.
[[nodiscard]] bool set_render_state(context& to, const svga3d_render_state_value& value);
[[nodiscard]] bool set_texture_state(context& to, const svga3d_texture_state_value& value);
[[nodiscard]] bool set_transform(context& to, const svga3d_set_transform& value);
[[nodiscard]] bool set_render_target(context& to, const svga3d_set_render_target& value);
[[nodiscard]] bool set_material(context& to, const svga3d_set_material& value);
[[nodiscard]] bool set_light_data(context& to, const svga3d_set_light_data& value);
[[nodiscard]] bool set_light_enabled(context& to, const svga3d_set_light_enabled& value);
[[nodiscard]] bool set_clip_plane(context& to, const svga3d_set_clip_plane& value);

// Forgets a surface that is destroyed or redefined, wherever the context binds it.
void unbind_surface(context& in, uint32_t sid);

} // namespace kalix::device
