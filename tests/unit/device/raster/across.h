// Values that change from the left of a target to its right.
#pragma once

#include "tests/unit/device/raster/scene.h"

namespace kalix::device::test {

class across_scene : public scene {
protected:
    // A fan over a target of 16 x 1 whose coordinates and view depth change from left to right.
    struct ends {
        float z = 0;
        float s = 0, t = 0, r = 0;
    };
    draw_result across(const ends& left, const ends& right, uint32_t color = ~0u)
    {
        // z / 10 is the depth in clip space.
        state.transforms[SVGA3D_TRANSFORM_PROJECTION] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0.1f, 0, 0, 0, 0, 1};
        const auto at = [color](float x, float y, const ends& of) {
            return lit_corner{x, y, of.z, 0, 0, 1, color, 0, of.s, of.t, of.r};
        };
        const lit_corner corners[] = {at(-1, 1, left), at(1, 1, right), at(1, -1, right), at(-1, -1, left)};
        return draw_lit(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, corners);
    }
};

} // namespace kalix::device::test
