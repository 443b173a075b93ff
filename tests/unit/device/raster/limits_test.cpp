// Counts and sizes that are announced: the last one works, the one behind it does not.

#include "tests/unit/device/raster/announced.h"

namespace kalix::device::test {
namespace {

class LimitTest : public announced_scene {
protected:
    // A vertex at the middle of a small target, which any number of primitives can take.
    svga3d_vertex_declaration one_vertex()
    {
        make_targets(16, 8);
        const float at[] = {8, 4, 0.5f, 1};
        define_buffer(vertex_sid, at, sizeof at);
        return element(SVGA3D_DECLTYPE_FLOAT4, SVGA3D_DECLUSAGE_POSITIONT, 0, {vertex_sid, 0, 0});
    }
};

TEST_F(LimitTest, TheLastLight)
{
    const uint32_t count = value(1);
    make_targets(16, 8);
    set(SVGA3D_RS_LIGHTINGENABLE, 1);
    svga3d_light light{};
    light.type = SVGA3D_LIGHTTYPE_DIRECTIONAL;
    light.direction[2] = -1;
    light.diffuse = {1.0f / 16, 0, 0, 1};
    for (uint32_t i = 0; i < count; ++i) {
        ASSERT_TRUE(set_light_data(state, {1, i, light}) && set_light_enabled(state, {1, i, 1}));
        state.materials[0].diffuse = {1, 1, 1, 1};
        expect_color(looked_up(0, 0, 0), {(i + 1) / 16.0, 0, 0, 1}, 1.01);
    }
    EXPECT_FALSE(set_light_data(state, {1, count, light}));
    EXPECT_FALSE(set_light_enabled(state, {1, count, 1}));
}

TEST_F(LimitTest, TheLastTextureStage)
{
    const uint32_t count = value(2);
    ASSERT_LE(count, 8u);
    make_targets(16, 8);
    for (uint32_t i = 0; i < count; ++i) { // each adds a bit of blue
        // The last alone has coordinates, and its texel lies on the right.
        const uint32_t bit = 0xFF000000 | 1u << i, none = 0xFF000000;
        const uint32_t texels[] = {i + 1 == count ? none : bit, i + 1 == count ? bit : none};
        define(10 + i, SVGA3D_A8R8G8B8, 2, 1);
        std::memcpy(view(10 + i).bytes, texels, sizeof texels);
        const std::array<uint32_t, 3> states[] = {
            {i, SVGA3D_TS_BIND_TEXTURE, 10 + i},
            {i, SVGA3D_TS_COLOROP, SVGA3D_TC_ADD},
            {i, SVGA3D_TS_COLORARG1, SVGA3D_TA_TEXTURE},
            {i, SVGA3D_TS_COLORARG2, SVGA3D_TA_PREVIOUS},
            {i, SVGA3D_TS_TEXCOORDINDEX, i + 1 == count ? 0u : 1u},
        };
        for (const auto& [at, name, what] : states)
            ASSERT_TRUE(set_texture_state(state, {at, name, what}));
    }
    EXPECT_FALSE(set_texture_state(state, {count, SVGA3D_TS_COLOROP, SVGA3D_TC_ADD}));
    quad(0, 0, 16, 8, 0xFF000000);
    EXPECT_EQ(pixel(8, 4), 0xFF000000 | ((1u << count) - 1));
}

TEST_F(LimitTest, TheLastClipPlane)
{
    const uint32_t count = value(3);
    make_targets(16, 8);
    for (uint32_t i = 0; i < count; ++i) {
        ASSERT_TRUE(set_clip_plane(state, {1, i, {1, 0, 0, 0}})); // keeps the right half
        set(SVGA3D_RS_CLIPPLANEENABLE, 1u << i);
        clear();
        draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, {{-1, 1}, {1, 1}, {1, -1}, {-1, -1}}, SVGA3D_DECLUSAGE_POSITION);
        EXPECT_EQ(pixel(4, 4), 0u) << i;
        EXPECT_EQ(pixel(12, 4), ~0u) << i;
        ASSERT_TRUE(set_clip_plane(state, {1, i, {0, 0, 0, 1}}));
    }
    EXPECT_FALSE(set_clip_plane(state, {1, count, {1, 0, 0, 0}}));
}

TEST_F(LimitTest, OneColourTarget)
{
    ASSERT_EQ(value(8), 1u);
    make_targets(16, 8);
    define(10, SVGA3D_A8R8G8B8, 16, 8);
    state.targets[SVGA3D_RT_COLOR0 + 1] = {10, 0, 0};
    clear(0xFF112233);
    quad(0, 0, 8, 8);
    EXPECT_EQ(pixel(4, 4), ~0u);
    EXPECT_EQ(pixel(12, 4), 0xFF112233u);
    EXPECT_EQ(word(10, 4, 4) | word(10, 12, 4), 0u);
}

TEST_F(LimitTest, NoShaders)
{
    EXPECT_EQ(value(4) | value(5) | value(6) | value(7) | value(18), 0u);
    make_targets(16, 8);
    for (const uint32_t type : {SVGA3D_SHADERTYPE_VS, SVGA3D_SHADERTYPE_PS}) {
        state.bound_shaders[type] = 1;
        EXPECT_EQ(quad(0, 0, 16, 8), draw_result::not_supported);
        state.bound_shaders[type] = SVGA3D_INVALID_ID;
    }
    EXPECT_EQ(pixel(8, 4), 0u);
}

TEST_F(LimitTest, TheLargestPoint)
{
    const auto largest = std::bit_cast<float>(value(17));
    const auto side = static_cast<uint32_t>(largest);
    make_targets(side + 40, side + 40);
    set_float(SVGA3D_RS_POINTSIZEMAX, 1e9f);
    for (const float size : {largest - 1, largest, largest + 1, 4 * largest}) {
        clear();
        state.query = {true, 0};
        set_float(SVGA3D_RS_POINTSIZE, size);
        const float middle = static_cast<float>(side / 2) + 20;
        draw(SVGA3D_PRIMITIVE_POINTLIST, 1, {{middle, middle}});
        const auto drawn = static_cast<uint64_t>(std::min(size, largest));
        EXPECT_EQ(state.query.samples, drawn * drawn) << size;
    }
}

TEST_F(LimitTest, TexturesOfTheLargestExtent)
{
    const uint32_t wide = value(19), high = value(20), deep = value(21);
    const svga3d_size sizes[] = {{wide, 1, 1}, {1, high, 1}, {deep, 1, 2}, {1, deep, 2}, {1, 1, deep}};
    make_targets(16, 8);
    for (const svga3d_size& size : sizes) {
        SCOPED_TRACE(testing::Message() << size.width << " x " << size.height << " x " << size.depth);
        define_texture(SVGA3D_LUMINANCE8, 1, size);
        const image_view image = view(texture_sid);
        ASSERT_TRUE(image);
        // The last texel differs from the one before it.
        std::memset(image.bytes, 0x22, image.byte_size());
        image.bytes[image.byte_size() - 1] = std::byte{0x77};
        const auto last = [](uint32_t side, float back) { return 1 - (0.5f + back) / static_cast<float>(side); };
        const float s = last(size.width, 0), t = last(size.height, 0), r = last(size.depth, 0);
        EXPECT_EQ(looked_up(s, t, r), 0xFF777777u);
        EXPECT_EQ(looked_up(size.width == wide || size.width == deep ? last(size.width, 1) : s,
                            size.height == high || size.height == deep ? last(size.height, 1) : t,
                            size.depth == deep ? last(size.depth, 1) : r),
                  0xFF222222u);
        if (size.depth > 1)
            continue;
        make_targets(size.width, size.height); // and a target of that size has its last pixel
        const auto x = static_cast<float>(size.width - 1), y = static_cast<float>(size.height - 1);
        draw(SVGA3D_PRIMITIVE_POINTLIST, 1, {{x, y}});
        EXPECT_NE(pixel(size.width - 1, size.height - 1), 0u);
        make_targets(16, 8);
    }
}

// One vertex for all of them, through no memory at all.
TEST_F(LimitTest, TheMostPrimitives)
{
    const uint32_t most = value(25);
    const svga3d_vertex_declaration declaration = one_vertex();
    const auto drawn = [&](std::initializer_list<uint32_t> counts) {
        std::vector<svga3d_primitive_range> ranges;
        for (const uint32_t count : counts)
            ranges.push_back(in_order(SVGA3D_PRIMITIVE_POINTLIST, count));
        state.query = {true, 0};
        const draw_result result = draw_primitives(state, surfaces, {&declaration, 1}, ranges, {});
        return std::pair{result, state.query.samples};
    };
    EXPECT_EQ(drawn({most}), std::pair(draw_result::done, uint64_t{most}));
    EXPECT_EQ(drawn({most + 1}), std::pair(draw_result::bad_range, uint64_t{0}));
    EXPECT_EQ(drawn({1, most - 1}).first, draw_result::done);
    EXPECT_EQ(drawn({1, most}), std::pair(draw_result::bad_range, uint64_t{0})); // the ranges of a draw in sum
}

TEST_F(LimitTest, TheLargestVertexIndex)
{
    const uint32_t largest = value(26);
    const svga3d_vertex_declaration declaration = one_vertex();
    define_buffer(index_sid, &largest, sizeof largest);
    for (const int32_t bias : {1, 0}) { // a bias leads one further
        clear();
        EXPECT_EQ(draw({&declaration, 1}, {SVGA3D_PRIMITIVE_POINTLIST, 1, {index_sid, 0, 4}, 4, bias}),
                  bias ? draw_result::outside : draw_result::done);
        EXPECT_EQ(pixel(8, 4), bias ? 0 : ~0u);
    }
}

} // namespace
} // namespace kalix::device::test
