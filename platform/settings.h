// What the environment says about how the process runs. Read once: by process_begin, or by the first
// caller where that comes earlier. A value that cannot be read is one warning line and the default.
// Not locked: read by the thread that starts the process, before there are others.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <sys/types.h>

namespace kalix::platform {

struct settings {
    bool foreground = false; // KALIX_FOREGROUND: 0 or 1
    // NOTIFY_SOCKET, where the environment holds it: a path, or "@" and an abstract name; empty: none.
    std::string_view notify_socket;
    int ready_fd = -1;          // KALIX_READY_FD: an open descriptor; -1: none
    std::optional<gid_t> group; // KALIX_GROUP: whose members are served (base/sharing_group.h)
    mode_t socket_mode = 0660;  // KALIX_SOCKET_MODE, octal
    int listen_fd = -1;         // LISTEN_FDS, when LISTEN_PID names this process: the first one passed; -1: none
    uint64_t watchdog_us = 0;   // WATCHDOG_USEC, when WATCHDOG_PID names this process or nobody; 0: none
};

// The settings in force.
const settings& current_settings();

// Reads the environment anew, tells the files whom they are shared with (files/group.h), and takes the variables
// that pass sockets out of the environment: they are for this process alone.
void read_settings();

} // namespace kalix::platform
