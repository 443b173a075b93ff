// A context, its surfaces and targets, and short ways to draw and to look.
#pragma once

#include "device/raster/raster.h"

#include <bit>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <span>
#include <vector>

namespace kalix::device::test {

inline uint32_t test_seed()
{
    static const uint32_t seed = [] {
        const char* const given = std::getenv("TEST_SEED");
        return given ? static_cast<uint32_t>(std::strtoul(given, nullptr, 10)) : std::random_device{}();
    }();
    return seed;
}

struct corner { // a vertex of the scenes: target pixels, colours and coordinates
    float x, y, z = 0.5f, rhw = 1;
    uint32_t diffuse = 0xFFFFFFFF, specular = 0;
    float u = 0, v = 0;
};

struct lit_corner { // a vertex to be transformed and lit, with everything a vertex can have
    float x, y, z;
    float nx = 0, ny = 0, nz = 1;
    uint32_t diffuse = 0xFFFFFFFF, specular = 0;
    float s = 0, t = 0, r = 0;
};

constexpr uint32_t color_sid = 1, depth_sid = 2, texture_sid = 3, vertex_sid = 4, index_sid = 5;

class scene : public testing::Test {
protected:
    surface_store surfaces{uint64_t{256} << 20};
    context state = new_context(1);
    raster::worker_pool* workers = nullptr;

    void define(uint32_t sid, uint32_t format, uint32_t width, uint32_t height)
    {
        const svga3d_surface_define definition{sid, 0, format, {1, 0, 0, 0, 0, 0}};
        const svga3d_size size{width, height, 1};
        ASSERT_TRUE(surfaces.define(definition, {&size, 1}));
    }

    void make_targets(uint32_t width, uint32_t height, uint32_t color = SVGA3D_A8R8G8B8,
                      uint32_t depth = SVGA3D_Z_D24S8)
    {
        define(color_sid, color, width, height);
        define(depth_sid, depth, width, height);
        state.targets[SVGA3D_RT_COLOR0] = {color_sid, 0, 0};
        state.targets[SVGA3D_RT_DEPTH] = {depth_sid, 0, 0};
        state.targets[SVGA3D_RT_STENCIL] = {depth_sid, 0, 0};
        state.viewport = {0, 0, width, height};
        set(SVGA3D_RS_ZENABLE, 0);
        stage(0, SVGA3D_TS_COLOROP, SVGA3D_TC_SELECTARG1); // untextured: the diffuse colour
        stage(0, SVGA3D_TS_COLORARG1, SVGA3D_TA_DIFFUSE);
        stage(0, SVGA3D_TS_ALPHAARG1, SVGA3D_TA_DIFFUSE);
    }

    void set(uint32_t which, uint32_t value) { state.render_states[which] = value; }
    void set_float(uint32_t which, float value) { set(which, std::bit_cast<uint32_t>(value)); }
    void stage(uint32_t index, uint32_t name, uint32_t value) { state.texture_states[index][name] = value; }

    // A texture of 32-bit pixels, bound to stage 0 and shown as it is.
    void texture(uint32_t width, uint32_t height, const std::vector<uint32_t>& pixels, uint32_t filter)
    {
        define(texture_sid, SVGA3D_A8R8G8B8, width, height);
        std::memcpy(view(texture_sid).bytes, pixels.data(), pixels.size() * 4);
        show_texture(filter);
        for (const uint32_t name : {SVGA3D_TS_ADDRESSU, SVGA3D_TS_ADDRESSV})
            stage(0, name, SVGA3D_TEX_ADDRESS_CLAMP);
    }
    // Binds the texture to stage 0, which gives its colours as they are.
    void show_texture(uint32_t filter)
    {
        stage(0, SVGA3D_TS_BIND_TEXTURE, texture_sid);
        for (const uint32_t name : {SVGA3D_TS_COLORARG1, SVGA3D_TS_ALPHAARG1})
            stage(0, name, SVGA3D_TA_TEXTURE);
        for (const uint32_t name : {SVGA3D_TS_MAGFILTER, SVGA3D_TS_MINFILTER})
            stage(0, name, filter);
    }

    image_view view(uint32_t sid) { return surfaces.view({sid, 0, 0}); }
    uint32_t word(uint32_t sid, uint32_t x, uint32_t y)
    {
        const image_view of = view(sid);
        uint32_t value = 0;
        std::memcpy(&value, of.texel(x, y), of.format->block_bytes);
        return value;
    }
    uint32_t pixel(uint32_t x, uint32_t y) { return word(color_sid, x, y); }

    void clear(uint32_t color = 0, float depth = 1, uint32_t stencil = 0)
    {
        const svga3d_rect all{0, 0, 4096, 4096};
        clear_targets(state, surfaces, {1, 7, color, depth, stencil}, {&all, 1});
    }

    draw_result draw(uint32_t type, uint32_t primitives, const std::vector<corner>& corners,
                     uint32_t usage = SVGA3D_DECLUSAGE_POSITIONT)
    {
        const auto bytes = static_cast<uint32_t>(corners.size() * sizeof(corner));
        define(vertex_sid, SVGA3D_BUFFER, bytes, 1);
        std::memcpy(view(vertex_sid).bytes, corners.data(), bytes);
        const auto array = [](size_t offset) {
            return svga3d_array{vertex_sid, static_cast<uint32_t>(offset), sizeof(corner)};
        };
        const uint32_t position = usage == SVGA3D_DECLUSAGE_POSITIONT ? SVGA3D_DECLTYPE_FLOAT4 : SVGA3D_DECLTYPE_FLOAT3;
        const svga3d_vertex_declaration declarations[] = {
            {position, 0, usage, 0, array(offsetof(corner, x)), 0, 0},
            {SVGA3D_DECLTYPE_D3DCOLOR, 0, SVGA3D_DECLUSAGE_COLOR, 0, array(offsetof(corner, diffuse)), 0, 0},
            {SVGA3D_DECLTYPE_D3DCOLOR, 0, SVGA3D_DECLUSAGE_COLOR, 1, array(offsetof(corner, specular)), 0, 0},
            {SVGA3D_DECLTYPE_FLOAT2, 0, SVGA3D_DECLUSAGE_TEXCOORD, 0, array(offsetof(corner, u)), 0, 0},
        };
        const svga3d_primitive_range range{type, primitives, {SVGA3D_INVALID_ID, 0, 0}, 0, 0};
        return draw_primitives(state, surfaces, declarations, {&range, 1}, {}, workers);
    }

    // Draws with indices of 16 bits; none: in the vertices' order.
    draw_result draw_lit(uint32_t type, uint32_t primitives, std::span<const lit_corner> corners,
                         std::span<const uint16_t> order = {})
    {
        define(vertex_sid, SVGA3D_BUFFER, static_cast<uint32_t>(corners.size_bytes()), 1);
        std::memcpy(view(vertex_sid).bytes, corners.data(), corners.size_bytes());
        svga3d_primitive_range range{type, primitives, {SVGA3D_INVALID_ID, 0, 0}, 0, 0};
        if (!order.empty()) {
            define(index_sid, SVGA3D_BUFFER, static_cast<uint32_t>(order.size_bytes()), 1);
            std::memcpy(view(index_sid).bytes, order.data(), order.size_bytes());
            range = {type, primitives, {index_sid, 0, 2}, 2, 0};
        }
        const auto element = [](uint32_t kind, uint32_t usage, uint32_t index, size_t offset) {
            return svga3d_vertex_declaration{
                kind, 0, usage, index, {vertex_sid, static_cast<uint32_t>(offset), sizeof(lit_corner)}, 0, 0};
        };
        const svga3d_vertex_declaration declarations[] = {
            element(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_POSITION, 0, offsetof(lit_corner, x)),
            element(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_NORMAL, 0, offsetof(lit_corner, nx)),
            element(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, 0, offsetof(lit_corner, diffuse)),
            element(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, 1, offsetof(lit_corner, specular)),
            element(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_TEXCOORD, 0, offsetof(lit_corner, s))};
        return draw_primitives(state, surfaces, declarations, {&range, 1}, {}, workers);
    }

    draw_result quad(float left, float top, float right, float bottom, uint32_t color = 0xFFFFFFFF, float u = 1,
                     float v = 1, float z = 0.5f)
    {
        return draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2,
                    {{left, top, z, 1, color, 0, 0, 0},
                     {right, top, z, 1, color, 0, u, 0},
                     {right, bottom, z, 1, color, 0, u, v},
                     {left, bottom, z, 1, color, 0, 0, v}});
    }
};

} // namespace kalix::device::test
