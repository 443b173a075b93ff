// Where remote viewers connect: a unix socket for this user alone, or a port of the loopback interface.
#pragma once

#include "base/unique_fd.h"

#include <cstdint>
#include <string>

namespace kalix::view {

class viewer_listener {
public:
    // Throw std::system_error. A socket that nobody serves any more is replaced.
    static viewer_listener on_path(const std::string& path);
    static viewer_listener on_port(uint16_t port);
    viewer_listener(viewer_listener&& other) noexcept;
    viewer_listener& operator=(viewer_listener&&) = delete;
    ~viewer_listener(); // removes the socket's name

    // How people find it.
    const std::string& name() const { return name_; }
    // A viewer that has connected; nothing when none waits.
    unique_fd accept() const;
    // Returns when one waits, or after so many milliseconds.
    void wait(int milliseconds) const;

private:
    viewer_listener(unique_fd socket, std::string name, std::string path);

    unique_fd socket_;
    std::string name_;
    std::string path_; // to be removed; empty for a port
};

} // namespace kalix::view
