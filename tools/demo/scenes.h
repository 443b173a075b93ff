// The scenes of the example client: still ones return a picture, animated ones present frames.
//
// A scene shows how a client is written, so it keeps nothing and takes nothing from other scenes but
// the textures. It throws std::system_error when the server refuses something.
#pragma once

#include "tools/demo/animation.h"
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

inline constexpr std::array scenes{
    scene{"triangle", "three shaded triangles through each other, above a tiled floor", draw_triangle, nullptr},
    scene{"mesh", "animated: a spinning knot, and a second client's pane of glass over it", nullptr, animate_mesh},
};

} // namespace kalix::demo
