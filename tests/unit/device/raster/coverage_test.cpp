// Which pixels primitives cover, exactly.

#include "tests/unit/device/raster/scene.h"

#include <algorithm>
#include <cmath>

namespace kalix::device::test {
namespace {

struct quad_row {
    float left, top, right, bottom;
    uint32_t x0, y0, x1, y1; // pixels covered, the last ones not included
};

TEST_F(scene, QuadsFollowTheTopLeftRule)
{
    make_targets(16, 16);
    const quad_row rows[] = {
        {0, 0, 15, 15, 0, 0, 15, 15},   {2, 3, 5, 4, 2, 3, 5, 4},     {2.5f, 2.5f, 4.5f, 4.5f, 3, 3, 5, 5},
        {1.01f, 1, 3, 3, 2, 1, 3, 3},   {1, 1, 3.01f, 3, 1, 1, 4, 3}, {1.001f, 1, 3, 3, 1, 1, 3, 3}, // rounds to 1
        {-5, -5, 40, 40, 0, 0, 16, 16}, {3, 3, 3, 9, 0, 0, 0, 0},     {8, 8, 2, 2, 2, 2, 8, 8},
    };
    for (const quad_row& row : rows) {
        clear();
        ASSERT_EQ(quad(row.left, row.top, row.right, row.bottom), draw_result::done);
        for (uint32_t y = 0; y < 16; ++y)
            for (uint32_t x = 0; x < 16; ++x)
                ASSERT_EQ(pixel(x, y) != 0, x >= row.x0 && x < row.x1 && y >= row.y0 && y < row.y1)
                    << row.left << ' ' << row.top << " at " << x << ' ' << y;
    }
}

// Additive blending counts how often a pixel is covered: a mesh that fills the target covers each once.
TEST_F(scene, SharedEdgesCoverEachPixelOnce)
{
    std::mt19937 random{test_seed()};
    make_targets(64, 64);
    set(SVGA3D_RS_BLENDENABLE, 1);
    set(SVGA3D_RS_SRCBLEND, SVGA3D_BLENDOP_ONE);
    set(SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_ONE);
    for (int round = 0; round < 40; ++round) {
        clear();
        // A grid whose inner corners are moved at random, little enough that cells stay convex, each cell cut along
        // a random diagonal.
        corner at[9][9];
        for (int j = 0; j < 9; ++j)
            for (int i = 0; i < 9; ++i) {
                const auto moved = [&random](int place) {
                    const float shift = place > 0 && place < 8 ? static_cast<float>(random() % 600) / 256.0f : 0;
                    return place == 0 ? -1.0f : static_cast<float>(place) * 8.0f + shift;
                };
                at[j][i] = {moved(i), moved(j)};
                at[j][i].diffuse = 0x01010101;
            }
        std::vector<corner> triangles;
        for (int j = 0; j < 8; ++j)
            for (int i = 0; i < 8; ++i) {
                const corner a = at[j][i], b = at[j][i + 1], c = at[j + 1][i + 1], d = at[j + 1][i];
                const auto cell = random() % 2 ? std::array{a, b, c, a, c, d} : std::array{a, b, d, b, c, d};
                triangles.insert(triangles.end(), cell.begin(), cell.end());
            }
        ASSERT_EQ(draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 128, triangles), draw_result::done);
        for (uint32_t y = 0; y < 64; ++y)
            for (uint32_t x = 0; x < 64; ++x)
                ASSERT_EQ(pixel(x, y), 0x01010101u)
                    << "seed " << test_seed() << " round " << round << ' ' << x << ' ' << y;
    }
}

TEST_F(scene, StripsAndFansCoverWhatListsDo)
{
    make_targets(16, 16);
    const std::vector<corner> strip = {{1, 1}, {1, 9}, {8, 1}, {9, 9}, {14, 2}, {14, 10}};
    std::vector<corner> list;
    for (size_t i = 0; i + 2 < strip.size(); ++i)
        list.insert(list.end(), {strip[i], strip[i + (i % 2 ? 2 : 1)], strip[i + (i % 2 ? 1 : 2)]});
    set(SVGA3D_RS_CULLMODE, SVGA3D_FACE_FRONT); // the strip runs counter-clockwise: all or nothing
    draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 4, list);
    const std::vector<std::byte> expected(view(color_sid).bytes, view(color_sid).bytes + 16 * 16 * 4);
    EXPECT_NE(pixel(3, 3), 0u);
    clear();
    draw(SVGA3D_PRIMITIVE_TRIANGLESTRIP, 4, strip);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), view(color_sid).bytes));
    clear();
    set(SVGA3D_RS_CULLMODE, SVGA3D_FACE_BACK);
    draw(SVGA3D_PRIMITIVE_TRIANGLESTRIP, 4, strip);
    EXPECT_EQ(pixel(3, 3), 0u);
    set(SVGA3D_RS_FRONTWINDING, SVGA3D_FRONTWINDING_CCW);
    draw(SVGA3D_PRIMITIVE_TRIANGLESTRIP, 4, strip);
    EXPECT_NE(pixel(3, 3), 0u);
}

TEST_F(scene, LinesAndPoints)
{
    make_targets(16, 16);
    struct line_row {
        corner from, to;
        uint32_t last;
        std::vector<std::pair<uint32_t, uint32_t>> pixels;
    };
    const line_row rows[] = {
        {{1, 1}, {4, 1}, 0, {{1, 1}, {2, 1}, {3, 1}}},
        {{1, 1}, {4, 1}, 1, {{1, 1}, {2, 1}, {3, 1}, {4, 1}}},
        {{4, 4}, {1, 1}, 0, {{4, 4}, {3, 3}, {2, 2}}},
        {{2, 2}, {3, 6}, 1, {{2, 2}, {2, 3}, {3, 4}, {3, 5}, {3, 6}}},
        {{5, 5}, {5, 5}, 0, {}},
        {{5, 5}, {5, 5}, 1, {{5, 5}}},
        {{-3, 2}, {1, 2}, 0, {{0, 2}}},
        {{2, -0.4f}, {4, -0.4f}, 0, {{2, 0}, {3, 0}}},
        {{-0.4f, 4}, {-0.4f, 2}, 1, {{0, 2}, {0, 3}, {0, 4}}},
        {{1e6f, 15.4f}, {13, 15.4f}, 1, {{15, 15}, {14, 15}, {13, 15}}},
    };
    const auto covered = [this] {
        std::vector<std::pair<uint32_t, uint32_t>> out;
        for (uint32_t y = 0; y < 16; ++y)
            for (uint32_t x = 0; x < 16; ++x)
                if (pixel(x, y) != 0)
                    out.emplace_back(x, y);
        return out;
    };
    for (const line_row& row : rows) {
        clear();
        set(SVGA3D_RS_LASTPIXEL, row.last);
        draw(SVGA3D_PRIMITIVE_LINELIST, 1, {row.from, row.to});
        auto expected = row.pixels;
        std::ranges::sort(expected, {}, [](const auto& p) { return std::pair(p.second, p.first); });
        EXPECT_EQ(covered(), expected) << row.from.x << ' ' << row.to.x;
    }
    clear();
    set_float(SVGA3D_RS_POINTSIZE, 3);
    draw(SVGA3D_PRIMITIVE_POINTLIST, 1, {{5, 5}});
    EXPECT_EQ(covered().size(), 9u);
    EXPECT_NE(pixel(4, 4), 0u);
    clear();
    set_float(SVGA3D_RS_POINTSIZE, 2);
    draw(SVGA3D_PRIMITIVE_POINTLIST, 1, {{5, 5}}); // 4 <= px < 6
    EXPECT_EQ(covered(), (std::vector<std::pair<uint32_t, uint32_t>>{{4, 4}, {5, 4}, {4, 5}, {5, 5}}));
}

// How often lines and points cover each pixel of a target, found by asking all pixels.
class coverage {
public:
    static constexpr uint32_t side = 24;

    void line(const corner& from, const corner& to, bool last_pixel)
    {
        const double x0 = rounded(from.x), y0 = rounded(from.y), dx = rounded(to.x) - x0, dy = rounded(to.y) - y0;
        const bool across = std::abs(dx) >= std::abs(dy);
        const double start = across ? x0 : y0, length = across ? dx : dy;
        const double first = std::floor(start + 0.5), last = std::floor(start + length + 0.5);
        each([&](double x, double y) {
            const double at = across ? x : y;
            if (at < std::min(first, last) || at > std::max(first, last) || (at == last && !last_pixel))
                return false;
            const double t = length != 0 ? std::clamp((at - start) / length, 0.0, 1.0) : 0;
            return std::floor((across ? y0 + t * dy : x0 + t * dx) + 0.5) == (across ? y : x);
        });
    }

    void point(const corner& at, double size)
    {
        const double left = rounded(at.x) - size / 2, top = rounded(at.y) - size / 2;
        each([&](double x, double y) { return x >= left && x < left + size && y >= top && y < top + size; });
    }

    uint32_t times(uint32_t x, uint32_t y) const { return times_[y * side + x]; }

private:
    static double rounded(float coordinate) { return std::floor(double{coordinate} * 256 + 0.5) / 256; }

    template <typename question>
    void each(question is_covered)
    {
        for (uint32_t i = 0; i < times_.size(); ++i)
            times_[i] += is_covered(i % side, static_cast<double>(i / side));
    }

    std::vector<uint32_t> times_ = std::vector<uint32_t>(side * side);
};

// Lists of them, and faces of either winding that are drawn as them, cut by target, viewport and scissor.
TEST_F(scene, LinesAndPointsAreCutAfterRounding)
{
    std::mt19937 random{test_seed()};
    const auto below = [&random](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
    const auto place = [&] { return static_cast<float>(below(27 * 16)) / 16.0f - 1.5f; };
    make_targets(coverage::side, coverage::side);
    for (const uint32_t state_name : {SVGA3D_RS_BLENDENABLE, SVGA3D_RS_SCISSORTESTENABLE})
        set(state_name, 1);
    set(SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_ONE);
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(testing::Message() << "seed " << test_seed() << ", round " << round);
        const bool is_cut = below(2) == 0;
        state.viewport = is_cut ? svga3d_rect{below(9), below(9), 1 + below(20), 1 + below(20)}
                                : svga3d_rect{0, 0, coverage::side, coverage::side};
        state.scissor =
            below(2) == 0 ? svga3d_rect{below(9), below(9), 1 + below(20), 1 + below(20)} : svga3d_rect{0, 0, 99, 99};
        const float size = static_cast<float>(below(96)) / 16.0f;
        const bool points = below(2) == 0, faces = below(2) == 0, last = below(2) == 0;
        set(SVGA3D_RS_FILLMODE, points ? SVGA3D_FILLMODE_POINT : SVGA3D_FILLMODE_LINE);
        set(SVGA3D_RS_LASTPIXEL, last);
        set_float(SVGA3D_RS_POINTSIZE, size);
        std::vector<corner> corners(6);
        for (corner& each : corners)
            each = {place(), place(), 0.5f, 1, 0x01010101};
        coverage wanted;
        for (size_t i = 0; i < 6; ++i) {
            if (points)
                wanted.point(corners[i], double{size});
            else if (faces)
                wanted.line(corners[i], corners[i / 3 * 3 + (i + 1) % 3], last);
            else if (i % 2 == 0)
                wanted.line(corners[i], corners[i + 1], last);
        }
        std::memset(view(color_sid).bytes, 0, view(color_sid).byte_size()); // clears are cut as well
        state.query = {true, 0};
        const uint32_t type = faces    ? SVGA3D_PRIMITIVE_TRIANGLELIST
                              : points ? SVGA3D_PRIMITIVE_POINTLIST
                                       : SVGA3D_PRIMITIVE_LINELIST;
        ASSERT_EQ(draw(type, faces ? 2 : points ? 6 : 3, corners), draw_result::done);
        uint64_t samples = 0;
        const auto holds = [](const svga3d_rect& in, uint32_t x, uint32_t y) {
            return x >= in.x && x - in.x < in.w && y >= in.y && y - in.y < in.h;
        };
        for (uint32_t y = 0; y < coverage::side; ++y)
            for (uint32_t x = 0; x < coverage::side; ++x) {
                const bool inside = holds(state.viewport, x, y) && holds(state.scissor, x, y);
                const uint32_t times = inside ? wanted.times(x, y) : 0;
                ASSERT_EQ(pixel(x, y) & 255, times) << x << ' ' << y;
                samples += times;
            }
        EXPECT_EQ(state.query.samples, samples);
    }
}

// What clipping leaves of a triangle covers just the pixels of it that lie inside.
TEST_F(scene, ClippingTakesAwayAndAddsNothing)
{
    std::mt19937 random{test_seed()};
    make_targets(32, 32);
    const auto real = [&random](float low, float high) {
        return low + (high - low) * static_cast<float>(random() % 4096) / 4096.0f;
    };
    for (int round = 0; round < 60; ++round) {
        // The user's plane keeps x >= limit in world space, which is clip space here.
        const auto limit = static_cast<float>(random() % 32) / 16.0f - 1 + 1.0f / 64;
        const std::vector<corner> triangle = {{real(-3, 3), real(-3, 3), real(0.1f, 0.9f)},
                                              {real(-3, 3), real(-3, 3), real(0.1f, 0.9f)},
                                              {real(-3, 3), real(-3, 3), real(0.1f, 0.9f)}};
        set(SVGA3D_RS_CLIPPLANEENABLE, 0);
        clear();
        draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 1, triangle, SVGA3D_DECLUSAGE_POSITION);
        std::vector<uint32_t> whole;
        for (uint32_t i = 0; i < 32 * 32; ++i)
            whole.push_back(pixel(i % 32, i / 32));
        set(SVGA3D_RS_CLIPPLANEENABLE, 1);
        state.clip_planes[0] = {1, 0, 0, -limit};
        clear();
        draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 1, triangle, SVGA3D_DECLUSAGE_POSITION);
        // Corners that a cut makes are rounded too, so an outline may move by a pixel; the rest may not.
        const auto is_outline = [&whole](uint32_t at) {
            return (whole[at] != 0) != (whole[at - 1] != 0) || (whole[at] != 0) != (whole[at + 1] != 0) ||
                   (whole[at] != 0) != (whole[at - 32] != 0) || (whole[at] != 0) != (whole[at + 32] != 0);
        };
        for (uint32_t at = 33; at < 31 * 32 - 1; ++at) {
            const float x = static_cast<float>(at % 32) / 16.0f - 1;
            if (at % 32 == 0 || at % 32 == 31 || is_outline(at) || std::abs(x - limit) < 1.0f / 16)
                continue;
            ASSERT_EQ(pixel(at % 32, at / 32) != 0, whole[at] != 0 && x > limit)
                << "seed " << test_seed() << " round " << round << " pixel " << at;
        }
    }
}

} // namespace
} // namespace kalix::device::test
