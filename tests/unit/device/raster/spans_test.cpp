// Spans against the general way: random draws of the states that spans know, the same pixels from both.

#include "device/raster/processor.h"
#include "device/raster/span.h"
#include "device/state/limits.h"
#include "tests/unit/device/raster/scene.h"

namespace kalix::device::test {
namespace {

class SpanTest : public scene {
protected:
    ~SpanTest() override
    {
        raster::set_spans(true);
        raster::force_instruction_set(0);
    }

    uint32_t word() { return random_(); }
    uint32_t any_filter() { return random_.one_of<uint32_t>({SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TEX_FILTER_LINEAR}); }

    // A texture of one level, or of all that its sides have.
    void choose_texture()
    {
        uint32_t wide = 1 + word() % 40, high = 1 + word() % 40;
        std::vector<svga3d_size> sizes{{wide, high, 1}};
        for (; word() % 4 != 0 && (wide > 1 || high > 1); sizes.push_back({wide, high, 1})) {
            wide = std::max(wide / 2, 1u);
            high = std::max(high / 2, 1u);
        }
        texture_of(1, sizes, any_filter(), [this](uint32_t, uint32_t, uint32_t) { return word(); });
        choose_filters(0);
    }

    void choose_filters(uint32_t index)
    {
        if (word() % 2)
            stage(index, SVGA3D_TS_MINFILTER, any_filter());
        stage(index, SVGA3D_TS_MIPFILTER, word() % 3);
        stage(index, SVGA3D_TS_TEXTURE_MIPMAP_LEVEL, word() % 2 ? word() % 4 : 0);
        stage(index, SVGA3D_TS_TEXTURE_LOD_BIAS, std::bit_cast<uint32_t>(random_.within(-2, 2)));
    }

    void choose_state()
    {
        make_targets(width_, height_, random_.one_of<uint32_t>({SVGA3D_A8R8G8B8, SVGA3D_X8R8G8B8}),
                     random_.one_of<uint32_t>({SVGA3D_Z_D16, SVGA3D_Z_D24S8, SVGA3D_Z_D32}));
        choose_texture();
        for (const uint32_t name : {SVGA3D_TS_ADDRESSU, SVGA3D_TS_ADDRESSV})
            stage(0, name,
                  random_.one_of<uint32_t>({SVGA3D_TEX_ADDRESS_WRAP, SVGA3D_TEX_ADDRESS_CLAMP, SVGA3D_TEX_ADDRESS_EDGE,
                                            SVGA3D_TEX_ADDRESS_MIRROR}));
        const auto operation = [this](uint32_t name) {
            stage(0, name, random_.one_of<uint32_t>({SVGA3D_TC_SELECTARG1, SVGA3D_TC_SELECTARG2, SVGA3D_TC_MODULATE}));
            stage(0, name + 1, random_.one_of<uint32_t>({SVGA3D_TA_TEXTURE, SVGA3D_TA_DIFFUSE}));
            stage(0, name + 2, random_.one_of<uint32_t>({SVGA3D_TA_TEXTURE, SVGA3D_TA_PREVIOUS}));
        };
        operation(SVGA3D_TS_COLOROP);
        operation(SVGA3D_TS_ALPHAOP);
        if (word() % 8 == 0)
            stage(0, SVGA3D_TS_COLOROP, SVGA3D_TC_DISABLE);
        set_blend(SVGA3D_BLENDOP_SRCALPHA, SVGA3D_BLENDOP_INVSRCALPHA);
        set(SVGA3D_RS_BLENDENABLE, word() % 2);
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
        set(SVGA3D_RS_FOGMODE, random_.one_of<uint32_t>({3 | 1 << 8, 3 | 2 << 8, 4}));
        set(SVGA3D_RS_FOGCOLOR, word());
        set_float(SVGA3D_RS_FOGSTART, random_.within(0, 1));
        set_float(SVGA3D_RS_FOGEND, random_.within(0, 1));
        set_float(SVGA3D_RS_ALPHAREF, random_.within(0, 1));
        set(SVGA3D_RS_BLENDCOLOR, word());
        set(SVGA3D_RS_TEXTUREFACTOR, word());
        set(SVGA3D_RS_STENCILENABLE2SIDED, word() % 2);
        set(SVGA3D_RS_STENCILREF, word() % 300);
        set(SVGA3D_RS_STENCILMASK, random_.one_of<uint32_t>({~0u, 0x70, word()}));
        set(SVGA3D_RS_STENCILWRITEMASK, random_.one_of<uint32_t>({~0u, word()}));
        for (const uint32_t name : {SVGA3D_RS_ALPHAFUNC, SVGA3D_RS_STENCILFUNC, SVGA3D_RS_STENCILFAIL,
                                    SVGA3D_RS_STENCILZFAIL, SVGA3D_RS_STENCILPASS, SVGA3D_RS_CCWSTENCILFUNC,
                                    SVGA3D_RS_CCWSTENCILFAIL, SVGA3D_RS_CCWSTENCILZFAIL, SVGA3D_RS_CCWSTENCILPASS})
            set(name, 1 + word() % 8);
        for (const uint32_t name :
             {SVGA3D_RS_SRCBLEND, SVGA3D_RS_DSTBLEND, SVGA3D_RS_SRCBLENDALPHA, SVGA3D_RS_DSTBLENDALPHA})
            set(name, 1 + word() % 13);
        for (const uint32_t name : {SVGA3D_RS_BLENDEQUATION, SVGA3D_RS_BLENDEQUATIONALPHA})
            set(name, 1 + word() % 5);
        for (uint32_t index = 0; index < 3; ++index)
            choose_stage(index);
    }

    void choose_stage(uint32_t index)
    {
        stage(index, SVGA3D_TS_BIND_TEXTURE, word() % 4 == 0 ? SVGA3D_INVALID_ID : texture_sid);
        stage(index, SVGA3D_TS_TEXCOORDINDEX, 0);
        const uint32_t filter = any_filter();
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
        const uint32_t color = random_.one_of<uint32_t>({0xFFFFFFFF, word()});
        for (corner& each : out)
            each = {random_.within(-9, 40),      random_.within(-9, 40),
                    random_.within(-0.5f, 1.5f), affine ? 1 : random_.within(0.2f, 3),
                    flat_color ? color : word(), word(),
                    random_.within(-1, 3),       random_.within(-1, 3)};
        if (word() % 2) { // a rectangle on whole pixels
            const float left = random_.within(0, 10), top = random_.within(0, 10);
            const float right = random_.within(11, 30), bottom = random_.within(11, 30);
            for (size_t i = 0; i < 4; ++i) {
                const bool is_right = i == 1 || i == 2, is_below = i >= 2;
                out[i].x = std::floor(is_right ? right : left);
                out[i].y = std::floor(is_below ? bottom : top);
                out[i].u = is_right ? 1 : 0;
                out[i].v = is_below ? 1 : 0;
            }
        }
        return out;
    }

    // What a draw over some contents leaves in both targets and in the query.
    template <typename function>
    std::vector<std::byte> left_by(const std::vector<uint32_t>& before, function draw_it)
    {
        for (const uint32_t sid : {color_sid, depth_sid})
            std::memcpy(view(sid).bytes, before.data(), view(sid).byte_size());
        state.query = {true, 0};
        EXPECT_EQ(draw_it(), draw_result::done);
        std::vector<std::byte> out = copy_of(color_sid);
        const std::span<std::byte> depths = bytes(depth_sid);
        out.insert(out.end(), depths.begin(), depths.end());
        const auto samples = std::bit_cast<std::array<std::byte, 8>>(state.query.samples);
        out.insert(out.end(), samples.begin(), samples.end());
        return out;
    }

    // Every instruction set gives the same bytes: those of the general way, but for so many levels of a colour.
    void expect_general_way(const std::vector<corner>& shape, int levels)
    {
        const std::vector<uint32_t> before = random_.words(size_t{width_} * height_);
        const auto drawn = [&](bool spans) {
            raster::set_spans(spans);
            return left_by(before, [&] { return draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, shape); });
        };
        const std::vector<std::byte> slow = drawn(false);
        const size_t color_bytes = view(color_sid).byte_size();
        std::vector<std::byte> first;
        for (const int64_t set : raster::instruction_sets()) {
            SCOPED_TRACE(raster::instruction_set_name(set));
            raster::force_instruction_set(set);
            const std::vector<std::byte> fast = drawn(true);
            size_t wrong = 0;
            for (size_t at = 0; at < fast.size(); ++at) {
                const int apart = std::abs(std::to_integer<int>(fast[at]) - std::to_integer<int>(slow[at]));
                wrong += apart > (at < color_bytes ? levels : 0);
            }
            ASSERT_EQ(wrong, 0u);
            ASSERT_TRUE(first.empty() || fast == first);
            first = fast;
        }
        raster::force_instruction_set(0);
    }

    dice random_;
    uint32_t width_ = 32, height_ = 31;
};

TEST_F(SpanTest, GiveThePixelsOfTheGeneralWay)
{
    for (int i = 0; i < 1000; ++i) {
        choose_state();
        ASSERT_NO_FATAL_FAILURE(expect_general_way(corners(), 1)) << "draw " << i;
    }
}

// Rectangles along the axes: scaled either way, turned over, repeated, cut, blended, over textures of odd sizes; at
// times the target is its own texture.
class PictureTest : public SpanTest {
protected:
    // Returns by how many levels colours may differ from the general way's.
    int choose_picture()
    {
        width_ = 50 + word() % 100;
        height_ = 20 + word() % 30;
        make_targets(width_, height_, random_.one_of<uint32_t>({SVGA3D_A8R8G8B8, SVGA3D_X8R8G8B8}));
        const uint32_t width = 1 + word() % random_.one_of<uint32_t>({3, 40, 300});
        const uint32_t height = 1 + word() % random_.one_of<uint32_t>({3, 40, 100});
        const uint32_t filter = any_filter();
        const bool feeds_back = filter == SVGA3D_TEX_FILTER_NEAREST && word() % 4 == 0;
        texture(width, height, random_.words(size_t{width} * height), filter);
        if (feeds_back)
            stage(0, SVGA3D_TS_BIND_TEXTURE, color_sid);
        for (const uint32_t name : {SVGA3D_TS_ADDRESSU, SVGA3D_TS_ADDRESSV})
            stage(0, name, random_.one_of<uint32_t>({SVGA3D_TEX_ADDRESS_WRAP, SVGA3D_TEX_ADDRESS_CLAMP}));
        stage(0, SVGA3D_TS_ALPHAARG1, random_.one_of<uint32_t>({SVGA3D_TA_TEXTURE, SVGA3D_TA_DIFFUSE}));
        set_blend(SVGA3D_BLENDOP_SRCALPHA, SVGA3D_BLENDOP_INVSRCALPHA);
        set(SVGA3D_RS_BLENDENABLE, word() % 3 == 0);
        return filter == SVGA3D_TEX_FILTER_LINEAR ? 1 : 0;
    }

    // A rectangle of any place, or on whole pixels with a texel to each.
    std::vector<corner> rectangle()
    {
        const image_view from = view(state.texture_states[0][SVGA3D_TS_BIND_TEXTURE]);
        const bool whole = word() % 3 == 0;
        const auto place = [&](float low, float high) {
            return whole ? std::floor(random_.within(low, high)) : random_.within(low, high);
        };
        const float left = place(-20, 20), right = place(21, 170), top = place(-9, 9), bottom = place(10, 60);
        float u0 = random_.within(-1, 2), u1 = random_.within(-1, 2), v0 = random_.within(-1, 2),
              v1 = random_.within(-1, 2);
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

TEST_F(PictureTest, GiveThePixelsOfTheGeneralWay)
{
    for (int i = 0; i < 400; ++i) {
        const int levels = choose_picture();
        ASSERT_NO_FATAL_FAILURE(expect_general_way(rectangle(), levels)) << "draw " << i;
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
        std::ranges::fill(bytes(texture_sid), std::byte{0x40});
        ASSERT_EQ(quad(0, 0, 64, 64), draw_result::done);
        EXPECT_EQ(pixel(40, 40), 0x40404040u);
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
            pools_.push_back(std::make_unique<raster::worker_pool>(count, start_thread));
    }

    // Corners of triangles that lie anywhere, each within so many pixels.
    std::vector<corner> triangles(size_t count, float size)
    {
        std::vector<corner> out;
        for (size_t i = 0; i < count; ++i) {
            const float x = random_.within(-50, 280), y = random_.within(-50, 220);
            for (int k = 0; k < 3; ++k)
                out.push_back({x + random_.within(-size, size), y + random_.within(-size, size), random_.within(0, 1),
                               random_.within(0.2f, 3), word(), 0, random_.within(-1, 3), random_.within(-1, 3)});
        }
        return out;
    }

    template <typename function>
    void expect_one_picture(const std::vector<uint32_t>& before, function draw_it)
    {
        std::vector<std::byte> first;
        for (const auto& pool : pools_) {
            workers = pool.get();
            const std::vector<std::byte> left = left_by(before, draw_it);
            ASSERT_TRUE(first.empty() || left == first) << pool->count() << " threads";
            first = left;
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
        const uint32_t count = i % 2 == 0 ? 100 : 300 + word() % 2000;
        const std::vector<corner> shape = triangles(count, i % 2 == 0 ? 140.0f : 10.0f);
        SCOPED_TRACE(i);
        expect_one_picture(random_.words(size_t{width_} * height_),
                           [&] { return draw(SVGA3D_PRIMITIVE_TRIANGLELIST, count, shape); });
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
    const svga3d_vertex_declaration declarations[] = {
        member<corner>(SVGA3D_DECLTYPE_FLOAT4, SVGA3D_DECLUSAGE_POSITIONT, 0, offsetof(corner, x), color_sid),
        member<corner>(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, 0, offsetof(corner, diffuse), color_sid)};
    expect_one_picture(before, [&] { return draw(declarations, in_order(SVGA3D_PRIMITIVE_TRIANGLELIST, count)); });
}

// Triangles that every plane cuts have more corners than a batch has room for: what is left over is drawn in turn.
TEST_F(ThreadTest, BatchesThatOverflowAreDrawnWhole)
{
    make_targets(width_ = 40, height_ = 30);
    set_blend(SVGA3D_BLENDOP_SRCALPHA, SVGA3D_BLENDOP_INVSRCALPHA);
    set(SVGA3D_RS_CLIPPLANEENABLE, 63);
    for (size_t i = 0; i < SVGA3D_CLIP_PLANES; ++i) { // six sides around the middle
        const float angle = static_cast<float>(i) * 1.0471976f;
        state.clip_planes[i] = {std::cos(angle), std::sin(angle), 0, 0.5f};
    }
    const lit_corner corners[] = {{-9, -9, -2, 0, 0, 1, 0x40FF0000}, {9, -9, 3, 0, 0, 1, 0x8000FF00}, {0, 9, 0.5f}};
    const auto drawn = [&](uint32_t count) {
        std::vector<uint16_t> order;
        for (uint32_t i = 0; i < count; ++i)
            order.insert(order.end(), {0, 1, 2});
        return draw_lit(SVGA3D_PRIMITIVE_TRIANGLELIST, count, corners, order);
    };
    state.query = {true, 0};
    ASSERT_EQ(drawn(1), draw_result::done);
    const uint64_t samples = state.query.samples;
    ASSERT_GT(samples, 100u);
    constexpr uint32_t count = 17000; // full batches, however many threads
    expect_one_picture(std::vector<uint32_t>(size_t{width_} * height_), [&] { return drawn(count); });
    EXPECT_EQ(state.query.samples, count * samples);
}

// Lines between vertices of any two numbers, as they look when no vertex is shared.
TEST_F(ThreadTest, AnyTwoVerticesMakeALine)
{
    choose_state();
    std::vector<lit_corner> corners(2049);
    for (lit_corner& each : corners)
        each = {random_.within(-1, 1), random_.within(-1, 1), random_.within(0, 1), 0, 0, 1, word()};
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
        const std::vector<std::byte> wanted = copy_of(color_sid);
        clear();
        ASSERT_EQ(draw_lit(SVGA3D_PRIMITIVE_LINELIST, lines, corners, order), draw_result::done);
        EXPECT_TRUE(copy_of(color_sid) == wanted) << apart;
    }
}

} // namespace
} // namespace kalix::device::test
