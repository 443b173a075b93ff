#include "driver/objects/surface_ids.h"

#include "driver/objects/surface.h"

#include <kalix/svga3d_types.h>

namespace kalix {
namespace {

bool is_driver_sid(uint32_t sid)
{
    return sid >= driver_surface_id_first && sid <= driver_surface_id_last;
}

const client_record* holder_of(uint32_t sid) KALIX_REQUIRES(_globals.device_mutex)
{
    return hashtable_get(_globals.handed_out_sids, sid);
}

} // namespace

// A sid that is passed over stays taken in the pool, so that each round meets another one, and the search ends.
uint32_t surface_id_get()
{
    for (;;) {
        const uint32_t sid = id_get(&_globals.surface_ids);
        auto* const live = static_cast<surface_record*>(resource_get_global(RESOURCE_SURFACE, sid));
        if (live)
            live->client_sid = 0; // the surface outlived the client that chose its sid: now it gives it back
        if (sid == 0 || (!live && !holder_of(sid)))
            return sid;
    }
}

uint32_t surface_id_hand_out(client_record* client)
{
    const uint32_t sid = surface_id_get();
    if (sid == 0)
        return 0;
    // In the table, so that no other client may choose it, and in the client's list, so that it comes back.
    if (hashtable_insert(_globals.handed_out_sids, sid, client) != 0) {
        id_release(&_globals.surface_ids, sid);
        return 0;
    }
    if (client_retain_sid(client, sid) != 0) {
        hashtable_remove(_globals.handed_out_sids, sid);
        id_release(&_globals.surface_ids, sid);
        return 0;
    }
    return sid;
}

bool surface_id_in_use(const client_record* client, uint32_t sid)
{
    if (sid == SVGA3D_INVALID_ID || is_driver_sid(sid) || resource_get_global(RESOURCE_SURFACE, sid))
        return true;
    const client_record* const holder = holder_of(sid);
    return holder && holder != client;
}

int surface_id_claim(client_record* client, uint32_t sid)
{
    if (sid > surface_id_capacity)
        return 0; // not the pool's: nothing would ever go back
    if (client_retain_sid(client, sid) != 0)
        return 1;
    id_take(&_globals.surface_ids, sid);
    return 0;
}

void surface_ids_give_back(client_record* client)
{
    for (const auto* node = client->retained_sids->head; node; node = node->next) {
        const uint32_t sid = node->data;
        const auto handed_out = hashtable_find(_globals.handed_out_sids, sid);
        const client_record* const holder = handed_out.value();
        if (holder == client)
            hashtable_remove_at(_globals.handed_out_sids, handed_out);
        // One that was handed out to another client since then is that one's, and goes back with it.
        if (!is_driver_sid(sid) && (!holder || holder == client))
            id_release(&_globals.surface_ids, sid);
    }
}

} // namespace kalix
