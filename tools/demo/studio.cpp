#include "tools/demo/studio.h"

#include <algorithm>
#include <bit>
#include <kalix/svga3d_formats.h>
#include <numbers>
#include <numeric>
#include <span>

namespace kalix::demo {
namespace {

constexpr uint32_t background = 0xFF1B2238;
constexpr uint32_t bands = 32; // of a sphere, from pole to pole

} // namespace

studio::studio(const client::connection& server, uint32_t width, uint32_t height)
    : server_{server}, context_{server}, color_{server, SVGA3D_SURFACE_HINT_RENDERTARGET, SVGA3D_A8R8G8B8, width,
                                                height},
      depth_{server, SVGA3D_SURFACE_HINT_DEPTHSTENCIL, SVGA3D_Z_D24S8, width, height}
{
    const svga3d_rect all{0, 0, width, height};
    commands().set_render_target(SVGA3D_RT_COLOR0, color_.image());
    commands().set_render_target(SVGA3D_RT_DEPTH, depth_.image());
    commands().set_render_target(SVGA3D_RT_STENCIL, depth_.image());
    commands().set_viewport(all);
    commands().set_z_range(0, 1);
    commands().clear(SVGA3D_CLEAR_COLOR | SVGA3D_CLEAR_DEPTH | SVGA3D_CLEAR_STENCIL, background, 1, 0, all);
    set({{SVGA3D_RS_ZENABLE, 1}, {SVGA3D_RS_ZFUNC, SVGA3D_CMP_LESSEQUAL}});
    texture_state(0, {{SVGA3D_TS_COLOROP, SVGA3D_TC_SELECTARG2}, {SVGA3D_TS_ALPHAOP, SVGA3D_TC_SELECTARG2}});
    commands().set_transform(SVGA3D_TRANSFORM_VIEW, translation(0, 0, 3.2F));
    commands().set_transform(SVGA3D_TRANSFORM_PROJECTION,
                             perspective(0.75F, static_cast<float>(width) / static_cast<float>(height), 0.5F, 40));
    place(0);
}

// Commands are collected until submit(): an upload or the picture's end.
void studio::set(std::initializer_list<svga3d_render_state_value> states)
{
    commands().set_render_states({states.begin(), states.size()});
}

void studio::set(svga3d_render_state which, float value)
{
    set({{static_cast<uint32_t>(which), std::bit_cast<uint32_t>(value)}});
}

void studio::texture_state(uint32_t stage, std::initializer_list<std::pair<svga3d_texture_state, uint32_t>> states)
{
    std::vector<svga3d_texture_state_value> values;
    for (const auto& [name, value] : states)
        values.push_back({stage, static_cast<uint32_t>(name), value});
    commands().set_texture_states(values);
}

void studio::place(float around, float x, float y, float z)
{
    commands().set_transform(SVGA3D_TRANSFORM_WORLD,
                             product(product(rotation_y(around), rotation_x(-0.35F)), translation(x, y, z)));
}

void studio::texture(uint32_t stage, uint32_t format, std::vector<surface_size> sizes, uint32_t faces,
                     const std::vector<uint32_t>& words)
{
    kalix_surface_description wanted{};
    wanted.flags = SVGA3D_SURFACE_HINT_TEXTURE | (faces == 6 ? SVGA3D_SURFACE_CUBEMAP : 0);
    wanted.format = format;
    const auto levels = static_cast<uint32_t>(sizes.size());
    std::vector<surface_size> list;
    for (uint32_t face = 0; face < faces; ++face) {
        wanted.mip_levels[face] = levels;
        list.insert(list.end(), sizes.begin(), sizes.end());
    }
    wanted.sizes = list.data();
    wanted.size_count = static_cast<uint32_t>(list.size());
    uint32_t sid = 0;
    client::check(kalix_surface_define(server_.get(), &wanted, &sid), "define a texture");
    textures_.push_back(sid);
    const client::dma_buffer staging{server_, static_cast<uint32_t>(words.size() * 4)};
    std::ranges::copy(std::as_bytes(std::span{words}), staging.bytes().begin());
    // Images lie in the buffer as they do in a size list: all levels of a face, then the next face.
    uint32_t offset = 0;
    for (uint32_t image = 0; image < list.size(); ++image) {
        const surface_size& size = list[image];
        const svga3d_block block = svga3d_block_of(format);
        const svga3d_copy_box all{0, 0, 0, size.width, size.height, size.depth, 0, 0, 0};
        commands().surface_dma({{staging.at(offset), 0}, {sid, image / levels, image % levels}, SVGA3D_WRITE_HOST_VRAM},
                               {&all, 1});
        offset += static_cast<uint32_t>(svga3d_row_bytes(block, size.width)) * svga3d_block_rows(block, size.height) *
                  size.depth;
    }
    submit();
    texture_state(stage, {{SVGA3D_TS_BIND_TEXTURE, sid},
                          {SVGA3D_TS_COLOROP, SVGA3D_TC_MODULATE},
                          {SVGA3D_TS_COLORARG1, SVGA3D_TA_TEXTURE},
                          {SVGA3D_TS_COLORARG2, SVGA3D_TA_PREVIOUS},
                          {SVGA3D_TS_ALPHAOP, SVGA3D_TC_MODULATE},
                          {SVGA3D_TS_MINFILTER, SVGA3D_TEX_FILTER_LINEAR},
                          {SVGA3D_TS_MAGFILTER, SVGA3D_TEX_FILTER_LINEAR}});
}

void studio::light(uint32_t index, const svga3d_light& light)
{
    set({{SVGA3D_RS_LIGHTINGENABLE, 1}, {SVGA3D_RS_SPECULARENABLE, 1}, {SVGA3D_RS_NORMALIZENORMALS, 1}});
    client::check(kalix_cmd_set_light_data(commands().list(), cid(), index, &light), "append a command");
    client::check(kalix_cmd_set_light_enabled(commands().list(), cid(), index, 1), "append a command");
}

void studio::material(const svga3d_material& material)
{
    client::check(kalix_cmd_set_material(commands().list(), cid(), SVGA3D_FACE_FRONT_BACK, &material),
                  "append a command");
}

void studio::sphere(float radius)
{
    // A normal is the direction itself, its colour the normal's, its third coordinate its depth: so one shape serves
    // colours, lights, textures and volumes.
    const auto corner = [radius](uint32_t i, uint32_t j) {
        const float down = std::numbers::pi_v<float> * static_cast<float>(j) / bands;
        const float around = std::numbers::pi_v<float> * static_cast<float>(i) / bands;
        const float x = std::sin(down) * std::cos(around), y = std::cos(down), z = std::sin(down) * std::sin(around);
        const auto channel = [](float v) { return static_cast<uint32_t>((v * 0.5F + 0.5F) * 255); };
        return studio_vertex{radius * x,
                             radius * y,
                             radius * z,
                             x,
                             y,
                             z,
                             0xFF000000u | channel(x) << 16 | channel(y) << 8 | channel(z),
                             static_cast<float>(i) / bands * 2,
                             static_cast<float>(j) / bands * 2,
                             z * 0.5F + 0.5F};
    };
    std::vector<studio_vertex> list;
    for (uint32_t j = 0; j < bands; ++j)
        for (uint32_t i = 0; i < 2 * bands; ++i)
            for (const auto& [di, dj] : {std::pair{0u, 0u}, {1u, 0u}, {1u, 1u}, {0u, 0u}, {1u, 1u}, {0u, 1u}})
                list.push_back(corner(i + di, j + dj));
    draw(SVGA3D_PRIMITIVE_TRIANGLELIST, static_cast<uint32_t>(list.size() / 3), list);
}

void studio::square(float size, uint32_t color, float repeat)
{
    const float low = 1 - repeat;
    draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2,
         {{-size, size, 0, 0, 0, -1, color, low, low, 0},
          {size, size, 0, 0, 0, -1, color, repeat, low, 0},
          {size, -size, 0, 0, 0, -1, color, repeat, repeat, 0},
          {-size, -size, 0, 0, 0, -1, color, low, repeat, 0}});
}

void studio::draw(svga3d_primitive type, uint32_t primitives, const std::vector<studio_vertex>& vertices)
{
    // Kept until the picture is finished: the draw that reads it is only appended here.
    kept_.push_back(upload(SVGA3D_SURFACE_HINT_VERTEXBUFFER, std::as_bytes(std::span{vertices})));
    const uint32_t sid = kept_.back().sid();
    const auto element = [sid](uint32_t kind, uint32_t usage, uint32_t index, size_t offset) {
        return svga3d_vertex_declaration{
            kind, 0, usage, index, {sid, static_cast<uint32_t>(offset), sizeof(studio_vertex)}, 0, 0};
    };
    // All elements are always declared; the states say which are used.
    const std::array declarations{
        element(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_POSITION, 0, offsetof(studio_vertex, x)),
        element(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_NORMAL, 0, offsetof(studio_vertex, nx)),
        element(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, 0, offsetof(studio_vertex, color)),
        element(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_TEXCOORD, 0, offsetof(studio_vertex, s)),
        element(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_TEXCOORD, 1, offsetof(studio_vertex, s))};
    const svga3d_primitive_range range{type, primitives, {SVGA3D_INVALID_ID, 0, 0}, 0, 0};
    commands().draw_primitives(declarations, {&range, 1});
}

tools::picture studio::finish()
{
    submit();
    tools::picture out{width(), height(), color_.read()};
    for (const uint32_t sid : textures_)
        kalix_surface_destroy(server_.get(), sid);
    return out;
}

client::surface studio::upload(uint32_t hint, std::span<const std::byte> bytes)
{
    const auto count = static_cast<uint32_t>(bytes.size());
    client::surface to{server_, hint, SVGA3D_BUFFER, count, 1};
    const client::dma_buffer staging{server_, count};
    std::ranges::copy(bytes, staging.bytes().begin());
    const svga3d_copy_box all{0, 0, 0, count, 1, 1, 0, 0, 0};
    commands().surface_dma({{staging.at(0), 0}, to.image(), SVGA3D_WRITE_HOST_VRAM}, {&all, 1});
    submit();
    return to;
}

// What has been appended runs, and nothing of it is needed any more.
void studio::submit()
{
    server_.wait(commands().submit());
}

} // namespace kalix::demo
