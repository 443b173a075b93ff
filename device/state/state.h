// Everything that commands change: the one device record. Handlers are given it and nothing else.
//
// Owned by the software device and used under its execution lock, by the fetching thread while it executes
// a command and by a register write that changes the mode or removes a region.
#pragma once

#include "base/futex.h"
#include "device/state/context.h"
#include "device/state/counters.h"
#include "device/state/guest_memory.h"
#include "device/state/screen.h"
#include "device/state/surface.h"

#include <cstdint>
#include <span>
#include <unordered_map>

namespace kalix::device {

namespace raster {
class worker_pool;
}

// The records themselves take the host's memory, so there are bounds on their number: both far above what the
// driver's own pools of ids hold (docs/security.md).
inline constexpr size_t surfaces_max = 65536;
inline constexpr size_t contexts_max = 1024;

struct device_state {
    device_state(uint64_t framebuffer_bytes, uint64_t surface_bytes, page_address_function page_address,
                 log_function log, std::span<uint32_t> fifo_memory, sleepers& waiting)
        : counts{log}, display{framebuffer_bytes, log}, surfaces{surface_bytes}, guest{display ? display.framebuffer()
                                                                                               : std::span<std::byte>{},
                                                                                       page_address},
          fifo{fifo_memory}, fence_waiters{waiting}
    {
    }

    counters counts;
    screen display;
    surface_store surfaces;
    guest_memory guest;
    std::unordered_map<uint32_t, context> contexts;
    std::span<uint32_t> fifo;               // for the fence register
    sleepers& fence_waiters;                // on it
    raster::worker_pool* workers = nullptr; // that share drawing; borrowed from the device
};

// Hands the counters, the present numbers of objects among them, to the viewers.
void publish_counters(device_state& device);

} // namespace kalix::device
