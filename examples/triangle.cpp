// A triangle on the screen, in C++: c++ -std=c++20 triangle.cpp $(pkg-config --cflags --libs libkalix)
#include <algorithm>
#include <cstdio>
#include <kalix/client.hpp>

using namespace kalix::client;

struct vertex {
    float x, y, z;  // with the transforms as they begin: -1 to 1 over the viewport, y upward
    uint32_t color; // 0xAARRGGBB
};

int main()
try {
    constexpr svga3d_rect all{0, 0, 800, 600};
    constexpr vertex corners[] = {
        {-0.8f, -0.8f, 0, 0xFFFF3030}, {0, 0.8f, 0, 0xFF30FF30}, {0.8f, -0.8f, 0, 0xFF3030FF}};

    const connection server;
    server.set_mode(all.w, all.h); // and the display is on
    const dma_buffer staging{server, sizeof corners};
    std::ranges::copy(std::as_bytes(std::span{corners}), staging.bytes().begin());
    const surface vertices{server, SVGA3D_SURFACE_HINT_VERTEXBUFFER, SVGA3D_BUFFER, sizeof corners, 1};
    const surface picture{server, SVGA3D_SURFACE_HINT_RENDERTARGET, SVGA3D_A8R8G8B8, all.w, all.h};

    context drawing{server};
    command_buffer& commands = drawing.commands();
    commands.upload(staging, vertices);
    commands.set_render_target(SVGA3D_RT_COLOR0, picture.image());
    commands.set_viewport(all);
    commands.clear(SVGA3D_CLEAR_COLOR, 0xFF202030, 1, 0, all);
    // The first stage multiplies with a texture, and nothing is bound: take the colours of the vertices alone.
    commands.set_texture_state(0, SVGA3D_TS_COLOROP, SVGA3D_TC_SELECTARG2);
    commands.draw(vertex_layout{vertices, sizeof(vertex)}
                      .add(SVGA3D_DECLUSAGE_POSITION, SVGA3D_DECLTYPE_FLOAT3)
                      .add(SVGA3D_DECLUSAGE_COLOR, SVGA3D_DECLTYPE_D3DCOLOR),
                  primitives(SVGA3D_PRIMITIVE_TRIANGLELIST, 1));
    server.wait(commands.submit()); // then the staging buffer is free again
    server.present(picture);
} catch (const std::exception& error) {
    std::fprintf(stderr, "triangle: %s\n", error.what());
    return 1;
}
