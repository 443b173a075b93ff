// Clears beside a model that goes texel by texel, alone and with workers, with every instruction set.

#include "device/raster/processor.h"
#include "tests/unit/device/raster/scene.h"

namespace kalix::device::test {
namespace {

constexpr uint32_t width = 301, height = 230; // enough to be shared

struct depth_format {
    uint32_t format, depth_bits, depth_shift, stencil_bits;
};
constexpr depth_format depth_formats[] = {{SVGA3D_Z_D16, 16, 0, 0},
                                          {SVGA3D_Z_D15S1, 15, 1, 1},
                                          {SVGA3D_Z_D32, 32, 0, 0},
                                          {SVGA3D_Z_D24S8, 24, 8, 8},
                                          {SVGA3D_Z_D24X8, 24, 8, 0}};

class ClearTest : public scene {
protected:
    // Bits of a depth word that a clear replaces, and what they become.
    static std::pair<uint32_t, uint32_t> replaced(const depth_format& in, const svga3d_clear& how)
    {
        const auto mask = [](uint32_t bits) { return static_cast<uint32_t>((uint64_t{1} << bits) - 1); };
        uint32_t bits = 0, word = 0;
        if (how.flags & SVGA3D_CLEAR_DEPTH) {
            bits |= in.stencil_bits == 0 ? ~0u : mask(in.depth_bits) << in.depth_shift;
            word |= how.depth == 1 ? mask(in.depth_bits) << in.depth_shift : 0;
        }
        if (how.flags & SVGA3D_CLEAR_STENCIL && in.stencil_bits != 0) {
            bits |= mask(in.stencil_bits);
            word |= how.stencil & mask(in.stencil_bits);
        }
        return {bits, word};
    }

    void expect_cleared(const depth_format& in, const svga3d_clear& how, const std::vector<svga3d_rect>& rects,
                        std::vector<std::byte> color_before, std::vector<std::byte> depth_before)
    {
        const image_view color = view(color_sid), depth = view(depth_sid);
        std::array<std::byte, 16> texel{};
        const auto channel = [&](size_t i) { return static_cast<float>(unpacked(how.color)[i]); };
        color.format->encode({channel(0), channel(1), channel(2), channel(3)}, texel.data());
        const auto [bits, word] = replaced(in, how);
        for (const svga3d_rect& rect : rects)
            for (uint32_t y = rect.y; y < std::min(rect.y + rect.h, height); ++y)
                for (uint32_t x = rect.x; x < std::min(rect.x + rect.w, width); ++x) {
                    if (how.flags & SVGA3D_CLEAR_COLOR)
                        std::memcpy(color_before.data() + (color.texel(x, y) - color.bytes), texel.data(),
                                    color.format->block_bytes);
                    std::byte* const at = depth_before.data() + (depth.texel(x, y) - depth.bytes);
                    uint32_t old = 0;
                    std::memcpy(&old, at, depth.format->block_bytes);
                    old = (old & ~bits) | word;
                    std::memcpy(at, &old, depth.format->block_bytes);
                }
        EXPECT_TRUE(std::ranges::equal(bytes(color_sid), color_before));
        EXPECT_TRUE(std::ranges::equal(bytes(depth_sid), depth_before));
    }
};

TEST_F(ClearTest, ReplacesWhatAModelReplaces)
{
    dice random;
    raster::worker_pool two{2, start_thread};
    const auto sets = raster::instruction_sets();
    for (uint32_t step = 0; step < 60; ++step) {
        const depth_format& in = depth_formats[step % std::size(depth_formats)];
        make_targets(width, height,
                     random.one_of<uint32_t>({SVGA3D_A8R8G8B8, SVGA3D_R5G6B5, SVGA3D_ARGB_S10E5, SVGA3D_ARGB_S23E8}),
                     in.format);
        for (const uint32_t sid : {color_sid, depth_sid})
            std::ranges::generate(bytes(sid), [&] { return static_cast<std::byte>(random()); });
        const svga3d_clear how{1, 1 + random.below(7), random(), static_cast<float>(random.below(2)),
                               random.below(256)};
        std::vector<svga3d_rect> rects{
            {random.below(width), random.below(height), 1 + random.below(width), 1 + random.below(height)}};
        if (step % 3 == 0)
            rects.push_back({0, 0, width, height});
        const std::vector<std::byte> color = copy_of(color_sid), depth = copy_of(depth_sid);
        SCOPED_TRACE(step);
        raster::force_instruction_set(sets[step % sets.size()]);
        ASSERT_EQ(clear_targets(state, surfaces, how, rects, step % 2 ? &two : nullptr), draw_result::done);
        expect_cleared(in, how, rects, color, depth);
    }
    raster::force_instruction_set(0);
}

} // namespace
} // namespace kalix::device::test
