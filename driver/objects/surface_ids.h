// Surface ids: which sid a new surface gets, and whose a sid is.
//
// Sids come from the pool, from a client that asked for one beforehand, or out of a client's head. What a
// client chose it retains: those go back to the pool when the client goes, not when the surface does. No
// two live surfaces share a sid, whatever clients choose: a pool sid that meets a live surface is passed
// over. The driver's own sids and all ones, which names no surface, are never given. Used under the device
// mutex.
#pragma once

#include "driver/objects/client.h"

namespace kalix {

// A sid for a surface that the driver names; 0 when the pool is exhausted.
uint32_t surface_id_get() KALIX_REQUIRES(_globals.device_mutex);

// A sid for a client to use later; it is that client's until it disconnects. 0 when the pool is exhausted
// or memory runs out.
uint32_t surface_id_hand_out(client_record* client) KALIX_REQUIRES(_globals.device_mutex);

// Whether a client may define a surface under a sid of its choosing.
bool surface_id_in_use(const client_record* client, uint32_t sid) KALIX_REQUIRES(_globals.device_mutex);

// Takes the sid that the client chose and retains it when it is of the pool. 1 when memory runs out.
int surface_id_claim(client_record* client, uint32_t sid);

// Gives back all that a disconnecting client retained.
void surface_ids_give_back(client_record* client) KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix
