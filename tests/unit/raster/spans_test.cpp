// Spans against the general way: random draws of the states that spans know, the same pixels from both.

#include "hardware/gpu/vmware_svga/lib/device/raster/instructions.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/span.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/workers.h"
#include "tests/unit/raster/scene.h"

namespace kalix::device::test {
namespace {

class SpanTest : public scene {
protected:
    ~SpanTest() override { raster::set_spans(true); }

    template <typename type>
    type one_of(std::initializer_list<type> choices)
    {
        return choices.begin()[random_() % choices.size()];
    }
    uint32_t word() { return static_cast<uint32_t>(random_()); }
    float within(float low, float high) { return std::uniform_real_distribution<float>{low, high}(random_); }

    std::vector<uint32_t> words(size_t count)
    {
        std::vector<uint32_t> out(count);
        for (uint32_t& each : out)
            each = word();
        return out;
    }

    void choose_state()
    {
        make_targets(width_, height_, one_of<uint32_t>({SVGA3D_A8R8G8B8, SVGA3D_X8R8G8B8}),
                     one_of<uint32_t>({SVGA3D_Z_D16, SVGA3D_Z_D24S8, SVGA3D_Z_D32}));
        const uint32_t side = 1 + word() % 40;
        texture(side, side, words(size_t{side} * side),
                one_of<uint32_t>({SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TEX_FILTER_LINEAR}));
        for (const uint32_t name : {SVGA3D_TS_ADDRESSU, SVGA3D_TS_ADDRESSV})
            stage(0, name,
                  one_of<uint32_t>({SVGA3D_TEX_ADDRESS_WRAP, SVGA3D_TEX_ADDRESS_CLAMP, SVGA3D_TEX_ADDRESS_EDGE,
                                    SVGA3D_TEX_ADDRESS_MIRROR}));
        const auto operation = [this](uint32_t name) {
            stage(0, name, one_of<uint32_t>({SVGA3D_TC_SELECTARG1, SVGA3D_TC_SELECTARG2, SVGA3D_TC_MODULATE}));
            stage(0, name + 1, one_of<uint32_t>({SVGA3D_TA_TEXTURE, SVGA3D_TA_DIFFUSE}));
            stage(0, name + 2, one_of<uint32_t>({SVGA3D_TA_TEXTURE, SVGA3D_TA_PREVIOUS}));
        };
        operation(SVGA3D_TS_COLOROP);
        operation(SVGA3D_TS_ALPHAOP);
        if (word() % 8 == 0)
            stage(0, SVGA3D_TS_COLOROP, SVGA3D_TC_DISABLE);
        set(SVGA3D_RS_BLENDENABLE, word() % 2);
        set(SVGA3D_RS_SRCBLEND, SVGA3D_BLENDOP_SRCALPHA);
        set(SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_INVSRCALPHA);
        set(SVGA3D_RS_ZENABLE, word() % 2);
        set(SVGA3D_RS_ZWRITEENABLE, word() % 2);
        set(SVGA3D_RS_ZFUNC, 1 + word() % 8);
    }

    std::vector<corner> corners()
    {
        std::vector<corner> out(4);
        const bool flat_color = word() % 2;
        const bool affine = word() % 2;
        const uint32_t color = one_of<uint32_t>({0xFFFFFFFF, word()});
        for (corner& each : out)
            each = {within(-9, 40),
                    within(-9, 40),
                    within(0, 1),
                    affine ? 1 : within(0.2f, 3),
                    flat_color ? color : word(),
                    0,
                    within(-1, 3),
                    within(-1, 3)};
        if (word() % 2) { // a rectangle on whole pixels
            const float left = within(0, 10), top = within(0, 10), right = within(11, 30), bottom = within(11, 30);
            const float at[4][4] = {{left, top, 0, 0}, {right, top, 1, 0}, {right, bottom, 1, 1}, {left, bottom, 0, 1}};
            for (size_t i = 0; i < 4; ++i) {
                out[i].x = std::floor(at[i][0]);
                out[i].y = std::floor(at[i][1]);
                out[i].u = at[i][2];
                out[i].v = at[i][3];
            }
        }
        return out;
    }

    // Color and depth target, after a draw over random contents.
    std::vector<std::byte> drawn(bool spans, const std::vector<uint32_t>& before, const std::vector<corner>& shape)
    {
        raster::set_spans(spans);
        std::vector<std::byte> out;
        for (const uint32_t sid : {color_sid, depth_sid})
            std::memcpy(view(sid).bytes, before.data(), view(sid).byte_size());
        state.query = {};
        state.query.active = true;
        EXPECT_EQ(draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, shape), draw_result::done);
        for (const uint32_t sid : {color_sid, depth_sid})
            out.insert(out.end(), view(sid).bytes, view(sid).bytes + view(sid).byte_size());
        out.push_back(static_cast<std::byte>(state.query.samples));
        return out;
    }

    std::mt19937 random_{test_seed()};
    uint32_t width_ = 32, height_ = 31;
};

TEST_F(SpanTest, GiveThePixelsOfTheGeneralWay)
{
    for (int i = 0; i < 1000; ++i) {
        choose_state();
        const std::vector<uint32_t> before = words(size_t{width_} * height_);
        const std::vector<corner> shape = corners();
        const std::vector<std::byte> fast = drawn(true, before, shape);
        const std::vector<std::byte> slow = drawn(false, before, shape);
        // Colours may differ by a level; depths and counts are the same.
        const size_t color_bytes = view(color_sid).byte_size();
        size_t wrong = 0;
        for (size_t at = 0; at < fast.size(); ++at) {
            const int apart = std::abs(std::to_integer<int>(fast[at]) - std::to_integer<int>(slow[at]));
            wrong += apart > (at < color_bytes ? 1 : 0);
        }
        ASSERT_EQ(wrong, 0u) << "seed " << test_seed() << ", draw " << i;
    }
}

// Rectangles along the axes: scaled either way, turned over, repeated, cut, blended, over textures of odd sizes; at
// times the target is its own texture.
class PictureTest : public SpanTest {
protected:
    // Whether colours may differ by a level from the general way's.
    bool choose_picture()
    {
        width_ = 50 + word() % 100;
        height_ = 20 + word() % 30;
        make_targets(width_, height_, one_of<uint32_t>({SVGA3D_A8R8G8B8, SVGA3D_X8R8G8B8}));
        const uint32_t width = 1 + word() % one_of<uint32_t>({3, 40, 300});
        const uint32_t height = 1 + word() % one_of<uint32_t>({3, 40, 100});
        const uint32_t filter = one_of<uint32_t>({SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TEX_FILTER_LINEAR});
        const bool feeds_back = filter == SVGA3D_TEX_FILTER_NEAREST && word() % 4 == 0;
        texture(width, height, words(size_t{width} * height), filter);
        if (feeds_back)
            stage(0, SVGA3D_TS_BIND_TEXTURE, color_sid);
        for (const uint32_t name : {SVGA3D_TS_ADDRESSU, SVGA3D_TS_ADDRESSV})
            stage(0, name, one_of<uint32_t>({SVGA3D_TEX_ADDRESS_WRAP, SVGA3D_TEX_ADDRESS_CLAMP}));
        stage(0, SVGA3D_TS_ALPHAARG1, one_of<uint32_t>({SVGA3D_TA_TEXTURE, SVGA3D_TA_DIFFUSE}));
        set(SVGA3D_RS_BLENDENABLE, word() % 3 == 0);
        set(SVGA3D_RS_SRCBLEND, SVGA3D_BLENDOP_SRCALPHA);
        set(SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_INVSRCALPHA);
        return filter == SVGA3D_TEX_FILTER_LINEAR;
    }

    // A rectangle of any place, or on whole pixels with a texel to each.
    std::vector<corner> rectangle()
    {
        const image_view from = view(state.texture_states[0][SVGA3D_TS_BIND_TEXTURE]);
        const bool whole = word() % 3 == 0;
        const auto place = [&](float low, float high) {
            return whole ? std::floor(within(low, high)) : within(low, high);
        };
        const float left = place(-20, 20), right = place(21, 170), top = place(-9, 9), bottom = place(10, 60);
        float u0 = within(-1, 2), u1 = within(-1, 2), v0 = within(-1, 2), v1 = within(-1, 2);
        if (whole) {
            u0 = v0 = 0;
            u1 = (right - left) / static_cast<float>(from.width);
            v1 = (bottom - top) / static_cast<float>(from.height);
        }
        return {{left, top, 0, 1, ~0u, 0, u0, v0},
                {right, top, 0, 1, ~0u, 0, u1, v0},
                {right, bottom, 0, 1, ~0u, 0, u1, v1},
                {left, bottom, 0, 1, ~0u, 0, u0, v1}};
    }
};

TEST_F(PictureTest, GiveThePixelsOfTheGeneralWayWithEveryInstructionSet)
{
    for (int i = 0; i < 400; ++i) {
        const int allowed = choose_picture() ? 1 : 0;
        const std::vector<uint32_t> before = words(size_t{width_} * height_);
        const std::vector<corner> shape = rectangle();
        const std::vector<std::byte> slow = drawn(false, before, shape);
        std::vector<std::byte> first;
        for (const int64_t instructions : raster::instruction_sets()) {
            raster::force_instruction_set(instructions);
            const std::vector<std::byte> fast = drawn(true, before, shape);
            int apart = 0;
            for (size_t at = 0; at < fast.size(); ++at)
                apart = std::max(apart, std::abs(std::to_integer<int>(fast[at]) - std::to_integer<int>(slow[at])));
            if (first.empty())
                first = fast;
            ASSERT_TRUE(apart <= allowed && fast == first)
                << raster::instruction_set_name(instructions) << ", " << apart << " levels, seed " << test_seed()
                << ", draw " << i;
        }
        raster::force_instruction_set(0);
    }
}

// What a texture held at the draw before is not drawn again.
TEST_F(PictureTest, SeesItsTextureChange)
{
    make_targets(64, 64);
    for (const uint32_t filter : {SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TEX_FILTER_LINEAR}) {
        texture(20, 20, std::vector<uint32_t>(400, 0xFF102030), filter);
        ASSERT_EQ(quad(0, 0, 64, 64), draw_result::done);
        EXPECT_EQ(pixel(40, 40), 0xFF102030);
        const std::vector<uint32_t> other(400, 0xFF405060);
        std::memcpy(view(texture_sid).bytes, other.data(), other.size() * 4);
        ASSERT_EQ(quad(0, 0, 64, 64), draw_result::done);
        EXPECT_EQ(pixel(40, 40), 0xFF405060);
    }
}

// Triangles, lines and points over each other: the same bytes and counts, however many threads draw.
TEST_F(SpanTest, ThreadsDoNotChangeThePicture)
{
    width_ = 230;
    height_ = 170;
    std::vector<std::unique_ptr<raster::worker_pool>> pools;
    for (const uint32_t count : {1u, 2u, 3u, 4u})
        pools.push_back(std::make_unique<raster::worker_pool>(
            count, [](std::function<void()> body) { return std::thread{std::move(body)}; }));
    for (int i = 0; i < 25; ++i) {
        choose_state();
        set(SVGA3D_RS_FILLMODE, i % 5 == 0 ? uint32_t{SVGA3D_FILLMODE_LINE} : uint32_t{SVGA3D_FILLMODE_FILL});
        set(SVGA3D_RS_SHADEMODE, 1 + word() % 2);
        const std::vector<uint32_t> before = words(size_t{width_} * height_);
        std::vector<corner> shape;
        for (int corners = 0; corners < 300; ++corners)
            shape.push_back({within(-50, 280), within(-50, 220), within(0, 1), within(0.2f, 3), word(), 0,
                             within(-1, 3), within(-1, 3)});
        std::vector<std::byte> first;
        for (const auto& pool : pools) {
            workers = pool.get();
            for (const uint32_t sid : {color_sid, depth_sid})
                std::memcpy(view(sid).bytes, before.data(), view(sid).byte_size());
            state.query = {true, 0};
            EXPECT_EQ(draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 100, shape), draw_result::done);
            std::vector<std::byte> bytes{view(color_sid).bytes, view(color_sid).bytes + view(color_sid).byte_size()};
            bytes.insert(bytes.end(), view(depth_sid).bytes, view(depth_sid).bytes + view(depth_sid).byte_size());
            for (int shift = 0; shift < 64; shift += 8)
                bytes.push_back(static_cast<std::byte>(state.query.samples >> shift));
            if (first.empty())
                first = bytes;
            ASSERT_TRUE(bytes == first) << pool->count() << " threads, seed " << test_seed() << ", draw " << i;
        }
    }
    workers = nullptr;
}

} // namespace
} // namespace kalix::device::test
