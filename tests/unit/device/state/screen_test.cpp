// The screen file: who has it, what readers see, and the cursor.

#include "tests/unit/device/support.h"

#include <atomic>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace kalix::test {
namespace {

class ScreenTest : public device_test {
protected:
    struct stat file_status() const
    {
        struct stat about {};
        EXPECT_EQ(stat(screen_path().c_str(), &about), 0);
        return about;
    }
};

TEST_F(ScreenTest, TheFileOutlivesItsServers)
{
    const struct stat first = file_status();
    EXPECT_EQ(first.st_mode & 0777 & ~040u, 0600u);
    EXPECT_LT(first.st_blocks * 512, 1 << 22); // sparse
    EXPECT_EQ(view->header().server_pid, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(view->header().framebuffer_bytes, framebuffer_bytes);
    const off_t larger = first.st_size + (1 << 20);
    bus.reset();
    EXPECT_EQ(view->header().server_pid, 0u);
    ASSERT_EQ(truncate(screen_path().c_str(), larger), 0); // as a server with more memory would leave it
    bus = open();
    EXPECT_EQ(file_status().st_ino, first.st_ino);
    EXPECT_EQ(file_status().st_size, larger);
    EXPECT_EQ(view->header().server_pid, static_cast<uint32_t>(getpid())); // the old mapping is good
    EXPECT_EQ(view->sequence() % 2, 0u);
}

TEST_F(ScreenTest, ASecondDeviceStaysUnnamedAndWorks)
{
    const uint64_t damage = view->header().damage;
    const std::unique_ptr<svga_bus> second = open();
    ASSERT_TRUE(second);
    const std::vector<std::string> lines = take_log_lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].find("device: the screen has no file: lock: "), 0u) << lines[0];
    run_stream(*second, stream{}.add(svga_cmd_update{SVGA_CMD_UPDATE, 0, 0, 1, 1}, svga_cmd_fence{SVGA_CMD_FENCE, 5}));
    EXPECT_EQ(fifo_load(second->fifo(), SVGA_FIFO_FENCE), 5u);
    EXPECT_EQ(view->header().damage, damage);
    run(stream{}.add(svga_cmd_update{SVGA_CMD_UPDATE, 0, 0, 1, 1}));
    EXPECT_EQ(view->header().damage, damage + 1);
}

TEST_F(ScreenTest, ReadersSeeWholeFrames)
{
    set_mode(64, 64, 32);
    run(stream{}.define_surface(0, SVGA3D_X8R8G8B8, {{64, 64, 1}}).define_surface(1, SVGA3D_X8R8G8B8, {{64, 64, 1}}));
    write_words<uint32_t>(1, 64, 64, std::vector<uint32_t>(64 * 64, 0x00FFFFFF));
    std::atomic<bool> enough{false};
    std::atomic<int> taken{0};
    std::atomic<int> mixed{0};
    std::thread reader{[&] {
        std::vector<uint32_t> frame(64 * 64);
        while (!enough) {
            const uint32_t before = view->sequence();
            // Acquiring loads keep the second look at the sequence behind the copy.
            const auto* const picture = reinterpret_cast<const uint32_t*>(view->picture());
            for (size_t i = 0; i < frame.size(); ++i)
                frame[i] = __atomic_load_n(&picture[i], __ATOMIC_ACQUIRE);
            if (before % 2 != 0 || view->sequence() != before)
                continue;
            ++taken;
            for (const uint32_t each : frame)
                mixed += each != frame[0];
        }
    }};
    for (uint32_t i = 0; i < 3000 || (taken < 50 && i < 300'000); ++i)
        run(stream{}.command(SVGA_3D_CMD_PRESENT, svga3d_present{i % 2}, svga3d_copy_rect{0, 0, 64, 64, 0, 0}));
    enough = true;
    reader.join();
    EXPECT_GE(taken, 1);
    EXPECT_EQ(mixed, 0);
    EXPECT_EQ(all_refused(), 0u);
}

stream cursor(uint32_t width, uint32_t height, uint32_t value)
{
    const svga_alpha_cursor shape{0, 3, 4, width, height};
    stream out;
    out.add(uint32_t{SVGA_CMD_DEFINE_ALPHA_CURSOR}, shape);
    for (uint64_t i = 0; i < uint64_t{width} * height; ++i)
        out.add(value + static_cast<uint32_t>(i));
    return out;
}

TEST_F(ScreenTest, CursorsUpTo256By256)
{
    const struct {
        uint32_t width, height;
        bool shown;
    } cases[] = {{1, 1, true}, {64, 32, true},    {256, 256, true}, {257, 1, false}, {1, 257, false},
                 {0, 5, true}, {256, 257, false}, {0, 300, false},  {2, 2, true}};
    uint32_t generation = view->header().cursor.generation;
    uint64_t refusals = 0;
    uint32_t value = 0x01000000;
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::Message() << each.width << "x" << each.height);
        value += 0x01000000;
        // The command behind it is found, whether the cursor is taken or not.
        run(cursor(each.width, each.height, value).add(svga_cmd_fence{SVGA_CMD_FENCE, value}));
        EXPECT_EQ(fifo_load(bus->fifo(), SVGA_FIFO_FENCE), value);
        EXPECT_EQ(refused(KALIX_REFUSED_CURSOR), refusals += !each.shown);
        const kalix_screen_cursor& seen = view->header().cursor;
        EXPECT_EQ(seen.generation, generation += each.shown);
        if (!each.shown)
            continue;
        EXPECT_EQ(seen.width, each.width);
        EXPECT_EQ(seen.hotspot_y, 4u);
        const uint32_t pixels = each.width * each.height;
        if (pixels != 0) {
            EXPECT_EQ(seen.pixels[pixels - 1], value + pixels - 1);
        }
    }
    bus->count_refused_cursor(); // by the driver's side
    EXPECT_EQ(refused(KALIX_REFUSED_CURSOR), ++refusals);
    EXPECT_EQ(all_refused(), refusals);
    EXPECT_EQ(take_log_lines(), std::vector<std::string>{"device: command 22 refused: a cursor that cannot be shown "
                                                         "(further ones are only counted)"});
}

TEST_F(ScreenTest, TheCursorFollowsItsRegisters)
{
    const std::span<uint32_t> fifo = bus->fifo();
    fifo_store(fifo, SVGA_FIFO_CURSOR_ON, 1);
    fifo_store(fifo, SVGA_FIFO_CURSOR_X, 700);
    fifo_store(fifo, SVGA_FIFO_CURSOR_Y, 30);
    run(stream{}.add(svga_cmd_fence{SVGA_CMD_FENCE, 1}));
    EXPECT_EQ(view->header().cursor.visible, 0u); // not before COUNT is raised
    const uint32_t before = view->sequence();
    fifo_store(fifo, SVGA_FIFO_CURSOR_COUNT, 1);
    bus->ring_doorbell(); // without a command
    while (view->sequence() == before || view->sequence() % 2 != 0)
        std::this_thread::yield();
    EXPECT_EQ(view->header().cursor.visible, 1u);
    EXPECT_EQ(view->header().cursor.x, 700u);
    EXPECT_EQ(view->header().cursor.y, 30u);
}

} // namespace
} // namespace kalix::test
