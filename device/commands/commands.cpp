// The table of 3D commands, filled from the rows of each kind, and the one place where a body is measured, lack of
// memory caught and a refusal counted.

#include "device/commands/commands.h"

#include <array>
#include <new>

namespace kalix::device {
namespace {

constexpr size_t commands = SVGA_3D_CMD_LAST - SVGA_3D_CMD_BASE + 1;

using command_table = std::array<command_row, commands>;

command_table table_of_all_kinds()
{
    command_table table{};
    for (const auto kind : {surface_commands, surface_copies, surface_stretches, surface_transfers, context_commands,
                            draw_commands, present_commands, shader_commands, query_commands})
        for (const command_row& row : kind())
            table[row.id - SVGA_3D_CMD_BASE] = row;
    return table;
}

// A list that the host has no memory for is a refusal like any other.
outcome execute_row(device_state& device, const command_row& row, std::span<const std::byte> body)
{
    if (body.size() < row.least_bytes)
        return KALIX_REFUSED_SHORT_COMMAND;
    try {
        return row.execute(device, command_reader{body});
    } catch (const std::bad_alloc&) {
        return KALIX_REFUSED_NO_MEMORY;
    }
}

} // namespace

const command_row* command_of(uint32_t id)
{
    static const command_table table = table_of_all_kinds();
    if (id < SVGA_3D_CMD_BASE || id > SVGA_3D_CMD_LAST)
        return nullptr;
    // Ids lie close together, so that a command costs an index; those in between that are none have no function.
    const command_row& row = table[id - SVGA_3D_CMD_BASE];
    return row.execute ? &row : nullptr;
}

context* take_context(device_state& device, command_reader& body)
{
    svga3d_context named;
    if (!body.take(named))
        return nullptr;
    const auto found = device.contexts.find(named.cid);
    return found == device.contexts.end() ? nullptr : &found->second;
}

// Refused commands count among the commands as well: the counters say what was asked for.
void execute(device_state& device, uint32_t id, std::span<const std::byte> body)
{
    const command_row* const row = command_of(id);
    device.counts.count_command(id);
    const outcome result = row ? execute_row(device, *row, body) : KALIX_REFUSED_UNKNOWN_COMMAND;
    if (result)
        device.counts.refuse(*result, id);
}

} // namespace kalix::device
