// The commands: which function executes each, and the least that its body holds.
//
// A handler takes the body, which is at least that long, and does all of what the command says or nothing.
// Handlers run on the fetching thread under the execution lock. A list of values is one command: a bad
// entry, or a part of one at the end, makes the whole list do nothing.
#pragma once

#include "device/commands/command_reader.h"
#include "device/state/state.h"

#include <cstdint>
#include <span>

namespace kalix::device {

using command_function = outcome (*)(device_state& device, command_reader body);

struct command_row {
    command_function execute = nullptr;
    uint32_t least_bytes = 0; // of the body
};

// The row of a 3D command, or null for an id that is none.
const command_row* command_of(uint32_t id);

// Executes a 3D command, and counts it and its refusal.
void execute(device_state& device, uint32_t id, std::span<const std::byte> body);

// ---- The handlers, by the file that holds them ------------------------------------------------------

// surface_commands.cpp
outcome surface_define(device_state& device, command_reader body);
outcome surface_destroy(device_state& device, command_reader body);
// surface_copy.cpp, surface_stretch.cpp, surface_dma.cpp
outcome surface_copy(device_state& device, command_reader body);
outcome surface_stretchblt(device_state& device, command_reader body);
outcome surface_dma(device_state& device, command_reader body);
// context_commands.cpp
outcome context_define(device_state& device, command_reader body);
outcome context_destroy(device_state& device, command_reader body);
outcome context_set_transform(device_state& device, command_reader body);
outcome context_set_z_range(device_state& device, command_reader body);
outcome context_set_render_states(device_state& device, command_reader body);
outcome context_set_render_target(device_state& device, command_reader body);
outcome context_set_texture_states(device_state& device, command_reader body);
outcome context_set_material(device_state& device, command_reader body);
outcome context_set_light_data(device_state& device, command_reader body);
outcome context_set_light_enabled(device_state& device, command_reader body);
outcome context_set_viewport(device_state& device, command_reader body);
outcome context_set_clip_plane(device_state& device, command_reader body);
outcome context_set_scissor_rect(device_state& device, command_reader body);
// shader_commands.cpp
outcome shader_define(device_state& device, command_reader body);
outcome shader_destroy(device_state& device, command_reader body);
outcome shader_set(device_state& device, command_reader body);
outcome shader_set_constant(device_state& device, command_reader body);
// draw_commands.cpp
outcome clear(device_state& device, command_reader body);
outcome draw(device_state& device, command_reader body);
// query_commands.cpp
outcome query_begin(device_state& device, command_reader body);
outcome query_end(device_state& device, command_reader body);
outcome query_wait(device_state& device, command_reader body);
// present_commands.cpp
outcome present(device_state& device, command_reader body);
outcome present_readback(device_state& device, command_reader body);
outcome blit_to_screen(device_state& device, command_reader body);

// The context that a body's first word names; null when there is none, and when the body has no word.
context* take_context(device_state& device, command_reader& body);

} // namespace kalix::device
