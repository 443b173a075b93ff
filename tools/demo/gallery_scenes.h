// The gallery: a scene for each thing that the device draws.
#pragma once

#include "tools/picture/picture.h"

#include <kalix/client.hpp>

namespace kalix::demo {

class gallery;

void draw_colours(gallery& on);
void draw_light(gallery& on);
void draw_spots(gallery& on);
void draw_flat(gallery& on);
void draw_nearest(gallery& on);
void draw_linear(gallery& on);
void draw_mipmaps(gallery& on);
void draw_addresses(gallery& on);
void draw_reflection(gallery& on);
void draw_volume(gallery& on);
void draw_blocks(gallery& on);
void draw_stages(gallery& on);
void draw_fog(gallery& on);
void draw_alpha_test(gallery& on);
void draw_blending(gallery& on);
void draw_stencil(gallery& on);
void draw_cut(gallery& on);
void draw_wires(gallery& on);
void draw_points(gallery& on);
void draw_scissor(gallery& on);

// A scene's picture.
tools::picture draw_in_gallery(const client::connection& server, uint32_t width, uint32_t height,
                               void (*scene)(gallery& on));

} // namespace kalix::demo
