// Rendering contexts: the device-side state that 3D commands address by context id (cid).
//
// A context belongs to the client that defined it and nobody else ever references it. Its cid comes from
// the pool and is free again once the destroy command is in the FIFO. Commands are written under the
// device mutex.
#pragma once

#include "driver/objects/resource.h"

namespace kalix {

struct context_record : resource_object {};

// A context defined on the device, to be registered or freed by the caller; none when no cid or no FIFO
// space is free.
context_record* context_create();

// Destroys it on the device and gives its cid back; the registry's destroy function. Without FIFO space
// nothing happens and the cid stays taken.
void context_destroy(resource_object* context);

// 0 when the client holds that context, else -22.
int context_check(client_record* client, uint32_t cid) KALIX_REQUIRES(_globals.device_mutex);

// Requests 7 and 8: 0, -22, or -12 when no context could be made.
int vmw_context_define_ioctl(client_record* client, context_define_req* req) KALIX_REQUIRES(_globals.device_mutex);
int vmw_context_destroy_ioctl(client_record* client, context_destroy_req* req) KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix
