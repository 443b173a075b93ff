// The listening socket of the channel, and who is at the other end of a connection.
#pragma once

#include "platform/files/run_directory.h"
#include "base/unique_fd.h"

#include <cstdint>
#include <sys/types.h>

namespace kalix::platform {

// Binds and listens, replacing what has the socket's name; of that mode, and of the group that the server
// shares with. -1 with errno after one line.
unique_fd open_listener(const socket_place& place, mode_t mode);

// Listens on a socket that this process was started with, whose name and rights are its maker's. -1 with errno
// after one line, as for what is no listening stream socket.
unique_fd take_listener(int passed);

struct peer {
    uint32_t pid = 0;
    uint32_t uid = 0;
};

// The process that connected, as the kernel vouches. False, with errno, when the kernel does not say
// or when the process lies outside our namespace (its id is then 0).
bool peer_of(int socket, peer& who);

} // namespace kalix::platform
