// Fences, as clients wait for them and ask about them.
//
// A fence is its sequence number, and the device's fence register is the only fence state: releasing one (request
// 16) has nothing to do, and the dispatcher accepts it. Handlers run under the device mutex, which a fence wait
// holds while it waits.
#pragma once

#include "driver/objects/client.h"

namespace kalix {

// Requests 14 and 15: 0, or -22 without a payload. A wait of a number that the device never reaches is the
// device library's to end.
int vmw_fence_wait_ioctl(client_record* client, fence_wait_req* req);
int vmw_fence_signalled_ioctl(client_record* client, fence_signalled_req* req);

} // namespace kalix
