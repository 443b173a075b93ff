// The image that a command names, or the reason why there is none.
#pragma once

#include "device/state/outcome.h"
#include "device/state/surface.h"

#include <kalix/svga3d_types.h>

namespace kalix::device {

// Looks an image up and gives it its memory. No surface and no image are two refusals: the second one also stands for a
// face or a level that the surface does not have, and for memory that cannot be had. The view stays good until the
// surface is defined anew or destroyed, which no command does while another one runs.
inline outcome find_image(surface_store& surfaces, const svga3d_image& name, image_view& out)
{
    if (!surfaces.find(name.sid))
        return KALIX_REFUSED_NO_SURFACE;
    out = surfaces.view(name);
    return out ? executed : outcome{KALIX_REFUSED_NO_IMAGE};
}

} // namespace kalix::device
