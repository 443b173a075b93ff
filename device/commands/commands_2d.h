// The 2D commands, which carry no size: each says by its fields how long it is.
//
// The table therefore knows two lengths, of the fields and of what follows them by what they say, and a command that is
// not in it ends what is committed (fetch.h). Handlers are as those of commands.h: on the fetching thread, under the
// execution lock, all or nothing.
#pragma once

#include "device/state/state.h"
#include "svga/command_reader.h"

#include <cstdint>
#include <limits>
#include <span>

namespace kalix::device {

inline constexpr uint64_t no_length = std::numeric_limits<uint64_t>::max();

struct command_2d_row {
    uint32_t id;
    uint32_t fixed_bytes;                                          // of the fields, the id not counted
    uint64_t (*following_bytes)(std::span<const std::byte> fixed); // behind them; no_length: cannot be known
    outcome (*execute)(device_state& device, command_reader body);
};

// The row of a command, or null for an id that is none.
const command_2d_row* command_2d_of(uint32_t id);

} // namespace kalix::device
