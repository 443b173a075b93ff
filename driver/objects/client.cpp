#include "driver/objects/client.h"

#include "driver/objects/context.h"
#include "driver/objects/dma.h"
#include "driver/objects/execbuf.h"
#include "driver/objects/overlay.h"
#include "driver/objects/resource.h"
#include "driver/objects/surface.h"
#include "driver/objects/surface_ids.h"
#include "driver/state/assert.h"

#include <new>

namespace kalix {
namespace {

constexpr char assert_module[] = "driver/objects/client";
constexpr int32_t reference_buckets = 128;
constexpr uint32_t no_scoid = 0xFFFFFFFF;

// What gives back an object of each type. A client is drained in this order: contexts first, which use the others.
constexpr std::array<destroy_function, RESOURCE_TOTAL> destroy_functions = {
    context_destroy, dma_destroy, surface_destroy, execbuf_destroy, overlay_destroy};

// Of a record that holds nothing: one never used, or one that was drained and has no tables any more.
void free_record(client_record* client)
{
    for (hashtable<client_reference>* table : client->ref_tables)
        hashtable_destroy(table);
    linkedlist_destroy(client->retained_sids);
    delete client;
}

bool make_tables(client_record* client)
{
    client->retained_sids = linkedlist_create<uint32_t>();
    bool made = client->retained_sids;
    for (hashtable<client_reference>*& table : client->ref_tables) {
        table = made ? hashtable_create<client_reference>(reference_buckets) : nullptr;
        made = table;
    }
    return made;
}

// Drops all references that a client holds on one object. The last takes the reference out of its table.
void destroy_callback(resource_type type, client_record* client, const client_reference* reference)
    KALIX_REQUIRES(_globals.device_mutex)
{
    KALIX_ASSERT(reference, "ref");
    resource_object* const object = reference->object;
    KALIX_ASSERT(object, "obj");
    const destroy_function callback = destroy_functions[type];
    KALIX_ASSERT(callback, "callback");
    // Counted in a copy: the last of them frees the reference.
    for (uint32_t left = reference->ref_count; left > 0; --left)
        resource_unref(type, client, object, callback, nullptr);
}

} // namespace

int client_init()
{
    return 0;
}

client_record* client_new(const platform::_msg_info& info)
{
    auto* const client = new (std::nothrow) client_record{};
    if (!client)
        return nullptr;
    client->scoid = info.scoid;
    client->pid = info.pid;
    client->uid = info.uid;
    if (!make_tables(client)) {
        slogf(log_code, log_error, "kalix: could not allocate client resource ref tables");
        free_record(client);
        return nullptr;
    }
    return client;
}

int client_add(client_record* client)
{
    if (!client)
        return -1;
    hold lock{_globals.client_lock};
    return hashtable_insert(_globals.client_table, client->scoid, client);
}

client_record* client_get(const platform::_msg_info& info)
{
    if (info.scoid == 0 || info.scoid == no_scoid)
        return nullptr;
    {
        hold lock{_globals.client_lock};
        if (client_record* const known = hashtable_get(_globals.client_table, info.scoid))
            return known;
    }
    // A connection has one request outstanding, so no other worker makes this record meanwhile.
    client_record* const client = client_new(info);
    if (client && client_add(client) != 0) {
        free_record(client); // in no table, it would never be drained
        return nullptr;
    }
    return client;
}

int client_destroy(client_record* client)
{
    if (!client)
        return -1;
    for (uint32_t type = 0; type < RESOURCE_TOTAL; ++type) {
        hashtable_destroy(client->ref_tables[type], [type, client](const client_reference* reference) {
            _globals.device_mutex.is_held_by_caller();
            destroy_callback(static_cast<resource_type>(type), client, reference);
        });
        client->ref_tables[type] = nullptr;
    }
    surface_ids_give_back(client);
    linkedlist_destroy(client->retained_sids);
    client->retained_sids = nullptr;
    return 0;
}

int client_remove(client_record* client)
{
    if (!client)
        return -1;
    {
        hold lock{_globals.client_lock};
        hashtable_remove(_globals.client_table, client->scoid);
    }
    if (_globals.shared_sid_client == client) // the record's last borrower
        _globals.shared_sid_client = nullptr;
    free_record(client);
    return 0;
}

// Once: a client may define and destroy under one sid again and again, and the list must not grow by that.
int client_retain_sid(client_record* client, uint32_t sid)
{
    for (const auto* node = client->retained_sids->head; node; node = node->next)
        if (node->data == sid)
            return 0;
    return linkedlist_insert_tail(client->retained_sids, sid);
}

} // namespace kalix
