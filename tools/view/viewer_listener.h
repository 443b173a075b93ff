// A socket that viewers connect to: a unix socket for this user alone, or a port of one address.
#pragma once

#include "tools/view/viewer_door.h"

#include <cstdint>
#include <string>

namespace kalix::view {

class viewer_listener : public viewer_door {
public:
    // Throw std::system_error. A socket that nobody serves any more is replaced.
    static viewer_listener on_path(const std::string& path);
    // A numeric address, IPv4 or IPv6; another is std::runtime_error. Port 0 becomes one that is free.
    static viewer_listener on_port(const std::string& address, uint16_t port);
    viewer_listener(viewer_listener&& other) noexcept;
    viewer_listener& operator=(viewer_listener&&) = delete;
    ~viewer_listener() override; // removes the socket's name

    std::string name() const override { return name_; }
    unique_fd accept() override;
    void wait(int milliseconds) const override;
    int fd() const { return socket_.get(); }
    // Whether only this machine reaches it.
    bool is_local() const { return local_; }

private:
    viewer_listener(unique_fd socket, std::string name, std::string path, bool local);

    unique_fd socket_;
    std::string name_;
    std::string path_; // to be removed; empty for a port
    bool local_;
};

} // namespace kalix::view
