#include "tests/unit/device/support.h"

namespace kalix::test {
namespace {

class PresentTest : public device_test {
protected:
    PresentTest()
    {
        run(stream{}.define_surface(1, SVGA3D_X8R8G8B8, {{3, 2, 1}}));
        write_words<uint32_t>(1, 3, 2, {1, 2, 3, 0xAA000004, 5, 6});
    }
    void present(uint32_t sid, const std::vector<svga3d_copy_rect>& rects)
    {
        run(stream{}.command_with_list(SVGA_3D_CMD_PRESENT, svga3d_present{sid}, rects));
    }
    void blit(const svga3d_signed_rect& source, const svga3d_signed_rect& destination,
              const std::vector<svga3d_signed_rect>& clips)
    {
        run(stream{}.command_with_list(SVGA_3D_CMD_BLIT_SURFACE_TO_SCREEN,
                                       svga3d_blit_to_screen{{1, 0, 0}, source, SVGA_ID_INVALID, destination}, clips));
    }
    // The pixels of the 4 x 3 screen of 32 bits.
    std::vector<uint32_t> picture() const
    {
        std::vector<uint32_t> pixels;
        for (uint32_t y = 0; y < 3; ++y)
            for (uint32_t x = 0; x < 4; ++x)
                pixels.push_back(pixel(x, y));
        return pixels;
    }
};

constexpr uint32_t a = 0xAA000004; // the fourth byte of X8R8G8B8 is kept

TEST_F(PresentTest, CopiesCutToSurfaceAndScreen)
{
    const struct {
        svga3d_copy_rect rect;
        std::vector<uint32_t> picture;
    } cases[] = {
        {{0, 0, 3, 2, 0, 0}, {1, 2, 3, 0, a, 5, 6, 0, 0, 0, 0, 0}},
        {{2, 1, 3, 2, 0, 0}, {0, 0, 0, 0, 0, 0, 1, 2, 0, 0, a, 5}},
        {{-1, -1, 3, 2, 0, 0}, {5, 6, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {{1, 1, 9, 9, 2, 0}, {0, 0, 0, 0, 0, 3, 0, 0, 0, 6, 0, 0}},
        {{0, 0, 9, 9, -2, -1}, {0, 0, 0, 0, 0, 0, 1, 2, 0, 0, a, 5}},
        {{0, 0, 0xFFFFFFFF, 0xFFFFFFFF, 0, 0}, {1, 2, 3, 0, a, 5, 6, 0, 0, 0, 0, 0}},
        {{INT32_MIN, 0, 0xFFFFFFFF, 1, INT32_MAX, 0}, std::vector<uint32_t>(12, 0)},
        {{INT32_MAX, INT32_MAX, 1, 1, 0, 0}, std::vector<uint32_t>(12, 0)},
    };
    for (const auto& each : cases) {
        set_mode(4, 3, 32);
        const uint64_t frames = view->header().statistics.frames;
        present(1, {each.rect});
        EXPECT_EQ(picture(), each.picture) << each.rect.x << ", " << each.rect.y << ", " << each.rect.srcx;
        EXPECT_EQ(view->header().statistics.frames, frames + 1);
    }
    EXPECT_EQ(all_refused(), 0u);
}

TEST_F(PresentTest, BlitsScaledAndClipped)
{
    const struct {
        svga3d_signed_rect source, destination;
        std::vector<svga3d_signed_rect> clips;
        std::vector<uint32_t> picture;
    } cases[] = {
        {{0, 0, 3, 2}, {0, 0, 3, 2}, {}, {1, 2, 3, 0, a, 5, 6, 0, 0, 0, 0, 0}},
        {{0, 0, 2, 1}, {0, 0, 4, 2}, {}, {1, 1, 2, 2, 1, 1, 2, 2, 0, 0, 0, 0}},
        {{0, 0, 3, 2}, {0, 0, 1, 1}, {}, {5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {{0, 0, 2, 1}, {-2, -1, 2, 1}, {}, {2, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {{0, 0, 2, 1}, {0, 0, 4, 3}, {{1, 0, 2, 1}, {2, 2, 9, 9}}, {0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 2, 2}},
        {{0, 0, 2, 1}, {0, 0, 4, 3}, {{3, 3, 1, 1}}, std::vector<uint32_t>(12, 0)},
        {{0, 0, 1, 1}, {INT32_MIN, 0, INT32_MAX, 1}, {}, {1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& each : cases) {
        set_mode(4, 3, 32);
        blit(each.source, each.destination, each.clips);
        EXPECT_EQ(picture(), each.picture) << each.destination.left << ", " << each.destination.right;
    }
    EXPECT_EQ(all_refused(), 0u);
    blit({0, 0, 4, 2}, {0, 0, 4, 2}, {});
    EXPECT_EQ(refused(KALIX_REFUSED_OUTSIDE), 1u);
    blit({2, 0, 1, 2}, {0, 0, 4, 2}, {});
    EXPECT_EQ(refused(KALIX_REFUSED_BAD_VALUE), 1u);
}

} // namespace
} // namespace kalix::test
