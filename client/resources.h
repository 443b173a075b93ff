// What the library takes from the host, each held by a type that gives it back: blocks, descriptors,
// mappings, its mutex. None needs the C++ runtime, for the library lives on libc alone.
#pragma once

#include "base/lock.h"

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace kalix::client_library {

struct destroy_and_free {
    template <typename type>
    void operator()(type* object) const
    {
        object->~type();
        std::free(object);
    }
};

template <typename type>
using owned = std::unique_ptr<type, destroy_and_free>;

// A new object, or null when memory runs out. Not by new, which is the C++ runtime's.
template <typename type>
owned<type> make()
{
    void* block = std::malloc(sizeof(type));
    return owned<type>{block ? new (block) type{} : nullptr};
}

class mapping {
public:
    mapping() = default;
    mapping(void* address, size_t bytes) : address_{address}, bytes_{bytes} {}
    mapping(mapping&& other) noexcept
        : address_{std::exchange(other.address_, nullptr)}, bytes_{std::exchange(other.bytes_, 0)}
    {
    }
    mapping& operator=(mapping&& other) noexcept // what was held before goes with the other
    {
        std::swap(address_, other.address_);
        std::swap(bytes_, other.bytes_);
        return *this;
    }
    ~mapping()
    {
        if (address_)
            munmap(address_, bytes_);
    }
    std::byte* data() const { return static_cast<std::byte*>(address_); }
    size_t bytes() const { return bytes_; }
    // Hands the mapping to the caller, who unmaps it.
    void* release() { return std::exchange(address_, nullptr); }

private:
    void* address_ = nullptr;
    size_t bytes_ = 0;
};

// The project's mutex reports errors by exceptions; this one has none to report.
class KALIX_CAPABILITY("mutex") mutex {
public:
    mutex() = default;
    mutex(const mutex&) = delete;
    mutex& operator=(const mutex&) = delete;
    ~mutex() { pthread_mutex_destroy(&mutex_); }
    void lock() KALIX_ACQUIRE() { pthread_mutex_lock(&mutex_); }
    void unlock() KALIX_RELEASE() { pthread_mutex_unlock(&mutex_); }

private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

class KALIX_SCOPED_CAPABILITY hold {
public:
    explicit hold(mutex& m) KALIX_ACQUIRE(m) : mutex_{m} { mutex_.lock(); }
    ~hold() KALIX_RELEASE() { mutex_.unlock(); }
    hold(const hold&) = delete;
    hold& operator=(const hold&) = delete;

private:
    mutex& mutex_;
};

} // namespace kalix::client_library
