// Client registry: one record per connection, from its first request to its disconnect.
//
// client_table owns the records and is guarded by client_lock, under which nothing else is taken. A
// record is created by client_get before the device mutex is taken, and drained and freed by the
// disconnect request under it; since a connection has one request outstanding, no other worker holds a
// record that is being drained. The content of a record is guarded by the device mutex.
#pragma once

#include "driver/state/driver_state.h"

namespace kalix {

struct client_reference; // see resource.h

// What in a command buffer refused it.
enum class refusal_reason : uint32_t { other, command, context, surface, region, length };

struct command_refusal {
    refusal_reason reason;
    uint32_t command; // the 3D command, 0: none
    uint32_t named;   // the id that it named
};

struct client_record {
    uint32_t scoid; // key in client_table
    uint32_t pid;   // 0 for a record made by a disconnect
    uint32_t uid;
    std::array<hashtable<client_reference>*, RESOURCE_TOTAL> ref_tables; // by object id; own the records
    std::array<uint64_t, RESOURCE_TOTAL> held_bytes; // of the objects in ref_tables, each once (resource.h)
    linkedlist<uint32_t>* retained_sids;             // surface ids that it chose; released when it goes
    command_refusal refused;                         // of the last command buffer that the verifier saw
    uint32_t status_slot;                            // in the status file, counted from 1; 0: none yet
};

// Nothing to prepare: kalix_init makes the table itself. Returns 0.
int client_init();

// A new record with empty tables, not yet in the table; none when memory runs out.
client_record* client_new(const platform::_msg_info& info);

// Puts a record into the table: 0; -1 for none; 1 when memory runs out.
int client_add(client_record* client);

// The record of the sender's connection, made on first contact; none for a connection id of 0 or all
// ones and when memory runs out.
client_record* client_get(const platform::_msg_info& info);

// Drops every reference and every retained id of a client, under the device mutex. The record stays.
// Returns 0; -1 for none.
int client_destroy(client_record* client) KALIX_REQUIRES(_globals.device_mutex);

// Takes a drained record out of the table and frees it. Returns 0; -1 for none.
int client_remove(client_record* client) KALIX_REQUIRES(_globals.device_mutex);

// Notes, once, that a sid goes back to the pool when this client goes. 1 when memory runs out.
int client_retain_sid(client_record* client, uint32_t sid);

} // namespace kalix
