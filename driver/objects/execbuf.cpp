#include "driver/objects/execbuf.h"

#include "driver/objects/parameters.h"
#include "driver/objects/shares.h"
#include "driver/objects/verifier.h"
#include "platform/files/shared_memory.h"
#include "svga/svga.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace kalix {
namespace {

constexpr unsigned object_mode = 0777;

// A buffer in use for one request: registered with its client, or, when there was no memory for that, owned
// here and gone after the request.
struct command_buffer_use {
    const std::byte* map = nullptr; // null: the client has no such buffer
    std::unique_ptr<execbuf> unregistered{};
    share_bound reached = share_bound::none; // why it may not have one
};

// What refuses a request, to be logged once fifo_lock is free.
struct refusal {
    void (*say)() = nullptr;                 // logs its own line, so that no other line's flood hides it
    share_bound reached = share_bound::none; // unless none, told instead
};

struct fence_pair {
    uint32_t inserted, passed;
};

// Gives back mapping, descriptor and share; the name stays.
void unmap(execbuf& buffer) KALIX_REQUIRES(_globals.device_mutex)
{
    if (buffer.map)
        platform::munmap(const_cast<std::byte*>(buffer.map), KALIX_COMMAND_BUFFER_BYTES);
    if (buffer.fd != -1)
        platform::close(buffer.fd);
    share_give_back(share_kind::command_buffer, buffer.share);
}

bool belongs_to_another(client_record* client, uint32_t number) KALIX_REQUIRES(_globals.device_mutex)
{
    const bool anothers_context =
        resource_get_global(RESOURCE_CONTEXT, number) && !resource_have_ref(RESOURCE_CONTEXT, client, number);
    return anothers_context || resource_get_global(RESOURCE_EXECBUF, number);
}

// Opens and maps the client's object; no map, with nothing left behind, when that fails.
command_buffer_use open_buffer(client_record* client, uint32_t number) KALIX_REQUIRES(_globals.device_mutex)
{
    std::unique_ptr<execbuf> buffer{new (std::nothrow) execbuf};
    if (!buffer)
        return {};
    const share_bound reached = share_take(share_kind::command_buffer, *client, &buffer->share);
    if (reached != share_bound::none)
        return {nullptr, nullptr, reached};
    buffer->magic_cookie = resource_magic + RESOURCE_EXECBUF;
    buffer->id = number;
    buffer->owner = client;
    std::snprintf(buffer->name, sizeof buffer->name, "/execbuf_%u_%u", client->pid, number);
    buffer->fd = platform::shm_open(buffer->name, platform::open_read_write, object_mode);
    if (buffer->fd != -1)
        buffer->map = static_cast<const std::byte*>(
            platform::mmap(KALIX_COMMAND_BUFFER_BYTES, platform::protect_read, buffer->fd));
    if (const std::byte* const map = buffer->map)
        return {map, std::move(buffer)};
    unmap(*buffer);
    return {};
}

command_buffer_use cmd_getbuf(client_record* client, uint32_t number) KALIX_REQUIRES(_globals.device_mutex)
{
    if (auto* const known = static_cast<execbuf*>(resource_get(RESOURCE_EXECBUF, client, number)))
        return {known->map};
    if (belongs_to_another(client, number))
        return {};
    command_buffer_use opened = open_buffer(client, number);
    if (opened.map && resource_add(RESOURCE_EXECBUF, client, opened.unregistered.get()) == 0)
        static_cast<void>(opened.unregistered.release()); // the registry's now
    return opened;
}

// Ends the FIFO reservation of a request of that many bytes; a request of none has none open.
void commit(uint32_t reserved, uint32_t committed)
{
    if (reserved != 0)
        SVGA_FIFOCommit(committed);
}

// From the reservation to the fence. 0 or the status that refuses the request, and then *why.
int execute(client_record* client, const execbuf_req& req, fence_pair* fence, refusal* why)
    KALIX_REQUIRES(_globals.device_mutex, _globals.fifo_lock)
{
    const uint32_t bytes = req.byte_count;
    auto* const space = static_cast<std::byte*>(SVGA_FIFOReserve(bytes));
    if (!space) {
        why->say = [] { slogf(log_code, log_error, "kalix: fifo reserve failed for execbuf."); };
        return status_no_memory;
    }
    command_buffer_use buffer;
    if (bytes <= KALIX_COMMAND_BUFFER_BYTES)
        buffer = cmd_getbuf(client, static_cast<uint32_t>(req.buffer_id));
    if (!buffer.map) {
        commit(bytes, 0);
        *why = {[] { slogf(log_code, log_error, "kalix: could not map to user command buffer"); }, buffer.reached};
        return buffer.reached == share_bound::none ? status_invalid : status_no_memory;
    }
    std::memcpy(space, buffer.map, bytes);
    if (buffer.unregistered)
        unmap(*buffer.unregistered);
    if (const int refused = cmd_check_all(client, {space, bytes})) {
        commit(bytes, 0);
        why->say = [] { slogf(log_code, log_error, "kalix: command validation failed"); };
        return refused;
    }
    platform::sleep_us(std::min(req.delay_us, _globals.settings.max_delay_us));
    commit(bytes, bytes);
    fence->inserted = SVGA_InsertFence();
    fence->passed = fifo_register(SVGA_FIFO_FENCE);
    return 0;
}

} // namespace

int execbuf_release_cmdbuf(client_record* client, uint32_t number)
{
    resource_object* const buffer = resource_get(RESOURCE_EXECBUF, client, number);
    if (!buffer) {
        slogf(log_code, log_error, "kalix: execbuf_release_cmdbuf: execbuf %d is unknown!", static_cast<int>(number));
        return status_invalid;
    }
    resource_unref(RESOURCE_EXECBUF, client, buffer, execbuf_destroy, nullptr);
    return 0;
}

void execbuf_evict(client_record* client, uint32_t number)
{
    auto* const buffer = static_cast<execbuf*>(resource_get_global(RESOURCE_EXECBUF, number));
    if (buffer && buffer->owner != client)
        resource_unref(RESOURCE_EXECBUF, buffer->owner, buffer, execbuf_destroy, nullptr);
}

void execbuf_destroy(resource_object* object)
{
    if (!object)
        return;
    auto& buffer = *static_cast<execbuf*>(object);
    platform::shm_unlink_open(buffer.name, buffer.fd);
    unmap(buffer);
}

int vmw_execbuf_ioctl(client_record* client, execbuf_req* req)
{
    if (!client || !req)
        return status_invalid;
    fence_pair fence{};
    refusal why;
    int status;
    {
        hold lock{_globals.fifo_lock};
        status = execute(client, *req, &fence, &why);
    }
    if (why.reached != share_bound::none)
        share_log_refusal(share_kind::command_buffer, *client, why.reached);
    else if (status != 0)
        why.say();
    if (status != 0)
        return status;
    execbuf_rep reply;
    static_assert(sizeof reply == sizeof *req);
    std::memcpy(&reply, req, sizeof reply);
    reply.fence_handle = reply.seqno = fence.inserted;
    reply.fence_flags = 3;
    reply.passed_seqno = fence.passed;
    reply.error = 0;
    std::memcpy(req, &reply, sizeof reply);
    return 0;
}

} // namespace kalix
