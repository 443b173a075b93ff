// The driver's side over a bus of the test's own: what reaches the ring, fences, modes and cursors.

#include "guest/guest.h"
#include "svga/svga3d.h"
#include "tests/support.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <random>

namespace kalix::guest {
namespace {

constexpr uint32_t ring_start = 8192, ring_bytes = 4096;

// A device that takes bytes out of the ring when it is waited for, and executes the fences in them.
class fake_bus : public svga_bus {
public:
    std::vector<uint32_t> memory = std::vector<uint32_t>((ring_start + ring_bytes) / 4);
    std::vector<std::byte> pixels = std::vector<std::byte>(1 << 20);
    std::map<uint32_t, uint32_t> registers;
    std::vector<std::byte> taken;
    int refused_modes = 0, refused_cursors = 0, modes_set = 0;

    fake_bus()
    {
        fifo_store(memory, SVGA_FIFO_MIN, ring_start);
        fifo_store(memory, SVGA_FIFO_MAX, ring_start + ring_bytes);
        fifo_store(memory, SVGA_FIFO_NEXT_CMD, ring_start);
        fifo_store(memory, SVGA_FIFO_STOP, ring_start);
        registers = {{SVGA_REG_WIDTH, 1024}, {SVGA_REG_HEIGHT, 768}, {SVGA_REG_VRAM_SIZE, 1 << 20}};
    }

    uint32_t read_register(uint32_t index) override { return registers[index]; }
    void write_register(uint32_t index, uint32_t value) override
    {
        modes_set += index == SVGA_REG_ENABLE;
        registers[index] = value;
    }
    std::span<uint32_t> fifo() override { return memory; }
    std::span<std::byte> framebuffer() override { return pixels; }
    void ring_doorbell() override {}
    void wait_for_stop_change(uint32_t) override { take(1 + static_cast<uint32_t>(random_() % 600)); }
    void wait_for_fence_change(uint32_t) override
    {
        take(ring_bytes);
        fifo_store(memory, SVGA_FIFO_FENCE, last_fence());
    }
    void count_refused_mode() override { ++refused_modes; }
    void count_refused_cursor() override { ++refused_cursors; }

    void take(uint32_t count)
    {
        const auto* const raw = reinterpret_cast<const std::byte*>(memory.data());
        uint32_t stop = fifo_load(memory, SVGA_FIFO_STOP);
        for (; count > 0 && stop != fifo_load(memory, SVGA_FIFO_NEXT_CMD); --count) {
            taken.push_back(raw[stop++]);
            if (stop == ring_start + ring_bytes)
                stop = ring_start;
        }
        fifo_store(memory, SVGA_FIFO_STOP, stop);
    }

private:
    std::mt19937 random_{7};

    uint32_t last_fence() const
    {
        uint32_t seqno = 0;
        std::memcpy(&seqno, taken.data() + taken.size() - 4, 4);
        return seqno;
    }
};

class GuestTest : public testing::Test {
protected:
    fake_bus* bus = nullptr;
    svga_device* device = nullptr;

    void SetUp() override
    {
        auto made = std::make_unique<fake_bus>();
        bus = made.get();
        device = attach(std::move(made));
    }
    void TearDown() override { detach(); }
    // All that was committed, as words.
    std::vector<uint32_t> committed() const
    {
        run_empty(*current());
        std::vector<uint32_t> words(bus->taken.size() / 4);
        std::memcpy(words.data(), bus->taken.data(), bus->taken.size());
        return words;
    }
};

TEST_F(GuestTest, WhatIsCommittedArrivesInOrder)
{
    std::mt19937 random{test::test_seed()};
    std::vector<std::byte> expected;
    for (int step = 0; step < 4000; ++step) {
        const auto bytes = static_cast<uint32_t>(random() % 5 == 0 ? random() % (ring_bytes - 1) : random() % 200);
        auto* const space = static_cast<std::byte*>(SVGA_FIFOReserve(bytes));
        ASSERT_NE(space, nullptr);
        ASSERT_TRUE(bytes == 0 || reinterpret_cast<uintptr_t>(space) % 4 == 0);
        std::generate_n(space, bytes, [&random] { return static_cast<std::byte>(random()); });
        const uint32_t committed = random() % 4 == 0 ? static_cast<uint32_t>(random() % (bytes + 1)) : bytes;
        expected.insert(expected.end(), space, space + committed);
        if (committed == bytes)
            SVGA_FIFOCommitAll();
        else
            SVGA_FIFOCommit(committed);
        bus->take(static_cast<uint32_t>(random() % 300));
    }
    run_empty(*current());
    EXPECT_EQ(bus->taken, expected) << "KALIX_TEST_SEED=" << test::test_seed();
    EXPECT_EQ(SVGA_FIFOReserve(SVGA_FIFO_RESERVATION_MAX + 1), nullptr);
}

TEST_F(GuestTest, FencesCountOnPastTheEndOfTheirNumbers)
{
    SVGA_SyncToFence(5); // none was handed out: nothing to wait for
    EXPECT_TRUE(bus->taken.empty());
    EXPECT_EQ(SVGA_InsertFence(), 1u);
    SVGA_SyncToFence(0);
    SVGA_SyncToFence(2);
    SVGA_SyncToFence(0x80000000);
    EXPECT_TRUE(bus->taken.empty());
    SVGA_SyncToFence(1);
    EXPECT_EQ(fifo_load(bus->memory, SVGA_FIFO_FENCE), 1u);
    current()->writer.last_fence = 0xFFFFFFFE;
    fifo_store(bus->memory, SVGA_FIFO_FENCE, 0xFFFFFFFE);
    EXPECT_EQ(SVGA_InsertFence(), 0xFFFFFFFFu);
    EXPECT_EQ(SVGA_InsertFence(), 1u); // 0 is no fence
    SVGA_SyncToFence(1);
    EXPECT_EQ(fifo_load(bus->memory, SVGA_FIFO_FENCE), 1u);
}

struct mode_row {
    uint32_t width, height, depth;
    float zoom;
    bool fits;
    uint32_t screen_width, screen_height;
};

TEST_F(GuestTest, ModesThatFitBecomeTheScreenTimesTheZoom)
{
    const mode_row rows[] = {
        {512, 512, 32, 1, true, 512, 512},  {512, 512, 16, 0.5f, true, 256, 256},
        {101, 51, 32, 0.75f, true, 75, 38}, {3, 1, 32, 0.1f, true, 1, 1},
        {64, 64, 32, NAN, true, 64, 64},    {512, 513, 32, 1, false, 0, 0},
        {0, 5, 32, 1, false, 0, 0},         {5, 0, 32, 1, false, 0, 0},
        {64, 64, 24, 1, false, 0, 0},       {0xFFFFFFFF, 0xFFFFFFFF, 32, 0.1f, false, 0, 0},
    };
    for (const mode_row& row : rows) {
        const int set = bus->modes_set;
        const int refused = bus->refused_modes;
        const svga_device before = *device;
        device->zoom = row.zoom;
        SVGA_SetMode(row.width, row.height, row.depth, 1);
        EXPECT_EQ(bus->modes_set - set, row.fits) << row.width;
        EXPECT_EQ(bus->refused_modes - refused, !row.fits);
        EXPECT_EQ(device->width, row.fits ? row.screen_width : before.width);
        EXPECT_EQ(device->height, row.fits ? row.screen_height : before.height);
        EXPECT_EQ(device->mode_width, row.fits ? row.width : before.mode_width);
    }
}

TEST_F(GuestTest, CursorsAreKeptAndDefinedAgain)
{
    void* image = nullptr;
    for (const svga_alpha_cursor& large : {svga_alpha_cursor{1, 0, 0, 257, 1}, {1, 0, 0, 1, 257}, {1, 0, 0, 0, ~0u}}) {
        EXPECT_EQ(SVGA_BeginDefineAlphaCursor(&large, &image), -1);
        EXPECT_EQ(image, nullptr);
    }
    EXPECT_EQ(bus->refused_cursors, 3);
    NEBO_SVGA_RestoreCursor(); // none was kept
    const uint32_t pixels[] = {1, 2, 3, 4, 5, 6};
    const svga_alpha_cursor header{9, 1, 2, 3, 2};
    ASSERT_EQ(SVGA_BeginDefineAlphaCursor(&header, &image), 0);
    std::memcpy(image, pixels, sizeof pixels);
    SVGA_FIFOCommitAll();
    NEBO_SVGA_PreserveCursor(pixels, &header);
    NEBO_SVGA_RestoreCursor();
    const std::vector<uint32_t> once{22, 9, 1, 2, 3, 2, 1, 2, 3, 4, 5, 6};
    std::vector<uint32_t> twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_EQ(committed(), twice);
    EXPECT_EQ(bus->refused_cursors, 3);
    SVGA_MoveCursor(1, 10, 20, 0);
    EXPECT_EQ(fifo_load(bus->memory, SVGA_FIFO_CURSOR_X), 10u);
    EXPECT_EQ(fifo_load(bus->memory, SVGA_FIFO_CURSOR_COUNT), 1u);
}

TEST_F(GuestTest, BuildersWriteWhatTheInterfaceSays)
{
    const svga3d_guest_image guest{{7, 16}, 64};
    const svga3d_image host{3, 0, 1};
    svga3d_copy_box* box = nullptr;
    ASSERT_EQ(SVGA3D_BeginSurfaceDMA(&guest, &host, SVGA3D_READ_HOST_VRAM, &box, 1), 0);
    *box = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    SVGA_FIFOCommitAll();
    svga3d_vertex_declaration* declarations = nullptr;
    svga3d_primitive_range* ranges = nullptr;
    ASSERT_EQ(SVGA3D_BeginDrawPrimitives(5, &declarations, 1, &ranges, 1), 0);
    declarations[0] = {6, 0, 0, 0, {1, 2, 3}, 4, 5};
    ranges[0] = {6, 2, {9, 8, 7}, 2, -1};
    SVGA_FIFOCommitAll();
    SVGA3D_SetZRange(5, -10, 10);
    EXPECT_EQ(committed(),
              (std::vector<uint32_t>{1044, 64, 7, 16,   64, 3, 0, 1, 2,          1,    2,  3, 4,          5,         6,
                                     7,    8,  9, 1063, 76, 5, 1, 1, 6,          0,    0,  0, 1,          2,         3,
                                     4,    5,  6, 2,    9,  8, 7, 2, 0xFFFFFFFF, 1048, 12, 5, 0xC1200000, 0x41200000}));
    EXPECT_EQ(SVGA3D_BeginSurfaceDMA(&guest, &host, 1, &box, 0x10000000), -1); // above what can be reserved
    EXPECT_EQ(box, nullptr);
}

} // namespace
} // namespace kalix::guest
