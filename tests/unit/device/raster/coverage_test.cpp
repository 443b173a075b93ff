// Which pixels primitives cover, exactly.

#include "tests/unit/device/raster/scene.h"

#include <cmath>

namespace kalix::device::test {
namespace {

TEST_F(scene, StripsCoverWhatListsDo)
{
    make_targets(16, 16);
    const std::vector<corner> strip = {{1, 1}, {1, 9}, {8, 1}, {9, 9}, {14, 2}, {14, 10}};
    std::vector<corner> list;
    for (size_t i = 0; i + 2 < strip.size(); ++i)
        list.insert(list.end(), {strip[i], strip[i + (i % 2 ? 2 : 1)], strip[i + (i % 2 ? 1 : 2)]});
    draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 4, list);
    const std::vector<std::byte> expected = copy_of(color_sid);
    // The strip runs counter-clockwise: all or nothing.
    for (const uint32_t winding : {SVGA3D_FRONTWINDING_CW, SVGA3D_FRONTWINDING_CCW})
        for (const uint32_t culled : {SVGA3D_FACE_FRONT, SVGA3D_FACE_BACK}) {
            set(SVGA3D_RS_FRONTWINDING, winding);
            set(SVGA3D_RS_CULLMODE, culled);
            clear();
            draw(SVGA3D_PRIMITIVE_TRIANGLESTRIP, 4, strip);
            const bool is_drawn = (winding == SVGA3D_FRONTWINDING_CW) == (culled == SVGA3D_FACE_FRONT);
            EXPECT_EQ(copy_of(color_sid) == expected, is_drawn) << winding << ' ' << culled;
        }
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
    dice random;
    const auto place = [&] { return random.below(64) ? static_cast<float>(random.below(27 * 16)) / 16 - 1.5f : 1e6f; };
    const auto part = [&] {
        return svga3d_rect{random.below(9), random.below(9), 1 + random.below(20), 1 + random.below(20)};
    };
    const svga3d_rect all{0, 0, coverage::side, coverage::side};
    make_targets(coverage::side, coverage::side);
    set(SVGA3D_RS_SCISSORTESTENABLE, 1);
    set_blend(SVGA3D_BLENDOP_ONE, SVGA3D_BLENDOP_ONE);
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(round);
        state.viewport = random.toss() ? part() : all;
        state.scissor = random.toss() ? part() : all;
        const float size = static_cast<float>(random.below(96)) / 16;
        const bool points = random.toss(), faces = random.toss(), last = random.toss();
        set(SVGA3D_RS_FILLMODE, points ? SVGA3D_FILLMODE_POINT : SVGA3D_FILLMODE_LINE);
        set(SVGA3D_RS_LASTPIXEL, last);
        set_float(SVGA3D_RS_POINTSIZE, size);
        std::vector<corner> corners(6);
        for (corner& each : corners)
            each = {place(), place(), 0.5f, 1, 0x01010101};
        if (!faces)
            corners[1] = corners[0]; // a line without a length
        coverage wanted;
        for (size_t i = 0; i < 6; ++i) {
            const corner &a = corners[i / 3 * 3], &b = corners[i / 3 * 3 + 1], &c = corners[i / 3 * 3 + 2];
            if (faces && double{b.x - a.x} * double{c.y - a.y} == double{c.x - a.x} * double{b.y - a.y})
                continue; // a face without an area is none
            if (points)
                wanted.point(corners[i], double{size});
            else if (faces)
                wanted.line(corners[i], corners[i / 3 * 3 + (i + 1) % 3], last);
            else if (i % 2 == 0)
                wanted.line(corners[i], corners[i + 1], last);
        }
        std::ranges::fill(bytes(color_sid), std::byte{0}); // clears are cut as well
        state.query = {true, 0};
        const uint32_t type = faces    ? SVGA3D_PRIMITIVE_TRIANGLELIST
                              : points ? SVGA3D_PRIMITIVE_POINTLIST
                                       : SVGA3D_PRIMITIVE_LINELIST;
        ASSERT_EQ(draw(type, faces ? 2 : points ? 6 : 3, corners), draw_result::done);
        uint64_t samples = 0;
        const auto holds = [](const svga3d_rect& in, uint32_t x, uint32_t y) {
            return x >= in.x && x - in.x < in.w && y >= in.y && y - in.y < in.h;
        };
        expect_pixels([&](uint32_t x, uint32_t y) {
            const bool inside = holds(state.viewport, x, y) && holds(state.scissor, x, y);
            const uint32_t times = inside ? wanted.times(x, y) : 0;
            samples += times;
            return times * 0x01010101;
        });
        EXPECT_EQ(state.query.samples, samples);
    }
}

// What clipping leaves of a triangle covers just the pixels of it that lie inside.
TEST_F(scene, ClippingTakesAwayAndAddsNothing)
{
    dice random;
    make_targets(32, 32);
    const auto corner_anywhere = [&] {
        return corner{random.within(-3, 3), random.within(-3, 3), random.within(0.1f, 0.9f)};
    };
    for (int round = 0; round < 60; ++round) {
        // The user's plane keeps x >= limit in world space, which is clip space here.
        const float limit = static_cast<float>(random.below(32)) / 16 - 1 + 1.0f / 64;
        const corner a = corner_anywhere(), b = corner_anywhere(), c = corner_anywhere();
        const auto drawn = [&](uint32_t planes) {
            set(SVGA3D_RS_CLIPPLANEENABLE, planes);
            clear();
            draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 1, {a, b, c}, SVGA3D_DECLUSAGE_POSITION);
            std::vector<bool> out;
            for (uint32_t at = 0; at < 32 * 32; ++at)
                out.push_back(pixel(at % 32, at / 32) != 0);
            return out;
        };
        state.clip_planes[0] = {1, 0, 0, -limit};
        const std::vector<bool> whole = drawn(0), cut = drawn(1);
        for (uint32_t at = 0; at < 32 * 32; ++at) {
            const float x = static_cast<float>(at % 32) / 16 - 1, y = 1 - static_cast<float>(at / 32) / 16;
            // Corners that a cut makes are rounded too: what lies on an edge may go to either side.
            const auto is_on_edge = [x, y](const corner& from, const corner& to) {
                const float dx = to.x - from.x, dy = to.y - from.y;
                return std::abs(dx * (y - from.y) - dy * (x - from.x)) < std::hypot(dx, dy) / 1024; // 1/64 pixel
            };
            if (is_on_edge(a, b) || is_on_edge(b, c) || is_on_edge(c, a))
                continue;
            ASSERT_EQ(cut[at], whole[at] && x > limit) << "round " << round << " pixel " << at;
        }
    }
}

} // namespace
} // namespace kalix::device::test
