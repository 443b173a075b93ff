// What covered pixels become: textures, the driver's own pass, tests and blending.

#include "tests/unit/device/raster/scene.h"

#include <cmath>

namespace kalix::device::test {
namespace {

std::vector<uint32_t> ramp(uint32_t count)
{
    std::vector<uint32_t> out(count);
    for (uint32_t i = 0; i < count; ++i)
        out[i] = 0xFF000000 | (i * 0x010307 & 0xFFFFFF);
    return out;
}

TEST_F(scene, ATextureAcrossAQuadGivesItsTexels)
{
    for (const uint32_t side : {7u, 64u, 255u}) {
        make_targets(side, side);
        const std::vector<uint32_t> texels = ramp(side * side);
        texture(side, side, texels, SVGA3D_TEX_FILTER_NEAREST);
        const float end = static_cast<float>(side - 1);
        ASSERT_EQ(quad(0, 0, end, end), draw_result::done);
        for (uint32_t y = 0; y < side; ++y)
            for (uint32_t x = 0; x < side; ++x)
                ASSERT_EQ(pixel(x, y), x + 1 < side && y + 1 < side ? texels[y * side + x] : 0) << x << ' ' << y;
    }
}

// The matrices of the driver's own pass: an orthographic projection with y down, turned by a quarter or not.
class PassTest : public scene {
protected:
    void set_pass(float width, float height, bool turned)
    {
        state.z_min = -10;
        state.z_max = 10;
        state.transforms[SVGA3D_TRANSFORM_PROJECTION] = {2 / width, 0, 0,     0, 0,  -2 / height, 0,     0,
                                                         0,         0, -0.1f, 0, -1, 1,           -0.0f, 1};
        matrix& view_matrix = state.transforms[SVGA3D_TRANSFORM_VIEW];
        if (turned) {
            const float c = std::cos(1.5707964f), s = std::sin(1.5707964f);
            view_matrix = {c, s, 0, 0, -s, c, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
            view_matrix[12] = width;
        }
        view_matrix[14] = -0.5f;
    }

    void quad_in_pass(float w, float h)
    {
        draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2,
             {{0, 0, 0, 1, ~0u, 0, 0, 0},
              {w, 0, 0, 1, ~0u, 0, 1, 0},
              {w, h, 0, 1, ~0u, 0, 1, 1},
              {0, h, 0, 1, ~0u, 0, 0, 1}},
             SVGA3D_DECLUSAGE_POSITION);
    }
};

TEST_F(PassTest, ShowsTexelsOneToOne)
{
    make_targets(128, 96);
    const std::vector<uint32_t> texels = ramp(128 * 96);
    texture(128, 96, texels, SVGA3D_TEX_FILTER_NEAREST);
    set_pass(128, 96, false);
    quad_in_pass(127, 95);
    for (uint32_t y = 0; y < 96; ++y)
        for (uint32_t x = 0; x < 128; ++x)
            ASSERT_EQ(pixel(x, y), x < 127 && y < 95 ? texels[y * 128 + x] : 0) << x << ' ' << y;
}

TEST_F(PassTest, TurnsAnOverlayByAQuarter)
{
    constexpr uint32_t width = 128, height = 96;
    make_targets(width, height);
    const std::vector<uint32_t> texels = ramp(width * height);
    texture(height, width, texels, SVGA3D_TEX_FILTER_NEAREST);
    set_pass(width, height, true);
    quad_in_pass(height, width);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            ASSERT_EQ(pixel(x, y), texels[std::min(width - x, width - 1) * height + y]) << x << ' ' << y;
}

TEST_F(PassTest, HalvesWithLinearFiltering)
{
    make_targets(512, 4);
    std::vector<uint32_t> texels(1024 * 4);
    for (uint32_t i = 0; i < texels.size(); ++i)
        texels[i] = 0xFF000000 | (i % 1024 % 4) * 60;
    texture(1024, 4, texels, SVGA3D_TEX_FILTER_LINEAR);
    set_pass(512, 4, false);
    quad_in_pass(511, 3);
    EXPECT_EQ(pixel(0, 0) & 255, 0u);
    EXPECT_EQ(pixel(1, 0) & 255, static_cast<uint32_t>(0.496 * 60 + 0.504 * 120 + 0.5));
    EXPECT_EQ(pixel(511, 0), 0u);
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

bool compares(uint32_t function, double left, double right)
{
    const bool results[] = {false,         false,         left<right, left == right, left <= right, left> right,
                            left != right, left >= right, true};
    return results[function];
}

TEST_F(scene, DepthTestsInEveryFormat)
{
    for (const uint32_t format : {SVGA3D_Z_D16, SVGA3D_Z_D15S1, SVGA3D_Z_D24S8, SVGA3D_Z_D24X8, SVGA3D_Z_D32}) {
        make_targets(2, 2, SVGA3D_A8R8G8B8, format);
        set(SVGA3D_RS_ZENABLE, 1);
        for (uint32_t function = 1; function <= 8; ++function)
            for (const float z : {0.25f, 0.5f, 0.75f}) {
                clear(0, 0.5f);
                const uint32_t before = word(depth_sid, 0, 0);
                set(SVGA3D_RS_ZFUNC, function);
                quad(0, 0, 2, 2, ~0u, 1, 1, z);
                const bool passed = compares(function, static_cast<double>(z), 0.5);
                EXPECT_EQ(pixel(0, 0), passed ? ~0u : 0u) << format << ' ' << function << ' ' << z;
                EXPECT_EQ(word(depth_sid, 0, 0) != before, passed && z != 0.5f);
            }
    }
}

TEST_F(scene, StencilOperations)
{
    make_targets(2, 2);
    set(SVGA3D_RS_STENCILENABLE, 1);
    set(SVGA3D_RS_STENCILREF, 0x5A);
    struct stencil_row {
        uint32_t operation, before, after;
    };
    for (const stencil_row& row : {stencil_row{1, 7, 7},
                                   {2, 7, 0},
                                   {3, 7, 0x5A},
                                   {4, 255, 255},
                                   {4, 7, 8},
                                   {5, 0, 0},
                                   {5, 7, 6},
                                   {6, 0xF0, 0x0F},
                                   {7, 255, 0},
                                   {8, 0, 255},
                                   {99, 7, 7}}) {
        clear(0, 1, row.before);
        set(SVGA3D_RS_STENCILFUNC, SVGA3D_CMP_ALWAYS);
        set(SVGA3D_RS_STENCILPASS, row.operation);
        quad(0, 0, 2, 2);
        EXPECT_EQ(word(depth_sid, 0, 0), 0xFFFFFF00u | row.after) << row.operation; // the depth stays
        clear(0, 1, row.before);
        set(SVGA3D_RS_STENCILFUNC, SVGA3D_CMP_NEVER);
        set(SVGA3D_RS_STENCILFAIL, row.operation);
        set(SVGA3D_RS_STENCILWRITEMASK, 0x0F);
        quad(0, 0, 2, 2);
        EXPECT_EQ(word(depth_sid, 0, 0) & 255, (row.before & 0xF0) | (row.after & 0x0F));
        EXPECT_EQ(pixel(0, 0), 0u);
        set(SVGA3D_RS_STENCILWRITEMASK, ~0u);
        set(SVGA3D_RS_STENCILFAIL, 1);
    }
}

struct rgba {
    double c[4];
};

double factor(uint32_t which, const rgba& s, const rgba& d, const rgba& k, int i)
{
    const double saturated = i == 3 ? 1 : std::min(s.c[3], 1 - d.c[3]);
    const double factors[] = {0,      0,          1,      s.c[i],     1 - s.c[i], s.c[3], 1 - s.c[3],
                              d.c[3], 1 - d.c[3], d.c[i], 1 - d.c[i], saturated,  k.c[i], 1 - k.c[i]};
    return factors[which];
}

TEST_F(scene, BlendingOfEveryFactorAndEquation)
{
    make_targets(1, 1);
    set(SVGA3D_RS_BLENDENABLE, 1);
    const uint32_t source = 0x80C04020, destination = 0x60A03010, constant = 0x20406080;
    set(SVGA3D_RS_BLENDCOLOR, constant);
    const auto unpacked = [](uint32_t argb) {
        return rgba{
            {(argb >> 16 & 255) / 255.0, (argb >> 8 & 255) / 255.0, (argb & 255) / 255.0, (argb >> 24) / 255.0}};
    };
    const rgba s = unpacked(source), d = unpacked(destination), k = unpacked(constant);
    for (uint32_t from = 1; from <= 13; ++from)
        for (uint32_t to = 1; to <= 13; ++to)
            for (uint32_t equation = 1; equation <= 5; ++equation) {
                set(SVGA3D_RS_SRCBLEND, from);
                set(SVGA3D_RS_DSTBLEND, to);
                set(SVGA3D_RS_BLENDEQUATION, equation);
                clear(destination);
                quad(0, 0, 1, 1, source);
                const int shifts[] = {16, 8, 0, 24};
                for (int i = 0; i < 4; ++i) {
                    const double a = s.c[i] * factor(from, s, d, k, i), b = d.c[i] * factor(to, s, d, k, i);
                    const double results[] = {
                        0, a + b, a - b, b - a, std::min(s.c[i], d.c[i]), std::max(s.c[i], d.c[i])};
                    const double expected = std::clamp(results[equation], 0.0, 1.0) * 255;
                    EXPECT_NEAR(pixel(0, 0) >> shifts[i] & 255, expected, 0.51) << from << ' ' << to << ' ' << equation;
                }
            }
}

TEST_F(scene, MaskAlphaTestScissorAndViewport)
{
    make_targets(8, 8, SVGA3D_X8R8G8B8);
    clear(0x11223344);
    set(SVGA3D_RS_COLORWRITEENABLE, 1 | 4);
    quad(0, 0, 8, 8, 0xAABBCCDD);
    EXPECT_EQ(pixel(3, 3), 0x11BB33DDu); // the byte that reads as 1 is kept as well
    set(SVGA3D_RS_COLORWRITEENABLE, 15);
    set(SVGA3D_RS_ALPHATESTENABLE, 1);
    set(SVGA3D_RS_ALPHAFUNC, SVGA3D_CMP_GREATER);
    set_float(SVGA3D_RS_ALPHAREF, 0.5f);
    quad(0, 0, 8, 8, 0x7F000000);
    EXPECT_EQ(pixel(3, 3), 0x11BB33DDu);
    quad(0, 0, 8, 8, 0x80000000);
    EXPECT_EQ(pixel(3, 3), 0x80000000u);
    set(SVGA3D_RS_SCISSORTESTENABLE, 1);
    state.scissor = {2, 0, 100, 3};
    state.viewport = {0, 1, 5, 100};
    clear(0x01010101);
    for (uint32_t y = 0; y < 8; ++y)
        for (uint32_t x = 0; x < 8; ++x)
            EXPECT_EQ(pixel(x, y) == 0x01010101u, x >= 2 && x < 5 && y >= 1 && y < 3) << x << ' ' << y;
}

// Outside 0..1 a float texture's values reach the stages, and sums stay in a float target.
TEST_F(scene, FloatsAreNotCutShort)
{
    make_targets(4, 4);
    texture(1, 1, {0}, SVGA3D_TEX_FILTER_NEAREST);
    define(texture_sid, SVGA3D_ARGB_S23E8, 1, 1);
    constexpr float texel[] = {3, 2, -1, 0.5f};
    std::memcpy(view(texture_sid).bytes, texel, sizeof texel);
    stage(0, SVGA3D_TS_COLOROP, SVGA3D_TC_MODULATE);
    stage(0, SVGA3D_TS_COLORARG2, SVGA3D_TA_DIFFUSE);
    quad(0, 0, 4, 4, 0xFF333333);
    EXPECT_EQ(pixel(1, 1), 0x80996600u);
    make_targets(4, 4, SVGA3D_ARGB_S23E8);
    set(SVGA3D_RS_BLENDENABLE, 1);
    set(SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_ONE);
    for (const float wanted : {1.0f, 2.0f, 3.0f}) {
        quad(0, 0, 4, 4);
        float red = 0;
        std::memcpy(&red, view(color_sid).texel(1, 1), sizeof red);
        EXPECT_EQ(red, wanted);
    }
}

} // namespace
} // namespace kalix::device::test
