// Objects that are files are made, shared or attached through the open directory shm/; the others are asked for.
//
// Names are fixed by the protocol. The server works out those of command buffers and of readback itself, from the
// sender's process id and a number, so they cannot be chosen freely to be safe; the flags and checks here make them so.

#include "client/shm.h"

#include "base/unique_fd.h"

#include <kalix/rundir.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace kalix::client_library {

namespace {

constexpr mode_t owner_only = 0600;
// No link is followed out of the directory, and a pipe that somebody put there does not block the open.
constexpr int open_flags = O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

enum class way { create, share, attach };

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

// Another has made it and given it its size: one that is too short would fault at the first touch.
int check_length(int fd, size_t bytes)
{
    struct stat status {};
    if (fstat(fd, &status) != 0)
        return -errno;
    return S_ISREG(status.st_mode) && status.st_size >= 0 && static_cast<uint64_t>(status.st_size) >= bytes ? 0
                                                                                                            : -EPROTO;
}

// Found and not made, perhaps: another user could have put it there to read along.
int check_owner(int fd)
{
    struct stat status {};
    if (fstat(fd, &status) != 0)
        return -errno;
    return S_ISREG(status.st_mode) && status.st_uid == geteuid() ? 0 : -EACCES;
}

// The server's user may be another than this one; then it is root.
int open_file(int directory, const object_name& name, way how, size_t bytes, unique_fd& out)
{
    if (how == way::create) // what an ended process of the same id has left is not used: others may have it mapped
        unlinkat(directory, name.text, 0);
    const int making = how == way::create ? O_CREAT | O_EXCL : how == way::share ? O_CREAT : 0;
    out.reset(openat(directory, name.text, open_flags | making, owner_only));
    if (!out)
        return -errno;
    switch (how) {
    case way::create:
        return 0;
    case way::share:
        return check_owner(out.get());
    case way::attach:
        return check_length(out.get(), bytes);
    }
    return -EINVAL;
}

struct platform_message {
    kalix_platform_header header;
    kalix_object_req object;
};
static_assert(sizeof(platform_message) == sizeof(kalix_platform_header) + sizeof(kalix_object_req));

int ask_for(kalix_connection& connection, const object_name& name, bool make, size_t bytes, unique_fd& out)
    KALIX_REQUIRES(connection.lock)
{
    if (bytes > UINT32_MAX)
        return -ENOMEM;
    platform_message wanted{{KALIX_PLATFORM_MAGIC, KALIX_OBJECT}, {{}, static_cast<uint32_t>(bytes), make}};
    static_assert(sizeof wanted.object.name == sizeof name.text);
    std::memcpy(wanted.object.name, name.text, sizeof name.text);
    const answer got = request(connection, {std::as_bytes(std::span{&wanted, 1}), {}, {}}, {}, &out);
    if (got.error || got.status != 0)
        return got.error ? got.error : result_of_status(got.status);
    return out ? check_length(out.get(), bytes) : -EPROTO;
}

// What this process has under the name, as another connection of it may, is shared as long as it will do.
int receive(kalix_connection& connection, const object_name& name, way how, size_t bytes, unique_fd& out)
    KALIX_REQUIRES(connection.lock)
{
    if (how != way::create) {
        const int found = ask_for(connection, name, false, bytes, out);
        if (how == way::attach || (found != -ENOENT && found != -EPROTO))
            return found;
        out.reset();
    }
    return ask_for(connection, name, true, bytes, out);
}

int open_and_map(kalix_connection& connection, const object_name& name, way how, size_t bytes, mapping& out)
    KALIX_REQUIRES(connection.lock)
{
    unique_fd object;
    const int directory = connection.objects.directory.get();
    int error =
        directory >= 0 ? open_file(directory, name, how, bytes, object) : receive(connection, name, how, bytes, object);
    if (error)
        return error;
    error = take_room(object.get(), bytes);
    if (!error)
        error = map_file(object.get(), bytes, out);
    if (error && how == way::create)
        shm_remove(connection, name);
    return error;
}

// Whether files put there are found by the server, and its own by us. It owns the directory: as root it opens them to
// us, as our own user they are ours, and as any other it could do neither. The kernel tells no process id of a server
// in another namespace, where ours is not what it knows us by.
bool files_will_do(int directory, int socket)
{
    struct stat status {};
    if (fstat(directory, &status) != 0 || (status.st_uid != 0 && status.st_uid != geteuid()))
        return false;
    ucred server{};
    socklen_t length = sizeof server;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &server, &length) == 0 && server.pid != 0 &&
           faccessat(directory, ".", W_OK | X_OK, AT_EACCESS) == 0;
}

// Asks the server by which number it knows this process.
int ask_who(int socket, uint32_t& process)
{
    const kalix_platform_header header{KALIX_PLATFORM_MAGIC, KALIX_WHO};
    kalix_who_rep who{};
    const answer got =
        exchange(socket, {std::as_bytes(std::span{&header, 1}), {}, {}}, std::as_writable_bytes(std::span{&who, 1}));
    if (got.error || got.status != 0)
        return got.error ? got.error : result_of_status(got.status);
    if (got.data_bytes != sizeof who)
        return -EPROTO;
    process = who.process;
    return 0;
}

} // namespace

int find_objects(int run_directory, int socket, object_place& out)
{
    unique_fd directory{openat(run_directory, kalix_shm_directory, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
    const int missing = directory ? 0 : -errno;
    out.process = static_cast<uint32_t>(getpid());
    if (directory && files_will_do(directory.get(), socket)) {
        out.directory = std::move(directory);
        return 0;
    }
    const int error = ask_who(socket, out.process);
    if (error != -ENOSYS)
        return error;
    // A server that does not know the question has files alone: without them there is nothing to be had from it.
    out.directory = std::move(directory);
    return missing;
}

object_name command_buffer_name(const kalix_connection& connection, uint32_t number)
{
    object_name name{};
    std::snprintf(name.text, sizeof name.text, "execbuf_%u_%u", connection.objects.process, number);
    return name;
}

object_name readback_name(const kalix_connection& connection, uint32_t number)
{
    object_name name{};
    std::snprintf(name.text, sizeof name.text, "vm_svga:%u:%u", connection.objects.process, number);
    return name;
}

object_name dma_buffer_name(uint32_t handle)
{
    object_name name{};
    std::snprintf(name.text, sizeof name.text, "svga_dma_%d", static_cast<int>(handle));
    return name;
}

int shm_create(kalix_connection& connection, const object_name& name, size_t bytes, mapping& out)
{
    return open_and_map(connection, name, way::create, bytes, out);
}

int shm_share(kalix_connection& connection, const object_name& name, size_t bytes, mapping& out)
{
    return open_and_map(connection, name, way::share, bytes, out);
}

int shm_attach(kalix_connection& connection, const object_name& name, size_t bytes, mapping& out)
{
    return open_and_map(connection, name, way::attach, bytes, out);
}

void shm_remove(const kalix_connection& connection, const object_name& name)
{
    if (connection.objects.directory)
        unlinkat(connection.objects.directory.get(), name.text, 0);
}

} // namespace kalix::client_library
