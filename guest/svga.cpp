// The device's life, its registers and its mode.
//
// The record that SVGA_Init returns is this side's picture of the registers; it is written here and, for the zoom, by
// the driver, under the turn that all of svga.h's callers take.

#include "guest/guest.h"
#include "guest/options.h"
#include "svga/svga3d.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace kalix::guest {
namespace {

constexpr int error = 2;

std::unique_ptr<guest_state> device;
svga_log_function log_function;

// A mode's side times the zoom, in single precision toward zero, at least a pixel and never more than the
// side. A zoom that is not a number leaves the side as it is.
uint32_t zoomed(uint32_t side, float zoom)
{
    const float product = static_cast<float>(side) * zoom;
    if (!(product < static_cast<float>(side)))
        return side;
    return product >= 1 ? static_cast<uint32_t>(product) : 1;
}

// Asked of the mode itself, before the zoom makes it smaller, so that a zoom can never be what is refused.
bool mode_fits(const guest_state& guest, uint32_t width, uint32_t height, uint32_t bits_per_pixel)
{
    const bool has_depth = bits_per_pixel == 16 || bits_per_pixel == 32;
    return has_depth && width != 0 && height != 0 && uint64_t{width} * height <= guest.record.fb_bytes / 4;
}

void set_mode(guest_state& guest, uint32_t width, uint32_t height, uint32_t bits_per_pixel, uint32_t enable)
{
    // Pictures that are on their way belong to the mode before.
    run_empty(guest);
    if (!mode_fits(guest, width, height, bits_per_pixel)) {
        guest.bus->count_refused_mode();
        return;
    }
    guest.record.mode_width = width;
    guest.record.mode_height = height;
    guest.bus->write_register(SVGA_REG_WIDTH, zoomed(width, guest.record.zoom));
    guest.bus->write_register(SVGA_REG_HEIGHT, zoomed(height, guest.record.zoom));
    guest.bus->write_register(SVGA_REG_BITS_PER_PIXEL, bits_per_pixel);
    // Makes what was written before it the mode, in one step.
    guest.bus->write_register(SVGA_REG_ENABLE, enable);
    refresh_mode(guest);
}

} // namespace

guest_state* current()
{
    return device.get();
}

void refresh_mode(guest_state& guest)
{
    svga_device& record = guest.record;
    record.width = guest.bus->read_register(SVGA_REG_WIDTH);
    record.height = guest.bus->read_register(SVGA_REG_HEIGHT);
    record.bits_per_pixel = guest.bus->read_register(SVGA_REG_BITS_PER_PIXEL);
    record.pitch = guest.bus->read_register(SVGA_REG_BYTES_PER_LINE);
    record.visible_bytes = guest.bus->read_register(SVGA_REG_FB_SIZE);
}

svga_device* attach(std::unique_ptr<svga_bus> bus)
{
    try {
        device = std::make_unique<guest_state>();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    // Nothing fails from here on.
    device->bus = std::move(bus);
    svga_bus& to = *device->bus;
    svga_device& record = device->record;
    to.write_register(SVGA_REG_ID, SVGA_ID_2);
    record.version = to.read_register(SVGA_REG_ID);
    record.capabilities = to.read_register(SVGA_REG_CAPABILITIES);
    record.fb_physical = to.read_register(SVGA_REG_FB_START);
    record.fb_bytes = to.read_register(SVGA_REG_VRAM_SIZE);
    record.fifo_physical = to.read_register(SVGA_REG_MEM_START);
    record.fifo_bytes = to.read_register(SVGA_REG_MEM_SIZE);
    record.fifo = to.fifo().data();
    record.framebuffer = reinterpret_cast<uint8_t*>(to.framebuffer().data());
    record.zoom = 1.0f;
    fifo_store(to.fifo(), SVGA_FIFO_GUEST_3D_HWVERSION, SVGA3D_HWVERSION_2_1);
    // The device may read the ring now; its registers have been set up by itself.
    to.write_register(SVGA_REG_CONFIG_DONE, 1);
    refresh_mode(*device);
    // Until a mode is set, it is the device's first one, at zoom 1.
    record.mode_width = record.width;
    record.mode_height = record.height;
    return &record;
}

void detach()
{
    device.reset();
}

} // namespace kalix::guest

using namespace kalix::guest;

void SVGA_SetLogFunction(svga_log_function log)
{
    log_function = log;
}

svga_device* SVGA_Init()
{
    if (current())
        return &current()->record;
    std::unique_ptr<kalix::svga_bus> bus = kalix::open_software_device(options_from_environment(log_function));
    if (!bus)
        return nullptr;
    svga_device* const record = attach(std::move(bus));
    if (!record && log_function)
        log_function(error, "device: no memory for the FIFO's writer");
    return record;
}

void SVGA_Disable()
{
    if (current())
        // The display goes dark for viewers before the device ends.
        SVGA_WriteReg(SVGA_REG_ENABLE, 0);
    detach();
}

uint32_t SVGA_ReadReg(uint32_t index)
{
    return current()->bus->read_register(index);
}

void SVGA_WriteReg(uint32_t index, uint32_t value)
{
    current()->bus->write_register(index, value);
}

void SVGA_SetMode(uint32_t width, uint32_t height, uint32_t bits_per_pixel, uint32_t enable)
{
    set_mode(*current(), width, height, bits_per_pixel, enable);
}

void SVGA_Update(uint32_t x, uint32_t y, uint32_t width, uint32_t height)
{
    // Small enough to find space always, like a fence.
    const svga_cmd_update update{SVGA_CMD_UPDATE, x, y, width, height};
    std::memcpy(SVGA_FIFOReserve(sizeof update), &update, sizeof update);
    SVGA_FIFOCommit(sizeof update);
}

int SVGA3D_Init()
{
    const std::span<uint32_t> fifo = current()->bus->fifo();
    const bool has_3d = current()->record.capabilities & SVGA_CAP_3D &&
                        kalix::fifo_load(fifo, SVGA_FIFO_3D_HWVERSION) >= SVGA3D_HWVERSION_2_1;
    return has_3d ? 0 : 1;
}
