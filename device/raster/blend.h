// Blending and the colour mask: what a fragment's colour makes of the target's.
//
// The general way, for every format that can be a target; lanes_stages-inl.h has the same rules for 32-bit pixels, many
// at a time. Colours are 0..1 when they come; what a float target is given is not clamped.
#pragma once

#include "device/state/context.h"
#include "device/state/surface.h"

namespace kalix::device::raster {

struct blend_function {
    uint32_t source = SVGA3D_BLENDOP_ONE, destination = SVGA3D_BLENDOP_ZERO, equation = SVGA3D_BLENDEQ_ADD;
};

struct output_state {
    bool blends = false;
    blend_function rgb, alpha;
    color factor{};     // the blend colour
    uint32_t mask = 15; // channels that are written: 1 r, 2 g, 4 b, 8 a
};

output_state make_output(const context& of);

// Writes a colour to a texel of the target, blended and masked as the state says. The caller has passed all tests, and
// is the one thread that draws this row.
void write_color(const output_state& state, const image_view& target, const color& source, std::byte* texel);

} // namespace kalix::device::raster
