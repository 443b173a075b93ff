// Random scenes against a plain rasteriser in double precision, written from the rules and nothing else: coverage
// pixel for pixel, colours within one level.

#include "tests/unit/device/raster/scene.h"

#include <array>
#include <cmath>

namespace kalix::device::test {
namespace {

constexpr int side = 40;

// A target of colours 0..1 and depths, and how it draws.
struct reference {
    std::vector<rgba> colors = std::vector<rgba>(side * side);
    std::vector<uint32_t> depths = std::vector<uint32_t>(side * side, 0xFFFFFF); // 24 bits
    bool tests_depth = false, blends = false, textured = false, linear = false;
    uint32_t compare = SVGA3D_CMP_LESSEQUAL;
    int texture_side = 0;
    std::vector<uint32_t> texels;

    rgba texel(int64_t x, int64_t y) const
    {
        const auto wrapped = [this](int64_t at) { return ((at % texture_side) + texture_side) % texture_side; };
        return unpacked(texels[static_cast<size_t>(wrapped(y) * texture_side + wrapped(x))]);
    }

    rgba sampled(double u, double v) const
    {
        const double s = std::round(u * texture_side * 65536) / 65536;
        const double t = std::round(v * texture_side * 65536) / 65536;
        if (!linear)
            return texel(static_cast<int64_t>(std::floor(s)), static_cast<int64_t>(std::floor(t)));
        const double left = std::floor(s - 0.5), top = std::floor(t - 0.5);
        const double a = s - 0.5 - left, b = t - 0.5 - top;
        const auto x = static_cast<int64_t>(left), y = static_cast<int64_t>(top);
        rgba out{};
        for (size_t i = 0; i < 4; ++i)
            out[i] = (texel(x, y)[i] * (1 - a) + texel(x + 1, y)[i] * a) * (1 - b) +
                     (texel(x, y + 1)[i] * (1 - a) + texel(x + 1, y + 1)[i] * a) * b;
        return out;
    }

    void triangle(const corner& p, const corner& q, const corner& r)
    {
        struct point {
            int64_t x, y;
            const corner* from;
        };
        const auto placed = [](const corner& c) {
            return point{static_cast<int64_t>(std::floor(static_cast<double>(c.x) * 256 + 0.5)),
                         static_cast<int64_t>(std::floor(static_cast<double>(c.y) * 256 + 0.5)), &c};
        };
        std::array<point, 3> at{placed(p), placed(q), placed(r)};
        const auto doubled = [](const point& a, const point& b, int64_t x, int64_t y) {
            return (b.x - a.x) * (y - a.y) - (b.y - a.y) * (x - a.x);
        };
        int64_t area = doubled(at[0], at[1], at[2].x, at[2].y);
        if (area == 0)
            return;
        if (area < 0)
            std::swap(at[1], at[2]), area = -area;
        for (int y = 0; y < side; ++y)
            for (int x = 0; x < side; ++x) {
                std::array<double, 3> share{};
                bool inside = true;
                for (size_t i = 0; i < 3; ++i) { // the edge opposite to corner i
                    const point& a = at[(i + 1) % 3];
                    const point& b = at[(i + 2) % 3];
                    const int64_t e = doubled(a, b, x * 256, y * 256);
                    const bool top_left = (a.y == b.y && b.x > a.x) || b.y < a.y;
                    inside = inside && (e > 0 || (e == 0 && top_left));
                    share[i] = static_cast<double>(e) / static_cast<double>(area);
                }
                if (inside)
                    pixel(x, y, share, {at[0].from, at[1].from, at[2].from});
            }
    }

    void pixel(int x, int y, const std::array<double, 3>& share, const std::array<const corner*, 3>& of)
    {
        const auto linear_value = [&](auto get) {
            return share[0] * get(*of[0]) + share[1] * get(*of[1]) + share[2] * get(*of[2]);
        };
        const double w = 1 / linear_value([](const corner& c) { return double{c.rhw}; });
        const auto value = [&](auto get) {
            return w * linear_value([&](const corner& c) { return get(c) * double{c.rhw}; });
        };
        const size_t index = static_cast<size_t>(y) * side + static_cast<size_t>(x);
        const double z = std::clamp(linear_value([](const corner& c) { return double{c.z}; }), 0.0, 1.0);
        const auto depth = static_cast<uint32_t>(z * 0xFFFFFF + 0.5);
        if (tests_depth && !compares(compare, depth, depths[index]))
            return;
        if (tests_depth)
            depths[index] = depth;
        rgba color{};
        for (size_t i = 0; i < 4; ++i)
            color[i] = value([i](const corner& c) { return unpacked(c.diffuse)[i]; });
        if (textured) {
            const auto texture = sampled(value([](const corner& c) { return double{c.u}; }),
                                         value([](const corner& c) { return double{c.v}; }));
            for (size_t i = 0; i < 4; ++i)
                color[i] *= texture[i];
        }
        const double alpha = color[3];
        for (size_t i = 0; i < 4 && blends; ++i)
            color[i] = color[i] * alpha + colors[index][i] * (1 - alpha);
        for (double& channel : color)
            channel = std::floor(std::clamp(channel, 0.0, 1.0) * 255 + 0.5) / 255; // as it is stored
        colors[index] = color;
    }
};

// Half of the scenes have their corners on a grid of half pixels: edges that meet pixels' centres, and each other.
TEST_F(scene, RandomScenesAreWhatTheRulesSay)
{
    dice random;
    for (int round = 0; round < 400; ++round) {
        state = new_context(1);
        make_targets(side, side, SVGA3D_A8R8G8B8, SVGA3D_Z_D24X8);
        state.targets[SVGA3D_RT_STENCIL] = {SVGA3D_INVALID_ID, 0, 0};
        clear(0, 1);
        reference wanted;
        wanted.tests_depth = random.toss();
        wanted.compare = 2 + random.below(6);
        wanted.blends = random.toss();
        wanted.textured = random.toss();
        wanted.linear = random.toss();
        const uint32_t texels = 1 + random.below(9);
        wanted.texture_side = static_cast<int>(texels);
        wanted.texels = random.words(size_t{texels} * texels);
        if (wanted.textured) {
            texture(texels, texels, wanted.texels,
                    wanted.linear ? uint32_t{SVGA3D_TEX_FILTER_LINEAR} : uint32_t{SVGA3D_TEX_FILTER_NEAREST});
            for (const uint32_t name : {SVGA3D_TS_COLOROP, SVGA3D_TS_ALPHAOP})
                stage(0, name, SVGA3D_TC_MODULATE);
            for (const uint32_t name : {SVGA3D_TS_COLORARG2, SVGA3D_TS_ALPHAARG2})
                stage(0, name, SVGA3D_TA_DIFFUSE);
            set_address(SVGA3D_TEX_ADDRESS_WRAP);
        }
        set(SVGA3D_RS_ZENABLE, wanted.tests_depth);
        set(SVGA3D_RS_ZFUNC, wanted.compare);
        set_blend(SVGA3D_BLENDOP_SRCALPHA, SVGA3D_BLENDOP_INVSRCALPHA);
        set(SVGA3D_RS_BLENDENABLE, wanted.blends);
        const bool on_grid = random.toss();
        const auto place = [&] {
            const float any = random.within(-10, 50);
            return on_grid ? std::floor(any * 2) / 2 : any;
        };
        std::vector<corner> corners(9);
        for (corner& each : corners)
            each = {place(),  place(), random.within(-0.5f, 1.5f), random.within(0.3f, 2),
                    random(), 0,       random.within(-1, 2),       random.within(-1, 2)};
        ASSERT_EQ(draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 3, corners), draw_result::done);
        for (size_t i = 0; i < 9; i += 3)
            wanted.triangle(corners[i], corners[i + 1], corners[i + 2]);
        size_t wrong = 0;
        for (uint32_t y = 0; y < side; ++y)
            for (uint32_t x = 0; x < side; ++x)
                for (size_t i = 0; i < 4; ++i)
                    wrong += std::abs(wanted.colors[size_t{y} * side + x][i] * 255 - channel_of(pixel(x, y), i)) > 1.01;
        // A texel whose edge is met within rounding may be the neighbour.
        ASSERT_LE(wrong, wanted.textured && !wanted.linear ? 8u : 0u) << "round " << round;
    }
}

} // namespace
} // namespace kalix::device::test
