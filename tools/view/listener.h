// Where remote viewers connect: a unix socket for this user alone, or a port of the loopback interface.
#pragma once

#include <cstdint>
#include <string>

namespace kalix::view {

class listener {
public:
    // Throw std::system_error. A socket that nobody serves any more is replaced.
    static listener on_path(const std::string& path);
    static listener on_port(uint16_t port);
    listener(listener&& other) noexcept;
    listener& operator=(listener&&) = delete;
    ~listener(); // removes the socket's name

    // How people find it.
    const std::string& name() const { return name_; }
    // A viewer that has connected, or -1 when none waits. The caller owns it.
    int accept() const;
    // Returns when one waits, or after so many milliseconds.
    void wait(int milliseconds) const;

private:
    listener(int socket, std::string name, std::string path);

    int socket_;
    std::string name_;
    std::string path_; // to be removed; empty for a port
};

} // namespace kalix::view
