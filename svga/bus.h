// The bus between the driver's side of the device library and the device.
//
// It is what a PCI function would offer: registers, FIFO memory, framebuffer memory, a doorbell, and the
// two waits for which a card raises interrupts. The software device (device/) stands behind it; a backend
// for real hardware would implement the same class. The memories stay mapped as long as the bus lives.
//
// FIFO registers (words below SVGA_FIFO_MIN) are read and written atomically on both sides: use
// fifo_load and fifo_store. The ring's bytes pass from one side to the other with NEXT_CMD (release by the
// guest, acquire by the device) and back with STOP. Both waits, and the device's for the doorbell, look a short
// while and then sleep (base/futex.h).
#pragma once

#include "svga/svga_regs.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace kalix {

class svga_bus {
public:
    virtual ~svga_bus() = default;

    virtual uint32_t read_register(uint32_t index) = 0;
    // WIDTH, HEIGHT and BITS_PER_PIXEL are kept until the next write of ENABLE, which makes them the mode,
    // clears the visible picture and switches the display; a size or depth that the device cannot show
    // leaves the mode as it was. ENABLE alone switches the display.
    virtual void write_register(uint32_t index, uint32_t value) = 0;

    virtual std::span<uint32_t> fifo() = 0; // registers, then the ring
    virtual std::span<std::byte> framebuffer() = 0;

    // Tells the device that NEXT_CMD has moved. Cheap when the device is awake.
    virtual void ring_doorbell() = 0;
    // Returns once STOP is another value than the one given.
    virtual void wait_for_stop_change(uint32_t stop) = 0;
    // Returns once the FENCE register is another value than the one given.
    virtual void wait_for_fence_change(uint32_t fence) = 0;

    // Count a mode and a cursor that the driver's side refused before they reached the device.
    virtual void count_refused_mode() = 0;
    virtual void count_refused_cursor() = 0;
};

struct device_options {
    uint64_t framebuffer_bytes = uint64_t{128} << 20;
    uint64_t surface_memory_bytes = uint64_t{2048} << 20;
    uint32_t threads = 0;                                  // that draw; 0: as many as there are cores, at most 2
    void (*log)(int severity, const char* text) = nullptr; // severities as in svga.h; may be null
    // Where a page of guest memory lies, null when there is none such. By default the page number times 4096
    // is the address.
    std::byte* (*page_address)(uint64_t page) = nullptr;
};

// Starts the software device, or returns none after a line that says why.
std::unique_ptr<svga_bus> open_software_device(const device_options& options);

// For FIFO registers, by their word; both sides write them while the other one reads.
inline uint32_t fifo_load(std::span<uint32_t> fifo, uint32_t index)
{
    return std::atomic_ref{fifo[index]}.load(std::memory_order_acquire);
}

inline void fifo_store(std::span<uint32_t> fifo, uint32_t index, uint32_t value)
{
    std::atomic_ref{fifo[index]}.store(value, std::memory_order_release);
}

} // namespace kalix
