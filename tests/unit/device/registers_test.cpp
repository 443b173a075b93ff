// Registers and modes.

#include "tests/unit/device/support.h"

namespace kalix::test {
namespace {

class RegistersTest : public device_test {
protected:
    uint32_t read(uint32_t index) { return bus->read_register(index); }
};

TEST_F(RegistersTest, StartWithTheseValues)
{
    const std::map<uint32_t, uint32_t> expected{
        {SVGA_REG_ID, 0x90000002},
        {SVGA_REG_ENABLE, 0},
        {SVGA_REG_WIDTH, 1024},
        {SVGA_REG_HEIGHT, 768},
        {SVGA_REG_DEPTH, 24},
        {SVGA_REG_BITS_PER_PIXEL, 32},
        {SVGA_REG_FB_START, 0x40000000},
        {SVGA_REG_FB_OFFSET, 0},
        {SVGA_REG_VRAM_SIZE, 4 << 20},
        {SVGA_REG_MEM_START, 0x40400000},
        {SVGA_REG_MEM_SIZE, 8192 + (16 << 20)},
        {SVGA_REG_GMR_MAX_IDS, 4097},
        {SVGA_REG_MEMORY_SIZE, 8 << 20},
        {SVGA_REG_BUSY, 0},
        {SVGA_REG_MAX_WIDTH, 1024},
        {SVGA_REG_MAX_HEIGHT, 1024},
        {SVGA_REG_TOP, 0},
        {0xFFFFFFFF, 0},
    };
    for (const auto& [index, value] : expected)
        EXPECT_EQ(read(index), value) << "register " << index;
    EXPECT_EQ(bus->framebuffer().size(), framebuffer_bytes);
    EXPECT_EQ(read(SVGA_REG_CAPABILITIES) & (SVGA_CAP_EXTENDED_FIFO | SVGA_CAP_GMR2 | SVGA_CAP_3D),
              SVGA_CAP_EXTENDED_FIFO | SVGA_CAP_GMR2 | SVGA_CAP_3D);
    for (uint32_t index = 0; index < SVGA_REG_TOP + 2; ++index)
        if (index != SVGA_REG_ENABLE && index != SVGA_REG_CONFIG_DONE && index != SVGA_REG_GMR_DESCRIPTOR)
            bus->write_register(index, 0xFFFFFFFF);
    EXPECT_EQ(read(SVGA_REG_VRAM_SIZE), 4u << 20);
    EXPECT_EQ(read(SVGA_REG_BYTES_PER_LINE), 4096u); // sizes wait for ENABLE
}

struct mode_case {
    uint32_t width, height, bits;
    bool fits;
};

TEST_F(RegistersTest, AModeIsTakenWholeOrNotAtAll)
{
    const mode_case cases[] = {
        {640, 480, 32, true},
        {640, 480, 16, true},
        {1, 1, 16, true},
        {1024, 1024, 32, true},
        {1024, 1025, 32, false},
        {1024, 1025, 16, false}, // 4 bytes for each pixel, whatever the depth
        {0, 480, 32, false},
        {640, 0, 32, false},
        {640, 480, 24, false},
        {640, 480, 8, false},
        {640, 480, 0, false},
        {0x10000, 0x10000, 32, false},
        {0xFFFFFFFF, 0xFFFFFFFF, 32, false},
        {1 << 20, 1, 32, true},
        {320, 200, 16, true},
    };
    mode_case current{1024, 768, 32, true};
    uint64_t refusals = 0;
    for (const mode_case& each : cases) {
        SCOPED_TRACE(testing::Message() << each.width << "x" << each.height << "x" << each.bits);
        bus->framebuffer()[0] = std::byte{0x55};
        bus->write_register(SVGA_REG_WIDTH, each.width);
        bus->write_register(SVGA_REG_HEIGHT, each.height);
        bus->write_register(SVGA_REG_BITS_PER_PIXEL, each.bits);
        EXPECT_EQ(view->header().width, current.width);
        bus->write_register(SVGA_REG_ENABLE, 1);
        if (each.fits)
            current = each;
        EXPECT_EQ(refused(KALIX_REFUSED_MODE), refusals += !each.fits);
        EXPECT_EQ(bus->framebuffer()[0], each.fits ? std::byte{0} : std::byte{0x55});
        const uint32_t pitch = current.width * current.bits / 8;
        EXPECT_EQ(read(SVGA_REG_WIDTH), current.width);
        EXPECT_EQ(read(SVGA_REG_HEIGHT), current.height);
        EXPECT_EQ(read(SVGA_REG_BITS_PER_PIXEL), current.bits);
        EXPECT_EQ(read(SVGA_REG_BYTES_PER_LINE), pitch);
        EXPECT_EQ(read(SVGA_REG_FB_SIZE), pitch * current.height);
        EXPECT_EQ(read(SVGA_REG_DEPTH), current.bits == 16 ? 16u : 24u);
        EXPECT_EQ(read(SVGA_REG_RED_MASK), current.bits == 16 ? 0xF800u : 0xFF0000u);
        EXPECT_EQ(read(SVGA_REG_GREEN_MASK), current.bits == 16 ? 0x7E0u : 0xFF00u);
        EXPECT_EQ(read(SVGA_REG_BLUE_MASK), current.bits == 16 ? 0x1Fu : 0xFFu);
        EXPECT_EQ(view->header().height, current.height);
        EXPECT_EQ(view->header().pitch, pitch);
        EXPECT_EQ(view->header().enabled, 1u);
    }
    bus->framebuffer()[0] = std::byte{0x55};
    bus->write_register(SVGA_REG_ENABLE, 0); // alone: the display, and nothing else
    EXPECT_EQ(view->header().enabled, 0u);
    EXPECT_EQ(bus->framebuffer()[0], std::byte{0x55});
    bus->count_refused_mode();
    EXPECT_EQ(refused(KALIX_REFUSED_MODE), refusals + 1);
}

TEST_F(RegistersTest, RemoveRegions)
{
    run(stream{}.define_region(9, {1, 2}));
    ASSERT_EQ(view->header().statistics.regions, 2u); // with the scratch region
    bus->write_register(SVGA_REG_GMR_ID, 9);
    EXPECT_EQ(read(SVGA_REG_GMR_ID), 9u);
    bus->write_register(SVGA_REG_GMR_DESCRIPTOR, 0);
    bus->write_register(SVGA_REG_GMR_DESCRIPTOR, 0); // no longer there: no refusal
    run(stream{}.add(svga_cmd_fence{SVGA_CMD_FENCE, 1}));
    EXPECT_EQ(view->header().statistics.regions, 1u);
    EXPECT_EQ(all_refused(), 0u);
}

// Nothing is read before CONFIG_DONE.
TEST_F(RegistersTest, TheRingWaitsForItsConfiguration)
{
    bus->write_register(SVGA_REG_CONFIG_DONE, 0);
    run(stream{}.add(svga_cmd_fence{SVGA_CMD_FENCE, 77}));
    EXPECT_EQ(read(SVGA_REG_BUSY), 0u);
    EXPECT_EQ(fifo_load(bus->fifo(), SVGA_FIFO_FENCE), 0u);
    bus->write_register(SVGA_REG_CONFIG_DONE, 1);
    bus->wait_for_fence_change(0);
    EXPECT_EQ(fifo_load(bus->fifo(), SVGA_FIFO_FENCE), 77u);
}

} // namespace
} // namespace kalix::test
