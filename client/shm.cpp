// The files behind shared objects: made, shared or attached, always through the open directory shm/.
//
// Names are fixed by the protocol. The server works out those of command buffers and of readback itself, from the
// sender's process id and a number, so they cannot be chosen freely to be safe; the flags and checks here make them so.

#include "client/shm.h"

#include "base/unique_fd.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

namespace kalix::client_library {

namespace {

constexpr mode_t owner_only = 0600;
// No link is followed out of the directory, and a pipe that somebody put there does not block the open.
constexpr int open_flags = O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

// Takes room for so many bytes in the file: 0 or a negative errno. Blocks and not only a length, as ftruncate would
// give: a full file system is an error now, not a signal at the first touch. The host's call gives its error as its
// value; errno says nothing.
int take_room(int fd, size_t bytes)
{
    int error = EINTR;
    while (error == EINTR)
        error = posix_fallocate(fd, 0, static_cast<off_t>(bytes));
    return -error;
}

int map_file(int fd, size_t bytes, mapping& out)
{
    void* address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED)
        return -errno;
    out = mapping{address, bytes};
    return 0;
}

int room_and_map(int fd, size_t bytes, mapping& out)
{
    if (const int error = take_room(fd, bytes))
        return error;
    return map_file(fd, bytes, out);
}

} // namespace

object_name command_buffer_name(uint32_t number)
{
    object_name name;
    std::snprintf(name.text, sizeof name.text, "execbuf_%d_%u", static_cast<int>(getpid()), number);
    return name;
}

object_name readback_name(uint32_t number)
{
    object_name name;
    std::snprintf(name.text, sizeof name.text, "vm_svga:%d:%u", static_cast<int>(getpid()), number);
    return name;
}

object_name dma_buffer_name(uint32_t handle)
{
    object_name name;
    std::snprintf(name.text, sizeof name.text, "svga_dma_%d", static_cast<int>(handle));
    return name;
}

// What an ended process of the same id has left is taken away and not used: others may still have it mapped.
int shm_create(int directory, const object_name& name, size_t bytes, mapping& out)
{
    shm_remove(directory, name);
    const unique_fd file{openat(directory, name.text, open_flags | O_CREAT | O_EXCL, owner_only)};
    if (!file)
        return -errno;
    const int error = room_and_map(file.get(), bytes, out);
    if (error)
        shm_remove(directory, name);
    return error;
}

int shm_share(int directory, const object_name& name, size_t bytes, mapping& out)
{
    const unique_fd file{openat(directory, name.text, open_flags | O_CREAT, owner_only)};
    if (!file)
        return -errno;
    // Found and not made, perhaps: another user could have put it there to read along.
    struct stat status {};
    if (fstat(file.get(), &status) != 0)
        return -errno;
    if (!S_ISREG(status.st_mode) || status.st_uid != geteuid())
        return -EACCES;
    return room_and_map(file.get(), bytes, out);
}

int shm_attach(int directory, const object_name& name, size_t bytes, mapping& out)
{
    const unique_fd file{openat(directory, name.text, open_flags)};
    if (!file)
        return -errno;
    // The server made it, whose user may be another; but one that is too short would fault at the first touch.
    struct stat status {};
    if (fstat(file.get(), &status) != 0)
        return -errno;
    if (!S_ISREG(status.st_mode) || status.st_size < 0 || static_cast<uint64_t>(status.st_size) < bytes)
        return -EPROTO;
    return room_and_map(file.get(), bytes, out);
}

void shm_remove(int directory, const object_name& name)
{
    unlinkat(directory, name.text, 0);
}

} // namespace kalix::client_library
