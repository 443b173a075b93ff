// What the environment says about how the process runs. Read once: by process_begin, or by the first
// caller where that comes earlier. A value that cannot be read is one warning line and the default.
// Not locked: the thread that starts the process and receives its messages alone calls this.
#pragma once

#include <string_view>

namespace kalix::platform {

struct settings {
    bool foreground = false; // KALIX_FOREGROUND: 0 or 1
    // NOTIFY_SOCKET, where the environment holds it: a path, or "@" and an abstract name; empty: none.
    std::string_view notify_socket;
    int ready_fd = -1; // KALIX_READY_FD: an open descriptor; -1: none
};

// The settings in force.
const settings& current_settings();

// Reads the environment anew.
void read_settings();

} // namespace kalix::platform
