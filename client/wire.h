// Frames on the channel's socket: one message out, its reply back.
//
// Owns nothing; the connection, which holds its lock around exchange(), owns the socket. A failure that
// leaves the stream at an unknown place is told as broken: such a socket is of no further use.
#pragma once

#include "base/unique_fd.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace kalix::client_library {

struct message {
    std::span<const std::byte> head;  // request header, or the whole of a message without one
    std::span<const std::byte> body;  // payload
    std::span<const std::byte> trail; // what follows the payload
};

struct answer {
    int error = 0;           // 0, or the negative host errno of an error reply or a broken stream
    bool broken = false;     // the stream cannot go on
    int32_t status = 0;      // the server's, when error is 0
    uint32_t data_bytes = 0; // bytes written to room
};

// Sends the message and waits for the reply, whose data go to room. The message is at most
// KALIX_MESSAGE_MAX bytes long. A descriptor that comes beside the reply goes to *descriptor, when there
// is one to take it. Never raises SIGPIPE.
answer exchange(int socket, const message& request, std::span<std::byte> room, unique_fd* descriptor = nullptr);

// The negative host errno for an error number of the wire: those up to 34 are the same everywhere, the
// others that a server sends are translated; -EREMOTEIO stands for any other, -EPROTO for no number.
int host_error(int32_t wire_error);

// The result of a call for the status that the server gave its request: 0, or a negative host errno.
int result_of_status(int32_t status);

} // namespace kalix::client_library
