// Command buffer execution: a client's commands on their way into the device's FIFO.
//
// A client writes commands into a shared-memory object of its own and names it by number. The driver copies
// them into reserved FIFO space, verifies the copy, commits it and answers with a fence, all under fifo_lock
// (which the delay that a client may ask for holds too). It keeps the read-only mapping of each buffer as a
// registered object, so that a buffer is opened once.
//
// The global table is keyed by number alone. A number that names a live context belongs to that context's
// client; any other is its first user's.
#pragma once

#include "driver/objects/resource.h"

namespace kalix {

struct execbuf : resource_object {  // id: the buffer's number
    const std::byte* map = nullptr; // KALIX_COMMAND_BUFFER_BYTES, which the client may change or shrink
    int32_t fd = -1;
    char name[64] = {};             // of the client's shared object
    client_record* owner = nullptr; // the one client that holds it
    share_holder* share = nullptr;  // charged with its slot and descriptor
};

// Drops the client's command buffer of that number: 0, or -22 after a line when it has none.
int execbuf_release_cmdbuf(client_record* client, uint32_t number) KALIX_REQUIRES(_globals.device_mutex);

// Gives a context's number to its client: whoever else held a buffer under it loses it.
void execbuf_evict(client_record* client, uint32_t number) KALIX_REQUIRES(_globals.device_mutex);

// Releases mapping, descriptor and name; the registry's destroy function.
void execbuf_destroy(resource_object* buffer) KALIX_REQUIRES(_globals.device_mutex);

// Request 12: 0; -12 without FIFO space and when the client may hold no more buffers; -22 when the buffer cannot be mapped or its commands are refused,
// and then the request stays as it was.
int vmw_execbuf_ioctl(client_record* client, execbuf_req* req) KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix
