// Measures commands and hands their bodies on (fetch.h).
//
// A length that a command names is compared with what is left of the committed bytes and never added to an offset
// first, so that none can wrap around.

#include "device/fetch.h"

#include "device/commands/commands.h"
#include "device/commands/commands_2d.h"

#include <new>

namespace kalix::device {
namespace {

constexpr uint32_t id_bytes = sizeof(uint32_t);

// Counts a command of unknown length and takes all that is committed: what stands behind it has no beginning.
uint32_t drop(device_state& device, kalix_refused why, uint32_t id, uint32_t available)
{
    device.counts.refuse(why, id);
    return available;
}

uint32_t execute_3d(device_state& device, ring_reader& ring, uint32_t available)
{
    svga3d_command_header header{};
    if (available < sizeof header || !command_reader{ring.view(0, sizeof header)}.take(header))
        return drop(device, KALIX_REFUSED_SHORT_COMMAND, 0, available);
    // The size was copied out of the ring once; the ring itself may say something else by now.
    if (header.size > available - sizeof header)
        return drop(device, KALIX_REFUSED_SHORT_COMMAND, header.id, available);
    execute(device, header.id, ring.view(sizeof header, header.size));
    return static_cast<uint32_t>(sizeof header) + header.size;
}

// A list as long as its sender likes: having no memory for it is a refusal, as for 3D commands.
outcome execute_row(device_state& device, const command_2d_row& row, std::span<const std::byte> body)
{
    try {
        return row.execute(device, command_reader{body});
    } catch (const std::bad_alloc&) {
        return KALIX_REFUSED_NO_MEMORY;
    }
}

uint32_t execute_2d(device_state& device, ring_reader& ring, uint32_t id, uint32_t available)
{
    const command_2d_row* const row = command_2d_of(id);
    if (!row)
        return drop(device, KALIX_REFUSED_UNKNOWN_COMMAND, id, available);
    if (row->fixed_bytes > available - id_bytes)
        return drop(device, KALIX_REFUSED_SHORT_COMMAND, id, available);
    const uint64_t following = row->following_bytes(ring.view(id_bytes, row->fixed_bytes));
    if (following == no_length)
        return drop(device, KALIX_REFUSED_BAD_VALUE, id, available);
    if (following > available - id_bytes - row->fixed_bytes)
        return drop(device, KALIX_REFUSED_SHORT_COMMAND, id, available);
    // Both are within what is available, so the sum fits. The handler reads the fields again, from memory that others
    // can write: whatever they say then, it is given no more than these bytes.
    const uint32_t body = row->fixed_bytes + static_cast<uint32_t>(following);
    if (const outcome refused = execute_row(device, *row, ring.view(id_bytes, body)))
        device.counts.refuse(*refused, id);
    return id_bytes + body;
}

} // namespace

uint32_t execute_next(device_state& device, ring_reader& ring, uint32_t available)
{
    uint32_t id = 0;
    if (available < id_bytes || !command_reader{ring.view(0, id_bytes)}.take(id))
        return drop(device, KALIX_REFUSED_SHORT_COMMAND, 0, available);
    return id < SVGA_3D_CMD_BASE ? execute_2d(device, ring, id, available) : execute_3d(device, ring, available);
}

} // namespace kalix::device
