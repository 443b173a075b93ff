// Spans against the general way: random draws of the states that spans know, the same pixels from both.

#include "device/raster/processor.h"
#include "device/raster/span.h"
#include "device/raster/workers.h"
#include "device/state/limits.h"
#include "tests/unit/device/raster/scene.h"

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

    // A texture of one level, or of all that its sides have.
    void choose_texture()
    {
        uint32_t wide = 1 + word() % 40, high = 1 + word() % 40;
        std::vector<svga3d_size> sizes{{wide, high, 1}};
        for (; word() % 4 != 0 && (wide > 1 || high > 1); sizes.push_back({wide, high, 1})) {
            wide = std::max(wide / 2, 1u);
            high = std::max(high / 2, 1u);
        }
        texture(1, 1, words(1), one_of<uint32_t>({SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TEX_FILTER_LINEAR}));
        const svga3d_surface_define levels{
            texture_sid, 0, SVGA3D_A8R8G8B8, {static_cast<uint32_t>(sizes.size()), 0, 0, 0, 0, 0}};
        ASSERT_TRUE(surfaces.define(levels, sizes));
        for (uint32_t level = 0; level < sizes.size(); ++level) {
            const image_view image = surfaces.view({texture_sid, 0, level});
            std::memcpy(image.bytes, words(image.byte_size() / 4).data(), image.byte_size());
        }
        choose_filters(0);
    }

    void choose_filters(uint32_t index)
    {
        if (word() % 2)
            stage(index, SVGA3D_TS_MINFILTER, one_of<uint32_t>({SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TEX_FILTER_LINEAR}));
        stage(index, SVGA3D_TS_MIPFILTER, word() % 3);
        stage(index, SVGA3D_TS_TEXTURE_MIPMAP_LEVEL, word() % 2 ? word() % 4 : 0);
        stage(index, SVGA3D_TS_TEXTURE_LOD_BIAS, std::bit_cast<uint32_t>(within(-2, 2)));
    }

    void choose_state()
    {
        make_targets(width_, height_, one_of<uint32_t>({SVGA3D_A8R8G8B8, SVGA3D_X8R8G8B8}),
                     one_of<uint32_t>({SVGA3D_Z_D16, SVGA3D_Z_D24S8, SVGA3D_Z_D32}));
        choose_texture();
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
        choose_more(word() % 2 == 0);
    }

    // What only full shading does: any stages, fog, specular, alpha test, blending and mask; or none of it.
    void choose_more(bool more)
    {
        for (const uint32_t name : {SVGA3D_RS_FOGENABLE, SVGA3D_RS_SPECULARENABLE, SVGA3D_RS_ALPHATESTENABLE,
                                    SVGA3D_RS_SEPARATEALPHABLENDENABLE, SVGA3D_RS_STENCILENABLE})
            set(name, more ? word() % 2 : 0);
        set(SVGA3D_RS_COLORWRITEENABLE, more && word() % 2 ? word() % 16 : 15);
        stage(1, SVGA3D_TS_COLOROP, SVGA3D_TC_DISABLE);
        if (!more)
            return;
        set(SVGA3D_RS_FOGMODE, one_of<uint32_t>({3 | 1 << 8, 3 | 2 << 8, 4}));
        set(SVGA3D_RS_FOGCOLOR, word());
        set_float(SVGA3D_RS_FOGSTART, within(0, 1));
        set_float(SVGA3D_RS_FOGEND, within(0, 1));
        set(SVGA3D_RS_ALPHAFUNC, 1 + word() % 8);
        set_float(SVGA3D_RS_ALPHAREF, within(0, 1));
        choose_stencil();
        set(SVGA3D_RS_BLENDCOLOR, word());
        for (const uint32_t name :
             {SVGA3D_RS_SRCBLEND, SVGA3D_RS_DSTBLEND, SVGA3D_RS_SRCBLENDALPHA, SVGA3D_RS_DSTBLENDALPHA})
            set(name, 1 + word() % 13);
        set(SVGA3D_RS_BLENDEQUATION, 1 + word() % 5);
        set(SVGA3D_RS_BLENDEQUATIONALPHA, 1 + word() % 5);
        set(SVGA3D_RS_TEXTUREFACTOR, word());
        for (uint32_t index = 0; index < 3; ++index)
            choose_stage(index);
    }

    void choose_stencil()
    {
        set(SVGA3D_RS_STENCILENABLE, word() % 2);
        set(SVGA3D_RS_STENCILENABLE2SIDED, word() % 2);
        set(SVGA3D_RS_STENCILREF, word() % 300);
        set(SVGA3D_RS_STENCILMASK, one_of<uint32_t>({~0u, 0x70, word()}));
        set(SVGA3D_RS_STENCILWRITEMASK, one_of<uint32_t>({~0u, word()}));
        for (const uint32_t name :
             {SVGA3D_RS_STENCILFUNC, SVGA3D_RS_STENCILFAIL, SVGA3D_RS_STENCILZFAIL, SVGA3D_RS_STENCILPASS,
              SVGA3D_RS_CCWSTENCILFUNC, SVGA3D_RS_CCWSTENCILFAIL, SVGA3D_RS_CCWSTENCILZFAIL, SVGA3D_RS_CCWSTENCILPASS})
            set(name, 1 + word() % 8);
    }

    void choose_stage(uint32_t index)
    {
        stage(index, SVGA3D_TS_BIND_TEXTURE, word() % 4 == 0 ? SVGA3D_INVALID_ID : texture_sid);
        stage(index, SVGA3D_TS_TEXCOORDINDEX, 0);
        const uint32_t filter = one_of<uint32_t>({SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TEX_FILTER_LINEAR});
        for (const uint32_t name : {SVGA3D_TS_MAGFILTER, SVGA3D_TS_MINFILTER})
            stage(index, name, filter);
        choose_filters(index);
        for (const uint32_t name : {SVGA3D_TS_COLOROP, SVGA3D_TS_ALPHAOP}) {
            uint32_t operation = 2;
            do
                operation = 2 + word() % 25;
            while (!(limits::texture_operations >> operation & 1));
            stage(index, name, operation);
        }
        for (const uint32_t name : {SVGA3D_TS_COLORARG0, SVGA3D_TS_COLORARG1, SVGA3D_TS_COLORARG2, SVGA3D_TS_ALPHAARG0,
                                    SVGA3D_TS_ALPHAARG1, SVGA3D_TS_ALPHAARG2})
            stage(index, name, 1 + word() % 5);
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
                    within(-0.5f, 1.5f),
                    affine ? 1 : within(0.2f, 3),
                    flat_color ? color : word(),
                    word(),
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

// The same bytes and counts, however many threads draw.
class ThreadTest : public SpanTest {
protected:
    ThreadTest()
    {
        width_ = 230;
        height_ = 170;
        for (const uint32_t count : {1u, 2u, 3u, 4u})
            pools_.push_back(std::make_unique<raster::worker_pool>(
                count, [](std::function<void()> body) { return std::thread{std::move(body)}; }));
    }

    // Corners of triangles that lie anywhere, each within so many pixels.
    std::vector<corner> triangles(size_t count, float size)
    {
        std::vector<corner> out;
        for (size_t i = 0; i < count; ++i) {
            const float x = within(-50, 280), y = within(-50, 220);
            for (int k = 0; k < 3; ++k)
                out.push_back({x + within(-size, size), y + within(-size, size), within(0, 1), within(0.2f, 3), word(),
                               0, within(-1, 3), within(-1, 3)});
        }
        return out;
    }

    // What a draw leaves in both targets and in the query, with any number of threads.
    template <typename function>
    void expect_one_picture(const std::vector<uint32_t>& before, function draw_it, int round)
    {
        std::vector<std::byte> first;
        for (const auto& pool : pools_) {
            workers = pool.get();
            for (const uint32_t sid : {color_sid, depth_sid})
                std::memcpy(view(sid).bytes, before.data(), view(sid).byte_size());
            state.query = {true, 0};
            EXPECT_EQ(draw_it(), draw_result::done);
            std::vector<std::byte> bytes{view(color_sid).bytes, view(color_sid).bytes + view(color_sid).byte_size()};
            bytes.insert(bytes.end(), view(depth_sid).bytes, view(depth_sid).bytes + view(depth_sid).byte_size());
            for (int shift = 0; shift < 64; shift += 8)
                bytes.push_back(static_cast<std::byte>(state.query.samples >> shift));
            if (first.empty())
                first = bytes;
            ASSERT_TRUE(bytes == first) << pool->count() << " threads, seed " << test_seed() << ", draw " << round;
        }
        workers = nullptr;
    }

    std::vector<std::unique_ptr<raster::worker_pool>> pools_;
};

// Triangles, lines and points over each other: few that cover much, and many whose vertices are shared out.
TEST_F(ThreadTest, ThreadsDoNotChangeThePicture)
{
    for (int i = 0; i < 25; ++i) {
        choose_state();
        set(SVGA3D_RS_FILLMODE, i % 5 == 0 ? uint32_t{SVGA3D_FILLMODE_LINE} : uint32_t{SVGA3D_FILLMODE_FILL});
        set(SVGA3D_RS_SHADEMODE, 1 + word() % 2);
        const std::vector<uint32_t> before = words(size_t{width_} * height_);
        const auto count = static_cast<uint32_t>(i % 2 == 0 ? 100 : 300 + word() % 2000);
        const std::vector<corner> shape = triangles(count, i % 2 == 0 ? 140.0f : 10.0f);
        expect_one_picture(
            before, [&] { return draw(SVGA3D_PRIMITIVE_TRIANGLELIST, count, shape); }, i);
    }
}

// A draw that takes its vertices from what it draws to sees its own pixels: one thread draws it.
TEST_F(ThreadTest, ThreadsDoNotDrawWhatTheyRead)
{
    choose_state();
    set(SVGA3D_RS_SHADEMODE, SVGA3D_SHADEMODE_SMOOTH);
    constexpr uint32_t count = 1500;
    const std::vector<corner> shape = triangles(count, 10);
    std::vector<uint32_t> before(size_t{width_} * height_);
    ASSERT_LE(shape.size() * sizeof(corner), before.size() * 4);
    std::memcpy(before.data(), shape.data(), shape.size() * sizeof(corner));
    const auto element = [](uint32_t type, uint32_t usage, size_t offset) {
        return svga3d_vertex_declaration{type, 0, usage, 0, {color_sid, static_cast<uint32_t>(offset), sizeof(corner)},
                                         0,    0};
    };
    const svga3d_vertex_declaration declarations[] = {
        element(SVGA3D_DECLTYPE_FLOAT4, SVGA3D_DECLUSAGE_POSITIONT, offsetof(corner, x)),
        element(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, offsetof(corner, diffuse))};
    const svga3d_primitive_range range{SVGA3D_PRIMITIVE_TRIANGLELIST, count, {SVGA3D_INVALID_ID, 0, 0}, 0, 0};
    expect_one_picture(
        before,
        [&] {
            return draw_primitives(state, surfaces, declarations, {&range, 1}, {}, workers);
        },
        0);
}

// Lines between vertices of any two numbers, as they look when no vertex is shared.
TEST_F(ThreadTest, AnyTwoVerticesMakeALine)
{
    choose_state();
    std::vector<lit_corner> corners(2049);
    for (lit_corner& each : corners)
        each = {within(-1, 1), within(-1, 1), within(0, 1), 0, 0, 1, word()};
    for (const uint32_t apart : {1u, 64u, 256u, 512u, 1024u, 2048u}) {
        std::vector<uint16_t> order;
        std::vector<lit_corner> own;
        for (uint32_t i = 0; i + apart < corners.size(); ++i)
            for (const uint32_t number : {i, i + apart}) {
                order.push_back(static_cast<uint16_t>(number));
                own.push_back(corners[number]);
            }
        const auto lines = static_cast<uint32_t>(order.size() / 2);
        clear();
        ASSERT_EQ(draw_lit(SVGA3D_PRIMITIVE_LINELIST, lines, own), draw_result::done);
        const image_view target = view(color_sid);
        const std::vector<std::byte> wanted{target.bytes, target.bytes + target.byte_size()};
        clear();
        ASSERT_EQ(draw_lit(SVGA3D_PRIMITIVE_LINELIST, lines, corners, order), draw_result::done);
        EXPECT_EQ(std::memcmp(target.bytes, wanted.data(), wanted.size()), 0) << apart << ", seed " << test_seed();
    }
}

} // namespace
} // namespace kalix::device::test
