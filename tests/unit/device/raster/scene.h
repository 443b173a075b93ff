// A context, its surfaces and targets, and short ways to draw and to look.
#pragma once

#include "device/raster/raster.h"
#include "device/raster/workers.h"
#include "tests/unit/device/chance.h"
#include "tests/unit/device/colors.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <gtest/gtest.h>
#include <span>
#include <vector>

namespace kalix::device::test {

using kalix::test::channel_of;
using kalix::test::dice;
using kalix::test::rgba;
using kalix::test::unpacked;

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

constexpr uint32_t bits(float value)
{
    return std::bit_cast<uint32_t>(value);
}

// Whether a compare function lets a value pass that is beside another one.
template <typename number>
bool compares(uint32_t function, number left, number right)
{
    const bool results[] = {false,         false,         left<right, left == right, left <= right, left> right,
                            left != right, left >= right, true};
    return results[function];
}

inline void expect_color(uint32_t got, const rgba& wanted, double slack = 0.6)
{
    for (size_t i = 0; i < 4; ++i)
        ASSERT_NEAR(channel_of(got, i), std::clamp(wanted[i], 0.0, 1.0) * 255, slack) << "channel " << i;
}

inline std::thread start_thread(std::function<void()> body)
{
    return std::thread{std::move(body)};
}

inline svga3d_vertex_declaration element(uint32_t type, uint32_t usage, uint32_t index, const svga3d_array& array)
{
    return {type, 0, usage, index, array, 0, 0};
}
template <typename vertex>
svga3d_vertex_declaration member(uint32_t type, uint32_t usage, uint32_t index, size_t offset,
                                 uint32_t sid = vertex_sid)
{
    return element(type, usage, index, {sid, static_cast<uint32_t>(offset), sizeof(vertex)});
}

// Vertices in their order.
inline svga3d_primitive_range in_order(uint32_t type, uint32_t primitives, int32_t bias = 0)
{
    return {type, primitives, {SVGA3D_INVALID_ID, 0, 0}, 0, bias};
}

class scene : public testing::Test {
protected:
    surface_store surfaces{uint64_t{256} << 20};
    context state = new_context(1);
    raster::worker_pool* workers = nullptr;

    // ---- Surfaces -------------------------------------------------------------------------------------

    // So many faces with these levels.
    void define_images(uint32_t sid, uint32_t format, uint32_t faces, const std::vector<svga3d_size>& levels)
    {
        svga3d_surface_define definition{sid, 0, format, {}};
        std::fill_n(definition.mip_levels, faces, static_cast<uint32_t>(levels.size()));
        std::vector<svga3d_size> sizes;
        for (uint32_t face = 0; face < faces; ++face)
            sizes.insert(sizes.end(), levels.begin(), levels.end());
        ASSERT_TRUE(surfaces.define(definition, sizes));
    }
    void define(uint32_t sid, uint32_t format, uint32_t width, uint32_t height)
    {
        define_images(sid, format, 1, {{width, height, 1}});
    }
    void define_buffer(uint32_t sid, const void* from, size_t size)
    {
        define(sid, SVGA3D_BUFFER, static_cast<uint32_t>(size), 1);
        std::memcpy(view(sid).bytes, from, size);
    }

    image_view view(uint32_t sid, uint32_t face = 0, uint32_t level = 0) { return surfaces.view({sid, face, level}); }
    std::span<std::byte> bytes(uint32_t sid) { return {view(sid).bytes, view(sid).byte_size()}; }
    std::vector<std::byte> copy_of(uint32_t sid) { return {bytes(sid).begin(), bytes(sid).end()}; }
    uint32_t word(uint32_t sid, uint32_t x, uint32_t y)
    {
        const image_view of = view(sid);
        uint32_t value = 0;
        std::memcpy(&value, of.texel(x, y), of.format->block_bytes);
        return value;
    }
    uint32_t pixel(uint32_t x, uint32_t y) { return word(color_sid, x, y); }
    // Of the whole target.
    template <typename function>
    void expect_pixels(function wanted)
    {
        const image_view target = view(color_sid);
        for (uint32_t y = 0; y < target.height; ++y)
            for (uint32_t x = 0; x < target.width; ++x)
                ASSERT_EQ(pixel(x, y), static_cast<uint32_t>(wanted(x, y))) << x << ' ' << y;
    }

    // ---- States ---------------------------------------------------------------------------------------

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
    void set_float(uint32_t which, float value) { set(which, bits(value)); }
    void stage(uint32_t index, uint32_t name, uint32_t value) { state.texture_states[index][name] = value; }
    void set_blend(uint32_t source, uint32_t destination)
    {
        set(SVGA3D_RS_BLENDENABLE, 1);
        set(SVGA3D_RS_SRCBLEND, source);
        set(SVGA3D_RS_DSTBLEND, destination);
    }
    void set_address(uint32_t mode)
    {
        for (const uint32_t name : {SVGA3D_TS_ADDRESSU, SVGA3D_TS_ADDRESSV, SVGA3D_TS_ADDRESSW})
            stage(0, name, mode);
    }

    // A texture of 32-bit pixels, bound to stage 0 and shown as it is.
    void texture(uint32_t width, uint32_t height, const std::vector<uint32_t>& pixels, uint32_t filter)
    {
        define(texture_sid, SVGA3D_A8R8G8B8, width, height);
        std::memcpy(view(texture_sid).bytes, pixels.data(), pixels.size() * 4);
        show_texture(filter);
        set_address(SVGA3D_TEX_ADDRESS_CLAMP);
    }
    // The same of several images; a function tells the texels of each by face, level and number.
    template <typename function>
    void texture_of(uint32_t faces, const std::vector<svga3d_size>& levels, uint32_t filter, function texel)
    {
        define_images(texture_sid, SVGA3D_A8R8G8B8, faces, levels);
        for (uint32_t face = 0; face < faces; ++face)
            for (uint32_t level = 0; level < levels.size(); ++level) {
                const image_view image = view(texture_sid, face, level);
                for (uint32_t at = 0; at < image.byte_size() / 4; ++at) {
                    const uint32_t value = texel(face, level, at);
                    std::memcpy(image.bytes + size_t{at} * 4, &value, 4);
                }
            }
        show_texture(filter);
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

    // ---- Drawing --------------------------------------------------------------------------------------

    void clear(uint32_t color = 0, float depth = 1, uint32_t stencil = 0)
    {
        const svga3d_rect all{0, 0, 4096, 4096};
        clear_targets(state, surfaces, {1, 7, color, depth, stencil}, {&all, 1});
    }

    draw_result draw(std::span<const svga3d_vertex_declaration> declarations, const svga3d_primitive_range& range)
    {
        return draw_primitives(state, surfaces, declarations, {&range, 1}, {}, workers);
    }
    draw_result draw(uint32_t type, uint32_t primitives, const std::vector<corner>& corners,
                     uint32_t usage = SVGA3D_DECLUSAGE_POSITIONT)
    {
        define_buffer(vertex_sid, corners.data(), corners.size() * sizeof(corner));
        const uint32_t position = usage == SVGA3D_DECLUSAGE_POSITIONT ? SVGA3D_DECLTYPE_FLOAT4 : SVGA3D_DECLTYPE_FLOAT3;
        return draw(
            std::array{member<corner>(position, usage, 0, offsetof(corner, x)),
                       member<corner>(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, 0, offsetof(corner, diffuse)),
                       member<corner>(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, 1, offsetof(corner, specular)),
                       member<corner>(SVGA3D_DECLTYPE_FLOAT2, SVGA3D_DECLUSAGE_TEXCOORD, 0, offsetof(corner, u))},
            in_order(type, primitives));
    }
    // With indices of 16 bits; none: in the vertices' order.
    draw_result draw_lit(uint32_t type, uint32_t primitives, std::span<const lit_corner> corners,
                         std::span<const uint16_t> order = {})
    {
        define_buffer(vertex_sid, corners.data(), corners.size_bytes());
        svga3d_primitive_range range = in_order(type, primitives);
        if (!order.empty()) {
            define_buffer(index_sid, order.data(), order.size_bytes());
            range = {type, primitives, {index_sid, 0, 2}, 2, 0};
        }
        using vertex = lit_corner;
        return draw(
            std::array{member<vertex>(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_POSITION, 0, offsetof(vertex, x)),
                       member<vertex>(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_NORMAL, 0, offsetof(vertex, nx)),
                       member<vertex>(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, 0, offsetof(vertex, diffuse)),
                       member<vertex>(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, 1, offsetof(vertex, specular)),
                       member<vertex>(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_TEXCOORD, 0, offsetof(vertex, s))},
            range);
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

    // A fan over the target whose coordinates and view depth change from left to right.
    struct ends {
        float z = 0;
        float s = 0, t = 0, r = 0;
    };
    draw_result across(const ends& left, const ends& right, uint32_t color = ~0u)
    {
        // z / 10 is the depth in clip space.
        state.transforms[SVGA3D_TRANSFORM_PROJECTION] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0.1f, 0, 0, 0, 0, 1};
        const auto at = [color](float x, float y, const ends& of) {
            return lit_corner{x, y, of.z, 0, 0, 1, color, 0, of.s, of.t, of.r};
        };
        const lit_corner corners[] = {at(-1, 1, left), at(1, 1, right), at(1, -1, right), at(-1, -1, left)};
        return draw_lit(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, corners);
    }
};

} // namespace kalix::device::test
