// Every command builder against the words that the device reads, then in lists that are too short.

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <gtest/gtest.h>
#include <kalix/client.h>
#include <numeric>
#include <vector>

namespace kalix::test {
namespace {

using words = std::vector<uint32_t>;

// Counting up from 0: what the records of the rows are windows of, so that no word is like another.
const auto numbers = [] {
    std::array<uint32_t, 1024> counted;
    std::iota(counted.begin(), counted.end(), 0u);
    return counted;
}();

// An argument that points to records of so many words together, of which the first is that.
struct run {
    uint32_t first, count;
    template <typename record>
    operator const record*() const // NOLINT(google-explicit-constructor)
    {
        return reinterpret_cast<const record*>(&numbers[first]);
    }
};

// An argument that says how many of another there are, and is no word of the command.
struct count_of {
    uint32_t value;
    operator uint32_t() const { return value; } // NOLINT(google-explicit-constructor)
};

// An image that is absent but has its place in the command.
struct no_image {
    operator const svga3d_image*() const { return nullptr; } // NOLINT(google-explicit-constructor)
};

void append(words& body, uint32_t word)
{
    body.push_back(word);
}
void append(words& body, float number)
{
    body.push_back(std::bit_cast<uint32_t>(number));
}
void append(words& body, svga_guest_pointer place)
{
    body.insert(body.end(), {place.gmr_id, place.offset});
}
void append(words& body, run records)
{
    for (uint32_t i = 0; i < records.count; ++i)
        body.push_back(records.first + i);
}
void append(words& body, no_image /*absent*/)
{
    body.insert(body.end(), {0xFFFFFFFF, 0, 0});
}
void append(words& /*body*/, count_of /*number*/) {}
void append(words& /*body*/, std::nullptr_t /*absent*/) {}

struct builder_row {
    const char* name;
    std::function<int(kalix_commands*)> build;
    words expected;
};

// A command holds its builder's arguments, one behind the other.
template <typename builder, typename... values>
builder_row row(const char* name, uint32_t id, builder build, values... arguments)
{
    words expected{id, 0};
    (append(expected, arguments), ...);
    expected[1] = static_cast<uint32_t>((expected.size() - 2) * 4);
    return {name, [=](kalix_commands* list) { return build(list, arguments...); }, expected};
}

// This one puts its counts in front.
const auto draw = [](kalix_commands* list, uint32_t cid, uint32_t declaration_count, uint32_t range_count,
                     run declarations, run ranges, auto divisors) {
    return kalix_cmd_draw_primitives(list, cid, declarations, declaration_count, ranges, range_count, divisors);
};

const std::vector<builder_row> builders{
    {"update", [](kalix_commands* list) { return kalix_cmd_update(list, 10, 20, 30, 40); }, {1, 10, 20, 30, 40}},
    row("surface_define", 1040, kalix_cmd_surface_define, run{1, 9}, run{50, 6}, count_of{2}),
    row("surface_destroy", 1041, kalix_cmd_surface_destroy, 7u),
    row("surface_copy", 1042, kalix_cmd_surface_copy, run{10, 3}, run{20, 3}, run{100, 18}, count_of{2}),
    row("surface_stretchblt", 1043, kalix_cmd_surface_stretchblt, run{1, 19}),
    row("surface_dma", 1044, kalix_cmd_surface_dma, run{1, 7}, run{100, 9}, count_of{1}, nullptr),
    row("surface_dma_with_suffix", 1044, kalix_cmd_surface_dma, run{1, 7}, run{100, 9}, count_of{1}, run{200, 3}),
    row("context_define", 1045, kalix_cmd_context_define, 3u),
    row("context_destroy", 1046, kalix_cmd_context_destroy, 3u),
    row("set_transform", 1047, kalix_cmd_set_transform, 3u, 2u, run{300, 16}),
    row("set_z_range", 1048, kalix_cmd_set_z_range, 3u, 0.25F, 0.75F),
    row("set_render_states", 1049, kalix_cmd_set_render_states, 3u, run{60, 4}, count_of{2}),
    row("set_render_target", 1050, kalix_cmd_set_render_target, 3u, 2u, run{10, 3}),
    row("unset_render_target", 1050, kalix_cmd_set_render_target, 3u, 2u, no_image{}),
    row("set_texture_states", 1051, kalix_cmd_set_texture_states, 3u, run{70, 6}, count_of{2}),
    row("set_material", 1052, kalix_cmd_set_material, 3u, 2u, run{80, 17}),
    row("set_light_data", 1053, kalix_cmd_set_light_data, 3u, 1u, run{400, 29}),
    row("set_light_enabled", 1054, kalix_cmd_set_light_enabled, 3u, 2u, 1u),
    row("set_viewport", 1055, kalix_cmd_set_viewport, 3u, run{200, 4}),
    row("set_clip_plane", 1056, kalix_cmd_set_clip_plane, 3u, 5u, run{300, 4}),
    row("clear", 1057, kalix_cmd_clear, 3u, 7u, 0xFF102030u, 1.0F, 9u, run{200, 8}, count_of{2}),
    row("present", 1058, kalix_cmd_present, 5u, run{30, 6}, count_of{1}),
    row("shader_define", 1059, kalix_cmd_shader_define, 3u, 8u, 1u, run{600, 3}, count_of{3}),
    row("shader_destroy", 1060, kalix_cmd_shader_destroy, 3u, 8u, 2u),
    row("set_shader", 1061, kalix_cmd_set_shader, 3u, 2u, 8u),
    row("set_shader_const", 1062, kalix_cmd_set_shader_const, run{40, 8}),
    row("draw_primitives", 1063, draw, 3u, 2u, 1u, run{500, 18}, run{600, 7}, nullptr),
    row("draw_primitives_with_divisors", 1063, draw, 3u, 2u, 1u, run{500, 18}, run{600, 7}, run{700, 2}),
    row("set_scissor_rect", 1064, kalix_cmd_set_scissor_rect, 3u, run{200, 4}),
    row("begin_query", 1065, kalix_cmd_begin_query, 3u, 1u),
    row("end_query", 1066, kalix_cmd_end_query, 3u, 1u, svga_guest_pointer{4, 64}),
    row("wait_for_query", 1067, kalix_cmd_wait_for_query, 3u, 1u, svga_guest_pointer{4, 64}),
    row("present_readback", 1068, kalix_cmd_present_readback, run{200, 8}, count_of{2}),
    row("blit_surface_to_screen", 1069, kalix_cmd_blit_surface_to_screen, run{1, 12}, run{90, 4}, count_of{1}),
};

class Builders : public testing::TestWithParam<builder_row> {};

// Built at the end of a list of each length up to the one that fits: all of it, or nothing.
TEST_P(Builders, WriteTheirWordsOrNothing)
{
    const words& expected = GetParam().expected;
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

TEST(Commands, RefuseWhatCannotBe)
{
    words memory(64);
    kalix_commands list{memory.data(), 256, 0};
    EXPECT_EQ(kalix_cmd_surface_destroy(nullptr, 1), -EINVAL);
    EXPECT_EQ(kalix_cmd_set_viewport(&list, 1, nullptr), -EINVAL);
    EXPECT_EQ(kalix_cmd_present(&list, 1, nullptr, 1), -EINVAL);
    EXPECT_EQ(kalix_cmd_present(&list, 1, nullptr, 0), 0);
    EXPECT_EQ(kalix_cmd_present_readback(&list, run{200, 8}, UINT32_MAX), -ENOSPC);
    EXPECT_EQ(list.used, 12U);
    kalix_commands beyond{memory.data(), 8, 12};
    EXPECT_EQ(kalix_cmd_surface_destroy(&beyond, 1), -EINVAL);
}

} // namespace
} // namespace kalix::test
