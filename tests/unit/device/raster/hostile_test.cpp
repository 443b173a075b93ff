// States, textures and vertices that make no sense: nothing outside a surface is read or written, no arithmetic is
// undefined (the sanitizers say so), and what is around the targets stays.

#include "device/raster/workers.h"
#include "tests/unit/device/raster/scene.h"

#include <functional>
#include <limits>
#include <thread>

namespace kalix::device::test {
namespace {

class HostileTest : public scene {
protected:
    uint32_t word()
    {
        constexpr uint32_t odd[] = {0, 1, 2, 3, 0x7FFFFFFF, 0x80000000, ~0u, 0x7F800000, 0xFF800000, 0x7FC00000};
        const auto any = static_cast<uint32_t>(random_());
        return any % 4 == 0   ? odd[any / 4 % std::size(odd)]
               : any % 4 == 1 ? any / 4 % 9
                              : static_cast<uint32_t>(random_());
    }
    float number() { return random_() % 3 ? std::bit_cast<float>(word()) : static_cast<float>(random_() % 64); }

    // Mostly near the target.
    float place() { return random_() % 8 ? static_cast<float>(random_() % 300) - 60 : number(); }

    void scramble_states()
    {
        for (int i = 0; i < 25; ++i)
            (void)set_render_state(state, {static_cast<uint32_t>(random_() % SVGA3D_RS_MAX), word()});
        for (int i = 0; i < 40; ++i)
            (void)set_texture_state(state, {static_cast<uint32_t>(random_() % 3),
                                            static_cast<uint32_t>(random_() % SVGA3D_TS_MAX), word()});
        for (uint32_t stage_index = 0; stage_index < 3; ++stage_index)
            stage(stage_index, SVGA3D_TS_BIND_TEXTURE, random_() % 4 ? texture_sid : word());
        // What refuses a draw at once hides the rest.
        set(SVGA3D_RS_VERTEXBLEND, 0);
        for (uint32_t stage_index = 0; stage_index < 3; ++stage_index) {
            for (const uint32_t name : {SVGA3D_TS_COLOROP, SVGA3D_TS_ALPHAOP})
                stage(stage_index, name, 1 + static_cast<uint32_t>(random_() % 13));
            stage(stage_index, SVGA3D_TS_TEXCOORDGEN, static_cast<uint32_t>(random_() % 4));
        }
        const auto which = static_cast<uint32_t>(random_() % SVGA3D_TRANSFORM_MAX);
        state.transforms[which][random_() % 16] = number();
        state.z_min = number();
        state.z_max = number();
        const auto light = random_() % SVGA3D_LIGHTS;
        state.light_enabled[light] = random_() % 2;
        uint32_t words[sizeof(svga3d_light) / 4];
        for (uint32_t& each : words)
            each = word();
        std::memcpy(&state.lights[light], words, sizeof words);
        if (random_() % 30 == 0)
            state.viewport = {word(), word(), word(), word()};
        if (random_() % 30 == 0)
            state.scissor = {word(), word(), word(), word()};
        for (float& each : state.clip_planes[random_() % SVGA3D_CLIP_PLANES])
            each = number();
    }

    void scramble_texture()
    {
        const auto format = static_cast<uint32_t>(random_() % SVGA3D_FORMAT_MAX);
        const bool cube = random_() % 3 == 0;
        const uint32_t levels = 1 + static_cast<uint32_t>(random_() % 4);
        svga3d_surface_define definition{texture_sid, 0, format, {levels, 0, 0, 0, 0, 0}};
        std::vector<svga3d_size> sizes;
        for (uint32_t face = 0; face < (cube ? 6u : 1u); ++face) {
            definition.mip_levels[face] = levels;
            for (uint32_t level = 0; level < levels; ++level)
                sizes.push_back({1 + static_cast<uint32_t>(random_() % 20), 1 + static_cast<uint32_t>(random_() % 20),
                                 1 + static_cast<uint32_t>(random_() % (cube ? 1 : 4))});
        }
        surfaces.define(definition, sizes);
    }

    // Declarations, indices and ranges that are nearly right, over the buffers of the draw before.
    draw_result draw_what_is_there()
    {
        const auto below = [this](uint32_t limit) { return static_cast<uint32_t>(random_() % limit); };
        define(index_sid, SVGA3D_BUFFER, 64, 1);
        for (uint32_t at = 0; at < 64; at += 4) {
            const uint32_t value = word();
            std::memcpy(view(index_sid).bytes + at, &value, 4);
        }
        std::vector<svga3d_vertex_declaration> declarations(1 + below(3));
        for (auto& each : declarations)
            each = {below(18), 0, below(13), below(2), {vertex_sid, below(40), below(24)}, 0, 0};
        declarations[0].usage = below(4) ? uint32_t{SVGA3D_DECLUSAGE_POSITION} : uint32_t{SVGA3D_DECLUSAGE_POSITIONT};
        const svga3d_primitive_range range{below(8),
                                           below(9) ? below(8) : word(),
                                           {below(2) ? SVGA3D_INVALID_ID : index_sid, below(70), below(4)},
                                           1u << below(3),
                                           static_cast<int32_t>(below(5)) - 2};
        const svga3d_image target = state.targets[SVGA3D_RT_COLOR0];
        state.targets[SVGA3D_RT_COLOR0].sid = below(5) ? color_sid : below(7);
        const draw_result result = draw_primitives(state, surfaces, declarations, {&range, 1}, {}, workers);
        state.targets[SVGA3D_RT_COLOR0] = target;
        return result;
    }

    std::mt19937 random_{test_seed()};
};

TEST_F(HostileTest, RandomStatesTouchNothingElse)
{
    raster::worker_pool pool{2, [](std::function<void()> body) { return std::thread{std::move(body)}; }};
    workers = &pool;
    constexpr uint32_t bystander = 99;
    define(bystander, SVGA3D_A8R8G8B8, 64, 64);
    int drawn = 0, odd_drawn = 0;
    for (int round = 0; round < 3000; ++round) {
        if (round % 20 == 0) {
            state = new_context(1);
            const uint32_t formats[] = {SVGA3D_A8R8G8B8, SVGA3D_X8R8G8B8, SVGA3D_R5G6B5, SVGA3D_ARGB_S23E8};
            make_targets(150 + static_cast<uint32_t>(random_() % 60), 120, formats[random_() % 4],
                         random_() % 2 ? uint32_t{SVGA3D_Z_D24S8} : uint32_t{SVGA3D_Z_D16});
            clear();
        }
        if (round % 5 == 0)
            scramble_texture();
        scramble_states();
        std::vector<corner> corners;
        for (int i = 0; i < 12; ++i)
            corners.push_back({place(), place(), number(), number(), word(), word(), number(), number()});
        const uint32_t usage =
            random_() % 2 ? uint32_t{SVGA3D_DECLUSAGE_POSITIONT} : uint32_t{SVGA3D_DECLUSAGE_POSITION};
        drawn += draw(1 + static_cast<uint32_t>(random_() % 6), 1 + static_cast<uint32_t>(random_() % 4), corners,
                      usage) == draw_result::done;
        odd_drawn += draw_what_is_there() == draw_result::done;
    }
    EXPECT_GT(drawn, 1000); // most are drawn, or nothing was tried
    EXPECT_GT(odd_drawn, 100);
    workers = nullptr;
    const image_view untouched = view(bystander);
    for (uint64_t at = 0; at < untouched.byte_size(); ++at)
        ASSERT_EQ(untouched.bytes[at], std::byte{0}) << "seed " << test_seed();
}

} // namespace
} // namespace kalix::device::test
