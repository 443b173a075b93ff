// The status file as its writers see it: the mapped record, the scope of a change, and the ring of events.
//
// For the sources behind status_file.h alone. All of it is under the device mutex.
#pragma once

#include "driver/objects/overlay.h"

#include <atomic>
#include <kalix/status.h>

namespace kalix {

extern kalix_status* status_page; // mapped, never unmapped; null when there is none

// One change of the file: the sequence is odd while it lives. Changes never lie inside each other.
class status_change {
public:
    status_change() { sequence().fetch_add(1, std::memory_order_acq_rel); } // nothing below moves before it
    ~status_change() { sequence().fetch_add(1, std::memory_order_release); }
    status_change(const status_change&) = delete;
    status_change& operator=(const status_change&) = delete;

private:
    static std::atomic_ref<uint32_t> sequence() { return std::atomic_ref<uint32_t>{status_page->sequence}; }
};

// Where a client is told of, from here on when it was not yet, which is an event. Inside a change. None when all slots
// are taken, which are as many as connections: it asks again with its next request.
kalix_status_client* status_slot(client_record& client);

// The next event of the ring, inside a change: who did it (null: the server), and what its kind says of three words.
void status_event(kalix_event_kind kind, const client_record* who, uint32_t a, uint32_t b = 0, uint32_t c = 0);

// An overlay as it was defined.
kalix_status_overlay status_overlay(const overlay_record& overlay);

} // namespace kalix
