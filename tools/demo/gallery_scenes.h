// The gallery: a scene for each thing that the device draws.
#pragma once

#include "tools/picture/picture.h"

#include <kalix/client.hpp>

namespace kalix::demo {

class studio;

void draw_colours(studio& on);
void draw_light(studio& on);
void draw_spots(studio& on);
void draw_flat(studio& on);
void draw_nearest(studio& on);
void draw_linear(studio& on);
void draw_mipmaps(studio& on);
void draw_addresses(studio& on);
void draw_reflection(studio& on);
void draw_volume(studio& on);
void draw_blocks(studio& on);
void draw_stages(studio& on);
void draw_fog(studio& on);
void draw_alpha_test(studio& on);
void draw_blending(studio& on);
void draw_stencil(studio& on);
void draw_cut(studio& on);
void draw_wires(studio& on);
void draw_points(studio& on);
void draw_scissor(studio& on);

// A scene's picture.
tools::picture draw_in_studio(const client::connection& server, uint32_t width, uint32_t height,
                              void (*scene)(studio& on));

} // namespace kalix::demo
