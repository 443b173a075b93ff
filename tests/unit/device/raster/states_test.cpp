// State by state, each against its rule: what a context begins with, stencil, fog, depth, and what has no effect.

#include "device/raster/span.h"
#include "tests/unit/device/raster/scene.h"

#include <cmath>
#include <map>

namespace kalix::device::test {
namespace {

class StateTest : public scene {};

// By number: what does not begin as 0.
TEST_F(StateTest, ANewContextHasTheInterfacesValues)
{
    constexpr uint32_t ones = ~0u, one = 0x3F800000;
    std::map<uint32_t, uint32_t> render_states = {
        {2, 1},   {14, ones}, {15, ones}, {19, one}, {21, 0x43800000}, {22, one}, {29, 3},  {30, 2}, {32, 2},
        {33, 1},  {34, 1},    {35, 1},    {36, 4},   {37, 8},          {38, 8},   {39, 1},  {40, 1}, {41, 1},
        {43, 1},  {47, 15},   {58, 8},    {59, 1},   {60, 1},          {61, 1},   {67, 1},  {68, 1}, {78, ones},
        {82, 15}, {83, 15},   {84, 15},   {86, 2},   {87, 1},          {88, 1},   {91, one}};
    std::map<uint32_t, uint32_t> texture_states = {{1, ones}, {3, 4},  {4, 2},  {6, 4},  {7, 2}, {8, 1},
                                                   {9, 1},    {11, 1}, {12, 1}, {23, 1}, {24, 1}};
    for (uint32_t number = 1; number < SVGA3D_RS_MAX; ++number)
        EXPECT_EQ(state.render_states[number], render_states[number]) << number;
    for (uint32_t at = 0; at < 8; ++at) {
        texture_states[2] = at == 0 ? 4 : 1;
        texture_states[5] = at == 0 ? 2 : 1;
        texture_states[14] = at;
        for (uint32_t number = 1; number < SVGA3D_TS_MAX; ++number)
            EXPECT_EQ(state.texture_states[at][number], texture_states[number]) << at << ' ' << number;
    }
}

// ---- Stencil ------------------------------------------------------------------------------------------

// What an operation makes of a stencil of 8 bits; one that is none keeps it.
uint32_t operated(uint32_t operation, uint32_t value, uint32_t reference)
{
    const uint32_t clamped[] = {std::min(value + 1, 255u), std::max(value, 1u) - 1};
    const uint32_t results[] = {value, value, 0, reference, clamped[0], clamped[1], ~value, value + 1, value - 1};
    return results[operation < std::size(results) ? operation : 0] & 255;
}

// Any functions, operations, masks and references, of faces of either side that lie before the depth or behind it,
// whole or as their outline or corners.
TEST_F(StateTest, StencilFollowsItsStates)
{
    dice random;
    make_targets(8, 8);
    set(SVGA3D_RS_ZENABLE, 1);
    set(SVGA3D_RS_ZFUNC, SVGA3D_CMP_LESS);
    set(SVGA3D_RS_STENCILENABLE, 1);
    for (int round = 0; round < 4000; ++round) {
        SCOPED_TRACE(round);
        // Function, fail, depth fail, pass; first the front's.
        uint32_t tests[2][4];
        for (uint32_t i = 0; i < 8; ++i) {
            tests[i / 4][i % 4] = i % 4 == 0 || random.below(64) ? 1 + random.below(8) : 99;
            set((i < 4 ? SVGA3D_RS_STENCILFUNC : SVGA3D_RS_CCWSTENCILFUNC) + i % 4, tests[i / 4][i % 4]);
        }
        const uint32_t before = random.one_of({0u, 1u, 254u, 255u, random.below(256)});
        const uint32_t reference = random.one_of({before, before + 256, random.below(256)});
        const uint32_t mask = random.one_of({~0u, 0x0Fu, random()}), written = random.one_of({~0u, 0x0Fu, random()});
        const bool two_sided = random.toss(), clockwise = random.toss(), front_is_clockwise = random.toss();
        set(SVGA3D_RS_STENCILENABLE2SIDED, two_sided);
        set(SVGA3D_RS_FRONTWINDING, front_is_clockwise ? SVGA3D_FRONTWINDING_CW : SVGA3D_FRONTWINDING_CCW);
        set(SVGA3D_RS_STENCILREF, reference);
        set(SVGA3D_RS_STENCILMASK, mask);
        set(SVGA3D_RS_STENCILWRITEMASK, written);
        const bool is_near = random.toss();
        clear(0, 0.5f, before);
        state.query = {true, 0};
        const float z = is_near ? 0.0f : 0.8f;
        const corner first{0, 0, z}, right{6, 0, z}, below{0, 6, z};
        const uint32_t fill = random.one_of({SVGA3D_FILLMODE_POINT, SVGA3D_FILLMODE_LINE, SVGA3D_FILLMODE_FILL});
        set(SVGA3D_RS_FILLMODE, fill);
        draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 1,
             clockwise ? std::vector{first, right, below} : std::vector{first, below, right});
        // A pixel that is drawn once: a corner, or one of the upper edge.
        const uint32_t x = fill == SVGA3D_FILLMODE_POINT ? 0 : 3;
        const auto& [function, fail, depth_fail, pass] = tests[two_sided && clockwise != front_is_clockwise];
        const bool passes = compares(function, reference & mask, before & mask);
        const uint32_t after = operated(!passes ? fail : is_near ? pass : depth_fail, before, reference);
        const uint32_t depth = passes && is_near ? 0 : 0x800000; // the half, rounded up
        EXPECT_EQ(word(depth_sid, x, 0), depth << 8 | (before & ~written & 255) | (after & written));
        EXPECT_EQ(pixel(x, 0), passes && is_near ? ~0u : 0);
        EXPECT_TRUE(fill == SVGA3D_FILLMODE_LINE || (state.query.samples != 0) == (passes && is_near));
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
    // It is target enough.
    state.targets[SVGA3D_RT_COLOR0].sid = state.targets[SVGA3D_RT_DEPTH].sid = SVGA3D_INVALID_ID;
    state.query = {true, 0};
    EXPECT_EQ(quad(0, 0, 2, 2), draw_result::done);
    EXPECT_EQ(word(depth_sid, 0, 0), 0xFFFEu);
    EXPECT_EQ(state.query.samples, 4u);
    state.targets[SVGA3D_RT_STENCIL].sid = SVGA3D_INVALID_ID;
    EXPECT_EQ(quad(0, 0, 2, 2), draw_result::no_target);
    // A format without stencil is no stencil target.
    make_targets(2, 2, SVGA3D_A8R8G8B8, SVGA3D_Z_D24X8);
    set(SVGA3D_RS_STENCILFUNC, SVGA3D_CMP_NEVER);
    quad(0, 0, 2, 2);
    EXPECT_EQ(pixel(0, 0), ~0u);
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
    struct base {
        uint32_t mode, range_state;
        bool by_range;
    };
    for (const base& from : {base{1, 0, false}, {2, 0, true}, {1, 1, true}})
        for (uint32_t function = 0; function < 4; ++function)
            for (const uint32_t type : {1u, 2u}) { // by vertex, by pixel
                SCOPED_TRACE(testing::Message() << function << ' ' << type << ' ' << from.by_range);
                set(SVGA3D_RS_FOGMODE, function | type << 8 | from.mode << 16);
                set(SVGA3D_RS_RANGEFOGENABLE, from.range_state);
                clear(0);
                across({2}, {8}, 0x60FF0000);
                // Of a place with y 1, as the row's and the corners' is.
                const auto factor = [&](double x, double z) {
                    return functions[function](from.by_range ? std::sqrt(x * x + 1 + z * z) : z);
                };
                for (uint32_t x = 0; x < 16; ++x) {
                    const double at = x / 16.0;
                    const double f =
                        type == 2 ? factor(2 * at - 1, 2 + 6 * at) : factor(1, 2) * (1 - at) + factor(1, 8) * at;
                    expect_color(pixel(x, 0), {f, 0, 1 - f, 0x60 / 255.0}); // alpha stays
                }
            }
    // Positions on the target are as far away as their z says.
    for (const uint32_t type : {1u, 2u}) {
        set(SVGA3D_RS_FOGMODE, 3 | type << 8 | 2 << 16);
        quad(0, 0, 16, 1, 0x60FF0000, 1, 1, 5);
        EXPECT_EQ(pixel(9, 0), 0x60800080u);
    }
}

// Beyond 0..1 at its corners, and with a bias: what the depth box and the user's planes cut off elsewhere.
TEST_F(StateTest, DepthIsClampedAtEachPixel)
{
    make_targets(16, 4, SVGA3D_A8R8G8B8, SVGA3D_Z_D16);
    set(SVGA3D_RS_ZENABLE, 1);
    set(SVGA3D_RS_ZFUNC, SVGA3D_CMP_ALWAYS);
    set(SVGA3D_RS_CLIPPLANEENABLE, 1);
    state.clip_planes[0] = {0, 0, 0, -1}; // keeps nothing
    set_float(SVGA3D_RS_DEPTHBIAS, 0.25f);
    const corner corners[] = {{0, 0, -1}, {16, 0, 3}, {16, 4, 3}, {0, 4, -1}};
    const auto expect_depths = [&](const char* what, uint32_t first, uint32_t last, double z, double growth) {
        for (uint32_t x = first; x <= last; ++x)
            EXPECT_NEAR(word(depth_sid, x, 0), std::clamp(z + growth * (x - first) + 0.25, 0.0, 1.0) * 65535, 0.51)
                << what << ' ' << x;
    };
    for (const bool by_pixels : {false, true}) {
        raster::set_spans(!by_pixels);
        clear(0, 0.5f);
        draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, {corners, corners + 4});
        expect_depths(by_pixels ? "pixels" : "lanes", 0, 15, -1, 0.25);
    }
    raster::set_spans(true);
    clear(0, 0.5f);
    draw(SVGA3D_PRIMITIVE_LINELIST, 1, {corners, corners + 2});
    expect_depths("line", 0, 15, -1, 0.25);
    draw(SVGA3D_PRIMITIVE_POINTLIST, 4, {{0, 0, -0.125f}, {1, 0, -1}, {2, 0, 0.875f}, {3, 0, NAN}});
    expect_depths("point", 0, 0, -0.125, 0);
    expect_depths("point", 1, 1, -1, 0);
    expect_depths("point", 2, 2, 0.875, 0);
    expect_depths("point", 3, 3, 0, 0);
}

// What docs/device.md lists as without effect, on lines, points and faces with a texture.
TEST_F(StateTest, SomeStatesChangeNothing)
{
    make_targets(32, 32);
    texture(4, 4, std::vector<uint32_t>(16, 0xFF806040), SVGA3D_TEX_FILTER_LINEAR);
    set_float(SVGA3D_RS_POINTSIZE, 3);
    const auto drawn = [this] {
        clear(0xFF102030);
        const std::vector<corner> corners = {{2, 2, 0.5f, 1, 0x80FF0000}, {20, 5, 1.5f, 1}, {9, 29, 0.5f, 2}};
        for (const uint32_t type :
             {SVGA3D_PRIMITIVE_TRIANGLELIST, SVGA3D_PRIMITIVE_POINTLIST, SVGA3D_PRIMITIVE_LINESTRIP})
            EXPECT_EQ(draw(type, 1, corners), draw_result::done);
        const std::vector<corner> beyond = {{-2, 2, 0.5f}, {0, -2, 0.5f}, {0.9f, 0.9f, -1}};
        EXPECT_EQ(draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 1, beyond, SVGA3D_DECLUSAGE_POSITION), draw_result::done);
        return copy_of(color_sid);
    };
    const std::vector<std::byte> wanted = drawn();
    const context before = state;
    for (const uint32_t which : std::initializer_list<uint32_t>{4,  31, 44, 65, 66, 68, 69, 70, 71, 72, 73, 74, 75,
                                                                76, 77, 78, 79, 80, 81, 82, 83, 84, 89, 90, 91})
        for (const uint32_t value : {0u, 1u, 0x3F000000u, 0x40800000u}) {
            set(which, value);
            EXPECT_EQ(drawn(), wanted) << which;
            state = before;
        }
    for (const uint32_t which : std::initializer_list<uint32_t>{17, 18, 19, 20, 23, 25, 26, 27}) {
        stage(0, which, 0x40800000);
        EXPECT_EQ(drawn(), wanted) << which;
    }
    for (uint32_t which = 12; which < 15; ++which)
        state.transforms[which].fill(3);
    EXPECT_EQ(drawn(), wanted);
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
