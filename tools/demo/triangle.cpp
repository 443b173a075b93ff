// The first scene: all that a client does, from vertices to a picture.
//
// Vertices and texels go into a DMA buffer, from there into surfaces; a context draws them into a
// target with a depth buffer, and the target is read back. Three parts are drawn from one vertex
// surface: a backdrop in clip space, a textured floor, and triangles that go through each other, which
// only a depth test for every pixel gets right.

#include "tools/demo/matrix.h"
#include "tools/demo/scenes.h"
#include "tools/demo/textures.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <numbers>

namespace kalix::demo {

namespace {

struct vertex {
    float x, y, z;
    uint32_t colour; // 0xAARRGGBB
    float u, v;
};
static_assert(sizeof(vertex) == 24);

// A run of triangles in the vertex surface.
struct part {
    uint32_t first = 0; // vertex
    uint32_t triangles = 0;
};

struct model {
    std::vector<vertex> vertices;
    part backdrop, floor, triangles;
};

constexpr uint32_t horizon_colour = 0xFF2A3350;

constexpr std::array backdrop_corners{
    vertex{-1, 1, 0, 0xFF090B14, 0, 0},
    vertex{1, 1, 0, 0xFF090B14, 0, 0},
    vertex{1, -1, 0, horizon_colour, 0, 0},
    vertex{-1, -1, 0, horizon_colour, 0, 0},
};

// Each has a corner behind the others and one before them.
constexpr std::array triangle_corners{
    vertex{-1.45F, -0.85F, -0.75F, 0xFFFF3B30, 0, 0}, vertex{0.00F, 1.22F, 0.10F, 0xFFFFD60A, 0, 0},
    vertex{1.15F, -0.55F, 0.85F, 0xFFFF2D92, 0, 0},

    vertex{1.45F, -0.85F, -0.75F, 0xFF0A84FF, 0, 0},  vertex{0.35F, 1.14F, 0.55F, 0xFF64F0FF, 0, 0},
    vertex{-1.20F, -0.35F, 0.75F, 0xFF5E5CE6, 0, 0},

    vertex{-1.30F, 0.95F, -0.45F, 0xFF30D158, 0, 0},  vertex{1.35F, 0.75F, -0.35F, 0xFFD4FF5A, 0, 0},
    vertex{0.05F, -1.00F, 0.60F, 0xFF00A884, 0, 0},
};

constexpr float floor_y = -1.05F;
constexpr float floor_near = -2.8F, floor_far = 13.2F; // along the view
constexpr float floor_half_width = 14;
constexpr int floor_strips = 16;
constexpr float tiles_per_unit = 0.5F;

// Blends two colours channel by channel.
uint32_t mixed(uint32_t from, uint32_t to, float share)
{
    uint32_t colour = 0xFF000000u;
    for (const int shift : {0, 8, 16}) {
        const auto a = static_cast<float>(from >> shift & 0xFF), b = static_cast<float>(to >> shift & 0xFF);
        colour |= static_cast<uint32_t>(a + (b - a) * share) << shift;
    }
    return colour;
}

void add_quad(std::vector<vertex>& to, const std::array<vertex, 4>& corners)
{
    for (const size_t corner : {0U, 1U, 2U, 0U, 2U, 3U})
        to.push_back(corners[corner]);
}

// A strip of floor across the view; its light fades with the distance, so that tiles too small for the
// pixels do not flicker.
void add_floor_strip(std::vector<vertex>& to, float z0, float z1)
{
    const auto corner = [](float x, float z) {
        const float fade = std::clamp((z - floor_near) / (floor_far - floor_near), 0.0F, 1.0F);
        return vertex{
            x, floor_y, z, mixed(0xFFFFFFFF, 0xFF20263C, std::sqrt(fade)), x * tiles_per_unit, z * tiles_per_unit};
    };
    add_quad(to, {corner(-floor_half_width, z1), corner(floor_half_width, z1), corner(floor_half_width, z0),
                  corner(-floor_half_width, z0)});
}

// Closes the part that began where the last one ended.
part part_from(uint32_t first, const std::vector<vertex>& vertices)
{
    return {first, (static_cast<uint32_t>(vertices.size()) - first) / 3};
}

model build_model()
{
    model scene;
    auto& vertices = scene.vertices;
    add_quad(vertices, backdrop_corners);
    scene.backdrop = part_from(0, vertices);

    const auto floor_first = static_cast<uint32_t>(vertices.size());
    constexpr float step = (floor_far - floor_near) / floor_strips;
    for (int strip = 0; strip < floor_strips; ++strip) {
        const float z0 = floor_near + step * static_cast<float>(strip);
        add_floor_strip(vertices, z0, z0 + step);
    }
    scene.floor = part_from(floor_first, vertices);

    const auto triangles_first = static_cast<uint32_t>(vertices.size());
    vertices.insert(vertices.end(), triangle_corners.begin(), triangle_corners.end());
    scene.triangles = part_from(triangles_first, vertices);
    return scene;
}

// Copies width x height texels (of a BUFFER: bytes) of staging, from offset on, into a surface.
void upload(client::command_buffer& commands, const client::dma_buffer& staging, uint32_t offset,
            const client::surface& to)
{
    const svga3d_copy_box all{
        .x = 0, .y = 0, .z = 0, .w = to.width(), .h = to.height(), .d = 1, .srcx = 0, .srcy = 0, .srcz = 0};
    commands.surface_dma({{staging.at(offset), 0}, to.image(), SVGA3D_WRITE_HOST_VRAM}, {&all, 1});
}

void set_up_states(client::command_buffer& commands, const client::surface& texture)
{
    const std::array<svga3d_render_state_value, 5> states{{{SVGA3D_RS_LIGHTINGENABLE, 0},
                                                           {SVGA3D_RS_CULLMODE, SVGA3D_FACE_NONE},
                                                           {SVGA3D_RS_SHADEMODE, SVGA3D_SHADEMODE_SMOOTH},
                                                           {SVGA3D_RS_ZFUNC, SVGA3D_CMP_LESSEQUAL},
                                                           {SVGA3D_RS_ZWRITEENABLE, 1}}};
    commands.set_render_states(states);
    const std::array<svga3d_texture_state_value, 9> sampling{{{0, SVGA3D_TS_BIND_TEXTURE, texture.sid()},
                                                              {0, SVGA3D_TS_ADDRESSU, SVGA3D_TEX_ADDRESS_WRAP},
                                                              {0, SVGA3D_TS_ADDRESSV, SVGA3D_TEX_ADDRESS_WRAP},
                                                              {0, SVGA3D_TS_MINFILTER, SVGA3D_TEX_FILTER_LINEAR},
                                                              {0, SVGA3D_TS_MAGFILTER, SVGA3D_TEX_FILTER_LINEAR},
                                                              {0, SVGA3D_TS_COLORARG1, SVGA3D_TA_TEXTURE},
                                                              {0, SVGA3D_TS_COLORARG2, SVGA3D_TA_DIFFUSE},
                                                              {0, SVGA3D_TS_ALPHAOP, SVGA3D_TC_SELECTARG2},
                                                              {0, SVGA3D_TS_ALPHAARG2, SVGA3D_TA_DIFFUSE}}};
    commands.set_texture_states(sampling);
}

struct drawing {
    client::command_buffer& commands;
    uint32_t vertex_sid;

    // With a depth test or behind everything; vertex colours times the texture, or alone.
    void set(bool depth_test, bool textured) const
    {
        const svga3d_render_state_value depth{SVGA3D_RS_ZENABLE, depth_test};
        commands.set_render_states({&depth, 1});
        const svga3d_texture_state_value combiner{
            0, SVGA3D_TS_COLOROP, textured ? uint32_t{SVGA3D_TC_MODULATE} : uint32_t{SVGA3D_TC_SELECTARG2}};
        commands.set_texture_states({&combiner, 1});
    }

    void draw(const part& what) const
    {
        const auto element = [this](uint32_t type, uint32_t usage, size_t offset) {
            return svga3d_vertex_declaration{
                type, 0, usage, 0, {vertex_sid, static_cast<uint32_t>(offset), sizeof(vertex)}, 0, 0};
        };
        const std::array declarations{
            element(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_POSITION, offsetof(vertex, x)),
            element(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, offsetof(vertex, colour)),
            element(SVGA3D_DECLTYPE_FLOAT2, SVGA3D_DECLUSAGE_TEXCOORD, offsetof(vertex, u))};
        const svga3d_primitive_range range{SVGA3D_PRIMITIVE_TRIANGLELIST,
                                           what.triangles,
                                           {SVGA3D_INVALID_ID, 0, 0},
                                           0,
                                           static_cast<int32_t>(what.first)};
        commands.draw_primitives(declarations, {&range, 1});
    }
};

void set_camera(client::command_buffer& commands, float aspect)
{
    constexpr float down = 14 * std::numbers::pi_v<float> / 180;
    constexpr float field = 42 * std::numbers::pi_v<float> / 180;
    const matrix view = product(translation(0, -0.75F, 4.6F), rotation_x(-down));
    commands.set_transform(SVGA3D_TRANSFORM_VIEW, view);
    commands.set_transform(SVGA3D_TRANSFORM_PROJECTION, perspective(field, aspect, 0.5F, 40));
}

void draw_model(const drawing& target, const model& scene, float aspect)
{
    auto& commands = target.commands;
    for (const svga3d_transform which : {SVGA3D_TRANSFORM_WORLD, SVGA3D_TRANSFORM_VIEW, SVGA3D_TRANSFORM_PROJECTION})
        commands.set_transform(which, identity);
    target.set(false, false);
    target.draw(scene.backdrop);

    set_camera(commands, aspect);
    target.set(true, true);
    target.draw(scene.floor);
    target.set(true, false);
    target.draw(scene.triangles);
}

} // namespace

picture draw_triangle(const client::connection& server, uint32_t width, uint32_t height)
{
    const model scene = build_model();
    const std::vector<uint32_t> texels = tiles_texture();
    const auto vertex_bytes = std::as_bytes(std::span{scene.vertices});
    const auto texel_bytes = std::as_bytes(std::span{texels});
    const client::dma_buffer staging{server, static_cast<uint32_t>(vertex_bytes.size() + texel_bytes.size())};
    std::ranges::copy(vertex_bytes, staging.bytes().begin());
    std::ranges::copy(texel_bytes, staging.bytes().subspan(vertex_bytes.size()).begin());

    const client::surface vertices{server, SVGA3D_SURFACE_HINT_VERTEXBUFFER, SVGA3D_BUFFER,
                                   static_cast<uint32_t>(vertex_bytes.size()), 1};
    const client::surface texture{server, SVGA3D_SURFACE_HINT_TEXTURE, SVGA3D_A8R8G8B8, tiles_extent, tiles_extent};
    const client::surface colour{server, SVGA3D_SURFACE_HINT_RENDERTARGET, SVGA3D_A8R8G8B8, width, height};
    const client::surface depth{server, SVGA3D_SURFACE_HINT_DEPTHSTENCIL, SVGA3D_Z_D24S8, width, height};

    client::context context{server};
    client::command_buffer& commands = context.commands();
    upload(commands, staging, 0, vertices);
    upload(commands, staging, static_cast<uint32_t>(vertex_bytes.size()), texture);
    const svga3d_rect all{0, 0, width, height};
    commands.set_render_target(SVGA3D_RT_COLOR0, colour.image());
    commands.set_render_target(SVGA3D_RT_DEPTH, depth.image());
    commands.set_viewport(all);
    commands.set_z_range(0, 1);
    commands.clear(SVGA3D_CLEAR_COLOR | SVGA3D_CLEAR_DEPTH, horizon_colour, 1, 0, all);
    set_up_states(commands, texture);
    draw_model({commands, vertices.sid()}, scene, static_cast<float>(width) / static_cast<float>(height));

    server.wait(commands.submit());
    return {width, height, colour.read()};
}

} // namespace kalix::demo
