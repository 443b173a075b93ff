// Command buffers: the shared-memory objects in which clients write commands (execution.h has them executed).
//
// A client names its buffer by number. The driver keeps the read-only mapping of each as a registered object, so
// that a buffer is opened once.
//
// The global table is keyed by number alone. A number that names a live context belongs to that context's
// client; any other is its first user's.
#pragma once

#include "driver/objects/resource.h"
#include "driver/objects/shares.h"

#include <memory>

namespace kalix {

struct execbuf : resource_object {  // id: the buffer's number
    const std::byte* map = nullptr; // KALIX_COMMAND_BUFFER_BYTES, which the client may change or shrink
    int32_t fd = -1;
    char name[64] = {};             // of the client's shared object
    client_record* owner = nullptr; // the one client that holds it
    share_holder* share = nullptr;  // charged with its slot and descriptor
};

// A buffer in use for one request: registered with its client, or, when there was no memory for that, owned
// here until cmd_putbuf.
struct command_buffer_use {
    const std::byte* map = nullptr; // null: the client has no such buffer
    std::unique_ptr<execbuf> unregistered{};
    share_bound reached = share_bound::none; // why it may not have one
};

// The client's buffer of that number, opened at its first use. No map when the client has no such buffer, the number
// is another's, or it may hold no more.
command_buffer_use cmd_getbuf(client_record* client, uint32_t number) KALIX_REQUIRES(_globals.device_mutex);

// Ends a use; the map must not be read any more.
void cmd_putbuf(command_buffer_use& buffer) KALIX_REQUIRES(_globals.device_mutex);

// Drops the client's command buffer of that number: 0, or -22 after a line when it has none.
int execbuf_release_cmdbuf(client_record* client, uint32_t number) KALIX_REQUIRES(_globals.device_mutex);

// Gives a context's number to its client: whoever else held a buffer under it loses it.
void execbuf_evict(client_record* client, uint32_t number) KALIX_REQUIRES(_globals.device_mutex);

// Releases mapping, descriptor and name; the registry's destroy function.
void execbuf_destroy(resource_object* buffer) KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix
