#include "driver/objects/execbuf.h"

#include "driver/objects/shares.h"
#include "platform/files/shared_memory.h"

#include <cstdio>
#include <new>

namespace kalix {
namespace {

constexpr unsigned object_mode = 0777; // without effect: the object is the client's to make

// Gives back mapping, descriptor and share; the name stays.
void unmap(execbuf& buffer) KALIX_REQUIRES(_globals.device_mutex)
{
    if (buffer.map)
        platform::munmap(const_cast<std::byte*>(buffer.map), KALIX_COMMAND_BUFFER_BYTES);
    if (buffer.fd != -1)
        platform::close(buffer.fd);
    share_give_back(share_kind::command_buffer, buffer.share);
}

// The global table is keyed by the number alone: two buffers under one would be found by either client.
bool belongs_to_another(client_record* client, uint32_t number) KALIX_REQUIRES(_globals.device_mutex)
{
    const bool anothers_context =
        resource_get_global(RESOURCE_CONTEXT, number) && !resource_have_ref(RESOURCE_CONTEXT, client, number);
    return anothers_context || resource_get_global(RESOURCE_EXECBUF, number);
}

// Opens and maps the client's object; no map, with nothing left behind, when that fails. Its name holds the sender's
// process, so that a client reaches its own process's objects alone, whatever number it gives.
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
    buffer->bytes = KALIX_COMMAND_BUFFER_BYTES;
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

} // namespace

command_buffer_use cmd_getbuf(client_record* client, uint32_t number)
{
    if (auto* const known = static_cast<execbuf*>(resource_get(RESOURCE_EXECBUF, client, number)))
        return {known->map};
    if (belongs_to_another(client, number))
        return {};
    command_buffer_use opened = open_buffer(client, number);
    // What finds no memory to be registered serves this one request, and is opened again by the next.
    if (opened.map && resource_add(RESOURCE_EXECBUF, client, opened.unregistered.get()) == 0)
        static_cast<void>(opened.unregistered.release()); // the registry's now
    return opened;
}

void cmd_putbuf(command_buffer_use& buffer)
{
    if (buffer.unregistered)
        unmap(*buffer.unregistered);
    buffer = {};
}

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
    // The client may have made a new object of that name, for the number's next use: that one stays.
    platform::shm_unlink_open(buffer.name, buffer.fd);
    unmap(buffer);
}

} // namespace kalix
