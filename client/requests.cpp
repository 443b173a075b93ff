// The typed calls that are a record there and back: parameters, fences, surfaces.

#include "client/connection.h"

using namespace kalix::client_library;

int kalix_getparam(kalix_connection* connection, uint32_t param, uint64_t* value)
{
    if (!value)
        return -EINVAL;
    getparam_req req{};
    req.param = param;
    if (const int error = call(connection, KALIX_GETPARAM, req, sizeof req))
        return error;
    *value = req.value;
    return 0;
}

int kalix_fifomap(kalix_connection* connection, uint32_t index, uint32_t* value)
{
    if (!value)
        return -EINVAL;
    fifomap_req req{index, 0};
    if (const int error = call(connection, KALIX_FIFOMAP, req, sizeof req))
        return error;
    *value = req.value;
    return 0;
}

int kalix_fifomap_caps(kalix_connection* connection, fifomap_caps_rep* caps)
{
    if (!caps)
        return -EINVAL;
    fifomap_caps_rep rep{};
    if (const int error = call(connection, KALIX_FIFOMAP_CAPS, rep, sizeof rep))
        return error;
    *caps = rep;
    return 0;
}

int kalix_software_mode(kalix_connection* connection, uint32_t* software_mode)
{
    if (!software_mode)
        return -EINVAL;
    software_mode_req req{};
    if (const int error = call(connection, KALIX_SOFTWARE_MODE, req, sizeof req))
        return error;
    *software_mode = req.software_mode;
    return 0;
}

int kalix_fence_wait(kalix_connection* connection, uint32_t fence)
{
    fence_wait_req req{fence};
    return call(connection, KALIX_FENCE_WAIT, req, 0);
}

int kalix_fence_signalled(kalix_connection* connection, uint32_t fence, int* signalled, uint32_t* passed)
{
    if (!signalled)
        return -EINVAL;
    fence_signalled_req req{};
    req.seqno = fence;
    if (const int error = call(connection, KALIX_FENCE_SIGNALLED, req, sizeof req))
        return error;
    *signalled = req.signalled != 0;
    if (passed)
        *passed = req.device_seqno;
    return 0;
}

int kalix_fence_unref(kalix_connection* connection, uint32_t fence)
{
    fence_wait_req req{fence};
    return call(connection, KALIX_FENCE_UNREF, req, 0);
}

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
    req.sizes_offset_low = sizeof(kalix_request_header) + sizeof req;
    req.shared = description->shared;
    req.sid = description->sid;
    const std::span sizes{description->sizes, description->size_count};
    constexpr size_t reply_bytes = offsetof(surface_define_req, mip_levels);
    if (const int error = call(connection, KALIX_SURFACE_DEFINE, req, reply_bytes, std::as_bytes(sizes)))
        return error;
    *sid = req.flags;
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
