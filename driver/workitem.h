// Workitems: requests between the message loop, which makes them, and the worker that answers them.
//
// A workitem belongs to the message loop until it is queued, then to the worker that takes it. The queue is
// guarded by work_lock, taken alone; work_sem counts what is on it.
#pragma once

#include "driver/state/driver_state.h"

#include <memory>

namespace kalix {

struct workitem {
    uint32_t magic;
    int32_t command;
    int32_t payload_length;   // bytes behind the header, as its sender says
    int32_t rcvid;            // 0 for a disconnect
    platform::_msg_info info; // a disconnect has its scoid alone
};

// Appends to the queue and wakes a worker. False when there was no memory; the caller keeps the item.
bool queue_workitem(std::unique_ptr<workitem>& item);

// Waits for the oldest workitem.
std::unique_ptr<workitem> take_workitem();

} // namespace kalix
