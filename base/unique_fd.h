// A descriptor that is closed when its holder ends: the one owner of descriptors for every room, libkalix
// included, so nothing here throws or needs more than libc. Moves, never copies; -1 holds nothing. Not for
// sharing between threads.
#pragma once

#include <unistd.h>
#include <utility>

namespace kalix {

class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_{fd} {}
    unique_fd(unique_fd&& other) noexcept : fd_{other.release()} {}
    unique_fd& operator=(unique_fd&& other) noexcept
    {
        // Released before the own one is closed, so that a move to itself keeps what it holds.
        reset(other.release());
        return *this;
    }
    ~unique_fd() { reset(); }
    unique_fd(const unique_fd&) = delete;
    unique_fd& operator=(const unique_fd&) = delete;

    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1)
    {
        // Closed once and not again when that fails: the kernel has given the number back by then.
        const int old = std::exchange(fd_, fd);
        if (old >= 0)
            ::close(old);
    }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

} // namespace kalix
