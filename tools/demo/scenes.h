// The scenes that the example client draws: each takes a connection and a size, returns the picture.
//
// A scene shows how a client is written, so it keeps nothing and takes nothing from other scenes but
// the textures. It throws std::system_error when the server refuses something.
#pragma once

#include "tools/picture/picture.h"

#include <array>
#include <kalix/client.hpp>

namespace kalix::demo {

using tools::picture;

picture draw_triangle(const client::connection& server, uint32_t width, uint32_t height);

struct scene {
    const char* name;
    const char* summary;
    picture (*draw)(const client::connection& server, uint32_t width, uint32_t height);
};

inline constexpr std::array scenes{
    scene{"triangle", "three shaded triangles through each other, above a tiled floor", draw_triangle},
};

} // namespace kalix::demo
