// The driver's side of the device: one current device, its record, and the state of its FIFO writer.
//
// There is at most one device in a process, from SVGA_Init to SVGA_Disable. The writer's state belongs to whoever
// serialises FIFO writing; the fence numbers handed out are atomic, since any thread may wait.
//
// svga.cpp has the device's life and its mode, fifo.cpp the ring's writer and fences, cursor.cpp the cursor,
// builders.cpp the 3D commands; options.h what the environment says. All of it speaks to the device by the bus alone
// (svga/bus.h), so that tests put one of their own in its place. The functions of svga.h want a current device: only
// SVGA_Init, SVGA_Disable and SVGA_SetLogFunction may be called without one.
#pragma once

#include "svga/bus.h"
#include "svga/svga.h"

#include <atomic>
#include <cstddef>
#include <memory>

namespace kalix::guest {

struct fifo_writer {
    uint32_t reserved = 0; // bytes of the open reservation, 0: none
    bool bounced = false;  // it lies in bounce, since it would wrap in the ring or not be aligned
    // For the largest reservation from the start, without pages until it is used: a command that is begun has its room.
    std::unique_ptr<std::byte[]> bounce = std::make_unique_for_overwrite<std::byte[]>(SVGA_FIFO_RESERVATION_MAX);
    std::atomic<uint32_t> last_fence{0}; // handed out; 0: none yet
};

inline constexpr size_t cursor_bytes_max = size_t{SVGA_CURSOR_EXTENT_MAX} * SVGA_CURSOR_EXTENT_MAX * 4;

struct kept_cursor { // for SVGA_RestoreCursor
    bool is_kept = false;
    svga_alpha_cursor header{};
    // Room for the largest from the start: a cursor that was defined is also kept.
    std::unique_ptr<std::byte[]> image = std::make_unique_for_overwrite<std::byte[]>(cursor_bytes_max);
};

struct guest_state {
    std::unique_ptr<svga_bus> bus;
    svga_device record{};
    fifo_writer writer;
    kept_cursor cursor;
};

// The current device, or null.
guest_state* current();

// Takes a bus as the current device and fills its record: what SVGA_Init does with the software device, and
// tests with a bus of their own. Returns the record, or null without memory.
svga_device* attach(std::unique_ptr<svga_bus> bus);
void detach();

// Waits until the device has executed all that was committed.
void run_empty(guest_state& guest);

// Copies the mode that the registers hold into the record.
void refresh_mode(guest_state& guest);

// Whether fence a was handed out later than b (serial-number arithmetic).
constexpr bool is_later(uint32_t a, uint32_t b)
{
    return static_cast<int32_t>(a - b) > 0;
}
static_assert(is_later(1, 0xFFFFFFFF) && !is_later(5, 5) && is_later(6, 5));

} // namespace kalix::guest
