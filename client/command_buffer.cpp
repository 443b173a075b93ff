// Contexts, and the command buffers that carry their commands to the server.
//
// A list's memory is the shared object itself, so a submit copies nothing here. The server copies the commands
// before it answers: once a submit has returned, the list is empty and may be written again. What the commands point
// at, DMA buffers above all, is read later; the fence says when. A context's commands go through the buffer of its
// number.

#include "client/connection.h"
#include "client/shm.h"

using namespace kalix::client_library;

namespace {

command_buffer* find_buffer(kalix_connection& connection, uint32_t number) KALIX_REQUIRES(connection.lock)
{
    return find(connection.command_buffers, [number](const command_buffer& buffer) { return buffer.number == number; });
}

int make_buffer(kalix_connection& connection, uint32_t number, command_buffer*& out) KALIX_REQUIRES(connection.lock)
{
    auto buffer = make<command_buffer>();
    if (!buffer)
        return -ENOMEM;
    if (const int error =
            shm_create(connection, command_buffer_name(connection, number), KALIX_COMMAND_BUFFER_BYTES, buffer->memory))
        return error;
    buffer->number = number;
    buffer->list = {buffer->memory.data(), KALIX_COMMAND_BUFFER_BYTES, 0};
    buffer->next = std::move(connection.command_buffers);
    connection.command_buffers = std::move(buffer);
    out = connection.command_buffers.get();
    return 0;
}

int execbuf_locked(kalix_connection& connection, const execbuf_req& req, execbuf_rep& reply)
    KALIX_REQUIRES(connection.lock)
{
    // The answer comes over the question: one record in two roles.
    static_assert(sizeof reply == sizeof req);
    std::memcpy(&reply, &req, sizeof req);
    return call_locked(connection, KALIX_EXECBUF, reply, sizeof reply).result;
}

} // namespace

int kalix_context_define(kalix_connection* connection, uint32_t* cid)
{
    if (!cid)
        return -EINVAL;
    context_define_req req{};
    if (const int error = call(connection, KALIX_CONTEXT_DEFINE, req, sizeof req))
        return error;
    *cid = req.cid;
    return 0;
}

// The server removes the buffer's name only when it has ever been given that buffer, so the name goes
// here, and before the request: afterwards the cid may be another connection's.
int kalix_context_destroy(kalix_connection* connection, uint32_t cid)
{
    if (const int error = check_caller(connection))
        return error;
    const hold guard{connection->lock};
    if (find_buffer(*connection, cid))
        shm_remove(*connection, command_buffer_name(*connection, cid));
    context_destroy_req req{cid};
    const int result = call_locked(*connection, KALIX_CONTEXT_DESTROY, req, 0).result;
    if (result == 0)
        drop(connection->command_buffers, [cid](const command_buffer& buffer) { return buffer.number == cid; });
    return result;
}

int kalix_command_buffer(kalix_connection* connection, uint32_t number, kalix_commands** commands)
{
    if (const int error = check_caller(connection))
        return error;
    if (!commands)
        return -EINVAL;
    const hold guard{connection->lock};
    command_buffer* buffer = find_buffer(*connection, number);
    if (!buffer)
        if (const int error = make_buffer(*connection, number, buffer))
            return error;
    *commands = &buffer->list;
    return 0;
}

int kalix_submit(kalix_connection* connection, uint32_t number, uint32_t* fence)
{
    if (const int error = check_caller(connection))
        return error;
    const hold guard{connection->lock};
    command_buffer* buffer = find_buffer(*connection, number);
    if (!buffer)
        return -ENOENT;
    execbuf_rep reply{};
    const execbuf_req req{.buffer_id = number, .byte_count = buffer->list.used, .delay_us = 0, .pad = {}};
    // A refused list stays as it is, for the caller to look at or to submit again.
    if (const int error = execbuf_locked(*connection, req, reply))
        return error;
    buffer->check.look_at(number, {buffer->memory.data(), buffer->list.used});
    buffer->list.used = 0;
    if (fence)
        *fence = reply.fence_handle;
    return 0;
}

int kalix_execbuf(kalix_connection* connection, uint32_t number, uint32_t byte_count, uint32_t delay_us,
                  execbuf_rep* reply)
{
    if (const int error = check_caller(connection))
        return error;
    const hold guard{connection->lock};
    execbuf_rep got{};
    const execbuf_req req{.buffer_id = number, .byte_count = byte_count, .delay_us = delay_us, .pad = {}};
    if (const int error = execbuf_locked(*connection, req, got))
        return error;
    if (reply)
        *reply = got;
    return 0;
}
