// The typed calls of surfaces: defined, referenced, destroyed, and the pool of their ids.
//
// A readback place lives as long as the connection's own use of its surface: it goes with the destroy that the server
// has granted, so that the next surface of that id starts with memory of its own size.

#include "client/connection.h"

using namespace kalix::client_library;

int kalix_surface_define(kalix_connection* connection, const kalix_surface_description* description, uint32_t* sid)
{
    if (!description || !sid || (!description->sizes && description->size_count))
        return -EINVAL;
    if (description->size_count > KALIX_SURFACE_MIPS_MAX)
        return -EINVAL;
    surface_define_req req{};
    req.flags = description->flags;
    req.format = description->format;
    std::memcpy(req.mip_levels, description->mip_levels, sizeof req.mip_levels);
    req.sizes_offset_low = sizeof(kalix_request_header) + sizeof req; // the list follows the record at once
    req.shared = description->shared;
    req.sid = description->sid;
    const std::span sizes{description->sizes, description->size_count};
    constexpr size_t reply_bytes = offsetof(surface_define_req, mip_levels);
    if (const int error = call(connection, KALIX_SURFACE_DEFINE, req, reply_bytes, std::as_bytes(sizes)))
        return error;
    *sid = req.flags; // the word that took the flags there brings the sid back
    return 0;
}

int kalix_surface_define_2d(kalix_connection* connection, uint32_t flags, uint32_t format, uint32_t width,
                            uint32_t height, uint32_t* sid)
{
    const surface_size size{width, height, 1, 0};
    const kalix_surface_description description{
        .flags = flags, .format = format, .mip_levels = {1}, .sizes = &size, .size_count = 1, .shared = 0, .sid = 0};
    return kalix_surface_define(connection, &description, sid);
}

int kalix_surface_destroy(kalix_connection* connection, uint32_t sid)
{
    if (const int error = check_caller(connection))
        return error;
    const hold guard{connection->lock};
    surface_destroy_req req{sid};
    const int result = call_locked(*connection, KALIX_SURFACE_DESTROY, req, 0).result;
    if (result == 0)
        drop(connection->readback_places, [sid](const readback_place& place) { return place.sid == sid; });
    return result;
}

int kalix_surface_reference(kalix_connection* connection, uint32_t sid, surface_reference_req* information)
{
    surface_reference_req req{};
    req.sid = sid;
    if (const int error = call(connection, KALIX_SURFACE_REFERENCE, req, sizeof req))
        return error;
    if (information)
        *information = req;
    return 0;
}

// A pool without ids is answered with status 1, which elsewhere means an unknown request, but with the
// whole record.
int kalix_alloc_sid(kalix_connection* connection, uint32_t* sid)
{
    if (!sid)
        return -EINVAL;
    alloc_sid_req reply{};
    uint32_t reply_bytes = 0;
    int32_t status = 0;
    if (const int error = kalix_request(connection, KALIX_ALLOC_SID, &reply, sizeof reply, &reply, sizeof reply,
                                        &reply_bytes, &status))
        return error;
    if (status == 1 && reply_bytes == sizeof reply)
        return -ENOSPC;
    if (status != 0)
        return result_of_status(status);
    if (reply_bytes != sizeof reply || reply.sid == 0)
        return -EPROTO;
    *sid = reply.sid;
    return 0;
}
