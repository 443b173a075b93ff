// Sending and receiving of frames, whole, whatever the socket makes of them.
//
// A signal handler of the client's may interrupt any call here; it is then made again, for a frame cannot be left
// half-way. Lengths that the server gives are compared with the room before anything is read into it.

#include "client/wire.h"

#include <kalix/protocol.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/uio.h>
#include <utility>

namespace kalix::client_library {

namespace {

constexpr int32_t common_error_last = 34; // ERANGE: error numbers up to here are the same on all hosts
constexpr int32_t status_last = 4095;     // no status of a server lies beyond
constexpr int32_t status_unknown = 1;     // the dispatcher does not know the request

answer broken(int error)
{
    return {.error = error, .broken = true};
}

iovec part(std::span<const std::byte> bytes)
{
    return {const_cast<std::byte*>(bytes.data()), bytes.size()};
}

// Takes sent bytes off the front of what is left to send.
std::span<iovec> advanced(std::span<iovec> parts, size_t sent)
{
    while (!parts.empty() && sent >= parts.front().iov_len) {
        sent -= parts.front().iov_len;
        parts = parts.subspan(1);
    }
    if (!parts.empty()) {
        parts.front().iov_base = static_cast<std::byte*>(parts.front().iov_base) + sent;
        parts.front().iov_len -= sent;
    }
    return parts;
}

int send_all(int socket, std::span<iovec> parts)
{
    // Empty parts are dropped, so that the loop ends with the last byte.
    parts = advanced(parts, 0);
    while (!parts.empty()) {
        msghdr header{};
        header.msg_iov = parts.data();
        header.msg_iovlen = parts.size();
        // A server that has gone is an error to return, not a signal that ends the client.
        const ssize_t sent = sendmsg(socket, &header, MSG_NOSIGNAL);
        if (sent >= 0)
            parts = advanced(parts, static_cast<size_t>(sent));
        else if (errno != EINTR)
            return -errno;
    }
    return 0;
}

// Takes the descriptors that came with a message: the first, and no more of them than that.
void take_descriptors(msghdr& message, unique_fd& out)
{
    for (cmsghdr* each = CMSG_FIRSTHDR(&message); each; each = CMSG_NXTHDR(&message, each)) {
        if (each->cmsg_level != SOL_SOCKET || each->cmsg_type != SCM_RIGHTS)
            continue;
        for (size_t at = 0; CMSG_LEN(at + sizeof(int)) <= each->cmsg_len; at += sizeof(int)) {
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(each) + at, sizeof descriptor);
            unique_fd one{descriptor};
            if (!out)
                out = std::move(one);
        }
    }
}

// One piece of a reply; room for what may come beside it is given only where somebody takes it, else it is let go.
ssize_t receive_some(int socket, std::span<std::byte> room, unique_fd* descriptor)
{
    iovec piece = part(room);
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> beside;
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    if (descriptor) {
        message.msg_control = beside.data();
        message.msg_controllen = beside.size();
    }
    const ssize_t got = recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    if (got > 0 && descriptor)
        take_descriptors(message, *descriptor);
    return got;
}

int receive_all(int socket, std::span<std::byte> room, unique_fd* descriptor = nullptr)
{
    while (!room.empty()) {
        const ssize_t got = receive_some(socket, room, descriptor);
        // The end of the stream in the middle of a reply: whoever waits for it has lost the server.
        if (got == 0)
            return -ECONNRESET;
        if (got > 0)
            room = room.subspan(static_cast<size_t>(got));
        else if (errno != EINTR)
            return -errno;
    }
    return 0;
}

} // namespace

answer exchange(int socket, const message& request, std::span<std::byte> room, unique_fd* descriptor)
{
    const kalix_request_frame frame{
        static_cast<uint32_t>(request.head.size() + request.body.size() + request.trail.size()),
        static_cast<uint32_t>(room.size())};
    std::array parts{part(std::as_bytes(std::span{&frame, 1})), part(request.head), part(request.body),
                     part(request.trail)};
    if (const int error = send_all(socket, parts))
        return broken(error);

    kalix_reply_frame reply{};
    if (const int error = receive_all(socket, std::as_writable_bytes(std::span{&reply, 1}), descriptor))
        return broken(error);
    if (reply.kind > KALIX_REPLY_ERROR || reply.data_bytes > room.size())
        return broken(-EPROTO);
    if (const int error = receive_all(socket, room.first(reply.data_bytes)))
        return broken(error);
    if (reply.kind == KALIX_REPLY_ERROR)
        return {.error = host_error(reply.value)};
    return {.status = reply.value, .data_bytes = reply.data_bytes};
}

int host_error(int32_t wire_error)
{
    if (wire_error == KALIX_ENOSYS)
        return -ENOSYS;
    if (wire_error == KALIX_EMSGSIZE)
        return -EMSGSIZE;
    if (wire_error <= 0)
        return -EPROTO;
    return wire_error <= common_error_last ? -wire_error : -EREMOTEIO;
}

int result_of_status(int32_t status)
{
    if (status > status_last || status < -status_last)
        return -EPROTO;
    // Some requests answer with positive error numbers; this one is no such number.
    if (status == status_unknown)
        return -ENOSYS;
    return status > 0 ? -status : status;
}

} // namespace kalix::client_library
