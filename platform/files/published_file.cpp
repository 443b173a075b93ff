#include "platform/files/published_file.h"

#include "platform/files/group.h"
#include "platform/files/run_directory.h"
#include "platform/files/shared_memory.h"
#include "platform/log/log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>

namespace kalix::platform {
namespace {

// Taken before anybody else can open the file, so that no reader's own lock keeps it from us, and gone with the last
// copy of this descriptor, however the process ends.
bool lock_for_life(int file)
{
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    return fcntl(file, F_OFD_SETLK, &whole) == 0;
}

// A new file of that name, of zeros and locked; -1 with errno. What a process that died has left there goes.
unique_fd make_file(int directory, const char* name, std::size_t bytes)
{
    unlinkat(directory, name, 0);
    unique_fd file{openat(directory, name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600)};
    const bool made = file && ftruncate(file.get(), static_cast<int64_t>(bytes)) == 0 && lock_for_life(file.get()) &&
                      share_with_group(file.get(), 0600, 0640);
    return made ? std::move(file) : unique_fd{};
}

// Makes the file, maps it, and gives it its name last: who finds it there finds it locked.
void* publish(const char* name, std::size_t bytes)
{
    const unique_fd directory = open_taken_directory();
    const std::string fresh = std::string{"."} + name + ".new";
    unique_fd file = make_file(directory.get(), fresh.c_str(), bytes);
    void* const mapped = file ? mmap(bytes, protect_read | protect_write, file.get()) : nullptr;
    if (!mapped)
        return nullptr;
    if (renameat(directory.get(), fresh.c_str(), directory.get(), name) != 0) {
        const int error = errno;
        munmap(mapped, bytes);
        errno = error;
        return nullptr;
    }
    static_cast<void>(file.release()); // the lock's, until the process ends
    return mapped;
}

} // namespace

void* map_published_file(const char* name, std::size_t bytes)
{
    void* const mapped = publish(name, bytes);
    if (!mapped)
        slogf(log_code, log_error, "kalix: cannot publish %s: %s (%d)", name, std::strerror(errno), errno);
    return mapped;
}

} // namespace kalix::platform
