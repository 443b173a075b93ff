// The commands below 1040: screen updates, fences, the cursor, and regions of guest memory.

#include "device/commands/commands_2d.h"

#include "device/commands/ring.h"

#include <algorithm>

namespace kalix::device {
namespace {

uint64_t nothing(std::span<const std::byte>)
{
    return 0;
}

// ---- UPDATE and FENCE -------------------------------------------------------------------------------

// Whoever announces a change has written it into the framebuffer already. Viewers take whole frames, so the rectangle
// needs no heed: they are told that something changed.
outcome update(device_state& device, command_reader)
{
    screen_change change{device.display};
    change.damaged();
    ++device.counts.values.frames;
    return executed;
}

// The counters come first: whoever waits for the fence finds those of everything before it.
outcome fence(device_state& device, command_reader body)
{
    uint32_t number = 0;
    if (!body.take(number))
        return KALIX_REFUSED_SHORT_COMMAND;
    ++device.counts.values.fences;
    publish_counters(device);
    device.fence_waiters.store(device.fifo[SVGA_FIFO_FENCE], number);
    return executed;
}

// ---- The cursor -------------------------------------------------------------------------------------

// The picture's bytes count also when it is too large to be shown, so that the next command is found; what
// could not lie in the ring has no length.
uint64_t cursor_bytes(std::span<const std::byte> fixed)
{
    svga_alpha_cursor shape{};
    if (!command_reader{fixed}.take(shape))
        return no_length;
    const uint64_t pixels = uint64_t{shape.width} * shape.height;
    return pixels > ring_bytes ? no_length : pixels * sizeof(uint32_t);
}

outcome define_cursor(device_state& device, command_reader body)
{
    svga_alpha_cursor shape{};
    std::vector<uint32_t> pixels;
    if (!body.take(shape))
        return KALIX_REFUSED_SHORT_COMMAND;
    // The screen file has room for so many pixels and no more.
    if (shape.width > SVGA_CURSOR_EXTENT_MAX || shape.height > SVGA_CURSOR_EXTENT_MAX)
        return KALIX_REFUSED_CURSOR;
    if (!body.take_list(pixels, size_t{shape.width} * shape.height))
        return KALIX_REFUSED_SHORT_COMMAND;
    device.display.define_cursor(shape, pixels);
    return executed;
}

// ---- Regions ----------------------------------------------------------------------------------------

outcome define_region(device_state& device, command_reader body)
{
    struct {
        uint32_t id, pages;
    } command{};
    if (!body.take(command))
        return KALIX_REFUSED_SHORT_COMMAND;
    return device.guest.define(command.id, command.pages);
}

struct remap_fields {
    uint32_t id, flags, first, pages;
};

// Another form of the list than the one that is offered has a length that is not known here.
uint64_t remap_bytes(std::span<const std::byte> fixed)
{
    remap_fields command{};
    if (!command_reader{fixed}.take(command) || command.flags != SVGA_REMAP_GMR2_PPN64)
        return no_length;
    return uint64_t{command.pages} * sizeof(uint64_t);
}

outcome remap_region(device_state& device, command_reader body)
{
    remap_fields command{};
    std::vector<uint64_t> pages;
    if (!body.take(command) || !body.take_list(pages, command.pages))
        return KALIX_REFUSED_SHORT_COMMAND;
    return device.guest.remap(command.id, command.first, pages);
}

// ---- The table --------------------------------------------------------------------------------------

constexpr uint32_t word = sizeof(uint32_t);

constexpr command_2d_row rows[] = {
    {SVGA_CMD_UPDATE, sizeof(svga_cmd_update) - word, nothing, update},
    {SVGA_CMD_DEFINE_ALPHA_CURSOR, sizeof(svga_alpha_cursor), cursor_bytes, define_cursor},
    {SVGA_CMD_FENCE, sizeof(svga_cmd_fence) - word, nothing, fence},
    {SVGA_CMD_DEFINE_GMR2, sizeof(svga_cmd_define_gmr2) - word, nothing, define_region},
    {SVGA_CMD_REMAP_GMR2, sizeof(svga_cmd_remap_gmr2) - word, remap_bytes, remap_region},
};

} // namespace

const command_2d_row* command_2d_of(uint32_t id)
{
    const auto* const found = std::ranges::find(rows, id, &command_2d_row::id);
    return found == std::end(rows) ? nullptr : found;
}

} // namespace kalix::device
