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
        const int old = std::exchange(fd_, fd);
        if (old >= 0)
            ::close(old);
    }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

} // namespace kalix
