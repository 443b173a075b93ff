#include "platform/files/shared_memory.h"

#include "platform/files/descriptors.h"
#include "platform/files/directory.h"
#include "platform/files/handed_objects.h"
#include "platform/files/memory_guard.h"
#include "platform/files/run_directory.h"
#include "platform/files/sender.h"

#include <cerrno>
#include <fcntl.h>
#include <kalix/rundir.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kalix::platform {
namespace {

constexpr int create_attempts = 8; // against others who take the name again and again

int fail_with(int error)
{
    errno = error;
    return -1;
}

// The file of an object's name, or null with errno EINVAL. Names hold numbers that clients choose, none of which may
// lead out of shm/.
const char* file_of(const char* name)
{
    const std::string_view text{name};
    const bool good = text.size() >= 2 && text.size() <= KALIX_SHM_NAME_MAX && text.front() == '/' &&
                      text.find('/', 1) == std::string_view::npos && text.find("..") == std::string_view::npos &&
                      text != "/.";
    if (!good)
        errno = EINVAL;
    return good ? name + 1 : nullptr;
}

// A file that someone else may have put there: a regular one of the user served, under this one name.
// The user's other files, and others' files under a second name, are none of our business.
bool may_be_opened(int fd)
{
    struct stat facts {};
    if (fstat(fd, &facts) != 0)
        return false;
    if (S_ISREG(facts.st_mode) && facts.st_uid == user_served() && facts.st_nlink <= 1) // 0: unlinked meanwhile
        return true;
    errno = EACCES;
    return false;
}

// The flags are for what else may lie there: no link is followed, a pipe does not hold the open, a terminal does not
// become ours. What it is, is judged by the open file, which nobody can exchange any more.
int open_existing(int objects, const char* file, int access)
{
    unique_fd object{openat(objects, file, access | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)};
    return object && may_be_opened(object.get()) ? object.release() : -1;
}

// A new file for the user served, never one that was there before.
int create_new(int objects, const char* file, int access)
{
    unique_fd object;
    for (int attempt = 0; !object && attempt < create_attempts; ++attempt) {
        object.reset(openat(objects, file, access | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!object && (errno != EEXIST || !free_name(objects, file, objects)))
            return -1;
    }
    if (!object)
        return -1;
    // Given to the client's user, who is to map it; the mode still keeps it from everybody else.
    if (user_served() == geteuid() || fchown(object.get(), user_served(), static_cast<gid_t>(-1)) == 0)
        return object.release();
    unlinkat(objects, file, 0);
    return make_object_to_hand(file, user_served());
}

// Whether a name, its last link not followed, is that of the open file.
bool names_open_file(int objects, const char* file, int fd)
{
    struct stat named {};
    struct stat open {};
    return fstatat(objects, file, &named, AT_SYMLINK_NOFOLLOW) == 0 && fstat(fd, &open) == 0 &&
           named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}

int host_protection(unsigned protection)
{
    return ((protection & protect_read) != 0 ? PROT_READ : 0) | ((protection & protect_write) != 0 ? PROT_WRITE : 0);
}

// Guarded is what the pages hold, not only the bytes: the rest of the last page is mapped as well.
std::size_t whole_pages(std::size_t bytes)
{
    const std::size_t page = getpagesize();
    return bytes % page == 0 ? bytes : bytes - bytes % page + page;
}

} // namespace

int32_t shm_open(const char* name, unsigned flags, unsigned /*mode*/)
{
    const char* file = file_of(name);
    if (file == nullptr)
        return -1;
    if ((flags & open_create) == 0) {
        const int32_t handed = open_handed_object(file, user_served());
        if (handed >= 0 || errno != ENOENT)
            return handed;
    }
    const unique_fd objects = open_objects();
    if (!objects)
        return -1;
    const int access = (flags & open_read_write) != 0 ? O_RDWR : O_RDONLY;
    return (flags & open_create) != 0 ? create_new(objects.get(), file, access)
                                      : open_existing(objects.get(), file, access);
}

int32_t shm_open_file(const char* name)
{
    const char* file = file_of(name);
    if (file == nullptr)
        return -1;
    const unique_fd objects = open_objects();
    return objects ? open_existing(objects.get(), file, O_RDWR) : -1;
}

int shm_unlink(const char* name)
{
    const char* file = file_of(name);
    if (file == nullptr)
        return -1;
    if (forget_handed_object(file))
        return 0;
    const unique_fd objects = open_objects();
    return objects ? unlinkat(objects.get(), file, 0) : -1;
}

int shm_unlink_open(const char* name, int32_t fd)
{
    const char* file = file_of(name);
    if (file == nullptr)
        return -1;
    if (forget_handed_object(file, fd))
        return 0;
    const unique_fd objects = open_objects();
    if (!objects)
        return -1;
    if (!names_open_file(objects.get(), file, fd))
        return 0;
    // Between a look and a removal the client could put another object there: what was moved aside is
    // looked at, and goes back unless there is a newer one by then.
    aside_name aside{};
    if (!move_aside(objects.get(), file, objects.get(), aside))
        return errno == ENOENT ? 0 : -1;
    if (!names_open_file(objects.get(), aside.data(), fd) &&
        renameat2(objects.get(), aside.data(), objects.get(), file, RENAME_NOREPLACE) == 0)
        return 0;
    return unlinkat(objects.get(), aside.data(), 0);
}

int ftruncate(int32_t fd, int64_t bytes)
{
    int result = 0;
    do {
        result = ::ftruncate(fd, bytes);
    } while (result != 0 && errno == EINTR);
    if (result == 0)
        seal_handed_object(fd);
    return result;
}

int close(int32_t fd)
{
    return take_back_handed_object(fd) ? 0 : ::close(fd);
}

void* mmap(std::size_t bytes, unsigned protection, int32_t fd)
{
    struct stat facts {};
    if (fstat(fd, &facts) != 0)
        return nullptr;
    if (bytes > static_cast<uint64_t>(facts.st_size)) { // the host would map it and fault at the first touch
        errno = ENXIO;
        return nullptr;
    }
    void* mapped = ::mmap(nullptr, bytes, host_protection(protection), MAP_SHARED, fd, 0);
    if (mapped == MAP_FAILED)
        return nullptr;
    if (guard_mapping(mapped, bytes, protection) == 0)
        return mapped;
    ::munmap(mapped, bytes);
    errno = ENOMEM;
    return nullptr;
}

int munmap(void* address, std::size_t bytes)
{
    // The guard forgets first: once unmapped, the addresses may be another thread's new mapping.
    if (unguard_mapping(address, bytes) != 0)
        return -1;
    return ::munmap(address, bytes);
}

int guard_mapping(void* address, std::size_t bytes, unsigned protection)
{
    return guard_add(address, whole_pages(bytes), host_protection(protection)) ? 0 : -1;
}

int unguard_mapping(void* address, std::size_t bytes)
{
    return guard_remove(address, whole_pages(bytes)) ? 0 : fail_with(EINVAL);
}

std::size_t getpagesize()
{
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

int mem_offset(const void* address, uint64_t* physical)
{
    if (address == nullptr)
        return fail_with(EINVAL);
    *physical = reinterpret_cast<uintptr_t>(address);
    return 0;
}

std::size_t objects_max()
{
    return divide_descriptors().objects;
}

std::size_t guarded_mappings()
{
    return guard_count();
}

} // namespace kalix::platform
