// The connection record behind the public handle, and how the library's modules send requests with it.
//
// Owned by the caller of kalix_open(). Its lock is held for the length of a request, so that requests
// of several threads follow one another; it guards the socket's stream, the lists of command buffers
// and readback places, and is the only lock of the library.
#pragma once

#include "base/unique_fd.h"
#include "client/draw_check.h"
#include "client/resources.h"
#include "client/wire.h"

#include <kalix/client.h>

#include <cerrno>
#include <cstring>
#include <type_traits>

namespace kalix::client_library {

// A command buffer: number, shared memory, and the list that the client appends to.
struct command_buffer {
    uint32_t number = 0;
    mapping memory;
    kalix_commands list{};
    draw_check check;
    owned<command_buffer> next;
};

// Where the server puts the pixels of one surface: all of its rows, as far as readback goes.
struct readback_place {
    uint32_t sid = 0;
    bool is_taken = false; // by the server, which keeps to it from the first answer on that was no refusal
    mapping memory;
    owned<readback_place> next;
};

// Where shared objects are had from, found at the opening (shm.h).
struct object_place {
    unique_fd directory;  // shm/, open; none: they come over the connection
    uint32_t process = 0; // the number that names carry: this process as the server knows it
};

} // namespace kalix::client_library

struct kalix_connection {
    kalix::unique_fd socket;
    kalix::client_library::object_place objects;
    pid_t process = 0; // the one that opened the connection
    kalix::client_library::mutex lock;
    int lost KALIX_GUARDED_BY(lock) = 0; // 0, or the error with which the stream ended
    kalix::client_library::owned<kalix::client_library::command_buffer> command_buffers KALIX_GUARDED_BY(lock);
    kalix::client_library::owned<kalix::client_library::readback_place> readback_places KALIX_GUARDED_BY(lock);
};

namespace kalix::client_library {

// One message and its reply. Once the stream is broken the connection is lost, and every request is
// answered with the error of the first.
answer request(kalix_connection& connection, const message& request, std::span<std::byte> room,
               unique_fd* descriptor = nullptr) KALIX_REQUIRES(connection.lock);

// -EINVAL without a connection, -EPERM in a process that does not own it, else 0.
int check_caller(const kalix_connection* connection);

// Finds the element of a list for which matches holds; null when there is none.
template <typename element, typename condition>
element* find(const owned<element>& first, condition matches)
{
    for (element* one = first.get(); one; one = one->next.get())
        if (matches(*one))
            return one;
    return nullptr;
}

// Takes the first element for which matches holds out of a list and ends it.
template <typename element, typename condition>
void drop(owned<element>& first, condition matches)
{
    for (owned<element>* link = &first; *link; link = &(*link)->next) {
        if (!matches(**link))
            continue;
        owned<element> next = std::move((*link)->next);
        *link = std::move(next);
        return;
    }
}

// Ends a list without recursion.
template <typename element>
void drop_all(owned<element>& first)
{
    while (first) {
        owned<element> next = std::move(first->next);
        first = std::move(next);
    }
}

struct record_result {
    int result;     // 0 or a negative errno
    int32_t status; // the server's, when it answered
    bool answered;
};

// A request whose payload is the record, followed in the message by trail; of the reply, reply_bytes
// bytes are expected over the record, which changes on success only.
template <typename record>
record_result call_locked(kalix_connection& connection, int32_t command, record& payload, size_t reply_bytes,
                          std::span<const std::byte> trail = {}) KALIX_REQUIRES(connection.lock)
{
    static_assert(std::is_trivially_copyable_v<record>);
    const kalix_request_header header{KALIX_REQUEST_MAGIC, command, static_cast<int32_t>(sizeof payload)};
    record reply = payload;
    const answer got =
        request(connection, {std::as_bytes(std::span{&header, 1}), std::as_bytes(std::span{&payload, 1}), trail},
                std::as_writable_bytes(std::span{&reply, 1}).first(reply_bytes));
    if (got.error)
        return {got.error, 0, false};
    if (got.status != 0)
        return {result_of_status(got.status), got.status, true};
    if (got.data_bytes != reply_bytes)
        return {-EPROTO, 0, true};
    payload = reply;
    return {0, 0, true};
}

template <typename record>
int call(kalix_connection* connection, int32_t command, record& payload, size_t reply_bytes,
         std::span<const std::byte> trail = {})
{
    if (const int error = check_caller(connection))
        return error;
    const hold guard{connection->lock};
    return call_locked(*connection, command, payload, reply_bytes, trail).result;
}

} // namespace kalix::client_library
