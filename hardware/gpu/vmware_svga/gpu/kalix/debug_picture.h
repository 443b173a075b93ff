// The picture of a debug present: one surface in the screen's top left corner, over magenta.
//
// The surface's pixels are copied into the framebuffer by the device; what is painted here lies over them:
// their transparent parts, and all that they do not cover. Nothing outside the screen is touched.
#pragma once

#include "hardware/gpu/vmware_svga/gpu/kalix/surface.h"

namespace kalix {

struct debug_picture {
    uint32_t width, height; // pixels of the surface that lie on the screen
    uint32_t copied_width;  // of these, what the device may copy without leaving a row of the screen
    bool opaque;            // alpha has no meaning in the surface's format
};

// What part of a surface is shown.
debug_picture plan_debug_picture(const surface_record& surface);

// Blends the copied pixels with magenta, and fills the rest of the screen with it.
void paint_debug_picture(const debug_picture& picture);

} // namespace kalix
