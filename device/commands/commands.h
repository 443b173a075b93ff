// The commands: which function executes each, and the least that its body holds.
//
// A handler takes the body, which is at least that long, and does all of what the command says or nothing.
// Handlers run on the fetching thread under the execution lock. A list of values is one command: a bad
// entry, or a part of one at the end, makes the whole list do nothing.
#pragma once

#include "device/state/state.h"
#include "svga/command_reader.h"

#include <cstdint>
#include <span>

namespace kalix::device {

using command_function = outcome (*)(device_state& device, command_reader body);

struct command_row {
    uint32_t id = 0;
    uint32_t least_bytes = 0;           // of the body
    command_function execute = nullptr; // none for an id between others that is no command
};

// The row of a 3D command, or null for an id that is none.
const command_row* command_of(uint32_t id);

// Executes a 3D command, and counts it and its refusal.
void execute(device_state& device, uint32_t id, std::span<const std::byte> body);

// ---- The kinds: each file's rows, so that a command is added in the file of its kind alone ------------

std::span<const command_row> surface_commands();
std::span<const command_row> surface_copies();    // surface_copy.cpp
std::span<const command_row> surface_stretches(); // surface_stretch.cpp
std::span<const command_row> surface_transfers(); // surface_dma.cpp
std::span<const command_row> context_commands();
std::span<const command_row> draw_commands();
std::span<const command_row> present_commands();
std::span<const command_row> shader_commands();
std::span<const command_row> query_commands();

// The context that a body's first word names; null when there is none, and when the body has no word.
context* take_context(device_state& device, command_reader& body);

} // namespace kalix::device
