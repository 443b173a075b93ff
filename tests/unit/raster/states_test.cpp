// State by state, each against its rule: stencil, separate alpha, masks, mipmaps, borders, projection, fog.

#include "tests/unit/raster/scene.h"

#include <algorithm>
#include <cmath>

namespace kalix::device::test {
namespace {

class StateTest : public scene {
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

bool holds(uint32_t function, uint32_t a, uint32_t b)
{
    const bool results[] = {false, false, a<b, a == b, a <= b, a> b, a != b, a >= b, true};
    return results[function];
}

// ---- Stencil ------------------------------------------------------------------------------------------

TEST_F(StateTest, StencilComparesItsReferenceUnderTheMask)
{
    make_targets(2, 2);
    set(SVGA3D_RS_STENCILENABLE, 1);
    set(SVGA3D_RS_STENCILFAIL, SVGA3D_STENCILOP_ZERO);
    set(SVGA3D_RS_STENCILPASS, SVGA3D_STENCILOP_KEEP);
    for (uint32_t function = 1; function <= 8; ++function)
        for (const uint32_t mask : {~0u, 0x0Fu})
            for (const uint32_t reference : {0x13u, 0x24u, 0x35u, 0x124u}) {
                set(SVGA3D_RS_STENCILFUNC, function);
                set(SVGA3D_RS_STENCILREF, reference);
                set(SVGA3D_RS_STENCILMASK, mask);
                clear(0, 1, 0x24);
                quad(0, 0, 2, 2);
                const bool passes = holds(function, reference & mask, 0x24 & mask);
                EXPECT_EQ(pixel(0, 0), passes ? ~0u : 0) << function << ' ' << reference << ' ' << mask;
                EXPECT_EQ(word(depth_sid, 0, 0) & 255, passes ? 0x24u : 0u);
            }
}

TEST_F(StateTest, StencilKeepsPassesAndDepthFailuresApartOnBothSides)
{
    make_targets(2, 2);
    set(SVGA3D_RS_ZENABLE, 1);
    set(SVGA3D_RS_ZFUNC, SVGA3D_CMP_LESS);
    set(SVGA3D_RS_STENCILENABLE, 1);
    constexpr uint32_t front[] = {SVGA3D_CMP_EQUAL, SVGA3D_STENCILOP_ZERO, SVGA3D_STENCILOP_INCR,
                                  SVGA3D_STENCILOP_REPLACE};
    constexpr uint32_t back[] = {SVGA3D_CMP_NOTEQUAL, SVGA3D_STENCILOP_INVERT, SVGA3D_STENCILOP_DECR,
                                 SVGA3D_STENCILOP_INCRSAT};
    for (uint32_t i = 0; i < 4; ++i) { // function, fail, depth fail, pass
        set(SVGA3D_RS_STENCILFUNC + i, front[i]);
        set(SVGA3D_RS_CCWSTENCILFUNC + i, back[i]);
    }
    struct row {
        uint32_t two_sided, is_back, winding, reference;
        float z;
        uint32_t after;
    };
    // The stencil is 0x20 before, the depth a half; the pass of the front replaces by the reference.
    const row rows[] = {
        {0, 0, 1, 0x21, 0.2f, 0},    {0, 0, 1, 0x20, 0.8f, 0x21}, {0, 0, 1, 0x20, 0.2f, 0x20},
        {0, 1, 1, 0x21, 0.2f, 0},    {0, 1, 1, 0x20, 0.8f, 0x21}, {1, 0, 1, 0x21, 0.2f, 0},
        {1, 0, 1, 0x20, 0.8f, 0x21}, {1, 1, 1, 0x20, 0.2f, 0xDF}, {1, 1, 1, 0x21, 0.8f, 0x1F},
        {1, 1, 1, 0x21, 0.2f, 0x21}, {1, 0, 2, 0x21, 0.8f, 0x1F}, {1, 1, 2, 0x20, 0.8f, 0x21},
    };
    for (const row& each : rows) {
        set(SVGA3D_RS_STENCILENABLE2SIDED, each.two_sided);
        set(SVGA3D_RS_FRONTWINDING, each.winding);
        set(SVGA3D_RS_STENCILREF, each.reference);
        clear(0, 0.5f, 0x20);
        if (each.is_back)
            quad(2, 0, 0, 2, ~0u, 1, 1, each.z); // counter-clockwise
        else
            quad(0, 0, 2, 2, ~0u, 1, 1, each.z);
        EXPECT_EQ(word(depth_sid, 0, 0) & 255, each.after) << "row " << &each - rows;
    }
}

TEST_F(StateTest, OneBitOfStencil)
{
    make_targets(2, 2, SVGA3D_A8R8G8B8, SVGA3D_Z_D15S1);
    set(SVGA3D_RS_STENCILENABLE, 1);
    clear(0, 1, 0);
    for (const uint32_t wanted : {1u, 0u, 1u}) {
        set(SVGA3D_RS_STENCILPASS, SVGA3D_STENCILOP_INCR);
        quad(0, 0, 2, 2);
        EXPECT_EQ(word(depth_sid, 0, 0), 0xFFFEu | wanted);
    }
    // A format without stencil is no stencil target.
    make_targets(2, 2, SVGA3D_A8R8G8B8, SVGA3D_Z_D24X8);
    set(SVGA3D_RS_STENCILFUNC, SVGA3D_CMP_NEVER);
    quad(0, 0, 2, 2);
    EXPECT_EQ(pixel(0, 0), ~0u);
}

// ---- Blending and masks -------------------------------------------------------------------------------

TEST_F(StateTest, AlphaIsBlendedSeparatelyWhenAsked)
{
    make_targets(1, 1);
    set(SVGA3D_RS_BLENDENABLE, 1);
    set(SVGA3D_RS_SRCBLEND, SVGA3D_BLENDOP_ONE);
    set(SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_ONE);
    struct row {
        uint32_t separate, source, destination, equation, alpha;
    };
    // Alphas: 0x60 is drawn over 0x40.
    const row rows[] = {
        {0, SVGA3D_BLENDOP_ZERO, SVGA3D_BLENDOP_ZERO, SVGA3D_BLENDEQ_ADD, 0xA0},
        {1, SVGA3D_BLENDOP_ZERO, SVGA3D_BLENDOP_ZERO, SVGA3D_BLENDEQ_ADD, 0},
        {1, SVGA3D_BLENDOP_ONE, SVGA3D_BLENDOP_ZERO, SVGA3D_BLENDEQ_ADD, 0x60},
        {1, SVGA3D_BLENDOP_ZERO, SVGA3D_BLENDOP_ONE, SVGA3D_BLENDEQ_ADD, 0x40},
        {1, SVGA3D_BLENDOP_ONE, SVGA3D_BLENDOP_ONE, SVGA3D_BLENDEQ_SUBTRACT, 0x20},
        {1, SVGA3D_BLENDOP_ONE, SVGA3D_BLENDOP_ONE, SVGA3D_BLENDEQ_REVSUBTRACT, 0},
        {1, SVGA3D_BLENDOP_ZERO, SVGA3D_BLENDOP_ZERO, SVGA3D_BLENDEQ_MINIMUM, 0x40},
        {1, SVGA3D_BLENDOP_ZERO, SVGA3D_BLENDOP_ZERO, SVGA3D_BLENDEQ_MAXIMUM, 0x60},
    };
    for (const row& each : rows) {
        set(SVGA3D_RS_SEPARATEALPHABLENDENABLE, each.separate);
        set(SVGA3D_RS_SRCBLENDALPHA, each.source);
        set(SVGA3D_RS_DSTBLENDALPHA, each.destination);
        set(SVGA3D_RS_BLENDEQUATIONALPHA, each.equation);
        clear(0x40102030);
        quad(0, 0, 1, 1, 0x60010203);
        EXPECT_EQ(pixel(0, 0), each.alpha << 24 | 0x112233) << "row " << &each - rows;
    }
}

TEST_F(StateTest, MasksKeepTheirChannelsInEveryFormat)
{
    struct row {
        uint32_t format, bits[4]; // of red, green, blue and alpha
    };
    const row rows[] = {
        {SVGA3D_A8R8G8B8, {0xFF0000, 0xFF00, 0xFF, 0xFF000000}},
        {SVGA3D_X8R8G8B8, {0xFF0000, 0xFF00, 0xFF, 0xFF000000}},
        {SVGA3D_A2R10G10B10, {0x3FF00000, 0xFFC00, 0x3FF, 0xC0000000}},
        {SVGA3D_R5G6B5, {0xF800, 0x7E0, 0x1F, 0}},
        {SVGA3D_X1R5G5B5, {0x7C00, 0x3E0, 0x1F, 0}},
        {SVGA3D_A1R5G5B5, {0x7C00, 0x3E0, 0x1F, 0x8000}},
        {SVGA3D_A4R4G4B4, {0xF00, 0xF0, 0xF, 0xF000}},
    };
    for (const row& each : rows) {
        make_targets(1, 1, each.format);
        for (uint32_t mask = 0; mask < 16; ++mask) {
            set(SVGA3D_RS_COLORWRITEENABLE, mask);
            clear(0);
            quad(0, 0, 1, 1, ~0u);
            uint32_t wanted = 0;
            for (uint32_t i = 0; i < 4; ++i)
                wanted |= mask >> i & 1 ? each.bits[i] : 0;
            EXPECT_EQ(pixel(0, 0), wanted) << each.format << ' ' << mask;
        }
    }
}

// ---- Lookups ------------------------------------------------------------------------------------------

class MipmapTest : public StateTest {
protected:
    // Levels of 16, 8, 4 ... texels whose colour says which they are: blue is 40 times the level.
    static constexpr uint32_t levels = 5;
    MipmapTest()
    {
        make_targets(16, 16);
        const svga3d_surface_define definition{texture_sid, 0, SVGA3D_A8R8G8B8, {levels}};
        std::vector<svga3d_size> sizes;
        for (uint32_t level = 0; level < levels; ++level)
            sizes.push_back({16u >> level, 16u >> level, 1});
        EXPECT_TRUE(surfaces.define(definition, sizes));
        for (uint32_t level = 0; level < levels; ++level) {
            const image_view image = surfaces.view({texture_sid, 0, level});
            for (uint64_t at = 0; at < image.byte_size(); at += 4) {
                const uint32_t texel = 0xFF000000 | 40 * level;
                std::memcpy(image.bytes + at, &texel, 4);
            }
        }
        stage(0, SVGA3D_TS_BIND_TEXTURE, texture_sid);
        stage(0, SVGA3D_TS_COLORARG1, SVGA3D_TA_TEXTURE);
        stage(0, SVGA3D_TS_ALPHAARG1, SVGA3D_TA_TEXTURE);
    }
};

TEST_F(MipmapTest, LevelsFollowTheSizeAndTheBias)
{
    for (const uint32_t minify : {SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TEX_FILTER_LINEAR})
        for (const uint32_t between : {SVGA3D_TEX_FILTER_NONE, SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TEX_FILTER_LINEAR})
            for (const float texels : {0.5f, 1.0f, 2.0f, 3.0f, 4.0f}) // a pixel across; half as many down
                for (const float bias : {-2.0f, -0.25f, 0.0f, 0.75f, 1.0f, 9.0f}) {
                    stage(0, SVGA3D_TS_MAGFILTER, SVGA3D_TEX_FILTER_NEAREST);
                    stage(0, SVGA3D_TS_MINFILTER, minify);
                    stage(0, SVGA3D_TS_MIPFILTER, between);
                    stage(0, SVGA3D_TS_TEXTURE_LOD_BIAS, std::bit_cast<uint32_t>(bias));
                    quad(0, 0, 16, 16, ~0u, texels, texels / 2);
                    const double lod = std::log2(double{texels}) + double{bias};
                    const double level = std::clamp(lod, 0.0, levels - 1.0);
                    const double wanted = between == SVGA3D_TEX_FILTER_NONE      ? 0
                                          : between == SVGA3D_TEX_FILTER_NEAREST ? std::floor(level + 0.5)
                                                                                 : level;
                    EXPECT_NEAR(pixel(7, 7) & 255, wanted * 40, 0.6) << between << ' ' << texels << ' ' << bias;
                }
}

// A cube's and a volume's levels too: sixteen pixels run over a face, or through a volume of twice as many slices.
TEST_F(MipmapTest, CubesAndVolumesHaveLevels)
{
    const auto filled = [this](uint32_t faces, const std::vector<svga3d_size>& sizes) {
        svga3d_surface_define definition{texture_sid, 0, SVGA3D_LUMINANCE8, {}};
        std::fill_n(definition.mip_levels, faces, 2u);
        std::vector<svga3d_size> all;
        for (uint32_t face = 0; face < faces; ++face)
            all.insert(all.end(), sizes.begin(), sizes.end());
        ASSERT_TRUE(surfaces.define(definition, all));
        for (uint32_t face = 0; face < faces; ++face)
            for (const uint32_t level : {0u, 1u}) {
                const image_view image = surfaces.view({texture_sid, face, level});
                std::memset(image.bytes, static_cast<int>(0x10 + 0x20 * level), image.byte_size());
            }
    };
    stage(0, SVGA3D_TS_MIPFILTER, SVGA3D_TEX_FILTER_NEAREST);
    const auto with_bias = [this](float bias, const ends& left, const ends& right) {
        stage(0, SVGA3D_TS_TEXTURE_LOD_BIAS, std::bit_cast<uint32_t>(bias));
        EXPECT_EQ(across(left, right), draw_result::done);
        return pixel(8, 0) & 255;
    };
    filled(SVGA3D_FACES, {{16, 16, 1}, {8, 8, 1}});
    EXPECT_EQ(with_bias(0.25f, {0, 1, 0, 1}, {0, 1, 0, -1}), 0x10u);
    EXPECT_EQ(with_bias(0.75f, {0, 1, 0, 1}, {0, 1, 0, -1}), 0x30u);
    filled(1, {{1, 1, 32}, {1, 1, 16}});
    EXPECT_EQ(with_bias(-0.75f, {}, {0, 0, 0, 1}), 0x10u);
    EXPECT_EQ(with_bias(-0.25f, {}, {0, 0, 0, 1}), 0x30u);
}

// The same texture again, one filter for what is nearer and another for what is farther.
TEST_F(StateTest, MagnifyingAndMinifyingHaveTheirOwnFilters)
{
    make_targets(16, 1);
    texture(2, 1, {0xFF000000, 0xFF0000FF}, SVGA3D_TEX_FILTER_NEAREST);
    for (const bool magnifies : {true, false})
        for (const bool near_is_linear : {true, false}) {
            stage(0, SVGA3D_TS_MAGFILTER, near_is_linear ? SVGA3D_TEX_FILTER_LINEAR : SVGA3D_TEX_FILTER_NEAREST);
            stage(0, SVGA3D_TS_MINFILTER, near_is_linear ? SVGA3D_TEX_FILTER_NEAREST : SVGA3D_TEX_FILTER_LINEAR);
            stage(0, SVGA3D_TS_ADDRESSU, SVGA3D_TEX_ADDRESS_WRAP);
            // Pixel 8 lies between the texels: at 1/2, or at 64 + 1/2.
            across({}, {0, magnifies ? 1.0f : 129.0f, 0, 0});
            const bool linear = magnifies == near_is_linear;
            EXPECT_EQ(pixel(8, 0) & 255, linear ? 128u : 255u) << magnifies << near_is_linear;
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
TEST_F(StateTest, AddressModesHoldOnEveryAxisForBothFilters)
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
                texture(1, 1, {0}, filter);
                ASSERT_TRUE(surfaces.define({texture_sid, 0, SVGA3D_A8R8G8B8, {1, 0, 0, 0, 0, 0}}, {&sizes[axis], 1}));
                std::memcpy(view(texture_sid).bytes, texels, sizeof texels);
                stage(0, names[axis], mode);
                stage(0, SVGA3D_TS_BORDERCOLOR, border);
                across(from[axis], to[axis]);
                for (int x = 0; x < 16; ++x) { // a pixel lies on the border of two texels, and takes the one behind
                    const uint32_t behind = color(mode, x - 6);
                    const uint32_t before = filter == SVGA3D_TEX_FILTER_LINEAR ? color(mode, x - 7) : behind;
                    for (const uint32_t shift : {0u, 8u, 16u, 24u})
                        EXPECT_NEAR(pixel(static_cast<uint32_t>(x), 0) >> shift & 255,
                                    ((before >> shift & 255) + (behind >> shift & 255)) / 2.0, 0.51)
                            << "axis " << axis << " mode " << mode << " filter " << filter << " x " << x;
                }
            }
}

TEST_F(StateTest, PointSpritesRunOverTheirTexture)
{
    make_targets(8, 8);
    std::vector<uint32_t> texels(16);
    for (uint32_t i = 0; i < 16; ++i)
        texels[i] = 0xFF000001 + i;
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

TEST_F(StateTest, ProjectionDividesAtEachPixel)
{
    make_targets(16, 1);
    std::vector<uint32_t> texels(64);
    for (uint32_t i = 0; i < 64; ++i)
        texels[i] = 0xFF000000 | i;
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

// ---- Fog ----------------------------------------------------------------------------------------------

TEST_F(StateTest, FogFollowsItsFunctions)
{
    make_targets(16, 1);
    set(SVGA3D_RS_FOGENABLE, 1);
    set(SVGA3D_RS_FOGCOLOR, 0xAA0000FF);
    set_float(SVGA3D_RS_FOGSTART, 3);
    set_float(SVGA3D_RS_FOGEND, 7);
    set_float(SVGA3D_RS_FOGDENSITY, 0.3f);
    constexpr double density = 0.3;
    double (*const functions[])(double) = {
        [](double) { return 1.0; }, // none
        [](double z) { return std::exp(-density * z); },
        [](double z) { return std::exp(-density * z * density * z); },
        [](double z) { return std::clamp((7 - z) / 4, 0.0, 1.0); },
    };
    for (uint32_t function = 0; function < 4; ++function)
        for (const uint32_t type : {1u, 2u}) { // by vertex, by pixel
            set(SVGA3D_RS_FOGMODE, function | type << 8 | 1 << 16);
            clear(0);
            across({2}, {8}, 0x60FF0000);
            for (uint32_t x = 0; x < 16; ++x) {
                const double at = x / 16.0;
                const double f = type == 2 ? functions[function](2 + 6 * at)
                                           : functions[function](2) * (1 - at) + functions[function](8) * at;
                EXPECT_NEAR(pixel(x, 0) >> 16 & 255, 255 * f, 0.6) << function << ' ' << type << ' ' << x;
                EXPECT_NEAR(pixel(x, 0) & 255, 255 * (1 - f), 0.6);
                EXPECT_EQ(pixel(x, 0) >> 24, 0x60u); // alpha stays
            }
        }
}

TEST_F(StateTest, DepthIsBiased)
{
    make_targets(16, 1, SVGA3D_A8R8G8B8, SVGA3D_Z_D16);
    set(SVGA3D_RS_ZENABLE, 1);
    set(SVGA3D_RS_ZFUNC, SVGA3D_CMP_ALWAYS);
    struct row {
        float constant, slope, wanted; // at the left edge, of a depth of 0.2 there and 0.2 + 1/16 a pixel further
    };
    for (const row& each : {row{0, 0, 0.2f}, row{0.1f, 0, 0.3f}, row{-0.5f, 0, 0}, row{0, 2, 0.325f}}) {
        set_float(SVGA3D_RS_DEPTHBIAS, each.constant);
        set_float(SVGA3D_RS_SLOPESCALEDEPTHBIAS, each.slope);
        across({2}, {12});
        EXPECT_NEAR(static_cast<float>(word(depth_sid, 0, 0)) / 65535.0f, each.wanted, 0.001f) << each.slope;
    }
}

} // namespace
} // namespace kalix::device::test
