// The listening socket of the channel, and who is at the other end of a connection.
#pragma once

#include "platform/files/run_directory.h"
#include "base/unique_fd.h"

#include <cstdint>

namespace kalix::platform {

// Binds and listens, replacing what has the socket's name: mode 0660, under root of the group kalix
// where that exists. -1 with errno after one line.
unique_fd open_listener(const socket_place& place);

struct peer {
    uint32_t pid = 0;
    uint32_t uid = 0;
};

// The process that connected, as the kernel vouches. False, with errno, when the kernel does not say
// or when the process lies outside our namespace (its id is then 0).
bool peer_of(int socket, peer& who);

} // namespace kalix::platform
