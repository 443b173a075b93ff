// The scenes of the example client: still ones return a picture, animated ones present frames.
//
// A scene shows how a client is written, so it keeps nothing and takes nothing from other scenes but
// the textures. It throws std::system_error when the server refuses something.
#pragma once

#include "tools/demo/animation.h"
#include "tools/demo/gallery_scenes.h"
#include "tools/picture/picture.h"

#include <array>
#include <kalix/client.hpp>

namespace kalix::demo {

using tools::picture;

picture draw_triangle(const client::connection& server, uint32_t width, uint32_t height);

// Presents frames until the options or an interrupt end it.
void animate_mesh(const animation_options& options);

struct scene {
    const char* name;
    const char* summary;
    picture (*draw)(const client::connection& server, uint32_t width, uint32_t height); // of a still one
    void (*animate)(const animation_options& options);                                  // of an animated one
};

// A scene of the gallery as one of these.
template <void (*scene)(studio&)>
picture draw_scene(const client::connection& server, uint32_t width, uint32_t height)
{
    return draw_in_studio(server, width, height, scene);
}

inline constexpr std::array scenes{
    scene{"triangle", "three shaded triangles through each other, above a tiled floor", draw_triangle, nullptr},
    scene{"mesh", "animated: a spinning knot, and a second client's pane of glass over it", nullptr, animate_mesh},
    scene{"colours", "a sphere of smooth vertex colours", draw_scene<draw_colours>, nullptr},
    scene{"light", "one light, with its highlight", draw_scene<draw_light>, nullptr},
    scene{"spots", "three coloured spot lights", draw_scene<draw_spots>, nullptr},
    scene{"flat", "the same light, one colour a triangle", draw_scene<draw_flat>, nullptr},
    scene{"nearest", "a texture magnified, texel by texel", draw_scene<draw_nearest>, nullptr},
    scene{"linear", "the same, filtered", draw_scene<draw_linear>, nullptr},
    scene{"mipmaps", "a floor whose levels have colours of their own", draw_scene<draw_mipmaps>, nullptr},
    scene{"addresses", "wrap, mirror, clamp, border, mirror once, edge", draw_scene<draw_addresses>, nullptr},
    scene{"reflection", "a cube map on generated reflection vectors", draw_scene<draw_reflection>, nullptr},
    scene{"volume", "a volume texture through a sphere", draw_scene<draw_volume>, nullptr},
    scene{"blocks", "DXT1 with and without a key, DXT3, DXT5", draw_scene<draw_blocks>, nullptr},
    scene{"stages", "two texture stages, tiles times a glow", draw_scene<draw_stages>, nullptr},
    scene{"fog", "spheres that go into fog, per pixel", draw_scene<draw_fog>, nullptr},
    scene{"alpha-test", "rings cut out by their alpha", draw_scene<draw_alpha_test>, nullptr},
    scene{"blending", "light added to light", draw_scene<draw_blending>, nullptr},
    scene{"stencil", "bars left out by the stencil", draw_scene<draw_stencil>, nullptr},
    scene{"cut", "a sphere cut by two planes", draw_scene<draw_cut>, nullptr},
    scene{"wires", "lines of a mesh, its front left out", draw_scene<draw_wires>, nullptr},
    scene{"points", "point sprites, scaled by distance", draw_scene<draw_points>, nullptr},
    scene{"scissor", "four windows cut by scissors", draw_scene<draw_scissor>, nullptr},
};

} // namespace kalix::demo
