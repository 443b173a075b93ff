#include "driver/objects/resource.h"

#include "driver/state/assert.h"

#include <memory>
#include <new>

namespace kalix {
namespace {

constexpr char assert_module[] = "driver/objects/resource";

// A record of another type, or one that was freed, is an error of the driver that would spread: the process ends.
uint32_t magic_of(resource_type type)
{
    return resource_magic + type;
}

void check_type(resource_type type)
{
    KALIX_ASSERT(type < RESOURCE_TOTAL, "(int)type >= 0 && (int)type < RESOURCE_TOTAL");
}

void check_object(resource_type type, const client_record* client, const resource_object* object)
{
    check_type(type);
    KALIX_ASSERT(client && object, "client && obj");
    KALIX_ASSERT(object->magic_cookie == magic_of(type), "obj->magic_cookie == 0x0C0FFEE0 + (int)type");
}

void check_found(resource_type type, const resource_object* object)
{
    KALIX_ASSERT(!object || object->magic_cookie == magic_of(type),
                 "!ret_obj || ( ret_obj->magic_cookie == 0x0C0FFEE0 + (int)type )");
}

client_reference* reference_of(resource_type type, const client_record* client, uint32_t id)
{
    return hashtable_get(client->ref_tables[type], id);
}

// A reference record of the client, with a count of 0, in its table; none when memory runs out. The caller sets the
// count before it gives the lock back: no record with 0 may be seen.
client_reference* add_reference(resource_type type, client_record* client, resource_object* object)
    KALIX_REQUIRES(_globals.resource_lock)
{
    std::unique_ptr<client_reference> reference{new (std::nothrow) client_reference{object->id, 0, object}};
    if (!reference || hashtable_insert(client->ref_tables[type], object->id, reference.get()) != 0)
        return nullptr;
    client->held_bytes[type] += object->bytes;
    return reference.release();
}

void drop_reference(resource_type type, client_record* client, const hashtable_place<client_reference>& place)
    KALIX_REQUIRES(_globals.resource_lock)
{
    const std::unique_ptr<client_reference> reference{place.value()};
    client->held_bytes[type] -= reference->object->bytes;
    hashtable_remove_at(client->ref_tables[type], place);
}

} // namespace

int resource_add(resource_type type, client_record* client, resource_object* object)
{
    check_object(type, client, object);
    hold lock{_globals.resource_lock};
    // Both tables or neither: counts are set when nothing can fail any more.
    if (hashtable_insert(_globals.resource_tables[type], object->id, object) != 0)
        return 1;
    client_reference* const reference = add_reference(type, client, object);
    if (!reference) {
        hashtable_remove(_globals.resource_tables[type], object->id);
        return 1;
    }
    reference->ref_count = 1;
    object->total_ref_count = 1;
    return 0;
}

int resource_ref(resource_type type, client_record* client, resource_object* object)
{
    check_object(type, client, object);
    hold lock{_globals.resource_lock};
    // A client that references again what it holds counts up in the one record that it has.
    client_reference* reference = reference_of(type, client, object->id);
    if (!reference)
        reference = add_reference(type, client, object);
    if (!reference)
        return 1;
    ++object->total_ref_count;
    ++reference->ref_count;
    return 0;
}

int resource_unref(resource_type type, client_record* client, resource_object* object, destroy_function destroy,
                   uint32_t* destroyed)
{
    check_object(type, client, object);
    if (destroyed)
        *destroyed = 0;
    hold lock{_globals.resource_lock};
    // The place is kept for the removal: nothing changes the table between the two.
    const auto place = hashtable_find(client->ref_tables[type], object->id);
    client_reference* const reference = place.value();
    KALIX_ASSERT(reference, "client_ref");
    KALIX_ASSERT(reference->ref_count, "client_ref->ref_count");
    KALIX_ASSERT(static_cast<int32_t>(reference->ref_count) <= static_cast<int32_t>(object->total_ref_count),
                 "client_ref->ref_count <= obj->total_ref_count");
    --object->total_ref_count;
    if (--reference->ref_count == 0)
        drop_reference(type, client, place);
    if (object->total_ref_count != 0)
        return 0;
    if (destroy)
        destroy(object);
    hashtable_remove(_globals.resource_tables[type], object->id);
    delete object;
    if (destroyed)
        *destroyed = 1;
    return 0;
}

resource_object* resource_get_global(resource_type type, uint32_t id)
{
    check_type(type);
    resource_object* const object = hashtable_get(_globals.resource_tables[type], id);
    check_found(type, object);
    return object;
}

// By the client's own table, which leads to the object: an id that it holds no reference on is none to it.
resource_object* resource_get(resource_type type, client_record* client, uint32_t id)
{
    check_type(type);
    KALIX_ASSERT(client, "client");
    const client_reference* const reference = reference_of(type, client, id);
    if (!reference)
        return nullptr;
    check_found(type, reference->object);
    return reference->object;
}

int resource_have_ref(resource_type type, client_record* client, uint32_t id)
{
    check_type(type);
    KALIX_ASSERT(client, "client");
    return reference_of(type, client, id) != nullptr;
}

} // namespace kalix
