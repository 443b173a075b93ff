// State by state, each against its rule: what a context begins with, stencil, separate alpha, masks, fog, biases.

#include "device/raster/span.h"
#include "tests/unit/device/raster/across.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace kalix::device::test {
namespace {

class StateTest : public across_scene {};

bool holds(uint32_t function, uint32_t a, uint32_t b)
{
    const bool results[] = {false, false, a<b, a == b, a <= b, a> b, a != b, a >= b, true};
    return results[function];
}

// By number: what does not begin as 0.
TEST_F(StateTest, ANewContextHasTheInterfacesValues)
{
    constexpr uint32_t ones = ~0u, one = 0x3F800000;
    const std::map<uint32_t, uint32_t> render_states = {
        {2, 1},   {14, ones}, {15, ones}, {19, one}, {21, 0x43800000}, {22, one}, {29, 3},  {30, 2}, {32, 2},
        {33, 1},  {34, 1},    {35, 1},    {36, 4},   {37, 8},          {38, 8},   {39, 1},  {40, 1}, {41, 1},
        {43, 1},  {47, 15},   {58, 8},    {59, 1},   {60, 1},          {61, 1},   {67, 1},  {68, 1}, {78, ones},
        {82, 15}, {83, 15},   {84, 15},   {86, 2},   {87, 1},          {88, 1},   {91, one}};
    const std::map<uint32_t, uint32_t> texture_states = {{1, ones}, {2, 1}, {3, 4},  {4, 2},  {5, 1},  {6, 4}, {7, 2},
                                                         {8, 1},    {9, 1}, {11, 1}, {12, 1}, {23, 1}, {24, 1}};
    const auto of = [](const std::map<uint32_t, uint32_t>& values, uint32_t number) {
        const auto found = values.find(number);
        return found == values.end() ? 0 : found->second;
    };
    for (uint32_t number = 1; number < SVGA3D_RS_MAX; ++number)
        EXPECT_EQ(state.render_states[number], of(render_states, number)) << number;
    for (uint32_t at = 0; at < 8; ++at)
        for (uint32_t number = 1; number < SVGA3D_TS_MAX; ++number) {
            const bool first_combines = at == 0 && (number == 2 || number == 5);
            const uint32_t wanted = first_combines ? (number == 2 ? 4 : 2)
                                    : number == 14 ? at
                                                   : of(texture_states, number);
            EXPECT_EQ(state.texture_states[at][number], wanted) << at << ' ' << number;
        }
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

// A back face is one for the lines and points of its outline as well.
TEST_F(StateTest, BackFacesKeepTheirStencilInEveryFillMode)
{
    make_targets(8, 8);
    set(SVGA3D_RS_STENCILENABLE, 1);
    set(SVGA3D_RS_STENCILENABLE2SIDED, 1);
    set(SVGA3D_RS_STENCILPASS, SVGA3D_STENCILOP_INCR);
    set(SVGA3D_RS_CCWSTENCILPASS, SVGA3D_STENCILOP_DECR);
    for (const uint32_t mode : {SVGA3D_FILLMODE_POINT, SVGA3D_FILLMODE_LINE, SVGA3D_FILLMODE_FILL})
        for (const bool is_back : {false, true}) {
            set(SVGA3D_RS_FILLMODE, mode);
            clear(0, 1, 0x20);
            const std::vector<corner> shape = {{1, 1}, {6, 1}, {1, 6}};
            draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 1, is_back ? std::vector{shape[0], shape[2], shape[1]} : shape);
            const uint32_t got = word(depth_sid, 1, 1) & 255; // a corner may lie on two lines
            EXPECT_TRUE(is_back ? got < 0x20 : got > 0x20) << mode << ' ' << is_back << ": " << got;
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
                    EXPECT_NEAR(pixel(x, 0) >> 16 & 255, 255 * f, 0.6) << function << ' ' << type << ' ' << x;
                    EXPECT_NEAR(pixel(x, 0) & 255, 255 * (1 - f), 0.6);
                    EXPECT_EQ(pixel(x, 0) >> 24, 0x60u); // alpha stays
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
        return std::vector<std::byte>{view(color_sid).bytes, view(color_sid).bytes + view(color_sid).byte_size()};
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
