// The two ways of looking at a server's screen: a window, and remote viewers.
//
// Both follow mode and zoom, show frames whole, and rest while nothing moves. They return the program's
// exit status and throw std::runtime_error or std::system_error with a text that says what failed.
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

int show_window(const view_options& options);
int serve_vnc(const view_options& options);

} // namespace kalix::view
