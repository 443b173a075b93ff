// The project's mutex and its scoped holder, marked so that clang checks the locking.
//
// State under a lock carries KALIX_GUARDED_BY(lock); a function that expects a lock held carries
// KALIX_REQUIRES(lock). clang refuses a build in which one of these is broken; g++, which has no
// such attributes, sees empty macros. No lock of the project is recursive.
#pragma once

#include <mutex>

#if defined(__clang__)
#define KALIX_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define KALIX_THREAD_ATTRIBUTE(attribute)
#endif

#define KALIX_CAPABILITY(name) KALIX_THREAD_ATTRIBUTE(capability(name))
#define KALIX_SCOPED_CAPABILITY KALIX_THREAD_ATTRIBUTE(scoped_lockable)
#define KALIX_GUARDED_BY(lock) KALIX_THREAD_ATTRIBUTE(guarded_by(lock))
#define KALIX_PT_GUARDED_BY(lock) KALIX_THREAD_ATTRIBUTE(pt_guarded_by(lock))
#define KALIX_ACQUIRE(...) KALIX_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define KALIX_RELEASE(...) KALIX_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define KALIX_REQUIRES(...) KALIX_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define KALIX_HELD_BY_CALLER(lock) KALIX_THREAD_ATTRIBUTE(assert_capability(lock))
#define KALIX_EXCLUDES(...) KALIX_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define KALIX_NO_THREAD_SAFETY_ANALYSIS KALIX_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace kalix {

class KALIX_CAPABILITY("mutex") mutex {
public:
    void lock() KALIX_ACQUIRE() { mutex_.lock(); }
    void unlock() KALIX_RELEASE() { mutex_.unlock(); }

private:
    std::mutex mutex_;
};

// Another's mutex, or none: then whoever holds it is merely the only one there is.
class KALIX_CAPABILITY("mutex") borrowed_mutex {
public:
    void borrow(mutex* owners) { mutex_ = owners; }
    // Says, in a callback, what the function that calls back through templates requires of its own caller.
    void is_held_by_caller() const KALIX_HELD_BY_CALLER(this) {}
    void lock() KALIX_ACQUIRE()
    {
        if (mutex_)
            mutex_->lock();
    }
    void unlock() KALIX_RELEASE()
    {
        if (mutex_)
            mutex_->unlock();
    }

private:
    mutex* mutex_ = nullptr;
};

// Holds one mutex for the length of a scope.
class KALIX_SCOPED_CAPABILITY hold {
public:
    explicit hold(mutex& m) KALIX_ACQUIRE(m) : mutex_{m} { mutex_.lock(); }
    ~hold() KALIX_RELEASE() { mutex_.unlock(); }
    hold(const hold&) = delete;
    hold& operator=(const hold&) = delete;

private:
    mutex& mutex_;
};

} // namespace kalix
