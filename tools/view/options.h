// What the command line asks of a viewer, in a window or remote.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kalix::view {

// How remote viewers come in.
enum class remote_door {
    path, // a unix socket
    port, // a TCP port that speaks VNC
    web,  // a TCP port that gives browsers a page, which then speaks VNC through it
};

struct view_options {
    std::string run_directory;
    bool control = false;    // sends the pointer as cursor moves
    bool print_rate = false; // frames a second, once a second, on standard output
    uint64_t frames = 0;     // ends after so many; 0: never by itself

    // Of remote viewers alone.
    remote_door door = remote_door::path;
    std::string socket_path;                // of the unix socket; empty: vnc in the run directory
    std::string address = "127.0.0.1";      // of a port
    uint16_t port = 0;                      // 0: one that is free
    std::string password_file;              // empty: the web door makes a password, the others ask for none
    std::string pages = "/usr/share/novnc"; // what the web door shows
};

} // namespace kalix::view
