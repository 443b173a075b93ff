// The animated scene: a knot that spins, drawn and presented frame after frame, and beside it a second client
// with a pane of glass that drifts over it (pane.cpp).
//
// The knot's shape lies in a surface for good; the light on it is worked out here and uploaded for every frame,
// from one of two DMA buffers, so that the next frame's colours are written while the device reads the last.

#include "tools/demo/knot.h"
#include "tools/demo/pane.h"
#include "tools/demo/scenes.h"
#include "tools/demo/session.h"
#include "tools/demo/textures.h"

#include <algorithm>
#include <iostream>
#include <kalix/client.hpp>
#include <numbers>
#include <span>

namespace kalix::demo {
namespace {

constexpr float field = 40 * std::numbers::pi_v<float> / 180;
constexpr float distance = 5.1F;
constexpr vector3 light = {-0.48F, 0.64F, -0.6F};
constexpr uint32_t top_color = 0xFF0B1026, bottom_color = 0xFF3A4A78;

struct backdrop_vertex {
    float x, y, z;
    uint32_t color;
};
constexpr std::array backdrop{backdrop_vertex{-1, 1, 0, top_color}, backdrop_vertex{1, 1, 0, top_color},
                              backdrop_vertex{1, -1, 0, bottom_color}, backdrop_vertex{-1, -1, 0, bottom_color}};

svga3d_vertex_declaration element(uint32_t type, uint32_t usage, const client::surface& in, uint32_t offset,
                                  uint32_t stride)
{
    return {type, 0, usage, 0, {in.sid(), offset, stride}, 0, 0};
}

// Bytes into a surface, by way of a buffer of their own, at once.
void fill(const client::connection& server, client::command_buffer& commands, std::span<const std::byte> bytes,
          const client::surface& to)
{
    const client::dma_buffer staging{server, static_cast<uint32_t>(bytes.size())};
    std::ranges::copy(bytes, staging.bytes().begin());
    const svga3d_copy_box all{0, 0, 0, to.width(), to.height(), 1, 0, 0, 0};
    commands.surface_dma({{staging.at(0), 0}, to.image(), SVGA3D_WRITE_HOST_VRAM}, {&all, 1});
    server.wait(commands.submit());
}

client::surface buffer_surface(const client::connection& server, size_t bytes, uint32_t hint)
{
    return {server, hint, SVGA3D_BUFFER, static_cast<uint32_t>(bytes), 1};
}

class mesh_scene {
public:
    mesh_scene(const client::connection& server, const animation_options& options)
        : server_{server}, options_{options}, context_{server}, color_{server, SVGA3D_SURFACE_HINT_RENDERTARGET,
                                                                       SVGA3D_X8R8G8B8, options.width, options.height},
          depth_{server, SVGA3D_SURFACE_HINT_DEPTHSTENCIL, SVGA3D_Z_D16, options.width, options.height},
          texture_{server, SVGA3D_SURFACE_HINT_TEXTURE, SVGA3D_A8R8G8B8, tiles_extent, tiles_extent},
          shape_{buffer_surface(server, knot_.vertices.size() * sizeof(knot_vertex), SVGA3D_SURFACE_HINT_VERTEXBUFFER)},
          colors_{buffer_surface(server, knot_.vertices.size() * 4, SVGA3D_SURFACE_HINT_VERTEXBUFFER)},
          indices_{buffer_surface(server, knot_.indices.size() * 2, SVGA3D_SURFACE_HINT_INDEXBUFFER)},
          backdrop_{buffer_surface(server, sizeof backdrop, SVGA3D_SURFACE_HINT_VERTEXBUFFER)},
          staging_{{{server, color_bytes()}, {server, color_bytes()}}}
    {
        client::command_buffer& commands = context_.commands();
        fill(server, commands, std::as_bytes(std::span{knot_.vertices}), shape_);
        fill(server, commands, std::as_bytes(std::span{knot_.indices}), indices_);
        fill(server, commands, std::as_bytes(std::span{backdrop}), backdrop_);
        const std::vector<uint32_t> texels = tiles_texture();
        fill(server, commands, std::as_bytes(std::span{texels}), texture_);
        set_up();
    }

    void draw(uint64_t frame)
    {
        const auto angle = static_cast<float>(frame % 3600) * 0.0175F;
        const matrix turn = product(rotation_y(angle), rotation_x(0.35F * std::sin(0.5F * angle)));
        upload_light(frame % 2, turn);
        draw_backdrop();
        draw_knot(product(turn, translation(0, 0, distance)));
        fences_[frame % 2] = context_.commands().submit();
        client::check(kalix_present(server_.get(), color_.sid(), 0, 0, static_cast<int32_t>(options_.width),
                                    static_cast<int32_t>(options_.height)),
                      "present a frame");
    }

    // The device must have read the buffers before they are given back.
    ~mesh_scene()
    {
        for (const uint32_t fence : fences_)
            kalix_fence_wait(server_.get(), fence);
    }
    mesh_scene(const mesh_scene&) = delete;
    mesh_scene& operator=(const mesh_scene&) = delete;

private:
    uint32_t color_bytes() const { return static_cast<uint32_t>(knot_.vertices.size() * 4); }

    void set_up()
    {
        client::command_buffer& commands = context_.commands();
        const std::array<svga3d_render_state_value, 4> states{{{SVGA3D_RS_LIGHTINGENABLE, 0},
                                                               {SVGA3D_RS_SHADEMODE, SVGA3D_SHADEMODE_SMOOTH},
                                                               {SVGA3D_RS_CULLMODE, SVGA3D_FACE_BACK},
                                                               {SVGA3D_RS_ZFUNC, SVGA3D_CMP_LESSEQUAL}}};
        const std::array<svga3d_texture_state_value, 8> texture{{{0, SVGA3D_TS_BIND_TEXTURE, texture_.sid()},
                                                                 {0, SVGA3D_TS_COLORARG1, SVGA3D_TA_TEXTURE},
                                                                 {0, SVGA3D_TS_COLORARG2, SVGA3D_TA_DIFFUSE},
                                                                 {0, SVGA3D_TS_ALPHAARG1, SVGA3D_TA_DIFFUSE},
                                                                 {0, SVGA3D_TS_MINFILTER, SVGA3D_TEX_FILTER_LINEAR},
                                                                 {0, SVGA3D_TS_MAGFILTER, SVGA3D_TEX_FILTER_LINEAR},
                                                                 {0, SVGA3D_TS_ADDRESSU, SVGA3D_TEX_ADDRESS_WRAP},
                                                                 {0, SVGA3D_TS_ADDRESSV, SVGA3D_TEX_ADDRESS_WRAP}}};
        commands.set_render_target(SVGA3D_RT_COLOR0, color_.image());
        commands.set_render_target(SVGA3D_RT_DEPTH, depth_.image());
        commands.set_viewport({0, 0, options_.width, options_.height});
        commands.set_render_states(states);
        commands.set_texture_states(texture);
        commands.set_transform(SVGA3D_TRANSFORM_VIEW, identity);
    }

    void upload_light(size_t which, const matrix& turn)
    {
        server_.wait(fences_[which]); // of the frame before the last
        shade(knot_, turned_back(turn, light), turned_back(turn, {0, 0, -distance}), words_);
        std::ranges::copy(std::as_bytes(std::span{words_}), staging_[which].bytes().begin());
        const svga3d_copy_box all{0, 0, 0, color_bytes(), 1, 1, 0, 0, 0};
        context_.commands().surface_dma({{staging_[which].at(0), 0}, colors_.image(), SVGA3D_WRITE_HOST_VRAM},
                                        {&all, 1});
    }

    // With a depth test and texture, or neither.
    void set(bool solid)
    {
        const svga3d_render_state_value depth{SVGA3D_RS_ZENABLE, solid};
        const svga3d_texture_state_value combiner{
            0, SVGA3D_TS_COLOROP, solid ? uint32_t{SVGA3D_TC_MODULATE} : uint32_t{SVGA3D_TC_SELECTARG2}};
        context_.commands().set_render_states({&depth, 1});
        context_.commands().set_texture_states({&combiner, 1});
    }

    void draw_backdrop()
    {
        client::command_buffer& commands = context_.commands();
        commands.clear(SVGA3D_CLEAR_DEPTH, 0, 1, 0, {0, 0, options_.width, options_.height});
        commands.set_transform(SVGA3D_TRANSFORM_WORLD, identity);
        commands.set_transform(SVGA3D_TRANSFORM_PROJECTION, identity);
        set(false);
        const std::array declarations{
            element(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_POSITION, backdrop_, 0, sizeof(backdrop_vertex)),
            element(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, backdrop_, offsetof(backdrop_vertex, color),
                    sizeof(backdrop_vertex))};
        const svga3d_primitive_range fan{SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, {SVGA3D_INVALID_ID, 0, 0}, 0, 0};
        commands.draw_primitives(declarations, {&fan, 1});
    }

    void draw_knot(const matrix& world)
    {
        client::command_buffer& commands = context_.commands();
        const float aspect = static_cast<float>(options_.width) / static_cast<float>(options_.height);
        commands.set_transform(SVGA3D_TRANSFORM_WORLD, world);
        commands.set_transform(SVGA3D_TRANSFORM_PROJECTION, perspective(field, aspect, 1, 20));
        set(true);
        const std::array declarations{
            element(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_POSITION, shape_, 0, sizeof(knot_vertex)),
            element(SVGA3D_DECLTYPE_FLOAT2, SVGA3D_DECLUSAGE_TEXCOORD, shape_, offsetof(knot_vertex, u),
                    sizeof(knot_vertex)),
            element(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, colors_, 0, 4)};
        const auto triangles = static_cast<uint32_t>(knot_.indices.size() / 3);
        const svga3d_primitive_range list{SVGA3D_PRIMITIVE_TRIANGLELIST, triangles, {indices_.sid(), 0, 2}, 2, 0};
        commands.draw_primitives(declarations, {&list, 1});
    }

    const client::connection& server_;
    animation_options options_;
    knot knot_ = make_knot();
    std::vector<uint32_t> words_;
    client::context context_;
    client::surface color_, depth_, texture_, shape_, colors_, indices_, backdrop_;
    std::array<client::dma_buffer, 2> staging_;
    std::array<uint32_t, 2> fences_{}; // behind the commands that read each of them
};

} // namespace

void animate_mesh(const animation_options& options)
{
    const pane_process pane{options}; // before anything here is connected
    progress frames{options};
    const auto tell = [&options] {
        std::cerr << "kalix-demo: the server has gone; another is waited for, for " << options.patience.count()
                  << " s\n";
    };
    with_servers(options.patience, tell, [&](const client::connection& server) {
        client::check(kalix_set_mode(server.get(), options.width, options.height, 32), "set the mode");
        mesh_scene scene{server, options};
        for (; frames.goes_on(); frames.count())
            scene.draw(frames.frame());
    });
}

} // namespace kalix::demo
