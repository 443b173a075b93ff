// Message loop: receives everything that comes over the channel and starts the workers that answer it.
//
// Runs on the main thread for the life of the process. It copies a request's header and leaves the rest to
// a worker, so that no client holds up receiving.
#pragma once

#include "driver/workitem.h"

namespace kalix {

// Handlers run one at a time, under the device mutex; what goes on beside them is reading payloads and answering.
inline constexpr uint32_t dispatch_threads = 5;

// Starts the workers and receives until a workitem cannot be allocated: 0. Returns 1 at once before bring-up
// is complete or without a channel.
int msg_loop();

// Turns a workitem into the request that drains a client, keeping its info. Null is ignored.
void create_disconnect_workitem(workitem* item);

} // namespace kalix
