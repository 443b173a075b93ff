#include "platform/channel/message_gatherer.h"

#include "platform/log/clock.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <span>
#include <sys/socket.h>
#include <utility>

namespace kalix::platform {
namespace {

constexpr size_t step_bytes = size_t{64} << 10; // read at once; on the stack of the one thread that gathers

// Bytes read; 0 when the client has gone; -1 when there is nothing to read now.
ssize_t receive(int socket, std::span<std::byte> into)
{
    for (;;) {
        const ssize_t count = recv(socket, into.data(), into.size(), MSG_DONTWAIT);
        if (count >= 0)
            return count;
        if (errno == EAGAIN)
            return -1;
        if (errno != EINTR)
            return 0;
    }
}

gathered without_bytes(ssize_t count)
{
    return count == 0 ? gathered::closed : gathered::incomplete;
}

} // namespace

gathered message_gatherer::gather(int socket)
{
    const gathered header = gather_header(socket);
    return header == gathered::complete ? gather_bytes(socket) : header;
}

gathered message_gatherer::gather_header(int socket)
{
    while (header_bytes_ < sizeof header_) {
        const std::span<std::byte> rest = std::as_writable_bytes(std::span{&header_, 1}).subspan(header_bytes_);
        const ssize_t count = receive(socket, rest);
        if (count <= 0)
            return without_bytes(count);
        if (header_bytes_ == 0)
            started_ms_ = now_ms(); // later bytes do not move it: a trickle is no way to stay
        header_bytes_ += static_cast<size_t>(count);
    }
    return header_.message_bytes <= KALIX_MESSAGE_MAX ? gathered::complete : gathered::too_large;
}

// By way of a step's buffer, and not into room for the whole: a client that declares 1 MiB and sends a byte costs a
// byte. Never reads past the message, so that the next one stays in the socket until its turn.
gathered message_gatherer::gather_bytes(int socket)
{
    std::array<std::byte, step_bytes> step;
    while (bytes_.size() < header_.message_bytes) {
        const size_t wanted = std::min(header_.message_bytes - bytes_.size(), step.size());
        const ssize_t count = receive(socket, std::span{step}.first(wanted));
        if (count <= 0)
            return without_bytes(count);
        const auto came = std::span{step}.first(static_cast<size_t>(count));
        if (came.size() > budget_.left)
            return gathered::over_budget;
        try {
            bytes_.insert(bytes_.end(), came.begin(), came.end());
        } catch (const std::bad_alloc&) {
            return gathered::no_memory;
        }
        budget_.left -= came.size();
    }
    return gathered::complete;
}

// A message that is handed out is charged no longer: a connection has one at a time, which bounds those.
whole_message message_gatherer::take()
{
    const size_t charged = bytes_.size();
    whole_message message{std::make_shared<const message_bytes>(std::move(bytes_)), header_.reply_room};
    budget_.left += charged;
    bytes_.clear();
    header_bytes_ = 0;
    header_ = {};
    return message;
}

void message_gatherer::drop()
{
    budget_.left += bytes_.size();
    message_bytes{}.swap(bytes_); // clear() would keep the memory
    header_bytes_ = 0;
}

} // namespace kalix::platform
