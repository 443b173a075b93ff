// A file descriptor with an owner.
#pragma once

#include <unistd.h>
#include <utility>

namespace kalix::run {

class descriptor {
public:
    descriptor() = default;
    explicit descriptor(int fd) : fd_{fd} {}
    descriptor(descriptor&& other) noexcept : fd_{std::exchange(other.fd_, -1)} {}
    descriptor& operator=(descriptor&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~descriptor() { reset(); }
    void reset()
    {
        if (fd_ >= 0)
            close(std::exchange(fd_, -1));
    }
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

} // namespace kalix::run
