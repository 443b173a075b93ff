#include "platform/files/published_file.h"

#include "platform/files/group.h"
#include "platform/files/run_directory.h"
#include "platform/files/shared_memory.h"
#include "platform/log/log.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace kalix::platform {
namespace {

// Opens and sizes the file; -1 with errno.
unique_fd open_published(const char* name, std::size_t bytes)
{
    const unique_fd directory = open_taken_directory();
    unique_fd file{openat(directory.get(), name, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600)};
    struct stat facts {};
    if (!file || fstat(file.get(), &facts) != 0)
        return unique_fd{};
    if (!S_ISREG(facts.st_mode) || facts.st_uid != geteuid()) { // its owner could write what tools then believe
        errno = EPERM;
        return unique_fd{};
    }
    const bool sized =
        static_cast<std::size_t>(facts.st_size) >= bytes || ftruncate(file.get(), static_cast<int64_t>(bytes)) == 0;
    return sized && share_with_group(file.get(), 0600, 0640) ? std::move(file) : unique_fd{};
}

} // namespace

void* map_published_file(const char* name, std::size_t bytes)
{
    const unique_fd file = open_published(name, bytes);
    void* const mapped = file ? mmap(bytes, protect_read | protect_write, file.get()) : nullptr;
    if (!mapped)
        slogf(log_code, log_error, "kalix: cannot publish %s: %s (%d)", name, std::strerror(errno), errno);
    else
        std::memset(mapped, 0, bytes); // not by cutting the file: readers that are attached would fault
    return mapped;
}

} // namespace kalix::platform
