// Dispatch: from a queued request to its reply.
//
// Five workers run dispatch_entry. Each takes the oldest workitem, reads its payload, finds the sender's
// record, calls the handler of the command under the device mutex and replies with its status and a fixed
// number of bytes of the payload buffer, in which the handler worked.
#pragma once

#include "driver/workitem.h"

namespace kalix {

// A worker's body; the argument is its index. Never returns.
void* dispatch_entry(void* index);

// Answers one request.
void dispatch(const workitem& item);

} // namespace kalix
