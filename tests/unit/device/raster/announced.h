// A scene that asks the announced records.
#pragma once

#include "tests/unit/device/raster/scene.h"
#include "tests/unit/device/state/announced.h"
#include "tests/unit/device/state/format_rows.h"

namespace kalix::device::test {

class announced_scene : public scene {
protected:
    uint32_t value(uint32_t index) const
    {
        const auto found = values_.find(index);
        EXPECT_NE(found, values_.end()) << "index " << index << " is not announced";
        return found == values_.end() ? 0 : found->second;
    }

    // A texture with images of one size, bound to stage 0 and shown as it is.
    void define_texture(uint32_t format, uint32_t images, svga3d_size size)
    {
        define_images(texture_sid, format, images, {size});
        set_address(SVGA3D_TEX_ADDRESS_CLAMP);
        show_texture(SVGA3D_TEX_FILTER_NEAREST);
    }

    // Something over the whole target, at these coordinates.
    uint32_t looked_up(float s, float t, float r)
    {
        clear();
        EXPECT_EQ(across({5, s, t, r}, {5, s, t, r}), draw_result::done);
        return pixel(8, 4);
    }

    std::map<uint32_t, uint32_t> values_ = kalix::test::announced();
};

} // namespace kalix::device::test
