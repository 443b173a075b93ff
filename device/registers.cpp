// The registers: one row each, with how it is read and what writing it does.
//
// Called on the driver's threads. Reading copies the values under register_lock alone and so never waits for a command
// that draws; only writes that change what commands see (mode, display, regions) take execution_lock.

#include "device/software_device.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace kalix::device {
namespace {

// Cursor bypass, pitch lock, interrupt mask and traces are not offered: no register of theirs does anything here.
constexpr uint32_t device_capabilities =
    SVGA_CAP_CURSOR | SVGA_CAP_ALPHA_CURSOR | SVGA_CAP_3D | SVGA_CAP_EXTENDED_FIFO | SVGA_CAP_GMR | SVGA_CAP_GMR2;
constexpr uint32_t descriptor_length = 4096; // pages; regions are defined in the FIFO

struct channel_masks {
    uint32_t depth, red, green, blue;
};

// By the layouts R5G6B5 and X8R8G8B8. Depth counts bits of colour: the fourth byte of a pixel is none.
constexpr channel_masks masks_of(const mode& shown)
{
    if (shown.bits_per_pixel == 16)
        return {16, 0xF800, 0x07E0, 0x001F};
    return {24, 0x00FF0000, 0x0000FF00, 0x000000FF};
}

// A size in bytes as a register holds it: 4 GiB and more show as the largest word.
constexpr uint32_t saturated(uint64_t value)
{
    return static_cast<uint32_t>(std::min<uint64_t>(value, std::numeric_limits<uint32_t>::max()));
}

// The side of the largest square mode, in pixels: fits() counts 4 bytes for each, whatever the mode's depth.
uint32_t largest_side(uint64_t framebuffer_bytes)
{
    return static_cast<uint32_t>(std::sqrt(static_cast<double>(framebuffer_bytes) / 4));
}

} // namespace

// What the rows below need of the device, named once.
struct register_access {
    software_device& device;

    register_values values() const
    {
        const hold locked{device.register_lock_};
        return device.registers_;
    }
    template <typename function>
    void change(function&& with) const
    {
        const hold locked{device.register_lock_};
        with(device.registers_);
    }
    uint64_t framebuffer_bytes() const { return device.framebuffer_.size(); }
    uint64_t surface_bytes() const { return device.options_.surface_memory_bytes; }
    bool configured() const { return device.configured_.load(std::memory_order_acquire); }
    // A NEXT_CMD outside of the ring counts as nothing written, as it does for the fetching thread: STOP would never
    // reach it, and whoever waits for an empty ring would wait for ever.
    bool is_busy() const
    {
        const uint32_t next = fifo_load(device.fifo(), SVGA_FIFO_NEXT_CMD);
        return configured() && lies_in_ring(next) && next != fifo_load(device.fifo(), SVGA_FIFO_STOP);
    }

    void configure(bool on) const
    {
        device.configured_.store(on, std::memory_order_release);
        device.ring_doorbell();
    }

    // STOP is noted before it is compared, so a command that ends in between ends the wait. No lock is held: the
    // fetching thread needs them to get on.
    void run_empty() const
    {
        device.ring_doorbell();
        for (uint32_t stop; stop = fifo_load(device.fifo(), SVGA_FIFO_STOP), is_busy();)
            device.wait_for_stop_change(stop);
    }

    void enable(bool on) const
    {
        // Both locks, in their order: the screen and what the registers say of it change as one, between two commands.
        const hold executing{device.execution_lock_};
        const hold locked{device.register_lock_};
        register_values& values = device.registers_;
        if (values.is_wanted) {
            if (fits(values.wanted, framebuffer_bytes())) {
                device.state_.display.set_mode(values.wanted);
                values.current = values.wanted;
            } else {
                device.refuse_mode();
            }
            // What was refused is forgotten: the next ENABLE finds the mode that is shown.
            values.wanted = values.current;
            values.is_wanted = false;
        }
        values.enabled = on;
        device.state_.display.set_enabled(on);
    }

    void remove_selected_region() const
    {
        // The register lock is given back before the execution lock is taken: it nests inside, never around.
        const uint32_t id = values().selected_region;
        const hold executing{device.execution_lock_};
        if (const outcome refused = device.state_.guest.define(id, 0))
            device.state_.counts.refuse(*refused, 0);
    }
};

namespace {

struct register_row {
    uint32_t (*read)(const register_access& of) = nullptr;
    void (*write)(const register_access& of, uint32_t value) = nullptr;
};

template <uint32_t value>
uint32_t constant(const register_access&)
{
    return value;
}

template <auto member>
uint32_t value_of(const register_access& of)
{
    return of.values().*member;
}

template <auto member>
void set_value(const register_access& of, uint32_t value)
{
    of.change([value](register_values& values) { values.*member = value; });
}

// By the mode that is shown, not by a depth that has been written and not become the mode.
template <auto member>
uint32_t mask_of(const register_access& of)
{
    return masks_of(of.values().current).*member;
}

// A size or depth that has been written reads back before it is the mode.
template <auto member>
uint32_t wanted_of(const register_access& of)
{
    return of.values().wanted.*member;
}

template <auto member>
void want(const register_access& of, uint32_t value)
{
    of.change([value](register_values& values) {
        values.wanted.*member = value;
        values.is_wanted = true;
    });
}

uint32_t side_max(const register_access& of)
{
    return largest_side(of.framebuffer_bytes());
}

// Anything but 0 would be a list of pages somewhere in memory; regions are defined in the FIFO alone.
void remove_region(const register_access& of, uint32_t descriptor)
{
    if (descriptor == 0)
        of.remove_selected_region();
}

constexpr auto rows = [] {
    std::array<register_row, SVGA_REG_TOP> table{};
    table[SVGA_REG_ID] = {constant<SVGA_ID_2>};
    table[SVGA_REG_ENABLE] = {value_of<&register_values::enabled>,
                              [](const register_access& of, uint32_t value) { of.enable(value != 0); }};
    table[SVGA_REG_WIDTH] = {wanted_of<&mode::width>, want<&mode::width>};
    table[SVGA_REG_HEIGHT] = {wanted_of<&mode::height>, want<&mode::height>};
    table[SVGA_REG_MAX_WIDTH] = {side_max};
    table[SVGA_REG_MAX_HEIGHT] = {side_max};
    table[SVGA_REG_DEPTH] = {mask_of<&channel_masks::depth>};
    table[SVGA_REG_BITS_PER_PIXEL] = {wanted_of<&mode::bits_per_pixel>, want<&mode::bits_per_pixel>};
    table[SVGA_REG_RED_MASK] = {mask_of<&channel_masks::red>};
    table[SVGA_REG_GREEN_MASK] = {mask_of<&channel_masks::green>};
    table[SVGA_REG_BLUE_MASK] = {mask_of<&channel_masks::blue>};
    table[SVGA_REG_BYTES_PER_LINE] = {[](const register_access& of) { return of.values().current.pitch(); }};
    table[SVGA_REG_FB_START] = {constant<SVGA_FRAMEBUFFER_BASE>};
    table[SVGA_REG_FB_OFFSET] = {constant<0>};
    table[SVGA_REG_VRAM_SIZE] = {[](const register_access& of) { return saturated(of.framebuffer_bytes()); }};
    table[SVGA_REG_FB_SIZE] = {
        [](const register_access& of) { return saturated(of.values().current.picture_bytes()); }};
    table[SVGA_REG_CAPABILITIES] = {constant<device_capabilities>};
    table[SVGA_REG_MEM_START] = {
        [](const register_access& of) { return SVGA_FRAMEBUFFER_BASE + saturated(of.framebuffer_bytes()); }};
    table[SVGA_REG_MEM_SIZE] = {constant<uint32_t{SVGA_FIFO_RING_START} + uint32_t{SVGA_FIFO_RING_BYTES}>};
    table[SVGA_REG_CONFIG_DONE] = {[](const register_access& of) { return uint32_t{of.configured()}; },
                                   [](const register_access& of, uint32_t value) { of.configure(value != 0); }};
    table[SVGA_REG_SYNC] = {constant<0>, [](const register_access& of, uint32_t) { of.run_empty(); }};
    table[SVGA_REG_BUSY] = {[](const register_access& of) { return uint32_t{of.is_busy()}; }};
    table[SVGA_REG_GUEST_ID] = {value_of<&register_values::guest_id>, set_value<&register_values::guest_id>};
    table[SVGA_REG_GMR_ID] = {value_of<&register_values::selected_region>,
                              set_value<&register_values::selected_region>};
    table[SVGA_REG_GMR_DESCRIPTOR] = {constant<0>, remove_region};
    table[SVGA_REG_GMR_MAX_IDS] = {constant<SVGA_GMR_IDS>};
    table[SVGA_REG_GMR_MAX_DESCRIPTOR_LENGTH] = {constant<descriptor_length>};
    table[SVGA_REG_TRACES] = {value_of<&register_values::traces>, set_value<&register_values::traces>};
    table[SVGA_REG_GMRS_MAX_PAGES] = {constant<regions_pages_max>};
    table[SVGA_REG_MEMORY_SIZE] = {[](const register_access& of) { return saturated(of.surface_bytes()); }};
    return table;
}();

} // namespace

// Registers that do not exist, or are not to be read, read 0; writing them does nothing.
uint32_t software_device::read_register(uint32_t index)
{
    return index < rows.size() && rows[index].read ? rows[index].read({*this}) : 0;
}

void software_device::write_register(uint32_t index, uint32_t value)
{
    if (index < rows.size() && rows[index].write)
        rows[index].write({*this}, value);
}

} // namespace kalix::device
