// Threads of the process, their whole names, and the semaphore.
#include "base/lock.h"
#include "base/never_destroyed.h"
#include "platform/log/log.h"
#include "platform/process.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <new>
#include <pthread.h>
#include <semaphore.h>
#include <string_view>

namespace kalix::platform {
namespace {

constexpr size_t host_name_max = 15; // bytes of a thread's name in the kernel

// Only grows: threads live as long as the process, which starts fewer than ten.
struct name_book {
    mutex lock;
    std::map<thread_id, std::string> names KALIX_GUARDED_BY(lock);
};

name_book& names_given()
{
    static never_destroyed<name_book> only; // threads outlive every static
    return *only;
}

} // namespace

int pthread_create(thread_id* thread, void* (*entry)(void*), void* argument)
{
    pthread_attr_t attributes;
    if (const int error = pthread_attr_init(&attributes); error != 0)
        return error;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED); // nobody joins: they end with the process
    pthread_t started{};
    const int error = ::pthread_create(&started, &attributes, entry, argument);
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        slogf(log_code, log_error, "kalix: cannot start a thread: %s (%d)", std::strerror(error), error);
        return error;
    }
    *thread = static_cast<thread_id>(started);
    return 0;
}

int pthread_setname_np(thread_id thread, const char* name)
{
    if (thread == 0)
        return ESRCH;
    const std::string_view whole{name};
    int error = 0;
    try {
        name_book& book = names_given();
        const hold held{book.lock};
        book.names[thread] = whole;
    } catch (const std::bad_alloc&) {
        error = ENOMEM; // the host's name is set all the same
    }
    // The index stands at the end, so the beginning goes.
    const char* end_of_name = name + (whole.size() > host_name_max ? whole.size() - host_name_max : 0);
    const int host_error = ::pthread_setname_np(static_cast<pthread_t>(thread), end_of_name);
    return error != 0 ? error : host_error;
}

std::string thread_name(thread_id thread)
{
    name_book& book = names_given();
    const hold held{book.lock};
    const auto found = book.names.find(thread);
    return found != book.names.end() ? found->second : std::string{};
}

namespace {

// The header keeps the host's semaphore out of sight, as bytes that are large enough.
sem_t* host_semaphore(std::byte* state)
{
    return std::launder(reinterpret_cast<sem_t*>(state));
}

} // namespace

semaphore::semaphore()
{
    static_assert(sizeof state_ >= sizeof(sem_t) && alignof(semaphore) >= alignof(sem_t));
    sem_init(new (state_) sem_t, 0, 0);
}

semaphore::~semaphore()
{
    sem_destroy(host_semaphore(state_));
}

void semaphore::post()
{
    if (sem_post(host_semaphore(state_)) != 0)
        slogf(log_code, log_error, "kalix: cannot post a semaphore: %s (%d)", std::strerror(errno), errno);
}

void semaphore::wait()
{
    while (sem_wait(host_semaphore(state_)) != 0 && errno == EINTR) {
    }
}

} // namespace kalix::platform
