// Command verifier: whether a client may send these 3D commands to the device.
//
// Walks the driver's own copy of a command buffer, in the reserved FIFO space, and accepts or refuses it as
// a whole; it never sees the client's memory. It checks identity and structure: contexts and surfaces that
// commands name are the client's, commands lie within the buffer, the counts of a draw fit its size. One word
// it changes: the driver's own region, where a command names it, becomes one that is none. Runs under the
// device mutex and fifo_lock, and keeps nothing from one buffer to the next.
#pragma once

#include "driver/objects/client.h"

#include <span>

namespace kalix {

// 0 when every command is accepted and the commands end exactly at the buffer's end; -22 otherwise, after
// the lines that say why.
int cmd_check_all(client_record* client, std::span<std::byte> commands);

} // namespace kalix
