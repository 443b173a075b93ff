// States, textures and vertices that make no sense: nothing outside a surface is read or written, no arithmetic is
// undefined (the sanitizers say so), and what is around the targets stays.

#include "tests/unit/device/raster/scene.h"

namespace kalix::device::test {
namespace {

class HostileTest : public scene {
protected:
    uint32_t below(uint32_t limit) { return random_.below(limit); }
    uint32_t word()
    {
        constexpr uint32_t odd[] = {0, 1, 2, 3, 0x7FFFFFFF, 0x80000000, ~0u, 0x7F800000, 0xFF800000, 0x7FC00000};
        const uint32_t kind = below(4);
        return kind == 0 ? odd[below(std::size(odd))] : kind == 1 ? below(9) : random_();
    }
    float number() { return below(3) ? std::bit_cast<float>(word()) : static_cast<float>(below(64)); }

    // Mostly near the target.
    float place() { return below(8) ? static_cast<float>(below(300)) - 60 : number(); }

    void scramble_states()
    {
        for (int i = 0; i < 25; ++i)
            (void)set_render_state(state, {below(SVGA3D_RS_MAX), word()});
        for (int i = 0; i < 40; ++i)
            (void)set_texture_state(state, {below(3), below(SVGA3D_TS_MAX), word()});
        for (uint32_t stage_index = 0; stage_index < 3; ++stage_index)
            stage(stage_index, SVGA3D_TS_BIND_TEXTURE, below(4) ? texture_sid : word());
        // What refuses a draw at once hides the rest.
        set(SVGA3D_RS_VERTEXBLEND, 0);
        for (uint32_t stage_index = 0; stage_index < 3; ++stage_index) {
            for (const uint32_t name : {SVGA3D_TS_COLOROP, SVGA3D_TS_ALPHAOP})
                stage(stage_index, name, 1 + below(13));
            stage(stage_index, SVGA3D_TS_TEXCOORDGEN, below(4));
        }
        const auto which = below(SVGA3D_TRANSFORM_MAX);
        state.transforms[which][below(16)] = number();
        state.z_min = number();
        state.z_max = number();
        const auto light = below(SVGA3D_LIGHTS);
        state.light_enabled[light] = below(2);
        uint32_t words[sizeof(svga3d_light) / 4];
        for (uint32_t& each : words)
            each = word();
        std::memcpy(&state.lights[light], words, sizeof words);
        if (below(30) == 0)
            state.viewport = {word(), word(), word(), word()};
        if (below(30) == 0)
            state.scissor = {word(), word(), word(), word()};
        for (float& each : state.clip_planes[below(SVGA3D_CLIP_PLANES)])
            each = number();
    }

    void scramble_texture()
    {
        const auto format = below(SVGA3D_FORMAT_MAX);
        const bool cube = below(3) == 0;
        const uint32_t levels = 1 + below(4);
        svga3d_surface_define definition{texture_sid, 0, format, {}};
        std::fill_n(definition.mip_levels, cube ? SVGA3D_FACES : 1, levels);
        std::vector<svga3d_size> sizes(levels * (cube ? SVGA3D_FACES : 1));
        for (svga3d_size& size : sizes)
            size = {1 + below(20), 1 + below(20), 1 + below(cube ? 1 : 4)};
        surfaces.define(definition, sizes);
    }

    // Declarations, indices and ranges that are nearly right, over the buffers of the draw before.
    draw_result draw_what_is_there()
    {
        uint32_t indices[16];
        std::ranges::generate(indices, [this] { return word(); });
        define_buffer(index_sid, indices, sizeof indices);
        std::vector<svga3d_vertex_declaration> declarations(1 + below(3));
        for (auto& each : declarations)
            each = element(below(18), below(13), below(2), {vertex_sid, below(40), below(24)});
        declarations[0].usage = below(4) ? uint32_t{SVGA3D_DECLUSAGE_POSITION} : uint32_t{SVGA3D_DECLUSAGE_POSITIONT};
        const svga3d_primitive_range range{below(8),
                                           below(9) ? below(8) : word(),
                                           {below(2) ? SVGA3D_INVALID_ID : index_sid, below(70), below(4)},
                                           1u << below(3),
                                           static_cast<int32_t>(below(5)) - 2};
        const svga3d_image target = state.targets[SVGA3D_RT_COLOR0];
        state.targets[SVGA3D_RT_COLOR0].sid = below(5) ? color_sid : below(7);
        const draw_result result = draw(declarations, range);
        state.targets[SVGA3D_RT_COLOR0] = target;
        return result;
    }

    dice random_;
};

TEST_F(HostileTest, RandomStatesTouchNothingElse)
{
    raster::worker_pool pool{2, start_thread};
    workers = &pool;
    constexpr uint32_t bystander = 99;
    define(bystander, SVGA3D_A8R8G8B8, 64, 64);
    int drawn = 0, odd_drawn = 0;
    for (int round = 0; round < 3000; ++round) {
        if (round % 20 == 0) {
            state = new_context(1);
            const uint32_t formats[] = {SVGA3D_A8R8G8B8, SVGA3D_X8R8G8B8, SVGA3D_R5G6B5, SVGA3D_ARGB_S23E8};
            make_targets(150 + below(60), 120, formats[below(4)],
                         below(2) ? uint32_t{SVGA3D_Z_D24S8} : uint32_t{SVGA3D_Z_D16});
            clear();
        }
        if (round % 5 == 0)
            scramble_texture();
        scramble_states();
        std::vector<corner> corners;
        for (int i = 0; i < 12; ++i)
            corners.push_back({place(), place(), number(), number(), word(), word(), number(), number()});
        const uint32_t usage = below(2) ? uint32_t{SVGA3D_DECLUSAGE_POSITIONT} : uint32_t{SVGA3D_DECLUSAGE_POSITION};
        drawn += draw(1 + below(6), 1 + below(4), corners, usage) == draw_result::done;
        odd_drawn += draw_what_is_there() == draw_result::done;
    }
    EXPECT_GT(drawn, 1000); // most are drawn, or nothing was tried
    EXPECT_GT(odd_drawn, 100);
    workers = nullptr;
    EXPECT_TRUE(std::ranges::all_of(bytes(bystander), [](std::byte each) { return each == std::byte{0}; }));
}

} // namespace
} // namespace kalix::device::test
