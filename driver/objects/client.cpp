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

// What gives back an object of each type.
constexpr std::array<destroy_function, RESOURCE_TOTAL> destroy_functions = {
    context_destroy, dma_destroy, surface_destroy, execbuf_destroy, overlay_destroy};

// The client and the type being drained, for destroy_callback, which gets a reference alone. Valid only
// during client_destroy, which one disconnect at a time runs.
client_record* destroy_client;
resource_type destroy_type;

void free_record(client_record* client)
{
    for (hashtable* table : client->ref_tables)
        hashtable_destroy(table, nullptr);
    linkedlist_destroy(client->retained_sids);
    delete client;
}

bool make_tables(client_record* client)
{
    client->retained_sids = linkedlist_create();
    bool made = client->retained_sids;
    for (hashtable*& table : client->ref_tables) {
        table = made ? hashtable_create(reference_buckets) : nullptr;
        made = table;
    }
    return made;
}

void destroy_callback(void* value) KALIX_REQUIRES(_globals.device_mutex)
{
    const auto* const reference = static_cast<client_reference*>(value);
    KALIX_ASSERT(reference, "ref");
    const uint32_t id = reference->id;
    resource_object* const object = resource_get(destroy_type, destroy_client, id);
    KALIX_ASSERT(object, "obj");
    const destroy_function callback = destroy_functions[destroy_type];
    KALIX_ASSERT(callback, "callback");
    uint32_t destroyed = 0;
    while (!destroyed && resource_have_ref(destroy_type, destroy_client, id))
        resource_unref(destroy_type, destroy_client, object, callback, &destroyed);
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
        if (void* const known = hashtable_get(_globals.client_table, info.scoid))
            return static_cast<client_record*>(known);
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
    destroy_client = client;
    for (uint32_t type = 0; type < RESOURCE_TOTAL; ++type) {
        destroy_type = static_cast<resource_type>(type);
        hashtable_destroy(client->ref_tables[type], destroy_callback);
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
    if (_globals.shared_sid_client == client)
        _globals.shared_sid_client = nullptr;
    free_record(client);
    return 0;
}

int client_retain_sid(client_record* client, uint32_t sid)
{
    for (const linkedlist_node* node = client->retained_sids->head; node; node = node->next)
        if (node->data == sid)
            return 0;
    return linkedlist_insert_tail(client->retained_sids, sid);
}

} // namespace kalix
