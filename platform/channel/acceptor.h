// Takes clients in from the listening socket, and never spins when the host cannot.
//
// Owns the listener and one spare descriptor, which is given up to refuse a client when descriptors have
// run out. When even that fails the listener is left alone for a moment. The receive loop's thread alone
// calls this.
#pragma once

#include "base/unique_fd.h"

#include <cstdint>

namespace kalix::platform {

class acceptor {
public:
    explicit acceptor(unique_fd listener) : listener_{std::move(listener)} {}

    // Has the listener polled under the tag; false with errno.
    bool open(int epoll, uint64_t tag);

    // The next client that waits; -1 when there is none, or none that can be taken in now.
    unique_fd accept_one();

    // When listen_again is due, on the clock of now_ms; 0 while listening.
    int64_t paused_until_ms() const { return paused_until_ms_; }
    void listen_again();

private:
    bool turn_one_away();
    void pause();
    bool poll(int operation, uint32_t events);

    unique_fd listener_;
    unique_fd spare_;
    int epoll_ = -1; // the receive loop's
    uint64_t tag_ = 0;
    int64_t paused_until_ms_ = 0;
};

} // namespace kalix::platform
