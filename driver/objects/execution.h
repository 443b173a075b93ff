// Command buffer execution: a client's commands on their way into the device's FIFO.
//
// The driver copies the commands of a client's buffer (execbuf.h) into reserved FIFO space, verifies the copy
// (verifier.h), commits it and answers with a fence, all under fifo_lock, which the delay that a client may ask
// for holds too: whatever the client writes meanwhile, the device executes what was verified.
#pragma once

#include "driver/objects/client.h"

namespace kalix {

// Request 12: 0; -12 without FIFO space and when the client may hold no more buffers; -22 when the buffer cannot be
// mapped or its commands are refused, and then the request stays as it was.
int vmw_execbuf_ioctl(client_record* client, execbuf_req* req) KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix
