// Resource registry: which objects exist, and which client holds them.
//
// Owns every registered record until the reference that brings total_ref_count to 0; then the destroy
// function of its type runs and the record is freed. resource_lock guards all tables and counts in
// add, ref and unref and stays held through the destroy function, which may take gmr_lock or id_lock and
// must not call back. The lookups take no lock: all use happens under the device mutex.
//
// While resource_lock is free, an object is in its type's table exactly when total_ref_count > 0;
// total_ref_count is the sum of all clients' ref_counts; no client's ref_count is 0; and a client's held_bytes
// are the sum over the objects that it holds.
#pragma once

#include "driver/objects/client.h"

namespace kalix {

inline constexpr uint32_t resource_magic = 0x0C0FFEE0; // plus the type

struct resource_object { // begins every registered record
    uint32_t magic_cookie = 0;
    uint32_t id = 0;
    uint32_t total_ref_count = 0;
    uint64_t bytes = 0; // of memory, as its clients are told; does not change while it is registered
    virtual ~resource_object() = default;
};

struct client_reference { // one per client and object
    uint32_t id;
    uint32_t ref_count;
    resource_object* object; // registered as long as anyone holds a reference
};

using destroy_function = void (*)(resource_object*); // gives back what the object owns; never frees it

// Registers a new object; the client gets its first reference. Returns 0, or 1 when memory runs out, and
// then nothing has changed. The caller makes sure that no live object of the type has its id.
[[nodiscard]] int resource_add(resource_type type, client_record* client, resource_object* object)
    KALIX_REQUIRES(_globals.device_mutex);

// Adds one reference of the client. Returns 0, or 1 when memory runs out, and then nothing has changed.
[[nodiscard]] int resource_ref(resource_type type, client_record* client, resource_object* object);

// Drops one reference of the client, which must hold one; destroys and frees the object when it was the
// last of all, and says so in *destroyed (may be null). Returns 0.
int resource_unref(resource_type type, client_record* client, resource_object* object, destroy_function destroy,
                   uint32_t* destroyed) KALIX_REQUIRES(_globals.device_mutex);

// Any client's object of that id, or none.
resource_object* resource_get_global(resource_type type, uint32_t id) KALIX_REQUIRES(_globals.device_mutex);

// The object of that id when the client holds a reference, else none.
resource_object* resource_get(resource_type type, client_record* client, uint32_t id)
    KALIX_REQUIRES(_globals.device_mutex);

// 1 when the client holds a reference on that id, else 0.
int resource_have_ref(resource_type type, client_record* client, uint32_t id);

} // namespace kalix
