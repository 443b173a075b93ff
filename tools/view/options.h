// What the command line asks of a viewer, in a window or remote.
#pragma once

#include <cstdint>
#include <string>

namespace kalix::view {

struct view_options {
    std::string run_directory;
    bool control = false;    // sends the pointer as cursor moves
    bool print_rate = false; // frames a second, once a second, on standard output
    uint64_t frames = 0;     // ends after so many; 0: never by itself
    uint16_t port = 0;       // remote viewers: loopback port; 0: a unix socket
    std::string socket_path; // of that socket; empty: vnc in the run directory
};

} // namespace kalix::view
