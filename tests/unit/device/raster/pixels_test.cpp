// What covered pixels become: textures, the driver's own pass, tests and blending.

#include "tests/unit/device/raster/scene.h"

#include <cmath>

namespace kalix::device::test {
namespace {

// The matrices of the driver's own pass: an orthographic projection with y down, turned by a quarter or not.
class PassTest : public scene {
protected:
    draw_result quad_in_pass(float width, float height, float w, float h, bool turned = false)
    {
        state.z_min = -10;
        state.z_max = 10;
        state.transforms[SVGA3D_TRANSFORM_PROJECTION] = {2 / width, 0, 0,     0, 0,  -2 / height, 0,     0,
                                                         0,         0, -0.1f, 0, -1, 1,           -0.0f, 1};
        const float c = turned ? std::cos(1.5707964f) : 1, s = turned ? std::sin(1.5707964f) : 0;
        state.transforms[SVGA3D_TRANSFORM_VIEW] = {c, s,     0, 0, -s, c, 0, 0, 0, 0, 1, 0, turned ? width : 0,
                                                   0, -0.5f, 1};
        return draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2,
                    {{0, 0, 0, 1, ~0u, 0, 0, 0},
                     {w, 0, 0, 1, ~0u, 0, 1, 0},
                     {w, h, 0, 1, ~0u, 0, 1, 1},
                     {0, h, 0, 1, ~0u, 0, 0, 1}},
                    SVGA3D_DECLUSAGE_POSITION);
    }
};

TEST_F(PassTest, ShowsTexelsOneToOneAndTurnedByAQuarter)
{
    for (const svga3d_size& size : {svga3d_size{7, 7, 1}, {128, 96, 1}, {255, 255, 1}}) {
        const uint32_t width = size.width, height = size.height;
        make_targets(width, height);
        std::vector<uint32_t> texels(size_t{width} * height);
        for (uint32_t i = 0; i < texels.size(); ++i)
            texels[i] = 0xFF000000 | (i * 0x010307 & 0xFFFFFF);
        const auto w = static_cast<float>(width), h = static_cast<float>(height);
        for (const bool in_pass : {false, true}) {
            texture(width, height, texels, SVGA3D_TEX_FILTER_NEAREST);
            clear();
            in_pass ? quad_in_pass(w, h, w - 1, h - 1) : quad(0, 0, w - 1, h - 1);
            expect_pixels(
                [&](uint32_t x, uint32_t y) { return x + 1 < width && y + 1 < height ? texels[y * width + x] : 0; });
        }
        texture(height, width, texels, SVGA3D_TEX_FILTER_NEAREST);
        quad_in_pass(w, h, h, w, true);
        expect_pixels([&](uint32_t x, uint32_t y) { return texels[std::min(width - x, width - 1) * height + y]; });
    }
}

TEST_F(scene, FlatTakesTheFirstVertexAndSmoothInterpolates)
{
    make_targets(9, 9);
    const std::vector<corner> fan = {{0, 0, 0.5f, 1, 0xFF0000FF},
                                     {8, 0, 0.5f, 1, 0xFF00FF00},
                                     {8, 8, 0.5f, 1, 0xFFFF0000},
                                     {0, 8, 0.5f, 1, 0xFFFFFFFF}};
    draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, fan);
    EXPECT_EQ(pixel(4, 0), 0xFF008080u); // half way between the first two
    set(SVGA3D_RS_SHADEMODE, SVGA3D_SHADEMODE_FLAT);
    draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, fan);
    EXPECT_EQ(pixel(6, 1), 0xFF00FF00u); // vertex i + 1 of triangle i of a fan
    EXPECT_EQ(pixel(1, 6), 0xFFFF0000u);
    draw(SVGA3D_PRIMITIVE_TRIANGLESTRIP, 2, fan);
    EXPECT_EQ(pixel(6, 1), 0xFF0000FFu);
    for (const uint32_t mode : {SVGA3D_FILLMODE_LINE, SVGA3D_FILLMODE_POINT}) { // of the whole face
        set(SVGA3D_RS_FILLMODE, mode);
        clear();
        draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 1, fan);
        for (const auto& [x, y] : {std::pair{0u, 0u}, {8u, 0u}, {8u, 8u}})
            EXPECT_EQ(pixel(x, y), 0xFF00FF00u) << mode << ' ' << x << ' ' << y;
    }
}

TEST_F(scene, DepthTestsInEveryFormat)
{
    struct row {
        uint32_t format, shift, bits; // where the depth lies
    };
    for (const auto& [format, shift, bits] : {row{SVGA3D_Z_D16, 0, 16},
                                              {SVGA3D_Z_D15S1, 1, 15},
                                              {SVGA3D_Z_D24S8, 8, 24},
                                              {SVGA3D_Z_D24X8, 8, 24},
                                              {SVGA3D_Z_D32, 0, 32}}) {
        make_targets(2, 2, SVGA3D_A8R8G8B8, format);
        set(SVGA3D_RS_ZENABLE, 1);
        for (uint32_t function = 1; function <= 8; ++function)
            for (const float z : {0.25f, 0.5f, 0.75f}) {
                clear(0, 0.5f);
                set(SVGA3D_RS_ZFUNC, function);
                quad(0, 0, 2, 2, ~0u, 1, 1, z);
                const bool passed = compares(function, z, 0.5f);
                EXPECT_EQ(pixel(0, 0), passed ? ~0u : 0u) << format << ' ' << function << ' ' << z;
                const double largest = std::exp2(bits) - 1;
                EXPECT_NEAR(word(depth_sid, 0, 0) >> shift, double{passed ? z : 0.5f} * largest, 0.51) << format;
            }
    }
}

double factor(uint32_t which, const rgba& s, const rgba& d, const rgba& k, size_t i)
{
    const double saturated = i == 3 ? 1 : std::min(s[3], 1 - d[3]);
    const double factors[] = {0,    0,        1,    s[i],     1 - s[i],  s[3], 1 - s[3],
                              d[3], 1 - d[3], d[i], 1 - d[i], saturated, k[i], 1 - k[i]};
    return factors[which];
}

// Every factor and equation for the colours, and any others for alpha when it is blended separately.
TEST_F(scene, BlendingFollowsItsFactorsAndEquations)
{
    dice random;
    make_targets(1, 1);
    constexpr uint32_t source = 0x80C04020, destination = 0x60A03010, constant = 0x20406080;
    constexpr rgba s = unpacked(source), d = unpacked(destination), k = unpacked(constant);
    set(SVGA3D_RS_BLENDCOLOR, constant);
    const auto blended = [&](uint32_t from, uint32_t to, uint32_t equation, size_t i) {
        const double a = s[i] * factor(from, s, d, k, i), b = d[i] * factor(to, s, d, k, i);
        const double results[] = {0, a + b, a - b, b - a, std::min(s[i], d[i]), std::max(s[i], d[i])};
        return results[equation];
    };
    for (uint32_t from = 1; from <= 13; ++from)
        for (uint32_t to = 1; to <= 13; ++to)
            for (uint32_t equation = 1; equation <= 5; ++equation) {
                SCOPED_TRACE(testing::Message() << from << ' ' << to << ' ' << equation);
                const bool separate = random.toss();
                const uint32_t of_alpha[] = {1 + random.below(13), 1 + random.below(13), 1 + random.below(5)};
                set_blend(from, to);
                set(SVGA3D_RS_BLENDEQUATION, equation);
                set(SVGA3D_RS_SEPARATEALPHABLENDENABLE, separate);
                set(SVGA3D_RS_SRCBLENDALPHA, of_alpha[0]);
                set(SVGA3D_RS_DSTBLENDALPHA, of_alpha[1]);
                set(SVGA3D_RS_BLENDEQUATIONALPHA, of_alpha[2]);
                clear(destination);
                quad(0, 0, 1, 1, source);
                const double alpha =
                    separate ? blended(of_alpha[0], of_alpha[1], of_alpha[2], 3) : blended(from, to, equation, 3);
                expect_color(pixel(0, 0),
                             {blended(from, to, equation, 0), blended(from, to, equation, 1),
                              blended(from, to, equation, 2), alpha},
                             0.51);
            }
}

TEST_F(scene, AlphaTestScissorAndViewport)
{
    make_targets(8, 8, SVGA3D_X8R8G8B8);
    clear(0x11223344);
    set(SVGA3D_RS_ALPHATESTENABLE, 1);
    set(SVGA3D_RS_ALPHAFUNC, SVGA3D_CMP_GREATER);
    set_float(SVGA3D_RS_ALPHAREF, 0.5f);
    quad(0, 0, 8, 8, 0x7F000000);
    EXPECT_EQ(pixel(3, 3), 0x11223344u);
    quad(0, 0, 8, 8, 0x80000000);
    EXPECT_EQ(pixel(3, 3), 0x80000000u);
    set(SVGA3D_RS_SCISSORTESTENABLE, 1);
    state.scissor = {2, 0, 100, 3};
    state.viewport = {0, 1, 5, 100};
    // All of them cut what is drawn, and the smallest target does.
    define(texture_sid, SVGA3D_Z_D24S8, 4, 2);
    for (const uint32_t target : {SVGA3D_RT_DEPTH, SVGA3D_RT_STENCIL}) {
        clear(0x01010101);
        state.targets[target] = {texture_sid, 0, 0};
        clear(0x02020202);
        state.targets[target] = {depth_sid, 0, 0};
        expect_pixels([](uint32_t x, uint32_t y) {
            const bool inside = x >= 2 && x < 5 && y >= 1 && y < 3;
            return !inside ? 0x80000000u : x < 4 && y < 2 ? 0x02020202u : 0x01010101u;
        });
    }
}

// Outside 0..1 a float texture's values reach the stages, and sums stay in a float target.
TEST_F(scene, FloatsAreNotCutShort)
{
    make_targets(4, 4);
    show_texture(SVGA3D_TEX_FILTER_NEAREST);
    define(texture_sid, SVGA3D_ARGB_S23E8, 1, 1);
    constexpr float texel[] = {3, 2, -1, 0.5f};
    std::memcpy(view(texture_sid).bytes, texel, sizeof texel);
    stage(0, SVGA3D_TS_COLOROP, SVGA3D_TC_MODULATE);
    stage(0, SVGA3D_TS_COLORARG2, SVGA3D_TA_DIFFUSE);
    quad(0, 0, 4, 4, 0xFF333333);
    EXPECT_EQ(pixel(1, 1), 0x80996600u);
    make_targets(4, 4, SVGA3D_ARGB_S23E8);
    set_blend(SVGA3D_BLENDOP_ONE, SVGA3D_BLENDOP_ONE);
    for (const float wanted : {1.0f, 2.0f, 3.0f}) {
        quad(0, 0, 4, 4);
        float red = 0;
        std::memcpy(&red, view(color_sid).texel(1, 1), sizeof red);
        EXPECT_EQ(red, wanted);
    }
}

} // namespace
} // namespace kalix::device::test
