// Where a texture is looked up, and in which of its levels.

#include "tests/unit/device/raster/scene.h"

#include <cmath>
#include <numeric>

namespace kalix::device::test {
namespace {

class LookupTest : public scene {};

TEST_F(LookupTest, LevelsFollowTheSizeAndTheBias)
{
    // Levels of 16, 8, 4 ... texels whose colour says which they are: blue is 40 times the level.
    constexpr uint32_t levels = 5, wide = 48; // so wide that rows are moved where they can be
    make_targets(wide, 16);
    texture_of(1, {{16, 16, 1}, {8, 8, 1}, {4, 4, 1}, {2, 2, 1}, {1, 1, 1}}, SVGA3D_TEX_FILTER_NEAREST,
               [](uint32_t, uint32_t level, uint32_t) { return 0xFF000000 | 40 * level; });
    for (const uint32_t detailed : {0u, 1u, 3u, levels, ~0u}) // the most detailed level that may be used
        for (const uint32_t minify : {SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TEX_FILTER_LINEAR})
            for (const uint32_t between : {SVGA3D_TEX_FILTER_NONE, SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TEX_FILTER_LINEAR})
                for (const float texels : {0.5f, 1.0f, 2.0f, 3.0f, 4.0f}) // a pixel across; half as many down
                    for (const float bias : {-2.0f, -0.25f, 0.0f, 0.75f, 1.0f, 9.0f}) {
                        stage(0, SVGA3D_TS_TEXTURE_MIPMAP_LEVEL, detailed);
                        stage(0, SVGA3D_TS_MINFILTER, minify);
                        stage(0, SVGA3D_TS_MIPFILTER, between);
                        stage(0, SVGA3D_TS_TEXTURE_LOD_BIAS, bits(bias));
                        quad(0, 0, wide, 16, ~0u, texels * wide / 16, texels / 2);
                        const double lod = std::log2(double{texels}) + double{bias};
                        const double least = std::min(detailed, levels - 1);
                        const double level = std::clamp(lod, least, levels - 1.0);
                        const double wanted = between == SVGA3D_TEX_FILTER_NONE      ? least
                                              : between == SVGA3D_TEX_FILTER_NEAREST ? std::floor(level + 0.5)
                                                                                     : level;
                        EXPECT_NEAR(pixel(7, 7) & 255, wanted * 40, 0.6)
                            << detailed << ' ' << between << ' ' << texels << ' ' << bias;
                    }
}

// A cube's and a volume's levels too: sixteen pixels run over a face, or through a volume of twice as many slices.
TEST_F(LookupTest, CubesAndVolumesHaveLevels)
{
    const auto filled = [this](uint32_t faces, const std::vector<svga3d_size>& sizes) {
        texture_of(faces, sizes, SVGA3D_TEX_FILTER_NEAREST,
                   [](uint32_t, uint32_t level, uint32_t) { return 0x10 + 0x20 * level; });
    };
    make_targets(16, 16);
    stage(0, SVGA3D_TS_MIPFILTER, SVGA3D_TEX_FILTER_NEAREST);
    const auto with_bias = [this](float bias, const ends& left, const ends& right) {
        stage(0, SVGA3D_TS_TEXTURE_LOD_BIAS, bits(bias));
        EXPECT_EQ(across(left, right), draw_result::done);
        return pixel(8, 0);
    };
    filled(SVGA3D_FACES, {{16, 16, 1}, {8, 8, 1}});
    EXPECT_EQ(with_bias(0.25f, {0, 1, 0, 1}, {0, 1, 0, -1}), 0x10u);
    EXPECT_EQ(with_bias(0.75f, {0, 1, 0, 1}, {0, 1, 0, -1}), 0x30u);
    filled(1, {{1, 1, 32}, {1, 1, 16}});
    EXPECT_EQ(with_bias(-0.75f, {}, {0, 0, 0, 1}), 0x10u);
    EXPECT_EQ(with_bias(-0.25f, {}, {0, 0, 0, 1}), 0x30u);
}

// The same texture again, one filter for what is nearer and another for what is farther.
TEST_F(LookupTest, MagnifyingAndMinifyingHaveTheirOwnFilters)
{
    make_targets(16, 1);
    texture(2, 1, {0xFF000000, 0xFF0000FF}, SVGA3D_TEX_FILTER_NEAREST);
    stage(0, SVGA3D_TS_ADDRESSU, SVGA3D_TEX_ADDRESS_WRAP);
    for (const float texels : {0.125f, 0.7f, 1.4f, 16.0f}) // a pixel
        for (const bool near_is_linear : {true, false}) {
            constexpr uint32_t nearest = SVGA3D_TEX_FILTER_NEAREST, linear = SVGA3D_TEX_FILTER_LINEAR;
            stage(0, SVGA3D_TS_MAGFILTER, near_is_linear ? linear : nearest);
            stage(0, SVGA3D_TS_MINFILTER, near_is_linear ? nearest : linear);
            // Pixel 8 lies between the first and the second texel of the fifth picture.
            across({0, 4.5f - 4 * texels, 0, 0}, {0, 4.5f + 4 * texels, 0, 0});
            EXPECT_EQ(pixel(8, 0) & 255, (texels < 1) == near_is_linear ? 128u : 255u) << texels << near_is_linear;
        }
}

// The texel of four that an address mode takes; -1 is the border.
int addressed(uint32_t mode, int at)
{
    constexpr int side = 4;
    const int mirrored = at < 0 ? -1 - at : at;
    switch (mode) {
    case SVGA3D_TEX_ADDRESS_WRAP:
        return ((at % side) + side) % side;
    case SVGA3D_TEX_ADDRESS_MIRROR:
        return mirrored / side % 2 ? side - 1 - mirrored % side : mirrored % side;
    case SVGA3D_TEX_ADDRESS_BORDER:
        return at < 0 || at >= side ? -1 : at;
    case SVGA3D_TEX_ADDRESS_MIRRORONCE:
        return std::min(mirrored, side - 1);
    default:
        return std::clamp(at, 0, side - 1);
    }
}

// A row of four texels along each axis, looked at from 6 texels before it to 10 behind its beginning.
TEST_F(LookupTest, AddressModesHoldOnEveryAxisForBothFilters)
{
    constexpr uint32_t texels[] = {0xFF000010, 0xFF600020, 0x40000030, 0xFF009040}, border = 0x80AABBCC;
    constexpr uint32_t names[] = {SVGA3D_TS_ADDRESSU, SVGA3D_TS_ADDRESSV, SVGA3D_TS_ADDRESSW};
    make_targets(16, 1);
    const svga3d_size sizes[] = {{4, 1, 1}, {1, 4, 1}, {1, 1, 4}};
    const ends from[] = {{0, -1.5f, 0, 0}, {0, 0, -1.5f, 0}, {0, 0, 0, -1.5f}};
    const ends to[] = {{0, 2.5f, 0, 0}, {0, 0, 2.5f, 0}, {0, 0, 0, 2.5f}};
    const auto color = [&](uint32_t mode, int at) {
        const int taken = addressed(mode, at);
        return taken < 0 ? border : texels[taken];
    };
    for (uint32_t axis = 0; axis < 3; ++axis)
        for (uint32_t mode = 1; mode <= 6; ++mode)
            for (const uint32_t filter : {SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TEX_FILTER_LINEAR}) {
                SCOPED_TRACE(testing::Message() << "axis " << axis << " mode " << mode << " filter " << filter);
                texture_of(1, {sizes[axis]}, filter, [&](uint32_t, uint32_t, uint32_t at) { return texels[at]; });
                set_address(SVGA3D_TEX_ADDRESS_CLAMP);
                stage(0, names[axis], mode);
                stage(0, SVGA3D_TS_BORDERCOLOR, border);
                across(from[axis], to[axis]);
                for (int x = 0; x < 16; ++x) { // a pixel lies on the border of two texels, and takes the one behind
                    const uint32_t behind = color(mode, x - 6);
                    const uint32_t before = filter == SVGA3D_TEX_FILTER_LINEAR ? color(mode, x - 7) : behind;
                    rgba mean;
                    for (size_t i = 0; i < 4; ++i)
                        mean[i] = (channel_of(before, i) + channel_of(behind, i)) / 510.0;
                    expect_color(pixel(static_cast<uint32_t>(x), 0), mean, 0.51);
                }
            }
}

TEST_F(LookupTest, PointSpritesRunOverTheirTexture)
{
    make_targets(8, 8);
    std::vector<uint32_t> texels(16);
    std::iota(texels.begin(), texels.end(), 0xFF000001);
    texture(4, 4, texels, SVGA3D_TEX_FILTER_NEAREST);
    set_float(SVGA3D_RS_POINTSIZE, 4);
    for (const uint32_t sprites : {0u, 1u}) {
        set(SVGA3D_RS_POINTSPRITEENABLE, sprites);
        clear();
        draw(SVGA3D_PRIMITIVE_POINTLIST, 1, {{5, 3, 0.5f, 1, ~0u, 0, 0.9f, 0.9f}}); // 3 <= x < 7, 1 <= y < 5
        for (uint32_t at = 0; at < 16; ++at)
            EXPECT_EQ(pixel(3 + at % 4, 1 + at / 4), texels[sprites ? at : 15]) << sprites << ' ' << at;
    }
}

TEST_F(LookupTest, ProjectionDividesAtEachPixel)
{
    make_targets(16, 1);
    std::vector<uint32_t> texels(64);
    std::iota(texels.begin(), texels.end(), 0xFF000000);
    struct row {
        const char* name;
        uint32_t flags;
        bool is_q; // the third coordinate becomes the fourth
        ends left, right;
        double (*wanted)(double at); // the first coordinate, at 0..1 across
    };
    const auto by_r = [](double at) { return (0.1 + 2 * at) / (1 + 2 * at); };
    const auto undivided = [](double at) { return 0.1 + 0.8 * at; };
    const row rows[] = {
        {"by r", 0x8007, false, {0, 0.1f, 0, 1}, {0, 2.1f, 0, 3}, by_r},
        {"by q", 0x800F, true, {0, 0.1f, 0, 1}, {0, 2.1f, 0, 3}, by_r},
        {"by t", 0x8003, false, {0, 0.1f, 1, 1}, {0, 2.1f, 3, 1}, by_r},
        {"by s itself", 0x8001, false, {0, 0.1f, 0, 1}, {0, 0.9f, 0, 3}, [](double) { return 1.0; }},
        {"no division", 0x000F, true, {0, 0.1f, 0, 1}, {0, 0.9f, 0, 3}, undivided},
        {"by nothing", 0x8000, false, {0, 0.1f, 0, 1}, {0, 0.9f, 0, 3}, undivided},
    };
    for (const row& each : rows)
        for (const bool turned : {false, true}) { // the second coordinate is divided as the first is
            SCOPED_TRACE(testing::Message() << each.name << (turned ? ", turned" : ""));
            if (turned && (each.flags & 15) < 7)
                continue;
            texture(turned ? 1 : 64, turned ? 64 : 1, texels, SVGA3D_TEX_FILTER_NEAREST);
            stage(0, SVGA3D_TS_TEXTURETRANSFORMFLAGS, each.flags);
            const float third = each.is_q ? 0 : 1, fourth = each.is_q ? 1 : 0;
            matrix& by = state.transforms[SVGA3D_TRANSFORM_TEXTURE0];
            by = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, third, fourth, 0, 0, 0, 1 - fourth};
            if (turned)
                by = {0, 1, 0, 0, 1, 0, 0, 0, 0, 0, third, fourth, 0, 0, 0, 1 - fourth};
            ASSERT_EQ(across(each.left, each.right), draw_result::done);
            for (uint32_t x = 0; x < 16; ++x) {
                const double wanted = std::min(each.wanted(x / 16.0) * 64, 63.0);
                const double slack = std::abs(wanted - std::round(wanted)) < 1e-4 ? 1 : 0; // at a texel's edge
                EXPECT_NEAR(pixel(x, 0) & 255, std::floor(wanted), slack) << x;
            }
        }
}

} // namespace
} // namespace kalix::device::test
