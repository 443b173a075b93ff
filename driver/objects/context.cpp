#include "driver/objects/context.h"

#include "driver/objects/execbuf.h"
#include "svga/svga3d.h"

#include <cstring>
#include <memory>
#include <new>

namespace kalix {
namespace {

struct context_command {
    svga3d_command_header header;
    svga3d_context body;
};
static_assert(sizeof(context_command) == 12);

// Defining and destroying have the same body.
context_command command(uint32_t id, uint32_t cid)
{
    return {{id, sizeof(svga3d_context)}, {cid}};
}

} // namespace

context_record* context_create()
{
    const uint32_t cid = id_get(&_globals.context_ids);
    if (cid == 0)
        return nullptr;
    // All that can fail comes before the command is written: a context that the device knows has a record.
    std::unique_ptr<context_record> context{new (std::nothrow) context_record};
    void* const space = context ? SVGA_FIFOReserve(sizeof(context_command)) : nullptr;
    if (!space) {
        id_release(&_globals.context_ids, cid);
        return nullptr;
    }
    const context_command define = command(SVGA_3D_CMD_CONTEXT_DEFINE, cid);
    std::memcpy(space, &define, sizeof define);
    context->magic_cookie = resource_magic + RESOURCE_CONTEXT;
    context->id = cid;
    SVGA_FIFOCommitAll();
    return context.release();
}

void context_destroy(resource_object* context)
{
    if (!context)
        return;
    void* const space = SVGA_FIFOReserve(sizeof(context_command));
    if (!space)
        return; // the device still has the context, so that its cid must not meet another
    const context_command destroy = command(SVGA_3D_CMD_CONTEXT_DESTROY, context->id);
    std::memcpy(space, &destroy, sizeof destroy);
    SVGA_FIFOCommit(sizeof destroy);
    id_release(&_globals.context_ids, context->id);
}

int context_check(client_record* client, uint32_t cid)
{
    return resource_get(RESOURCE_CONTEXT, client, cid) ? 0 : status_invalid;
}

int vmw_context_define_ioctl(client_record* client, context_define_req* req)
{
    if (!client || !req)
        return status_invalid;
    context_record* const context = context_create();
    if (!context) {
        slogf(log_code, log_error, "kalix: vmw_context_define_ioctl: could not create context!");
        return status_no_memory;
    }
    if (resource_add(RESOURCE_CONTEXT, client, context) != 0) {
        // Its client could never name it, so the device forgets it again.
        context_destroy(context);
        delete context;
        return status_no_memory;
    }
    // The number is the client's from now on, before it hears of it.
    execbuf_evict(client, context->id);
    req->cid = context->id;
    return 0;
}

int vmw_context_destroy_ioctl(client_record* client, context_destroy_req* req)
{
    if (!client || !req)
        return status_invalid;
    resource_object* const context = resource_get(RESOURCE_CONTEXT, client, req->cid);
    if (!context)
        return status_invalid;
    // Of a context that never had a buffer this says so, in a line that means nothing: no buffer is no error here.
    execbuf_release_cmdbuf(client, req->cid);
    resource_unref(RESOURCE_CONTEXT, client, context, context_destroy, nullptr);
    return 0;
}

} // namespace kalix
