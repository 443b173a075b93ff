// The announced records, and a scene that asks them.
#pragma once

#include "device/state/capabilities.h"
#include "tests/unit/device/raster/scene.h"
#include "tests/unit/device/state/format_rows.h"

#include <algorithm>
#include <array>
#include <map>

namespace kalix::device::test {

using kalix::test::channel_of;

// The records, walked as a client walks them.
inline std::map<uint32_t, uint32_t> announced()
{
    std::array<uint32_t, capability_area_words> area;
    write_capabilities(area);
    std::map<uint32_t, uint32_t> values;
    for (uint32_t at = 2; at < area[0]; at += 2)
        values[area[at]] = area[at + 1];
    return values;
}

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
        svga3d_surface_define definition{texture_sid, 0, format, {}};
        std::fill_n(definition.mip_levels, images, 1u);
        const std::vector<svga3d_size> sizes(images, size);
        ASSERT_TRUE(surfaces.define(definition, sizes));
        for (const uint32_t name : {SVGA3D_TS_ADDRESSU, SVGA3D_TS_ADDRESSV, SVGA3D_TS_ADDRESSW})
            stage(0, name, SVGA3D_TEX_ADDRESS_CLAMP);
        show_texture(SVGA3D_TEX_FILTER_NEAREST);
    }

    // Something over the whole target, at these coordinates.
    uint32_t looked_up(float s, float t, float r)
    {
        clear();
        std::vector<lit_corner> corners;
        for (const auto& [x, y] : {std::pair{-1, 1}, {1, 1}, {1, -1}, {-1, -1}})
            corners.push_back({static_cast<float>(x), static_cast<float>(y), 0.5f, 0, 0, 1, ~0u, 0, s, t, r});
        EXPECT_EQ(draw_lit(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, corners), draw_result::done);
        return pixel(8, 4);
    }

    static void expect_color(uint32_t got, double red, double green, double blue, double alpha)
    {
        const double wanted[] = {red, green, blue, alpha};
        for (size_t i = 0; i < 4; ++i)
            EXPECT_NEAR(channel_of(got, i), std::clamp(wanted[i], 0.0, 1.0) * 255, 1.01) << "channel " << i;
    }

    std::map<uint32_t, uint32_t> values_ = announced();
};

} // namespace kalix::device::test
