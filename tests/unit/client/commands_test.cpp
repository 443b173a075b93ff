// Every command builder against the words that the device reads, then in lists that are too short.

#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <kalix/client.h>
#include <vector>

namespace kalix::test {
namespace {

using words = std::vector<uint32_t>;

uint32_t bits(float value)
{
    return std::bit_cast<uint32_t>(value);
}

// A record whose words count up from first.
template <typename record>
record counted(uint32_t first)
{
    std::array<uint32_t, sizeof(record) / 4> filled;
    for (uint32_t& word : filled)
        word = first++;
    return std::bit_cast<record>(filled);
}

words joined(words head, uint32_t first, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i)
        head.push_back(first + i);
    return head;
}

struct builder_row {
    const char* name;
    int (*build)(kalix_commands*);
    words expected; // id, then the body; the size word is worked out
};

const auto boxes = std::array{counted<svga3d_copy_box>(100), counted<svga3d_copy_box>(109)};
const auto rects = std::array{counted<svga3d_rect>(200), counted<svga3d_rect>(204)};
const auto matrix = counted<std::array<float, 16>>(300);
const auto image = counted<svga3d_image>(10);
const auto other_image = counted<svga3d_image>(20);

const std::vector<builder_row> builders{
    {"surface_define",
     [](kalix_commands* l) {
         const auto surface = counted<svga3d_surface_define>(1);
         const auto sizes = counted<std::array<svga3d_size, 2>>(50);
         return kalix_cmd_surface_define(l, &surface, sizes.data(), 2);
     },
     joined(joined({1040}, 1, 9), 50, 6)},
    {"surface_destroy", [](kalix_commands* l) { return kalix_cmd_surface_destroy(l, 7); }, {1041, 7}},
    {"surface_copy", [](kalix_commands* l) { return kalix_cmd_surface_copy(l, &image, &other_image, boxes.data(), 2); },
     joined({1042, 10, 11, 12, 20, 21, 22}, 100, 18)},
    {"surface_stretchblt",
     [](kalix_commands* l) {
         const auto blit = counted<svga3d_surface_stretchblt>(1);
         return kalix_cmd_surface_stretchblt(l, &blit);
     },
     joined({1043}, 1, 19)},
    {"surface_dma",
     [](kalix_commands* l) {
         const svga3d_surface_dma transfer{{{4, 4096}, 256}, image, SVGA3D_WRITE_HOST_VRAM};
         return kalix_cmd_surface_dma(l, &transfer, boxes.data(), 1, nullptr);
     },
     joined({1044, 4, 4096, 256, 10, 11, 12, 1}, 100, 9)},
    {"surface_dma_with_suffix",
     [](kalix_commands* l) {
         const svga3d_surface_dma transfer{{{4, 0}, 0}, image, SVGA3D_READ_HOST_VRAM};
         const svga3d_surface_dma_suffix suffix{12, 8192, 1};
         return kalix_cmd_surface_dma(l, &transfer, boxes.data(), 1, &suffix);
     },
     [] {
         words expected = joined({1044, 4, 0, 0, 10, 11, 12, 2}, 100, 9);
         expected.insert(expected.end(), {12, 8192, 1});
         return expected;
     }()},
    {"context_define", [](kalix_commands* l) { return kalix_cmd_context_define(l, 3); }, {1045, 3}},
    {"context_destroy", [](kalix_commands* l) { return kalix_cmd_context_destroy(l, 3); }, {1046, 3}},
    {"set_transform",
     [](kalix_commands* l) { return kalix_cmd_set_transform(l, 3, SVGA3D_TRANSFORM_PROJECTION, matrix.data()); },
     joined({1047, 3, 3}, 300, 16)},
    {"set_z_range",
     [](kalix_commands* l) { return kalix_cmd_set_z_range(l, 3, 0.25F, 0.75F); },
     {1048, 3, bits(0.25F), bits(0.75F)}},
    {"set_render_states",
     [](kalix_commands* l) {
         const auto states = counted<std::array<svga3d_render_state_value, 2>>(60);
         return kalix_cmd_set_render_states(l, 3, states.data(), 2);
     },
     {1049, 3, 60, 61, 62, 63}},
    {"set_render_target",
     [](kalix_commands* l) { return kalix_cmd_set_render_target(l, 3, 2, &image); },
     {1050, 3, 2, 10, 11, 12}},
    {"unset_render_target",
     [](kalix_commands* l) { return kalix_cmd_set_render_target(l, 3, 2, nullptr); },
     {1050, 3, 2, 0xFFFFFFFF, 0, 0}},
    {"set_texture_states",
     [](kalix_commands* l) {
         const auto states = counted<std::array<svga3d_texture_state_value, 2>>(70);
         return kalix_cmd_set_texture_states(l, 3, states.data(), 2);
     },
     joined({1051, 3}, 70, 6)},
    {"set_material",
     [](kalix_commands* l) {
         const auto material = counted<svga3d_material>(80);
         return kalix_cmd_set_material(l, 3, SVGA3D_FACE_FRONT, &material);
     },
     joined({1052, 3, 2}, 80, 17)},
    {"set_light_data",
     [](kalix_commands* l) {
         const auto light = counted<svga3d_light>(400);
         return kalix_cmd_set_light_data(l, 3, 1, &light);
     },
     joined({1053, 3, 1}, 400, 29)},
    {"set_light_enabled", [](kalix_commands* l) { return kalix_cmd_set_light_enabled(l, 3, 1, 1); }, {1054, 3, 1, 1}},
    {"set_viewport", [](kalix_commands* l) { return kalix_cmd_set_viewport(l, 3, rects.data()); },
     joined({1055, 3}, 200, 4)},
    {"set_clip_plane", [](kalix_commands* l) { return kalix_cmd_set_clip_plane(l, 3, 5, matrix.data()); },
     joined({1056, 3, 5}, 300, 4)},
    {"clear", [](kalix_commands* l) { return kalix_cmd_clear(l, 3, 7, 0xFF102030, 1, 9, rects.data(), 2); },
     joined({1057, 3, 7, 0xFF102030, bits(1), 9}, 200, 8)},
    {"present",
     [](kalix_commands* l) {
         const auto moved = counted<svga3d_copy_rect>(30);
         return kalix_cmd_present(l, 5, &moved, 1);
     },
     joined({1058, 5}, 30, 6)},
    {"shader_define",
     [](kalix_commands* l) {
         const std::array<uint32_t, 3> tokens{0xFFFE0200, 1, 0xFFFF};
         return kalix_cmd_shader_define(l, 3, 8, SVGA3D_SHADERTYPE_VS, tokens.data(), 3);
     },
     {1059, 3, 8, 1, 0xFFFE0200, 1, 0xFFFF}},
    {"shader_destroy", [](kalix_commands* l) { return kalix_cmd_shader_destroy(l, 3, 8, 2); }, {1060, 3, 8, 2}},
    {"set_shader", [](kalix_commands* l) { return kalix_cmd_set_shader(l, 3, 2, 8); }, {1061, 3, 2, 8}},
    {"set_shader_const",
     [](kalix_commands* l) {
         const auto constant = counted<svga3d_set_shader_const>(40);
         return kalix_cmd_set_shader_const(l, &constant);
     },
     joined({1062}, 40, 8)},
    {"draw_primitives",
     [](kalix_commands* l) {
         const auto declarations = counted<std::array<svga3d_vertex_declaration, 2>>(500);
         const auto range = counted<svga3d_primitive_range>(600);
         return kalix_cmd_draw_primitives(l, 3, declarations.data(), 2, &range, 1, nullptr);
     },
     joined(joined({1063, 3, 2, 1}, 500, 18), 600, 7)},
    {"draw_primitives_with_divisors",
     [](kalix_commands* l) {
         const auto declarations = counted<std::array<svga3d_vertex_declaration, 2>>(500);
         const auto range = counted<svga3d_primitive_range>(600);
         const std::array<uint32_t, 2> divisors{700, 701};
         return kalix_cmd_draw_primitives(l, 3, declarations.data(), 2, &range, 1, divisors.data());
     },
     joined(joined(joined({1063, 3, 2, 1}, 500, 18), 600, 7), 700, 2)},
    {"set_scissor_rect", [](kalix_commands* l) { return kalix_cmd_set_scissor_rect(l, 3, rects.data()); },
     joined({1064, 3}, 200, 4)},
    {"begin_query", [](kalix_commands* l) { return kalix_cmd_begin_query(l, 3, 0); }, {1065, 3, 0}},
    {"end_query",
     [](kalix_commands* l) {
         return kalix_cmd_end_query(l, 3, 0, {4, 64});
     },
     {1066, 3, 0, 4, 64}},
    {"wait_for_query",
     [](kalix_commands* l) {
         return kalix_cmd_wait_for_query(l, 3, 0, {4, 64});
     },
     {1067, 3, 0, 4, 64}},
    {"present_readback", [](kalix_commands* l) { return kalix_cmd_present_readback(l, rects.data(), 2); },
     joined({1068}, 200, 8)},
    {"blit_surface_to_screen",
     [](kalix_commands* l) {
         const auto blit = counted<svga3d_blit_to_screen>(1);
         const auto clip = counted<svga3d_signed_rect>(90);
         return kalix_cmd_blit_surface_to_screen(l, &blit, &clip, 1);
     },
     joined(joined({1069}, 1, 12), 90, 4)},
};

class Builders : public testing::TestWithParam<builder_row> {};

// Built at the end of a list of each length up to the one that fits: all of it, or nothing.
TEST_P(Builders, WriteTheirWordsOrNothing)
{
    words expected = GetParam().expected;
    expected.insert(expected.begin() + 1, static_cast<uint32_t>((expected.size() - 1) * 4));
    const auto length = static_cast<uint32_t>(expected.size() * 4);
    constexpr uint32_t before = 20;
    for (uint32_t room = 0; room <= length; ++room) {
        words memory(64, 0xEEEEEEEE);
        kalix_commands list{memory.data(), before + room, before};
        const int result = GetParam().build(&list);
        ASSERT_EQ(result, room < length ? -ENOSPC : 0) << room << " bytes of " << length;
        words wanted(64, 0xEEEEEEEE);
        if (result == 0)
            std::ranges::copy(expected, wanted.begin() + before / 4);
        ASSERT_EQ(list.used, before + (result == 0 ? length : 0));
        ASSERT_EQ(memory, wanted) << room << " bytes of " << length;
    }
}

INSTANTIATE_TEST_SUITE_P(Client, Builders, testing::ValuesIn(builders),
                         [](const auto& row) { return std::string{row.param.name}; });

TEST(Commands, UpdateIsTheOneWithoutASize)
{
    words memory(5);
    kalix_commands list{memory.data(), 20, 0};
    EXPECT_EQ(kalix_cmd_update(&list, 10, 20, 30, 40), 0);
    EXPECT_EQ(memory, (words{1, 10, 20, 30, 40}));
    EXPECT_EQ(kalix_cmd_update(&list, 10, 20, 30, 40), -ENOSPC);
}

TEST(Commands, RefuseWhatCannotBe)
{
    words memory(64);
    kalix_commands list{memory.data(), 256, 0};
    EXPECT_EQ(kalix_cmd_surface_destroy(nullptr, 1), -EINVAL);
    EXPECT_EQ(kalix_cmd_set_viewport(&list, 1, nullptr), -EINVAL);
    EXPECT_EQ(kalix_cmd_present(&list, 1, nullptr, 1), -EINVAL);
    EXPECT_EQ(kalix_cmd_present(&list, 1, nullptr, 0), 0);
    EXPECT_EQ(kalix_cmd_present_readback(&list, rects.data(), UINT32_MAX), -ENOSPC);
    EXPECT_EQ(list.used, 12U);
    kalix_commands beyond{memory.data(), 8, 12};
    EXPECT_EQ(kalix_cmd_surface_destroy(&beyond, 1), -EINVAL);
}

} // namespace
} // namespace kalix::test
