// Streams that mean harm: whatever lies in the ring, the device lives and stays inside its objects. Guest
// memory has guard pages, and the sanitizers watch the rest.

#include "tests/unit/device/support.h"

#include <algorithm>

namespace kalix::test {
namespace {

// Beside what streams name lie a surface and pages that none of them does.
class HostileTest : public device_test {
protected:
    static constexpr uint32_t bystander = 0x5EEDBA5E;
    static constexpr svga3d_size bystander_size{16, 16, 1};

    HostileTest()
    {
        run(stream{}.define_surface(bystander, SVGA3D_A8R8G8B8, {bystander_size}));
        write_words<uint32_t>(bystander, 16, 16, std::vector<uint32_t>(256, 0xB5B5B5B5));
        for (uint64_t page = 1; page <= pages; ++page)
            std::memset(scratch.page(page), 0x5B, 4096);
        fill_vertices();
    }

    // What the vertex surface is filled from: a triangle over most of the target.
    void fill_vertices()
    {
        const float corners[3][8] = {{0, 0, 0.5f, 1}, {16, 0, 0.5f, 1}, {0, 16, 0.5f, 1}};
        std::memcpy(scratch.page(5) + 100, corners, sizeof corners);
    }

    // Only pages that a stream's remapping can name have changed; the surface has not.
    void expect_bystanders_unchanged()
    {
        constexpr uint32_t named[] = {1, 2, 5, 16}; // also by one word's being bent
        for (uint32_t page = 1; page <= pages; ++page)
            if (std::ranges::find(named, page) == std::end(named)) {
                const std::byte* const begin = scratch.page(page);
                ASSERT_EQ(std::count(begin, begin + 4096, std::byte{0x5B}), 4096) << "page " << page;
            }
        ASSERT_EQ(read_words<uint32_t>(bystander, 16, 16), std::vector<uint32_t>(256, 0xB5B5B5B5));
    }
};

// One of everything, as a list of commands.
std::vector<stream> good_commands()
{
    std::vector<stream> out;
    const auto add = [&out](const stream& each) { out.push_back(each); };
    const auto put = [&out](const auto&... command) { out.push_back(stream{}.command(command...)); };
    add(stream{}.define_surface(1, SVGA3D_A8R8G8B8, {{16, 16, 1}, {8, 8, 1}}));
    add(stream{}.define_surface(2, SVGA3D_DXT5, {{16, 16, 2}}));
    add(stream{}.define_surface(3, SVGA3D_BUFFER, {{96, 1, 1}}));
    add(stream{}.define_surface(4, SVGA3D_Z_D24S8, {{16, 16, 1}}));
    add(stream{}.define_surface(5, SVGA3D_BUFFER, {{8, 1, 1}}));
    add(stream{}.add(svga_cmd_define_gmr2{SVGA_CMD_DEFINE_GMR2, 1, 3}));
    add(stream{}
            .add(svga_cmd_remap_gmr2{SVGA_CMD_REMAP_GMR2, 1, SVGA_REMAP_GMR2_PPN64, 0, 3})
            .add(uint64_t{5}, uint64_t{1}, uint64_t{2}));
    put(SVGA_3D_CMD_CONTEXT_DEFINE, svga3d_context{1});
    for (const uint32_t transfer : {1u, 2u})
        put(SVGA_3D_CMD_SURFACE_DMA, svga3d_surface_dma{{{1, 0}, 64}, {1, 0, 0}, transfer},
            svga3d_copy_box{0, 0, 0, 16, 16, 1, 0, 0, 0}, svga3d_surface_dma_suffix{12, 4096, 0});
    put(SVGA_3D_CMD_SURFACE_DMA, svga3d_surface_dma{{{1, 100}, 0}, {3, 0, 0}, 1},
        svga3d_copy_box{0, 0, 0, 96, 1, 1, 0, 0, 0});
    put(SVGA_3D_CMD_SURFACE_COPY, svga3d_surface_copy{{1, 0, 0}, {1, 0, 1}},
        svga3d_copy_box{0, 0, 0, 8, 8, 1, 3, 4, 0});
    put(SVGA_3D_CMD_SURFACE_STRETCHBLT,
        svga3d_surface_stretchblt{{1, 0, 1}, {1, 0, 0}, {0, 0, 0, 8, 8, 1}, {1, 1, 0, 15, 11, 1}, 1});
    put(SVGA_3D_CMD_SETRENDERTARGET, svga3d_set_render_target{1, SVGA3D_RT_COLOR0, {1, 0, 0}});
    put(SVGA_3D_CMD_SETRENDERTARGET, svga3d_set_render_target{1, SVGA3D_RT_DEPTH, {4, 0, 0}});
    put(SVGA_3D_CMD_SETVIEWPORT, svga3d_set_viewport{1, {0, 0, 16, 16}});
    put(SVGA_3D_CMD_SETRENDERSTATE, svga3d_context{1}, svga3d_render_state_value{SVGA3D_RS_ZENABLE, 1});
    put(SVGA_3D_CMD_SETTEXTURESTATE, svga3d_context{1}, svga3d_texture_state_value{0, SVGA3D_TS_BIND_TEXTURE, 1},
        svga3d_texture_state_value{1, SVGA3D_TS_BIND_TEXTURE, 2},
        svga3d_texture_state_value{1, SVGA3D_TS_COLOROP, SVGA3D_TC_MODULATE},
        svga3d_texture_state_value{1, SVGA3D_TS_MAGFILTER, SVGA3D_TEX_FILTER_LINEAR});
    put(SVGA_3D_CMD_CLEAR, svga3d_clear{1, 7, 0x80402010, 1.0f, 0}, svga3d_rect{0, 0, 16, 16});
    put(SVGA_3D_CMD_SETTRANSFORM,
        svga3d_set_transform{1, SVGA3D_TRANSFORM_VIEW, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}});
    put(SVGA_3D_CMD_SETZRANGE, svga3d_set_z_range{1, 0, 1});
    put(SVGA_3D_CMD_SETMATERIAL, svga3d_set_material{1, SVGA3D_FACE_FRONT, {{1, 1, 1, 1}, {}, {}, {}, 0}});
    svga3d_set_light_data light{1, 2, {}};
    light.light.type = SVGA3D_LIGHTTYPE_SPOT1;
    light.light.phi = light.light.range = 2;
    put(SVGA_3D_CMD_SETLIGHTDATA, light);
    put(SVGA_3D_CMD_SETLIGHTENABLED, svga3d_set_light_enabled{1, 2, 1});
    put(SVGA_3D_CMD_SETCLIPPLANE, svga3d_set_clip_plane{1, 0, {1, 0, 0, 1}});
    put(SVGA_3D_CMD_SETSCISSORRECT, svga3d_set_scissor_rect{1, {0, 0, 16, 16}});
    put(SVGA_3D_CMD_SET_SHADER_CONST, svga3d_set_shader_const{1, 3, 1, 0, {1, 2, 3, 4}});
    put(SVGA_3D_CMD_SET_SHADER, svga3d_set_shader{1, 1, SVGA3D_INVALID_ID});
    put(SVGA_3D_CMD_BEGIN_QUERY, svga3d_begin_query{1, 0});
    put(SVGA_3D_CMD_DRAW_PRIMITIVES, svga3d_draw_primitives{1, 1, 1},
        svga3d_vertex_declaration{SVGA3D_DECLTYPE_FLOAT4, 0, SVGA3D_DECLUSAGE_POSITIONT, 0, {3, 0, 32}, 0, 0},
        svga3d_primitive_range{SVGA3D_PRIMITIVE_TRIANGLELIST, 1, {SVGA3D_INVALID_ID, 0, 0}, 0, 0});
    // Lit, in world space, with indices of 2 bytes and divisors.
    put(SVGA_3D_CMD_DRAW_PRIMITIVES, svga3d_draw_primitives{1, 2, 1},
        svga3d_vertex_declaration{SVGA3D_DECLTYPE_SHORT4N, 0, SVGA3D_DECLUSAGE_POSITION, 0, {3, 0, 8}, 0, 0},
        svga3d_vertex_declaration{SVGA3D_DECLTYPE_DEC3N, 0, SVGA3D_DECLUSAGE_NORMAL, 0, {3, 4, 8}, 0, 0},
        svga3d_primitive_range{SVGA3D_PRIMITIVE_TRIANGLESTRIP, 2, {5, 0, 2}, 2, 1}, 1u, 1u);
    put(SVGA_3D_CMD_END_QUERY, svga3d_query{1, 0, {1, 8192}});
    put(SVGA_3D_CMD_WAIT_FOR_QUERY, svga3d_query{1, 0, {1, 8192}});
    put(SVGA_3D_CMD_SHADER_DEFINE, svga3d_shader_define{1, 1, 1}, 0xFFFE0101u, 0x0000FFFFu);
    put(SVGA_3D_CMD_SHADER_DESTROY, svga3d_shader_destroy{1, 1, 1});
    put(SVGA_3D_CMD_PRESENT, svga3d_present{1}, svga3d_copy_rect{3, 3, 16, 16, 0, 0});
    put(SVGA_3D_CMD_BLIT_SURFACE_TO_SCREEN, svga3d_blit_to_screen{{1, 0, 0}, {0, 0, 16, 16}, 0, {-5, 2, 40, 40}},
        svga3d_signed_rect{0, 0, 20, 20});
    add(stream{}.add(uint32_t{SVGA_CMD_DEFINE_ALPHA_CURSOR}, svga_alpha_cursor{0, 0, 0, 2, 1}, 1u, 2u));
    add(stream{}.add(svga_cmd_update{SVGA_CMD_UPDATE, 0, 0, 16, 16}));
    put(SVGA_3D_CMD_PRESENT_READBACK, svga3d_rect{0, 0, 16, 16});
    add(stream{}.add(svga_cmd_fence{SVGA_CMD_FENCE, 77}));
    put(SVGA_3D_CMD_SURFACE_DESTROY, svga3d_surface_destroy{2});
    put(SVGA_3D_CMD_CONTEXT_DESTROY, svga3d_context{1});
    return out;
}

stream joined(const std::vector<stream>& commands)
{
    stream out;
    for (const stream& each : commands)
        out.add_list(each.bytes);
    return out;
}

TEST_F(HostileTest, AGoodStreamIsTakenWhole)
{
    run(joined(good_commands()));
    EXPECT_EQ(all_refused(), 0u) << testing::PrintToString(take_log_lines());
    svga3d_query_result drawn;
    std::memcpy(&drawn, scratch.page(2), sizeof drawn);
    EXPECT_GT(drawn.result, 100u); // or the streams below try nothing
}

// Cut anywhere, the whole commands before the cut are executed and what is left is counted once.
TEST_F(HostileTest, StreamsCutAtEveryByte)
{
    const std::vector<stream> commands = good_commands();
    const stream whole = joined(commands);
    std::vector<size_t> ends{0};
    for (const stream& each : commands)
        ends.push_back(ends.back() + each.bytes.size());
    for (size_t length = 0; length < whole.bytes.size(); ++length) {
        SCOPED_TRACE(testing::Message() << "cut at byte " << length);
        const uint64_t before = all_refused();
        stream cut;
        cut.bytes.assign(whole.bytes.begin(), whole.bytes.begin() + static_cast<std::ptrdiff_t>(length));
        run(cut);
        const bool whole_commands = std::ranges::find(ends, length) != ends.end();
        ASSERT_EQ(all_refused(), before + !whole_commands);
        fence(static_cast<uint32_t>(length) + 1);
    }
}

TEST_F(HostileTest, MutatedStreams)
{
    dice random;
    const std::vector<stream> commands = good_commands();
    constexpr uint32_t nasty[] = {0, 1, 2, 16, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF, 4096, 1 << 20};
    for (uint32_t step = 0; step < 1500; ++step) {
        std::vector<stream> bent = commands;
        for (uint32_t i = 0; i <= random.below(6); ++i) {
            std::vector<std::byte>& bytes = bent[random.below(static_cast<uint32_t>(bent.size()))].bytes;
            const uint32_t word = random.below(static_cast<uint32_t>(bytes.size() / 4));
            const uint32_t value =
                random.one_of({random(), 1036 + random.below(40), nasty[random.below(std::size(nasty))]});
            std::memcpy(bytes.data() + size_t{word} * 4, &value, 4);
        }
        if (random.below(3) == 0)
            std::shuffle(bent.begin(), bent.end(), random);
        fill_vertices();
        run(joined(bent));
        ASSERT_NO_FATAL_FAILURE(fence(step + 1)) << "step " << step;
    }
    expect_bystanders_unchanged();
}

// Commands begin at any byte and run across the ring's end: one odd length shifts all that follow.
TEST_F(HostileTest, CommandsAtEveryByteOfTheRingsEnd)
{
    run(stream{}.define_surface(1, SVGA3D_A8R8G8B8, {{16, 1, 1}}));
    const std::span<uint32_t> fifo = bus->fifo();
    const uint32_t bytes = fifo[SVGA_FIFO_MAX] - fifo[SVGA_FIFO_MIN];
    for (uint32_t shift = 1; shift < 90; shift += 2) {
        // Brings NEXT_CMD to shift bytes before the end: an unknown 3D command of that size is skipped.
        const uint32_t at = fifo_load(fifo, SVGA_FIFO_NEXT_CMD) - fifo[SVGA_FIFO_MIN];
        const uint32_t gap = (2 * bytes - shift - at - 8) % bytes;
        auto* const memory = reinterpret_cast<std::byte*>(fifo.data());
        const svga3d_command_header skip{5000, gap};
        for (uint32_t i = 0; i < 8; ++i)
            memory[fifo[SVGA_FIFO_MIN] + (at + i) % bytes] = reinterpret_cast<const std::byte*>(&skip)[i];
        fifo_store(fifo, SVGA_FIFO_NEXT_CMD, fifo[SVGA_FIFO_MAX] - shift);
        run(stream{}
                .command(SVGA_3D_CMD_SURFACE_COPY, svga3d_surface_copy{{1, 0, 0}, {1, 0, 0}},
                         svga3d_copy_box{0, 0, 0, 16, 1, 1, 0, 0, 0})
                .add(svga_cmd_fence{SVGA_CMD_FENCE, shift}));
        ASSERT_EQ(fifo_load(fifo, SVGA_FIFO_FENCE), shift);
        ASSERT_EQ(refused(KALIX_REFUSED_UNKNOWN_COMMAND), all_refused());
    }
    EXPECT_EQ(view->header().statistics.commands[SVGA_3D_CMD_SURFACE_COPY - 1040], 45u);
    // An offset outside of the ring means that nothing was written.
    const uint32_t next = fifo_load(fifo, SVGA_FIFO_NEXT_CMD);
    for (const uint32_t wild : {0u, 8191u, 8192u + (16u << 20), 0xFFFFFFFFu}) {
        fifo_store(fifo, SVGA_FIFO_NEXT_CMD, wild);
        bus->ring_doorbell();
        bus->write_register(SVGA_REG_SYNC, 1);
    }
    fifo_store(fifo, SVGA_FIFO_NEXT_CMD, next);
    ASSERT_NO_FATAL_FAILURE(fence(4711));
}

} // namespace
} // namespace kalix::test
