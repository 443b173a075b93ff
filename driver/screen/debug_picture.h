// The picture of a debug present: one surface in the screen's top left corner, over magenta.
//
// The surface's pixels are copied into the framebuffer by the device; what is painted here lies over them:
// their transparent parts, and all that they do not cover. Nothing outside the screen is touched. Formats of
// blocks are shown as the bytes that they are.
#pragma once

#include "driver/objects/surface.h"

namespace kalix {

struct debug_picture {
    uint32_t width, height;         // pixels of the screen that the surface covers
    uint32_t box_width, box_height; // pixels of the surface to copy: whole blocks, no row longer than the screen's
    bool opaque;                    // alpha has no meaning in the surface's format
};

// What part of a surface is shown.
debug_picture plan_debug_picture(const surface_record& surface);

// Blends the copied pixels with magenta, and fills the rest of the screen with it.
void paint_debug_picture(const debug_picture& picture);

} // namespace kalix
