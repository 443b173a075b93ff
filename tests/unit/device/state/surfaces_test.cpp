// Copies inside the device: exact numbers, overlaps, formats.

#include "tests/unit/device/support.h"

#include <algorithm>
#include <numeric>

namespace kalix::test {
namespace {

class SurfacesTest : public device_test {
protected:
    void copy(uint32_t from, uint32_t to, const std::vector<svga3d_copy_box>& boxes)
    {
        run(stream{}.command_with_list(SVGA_3D_CMD_SURFACE_COPY, svga3d_surface_copy{{from, 0, 0}, {to, 0, 0}}, boxes));
    }
};

TEST_F(SurfacesTest, CopiesAsIfTheSourceWereReadFirst)
{
    dice random;
    constexpr uint32_t width = 13, height = 9;
    run(stream{}.define_surface(1, SVGA3D_R5G6B5, {{width, height, 1}}));
    std::vector<uint16_t> model(width * height);
    std::iota(model.begin(), model.end(), uint16_t{1});
    write_words(1, width, height, model);
    for (int step = 0; step < 300; ++step) {
        const uint32_t w = 1 + random.below(width), h = 1 + random.below(height);
        const svga3d_copy_box box{random.below(width - w + 1), random.below(height - h + 1), 0, w, h, 1,
                                  random.below(width - w + 1), random.below(height - h + 1), 0};
        copy(1, 1, {box});
        const std::vector<uint16_t> before = model;
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x)
                model[(box.y + y) * width + box.x + x] = before[(box.srcy + y) * width + box.srcx + x];
        ASSERT_EQ(read_words<uint16_t>(1, width, height), model) << "step " << step;
    }
}

TEST_F(SurfacesTest, StretchesWithTheseNumbers)
{
    run(stream{}.define_surface(1, SVGA3D_LUMINANCE8, {{4, 1, 1}}).define_surface(2, SVGA3D_LUMINANCE8, {{8, 1, 1}}));
    write_words<uint8_t>(1, 4, 1, {10, 50, 90, 200});
    const struct {
        const char* name;
        svga3d_box source, destination;
        uint32_t mode;
        std::vector<uint8_t> result;
    } cases[] = {
        {"each texel twice", {0, 0, 0, 4, 1, 1}, {0, 0, 0, 8, 1, 1}, 0, {10, 10, 50, 50, 90, 90, 200, 200}},
        {"every second texel", {0, 0, 0, 4, 1, 1}, {3, 0, 0, 2, 1, 1}, 0, {0, 0, 0, 50, 200, 0, 0, 0}},
        {"between centres, edges kept", {0, 0, 0, 2, 1, 1}, {0, 0, 0, 4, 1, 1}, 1, {10, 20, 40, 50, 0, 0, 0, 0}},
        {"inside the source box", {1, 0, 0, 2, 1, 1}, {2, 0, 0, 4, 1, 1}, 1, {0, 0, 50, 60, 80, 90, 0, 0}},
        {"halved", {0, 0, 0, 4, 1, 1}, {0, 0, 0, 2, 1, 1}, 1, {30, 145, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& each : cases) {
        write_words<uint8_t>(2, 8, 1, std::vector<uint8_t>(8, 0));
        stretch(1, each.source, 2, each.destination, each.mode);
        EXPECT_EQ(read_words<uint8_t>(2, 8, 1), each.result) << each.name;
    }
    // In place: each source texel is read before any is written.
    stretch(1, {0, 0, 0, 2, 1, 1}, 1, {0, 0, 0, 4, 1, 1}, 0);
    EXPECT_EQ(read_words<uint8_t>(1, 4, 1), (std::vector<uint8_t>{10, 10, 50, 50}));
    EXPECT_EQ(all_refused(), 0u);
}

TEST_F(SurfacesTest, StretchesVolumes)
{
    run(stream{}.define_surface(1, SVGA3D_LUMINANCE8, {{2, 1, 4}}).define_surface(2, SVGA3D_LUMINANCE8, {{4, 1, 2}}));
    write_surface({1, 0, 0}, {2, 1, 4},
                  {std::byte{0}, std::byte{8}, std::byte{20}, std::byte{28}, std::byte{40}, std::byte{48},
                   std::byte{100}, std::byte{108}});
    const std::vector<uint8_t> results[] = {{20, 20, 28, 28, 100, 100, 108, 108}, {10, 12, 16, 18, 70, 72, 76, 78}};
    for (const uint32_t mode : {SVGA3D_STRETCH_BLT_POINT, SVGA3D_STRETCH_BLT_LINEAR}) {
        stretch(1, {0, 0, 0, 2, 1, 4}, 2, {0, 0, 0, 4, 1, 2}, mode);
        const auto bytes = read_surface({2, 0, 0}, {4, 1, 2}, 8);
        EXPECT_EQ(std::memcmp(bytes.data(), results[mode].data(), 8), 0) << mode;
    }
}

TEST_F(SurfacesTest, ADefinitionReplacesAndStartsEmpty)
{
    run(stream{}.define_surface(1, SVGA3D_A8R8G8B8, {{2, 2, 1}}));
    write_words<uint32_t>(1, 2, 2, {1, 2, 3, 4});
    EXPECT_EQ(view->header().statistics.surface_bytes, 16u);
    run(stream{}.define_surface(1, SVGA3D_A8R8G8B8, {{3, 1, 1}}));
    EXPECT_EQ(read_words<uint32_t>(1, 3, 1), (std::vector<uint32_t>{0, 0, 0}));
    EXPECT_EQ(view->header().statistics.surfaces, 1u);
    // A definition that cannot be leaves the old one.
    run(stream{}.define_surface(1, SVGA3D_FORMAT_MAX, {{1, 1, 1}}));
    EXPECT_EQ(refused(KALIX_REFUSED_BAD_VALUE), 1u);
    EXPECT_EQ(view->header().statistics.surface_bytes, 12u);
    run(stream{}.command(SVGA_3D_CMD_SURFACE_DESTROY, svga3d_surface_destroy{1}));
    EXPECT_EQ(view->header().statistics.surface_bytes, 0u);
    EXPECT_EQ(view->header().statistics.surfaces, 0u);
}

// What one surface has taken, the next cannot have; it comes back with the first one's end.
TEST_F(SurfacesTest, MemoryIsBoundedInSum)
{
    const std::vector<svga3d_copy_box> corner{{0, 0, 0, 1, 1, 1, 0, 0, 0}};
    run(stream{}
            .define_surface(1, SVGA3D_A8R8G8B8, {{1024, 1024, 1}})
            .define_surface(2, SVGA3D_A8R8G8B8, {{1024, 1025, 1}}));
    copy(1, 1, corner);
    EXPECT_EQ(all_refused(), 0u);
    copy(2, 2, corner);
    EXPECT_EQ(refused(KALIX_REFUSED_NO_IMAGE), 1u);
    run(stream{}.command(SVGA_3D_CMD_SURFACE_DESTROY, svga3d_surface_destroy{1}));
    copy(2, 2, corner);
    EXPECT_EQ(all_refused(), 1u);
}

} // namespace
} // namespace kalix::test
