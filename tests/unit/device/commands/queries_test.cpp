// Occlusion queries by command: what draws count, and where the answer lies.

#include "tests/unit/device/state/announced.h"
#include "tests/unit/device/support.h"

#include <algorithm>
#include <array>
#include <bit>

namespace kalix::test {
namespace {

constexpr uint32_t cid = 3, region = 7, color_sid = 1, depth_sid = 2, vertex_sid = 3;

class QueriesTest : public device_test {
protected:
    QueriesTest()
    {
        run(stream{}
                .define_region(region, {3, 1})
                .define_surface(color_sid, SVGA3D_A8R8G8B8, {{64, 64, 1}})
                .define_surface(depth_sid, SVGA3D_Z_D24S8, {{64, 64, 1}})
                .define_surface(vertex_sid, SVGA3D_BUFFER, {{6 * 16, 1, 1}})
                .command(SVGA_3D_CMD_CONTEXT_DEFINE, svga3d_context{cid})
                .command(SVGA_3D_CMD_SETRENDERTARGET, svga3d_set_render_target{cid, SVGA3D_RT_COLOR0, {1, 0, 0}})
                .command(SVGA_3D_CMD_SETRENDERTARGET, svga3d_set_render_target{cid, SVGA3D_RT_DEPTH, {2, 0, 0}})
                .command(SVGA_3D_CMD_SETRENDERTARGET, svga3d_set_render_target{cid, SVGA3D_RT_STENCIL, {2, 0, 0}})
                .command(SVGA_3D_CMD_SETVIEWPORT, svga3d_set_viewport{cid, {0, 0, 64, 64}})
                .command(SVGA_3D_CMD_CLEAR, svga3d_clear{cid, 7, 0, 0.5f, 0}, svga3d_rect{0, 0, 64, 64}));
    }

    void set(uint32_t state, uint32_t value)
    {
        run(stream{}.command(SVGA_3D_CMD_SETRENDERSTATE, svga3d_context{cid}, svga3d_render_state_value{state, value}));
    }
    // A rectangle of pixels from the corner, at a depth.
    void rectangle(float width, float height, float z, std::vector<uint32_t> divisors = {})
    {
        const std::array<std::array<float, 4>, 4> corners = {
            {{0, 0, z, 1}, {width, 0, z, 1}, {width, height, z, 1}, {0, height, z, 1}}};
        std::vector<std::byte> bytes(6 * 16);
        std::memcpy(bytes.data(), corners.data(), sizeof corners);
        write_surface({vertex_sid, 0, 0}, {6 * 16, 1, 1}, bytes);
        const struct {
            svga3d_draw_primitives counts;
            svga3d_vertex_declaration position;
            svga3d_primitive_range range;
        } body{{cid, 1, 1},
               {SVGA3D_DECLTYPE_FLOAT4, 0, SVGA3D_DECLUSAGE_POSITIONT, 0, {vertex_sid, 0, 16}, 0, 0},
               {SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, {SVGA3D_INVALID_ID, 0, 0}, 0, 0}};
        run(stream{}.command_with_list(SVGA_3D_CMD_DRAW_PRIMITIVES, body, divisors));
    }
    void begin() { run(stream{}.command(SVGA_3D_CMD_BEGIN_QUERY, svga3d_begin_query{cid, 0})); }
    // The record lies across the border of two pages that are not neighbours.
    svga3d_query_result answer_to(uint32_t command)
    {
        constexpr size_t half = sizeof(svga3d_query_result) / 2, offset = 4096 - half;
        for (const uint64_t page : {3u, 1u})
            std::memset(scratch.page(page), 0xEE, 4096);
        run(stream{}.command(command, svga3d_query{cid, 0, {region, offset}}));
        std::array<std::byte, 2 * half> bytes;
        std::copy_n(scratch.page(3) + offset, half, bytes.begin());
        std::copy_n(scratch.page(1), half, bytes.begin() + half);
        EXPECT_EQ(scratch.page(3)[offset - 1], std::byte{0xEE});
        EXPECT_EQ(scratch.page(1)[half], std::byte{0xEE});
        const auto result = std::bit_cast<svga3d_query_result>(bytes);
        EXPECT_EQ(result.total_size, sizeof result);
        return result;
    }
    svga3d_query_result ended() { return answer_to(SVGA_3D_CMD_END_QUERY); }
    uint32_t samples()
    {
        const svga3d_query_result result = ended();
        EXPECT_EQ(result.state, uint32_t{SVGA3D_QUERYSTATE_SUCCEEDED});
        return result.result;
    }
};

TEST_F(QueriesTest, CountWhatPassesEveryTest)
{
    rectangle(9, 9, 0.2f); // before it begins
    begin();
    EXPECT_EQ(samples(), 0u);
    begin();
    rectangle(20, 10, 0.2f);
    rectangle(7, 3, 0.2f);
    EXPECT_EQ(samples(), 221u);
    begin();
    rectangle(100, 100, 0.2f); // cut to the target
    EXPECT_EQ(samples(), 64u * 64);
    begin();
    set(SVGA3D_RS_ZENABLE, 1);
    set(SVGA3D_RS_ZFUNC, SVGA3D_CMP_LESS);
    rectangle(10, 10, 0.8f); // behind
    EXPECT_EQ(samples(), 0u);
    begin();
    rectangle(10, 10, 0.2f);
    rectangle(20, 10, 0.2f); // half of it is there already
    EXPECT_EQ(samples(), 200u);
    begin();
    set(SVGA3D_RS_ALPHATESTENABLE, 1);
    set(SVGA3D_RS_ALPHAFUNC, SVGA3D_CMP_NEVER);
    rectangle(30, 30, 0.1f);
    set(SVGA3D_RS_ALPHATESTENABLE, 0);
    set(SVGA3D_RS_COLORWRITEENABLE, 0);
    rectangle(30, 1, 0.1f); // counts, though nothing is written
    EXPECT_EQ(samples(), 30u);
    EXPECT_EQ(all_refused(), 0u);
}

TEST_F(QueriesTest, OneAtATimeAndOnlyWhatWasBegun)
{
    EXPECT_EQ(ended().state, uint32_t{SVGA3D_QUERYSTATE_FAILED});
    EXPECT_EQ(ended().result, 0u);
    begin();
    rectangle(4, 4, 0.2f);
    begin(); // anew
    rectangle(3, 3, 0.2f);
    EXPECT_EQ(answer_to(SVGA_3D_CMD_WAIT_FOR_QUERY).state, uint32_t{SVGA3D_QUERYSTATE_FAILED}); // it runs
    EXPECT_EQ(samples(), 9u);
    EXPECT_EQ(answer_to(SVGA_3D_CMD_WAIT_FOR_QUERY).result, 9u);
    EXPECT_EQ(ended().state, uint32_t{SVGA3D_QUERYSTATE_FAILED});
}

// As many types as are announced.
TEST_F(QueriesTest, TypesAreThoseAnnounced)
{
    const uint32_t types = announced().at(15);
    ASSERT_GE(types, 1u);
    for (uint32_t type = 0; type <= types; ++type) {
        run(stream{}
                .command(SVGA_3D_CMD_BEGIN_QUERY, svga3d_begin_query{cid, type})
                .command(SVGA_3D_CMD_END_QUERY, svga3d_query{cid, type, {region, 0}})
                .command(SVGA_3D_CMD_WAIT_FOR_QUERY, svga3d_query{cid, type, {region, 0}}));
        EXPECT_EQ(refused(KALIX_REFUSED_BAD_VALUE), type < types ? 0u : 3u) << type;
    }
}

TEST_F(QueriesTest, DrawsTakeDivisorsOfOne)
{
    begin();
    rectangle(2, 2, 0.2f, {1});
    rectangle(2, 2, 0.2f, {0});
    EXPECT_EQ(all_refused(), 0u);
    rectangle(2, 2, 0.2f, {2});
    EXPECT_EQ(refused(KALIX_REFUSED_NOT_SUPPORTED), 1u);
    EXPECT_EQ(samples(), 8u);
}

} // namespace
} // namespace kalix::test
