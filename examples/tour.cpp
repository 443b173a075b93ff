// What follows the first triangle: a texture, depth, reading back, an overlay. docs/client.md walks through it.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <kalix/client.hpp>

using namespace kalix::client;

struct vertex {
    float x, y, z;
    uint32_t color;
    float u, v;
};

// Copies elements into device memory through a buffer that lives until the copy is done.
template <typename element>
void fill(const connection& server, command_buffer& commands, const surface& to, std::span<const element> elements)
{
    const auto bytes = std::as_bytes(elements);
    const dma_buffer staging{server, static_cast<uint32_t>(bytes.size())};
    std::ranges::copy(bytes, staging.bytes().begin());
    commands.upload(staging, to);
    server.wait(commands.submit());
}

int main()
try {
    constexpr svga3d_rect all{0, 0, 800, 600};
    const connection server;
    server.set_mode(all.w, all.h);
    context drawing{server};
    command_buffer& commands = drawing.commands();
    const surface picture{server, SVGA3D_SURFACE_HINT_RENDERTARGET, SVGA3D_A8R8G8B8, all.w, all.h};

    // A texture: a board of 64 x 64 texels in two colours.
    uint32_t texels[64 * 64];
    for (uint32_t i = 0; i < 64 * 64; ++i)
        texels[i] = (i / 8 + i / 512) % 2 ? 0xFFE0E0E0 : 0xFF405060;
    const surface board{server, SVGA3D_SURFACE_HINT_TEXTURE, SVGA3D_A8R8G8B8, 64, 64};
    fill<uint32_t>(server, commands, board, texels);
    commands.set_texture_state(0, SVGA3D_TS_BIND_TEXTURE, board.sid());
    commands.set_texture_state(0, SVGA3D_TS_COLORARG2, SVGA3D_TA_DIFFUSE); // times the vertices' colours

    // Depth: a surface of the target's size, bound, cleared and asked for.
    const surface depth{server, SVGA3D_SURFACE_HINT_DEPTHSTENCIL, SVGA3D_Z_D24S8, all.w, all.h};
    commands.set_render_target(SVGA3D_RT_COLOR0, picture.image());
    commands.set_render_target(SVGA3D_RT_DEPTH, depth.image());
    commands.set_viewport(all);
    commands.set_render_state(SVGA3D_RS_ZENABLE, 1u);
    commands.clear(SVGA3D_CLEAR_COLOR | SVGA3D_CLEAR_DEPTH, 0xFF202030, 1, 0, all);

    // Two triangles that go through each other: z from 0, near, to 1.
    constexpr vertex corners[] = {{-0.8f, -0.6f, 0.1f, 0xFFFF6060, 0, 1}, {0, 0.8f, 0.5f, 0xFFFFFFFF, 0.5f, 0},
                                  {0.8f, -0.6f, 0.9f, 0xFFFF6060, 1, 1},  {-0.8f, 0.4f, 0.9f, 0xFF6060FF, 0, 0},
                                  {0.8f, 0.4f, 0.1f, 0xFF6060FF, 1, 0},   {0, -0.9f, 0.5f, 0xFFFFFFFF, 0.5f, 1}};
    const surface vertices{server, SVGA3D_SURFACE_HINT_VERTEXBUFFER, SVGA3D_BUFFER, sizeof corners, 1};
    fill<vertex>(server, commands, vertices, corners);
    commands.draw(vertex_layout{vertices, sizeof(vertex)}
                      .add(SVGA3D_DECLUSAGE_POSITION, SVGA3D_DECLTYPE_FLOAT3)
                      .add(SVGA3D_DECLUSAGE_COLOR, SVGA3D_DECLTYPE_D3DCOLOR)
                      .add(SVGA3D_DECLUSAGE_TEXCOORD, SVGA3D_DECLTYPE_FLOAT2),
                  primitives(SVGA3D_PRIMITIVE_TRIANGLELIST, 2));
    commands.submit();

    // Reading back: the rows of the rectangle, packed; what was submitted before has been drawn.
    uint32_t pixel;
    std::memcpy(&pixel, picture.read({400, 300, 1, 1}).data(), sizeof pixel);
    std::printf("the middle is %08x\n", pixel);

    // An overlay: the board once more, on top of every frame until it goes.
    const overlay badge{server, 20, 20, board};
    server.present(picture);
} catch (const std::exception& error) {
    std::fprintf(stderr, "tour: %s\n", error.what());
    return 1;
}
