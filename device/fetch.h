// From bytes in the ring to commands.
//
// A 3D command that the device does not have is skipped by its size. Where no length can be known (an id below
// the 3D commands that is none, or a command whose bytes go past what was written), nothing behind it can be
// found either: the rest of what was written is dropped. Each of these is counted.
//
// What a command does is in commands/; here is only how long each one is. Called by the fetching thread under the
// execution lock.
#pragma once

#include "device/commands/ring.h"
#include "device/state/state.h"

#include <cstdint>

namespace kalix::device {

// Executes the command at STOP, of which so many bytes (at least one) are there. Returns how many of them it
// took; the caller moves STOP on.
uint32_t execute_next(device_state& device, ring_reader& ring, uint32_t available);

} // namespace kalix::device
