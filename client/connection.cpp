// Opening, keeping and ending a connection; every request of the library passes through request() here.
//
// A stream that broke stays broken: after half a frame nobody knows where the next one begins. So the first such
// error marks the connection as lost, its socket is shut down at once, which lets the server release what was made
// through it, and all further requests get that error without touching the stream.

#include "client/connection.h"

#include "client/shm.h"

#include <kalix/rundir.h>

#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace kalix::client_library {

namespace {

// The socket's address. A path that does not fit is reached through the open directory.
int channel_address(const char* run_directory, int directory, sockaddr_un& address)
{
    address.sun_family = AF_UNIX;
    const size_t room = sizeof address.sun_path;
    const int direct = std::snprintf(address.sun_path, room, "%s/%s", run_directory, kalix_channel_file);
    if (direct >= 0 && static_cast<size_t>(direct) < room)
        return 0;
    const int indirect = std::snprintf(address.sun_path, room, "/proc/self/fd/%d/%s", directory, kalix_channel_file);
    return indirect >= 0 && static_cast<size_t>(indirect) < room ? 0 : -ENAMETOOLONG;
}

int connect_to(const char* run_directory, int directory, unique_fd& out)
{
    sockaddr_un address{};
    if (const int error = channel_address(run_directory, directory, address))
        return error;
    unique_fd socket_fd{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!socket_fd)
        return -errno;
    while (connect(socket_fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        if (errno != EINTR)
            return -errno;
    out = std::move(socket_fd);
    return 0;
}

// The first message of a connection, which the server answers with an empty success.
int greet(int socket)
{
    const kalix_io_connect hello{KALIX_IO_CONNECT, 0};
    const answer got = exchange(socket, {std::as_bytes(std::span{&hello, 1}), {}, {}}, {});
    return got.error ? got.error : result_of_status(got.status);
}

int open_connection(const char* run_directory, owned<kalix_connection>& out)
{
    auto connection = make<kalix_connection>();
    if (!connection)
        return -ENOMEM;
    // Open for its path alone, for the length of this call: search permission will do.
    const unique_fd directory{open(run_directory, O_PATH | O_DIRECTORY | O_CLOEXEC)};
    if (!directory)
        return -errno;
    if (const int error = connect_to(run_directory, directory.get(), connection->socket))
        return error;
    if (const int error = greet(connection->socket.get()))
        return error;
    if (const int error = find_objects(directory.get(), connection->socket.get(), connection->objects))
        return error;
    connection->process = getpid();
    out = std::move(connection);
    return 0;
}

} // namespace

// A forked child shares the socket: a request of its own would mix its bytes with the parent's.
int check_caller(const kalix_connection* connection)
{
    if (!connection)
        return -EINVAL;
    return connection->process == getpid() ? 0 : -EPERM;
}

answer request(kalix_connection& connection, const message& request, std::span<std::byte> room, unique_fd* descriptor)
{
    if (connection.lost)
        return {.error = connection.lost, .broken = true};
    const answer got = exchange(connection.socket.get(), request, room, descriptor);
    if (got.broken) {
        connection.lost = got.error;
        shutdown(connection.socket.get(), SHUT_RDWR);
    }
    return got;
}

} // namespace kalix::client_library

using namespace kalix::client_library;

const char* kalix_version()
{
    return KALIX_VERSION;
}

int kalix_open(const char* run_dir, kalix_connection** connection)
{
    if (!connection)
        return -EINVAL;
    char path[PATH_MAX];
    if (!run_dir) {
        if (kalix_find_run_directory(path, sizeof path) < 0)
            return -ENAMETOOLONG;
        run_dir = path;
    }
    owned<kalix_connection> opened;
    if (const int error = open_connection(run_dir, opened))
        return error;
    *connection = opened.release();
    return 0;
}

// Runs in the last user's hands, so the lock guards nothing any more; in a forked child it may even be
// held by a thread that the child does not have. The names of command buffers go before the socket
// does: afterwards another connection of this process may have a context with the same number.
void kalix_close(kalix_connection* connection) KALIX_NO_THREAD_SAFETY_ANALYSIS
{
    if (!connection)
        return;
    const bool own = connection->process == getpid();
    for (command_buffer* one = connection->command_buffers.get(); own && one; one = one->next.get())
        shm_remove(*connection, command_buffer_name(*connection, one->number));
    drop_all(connection->command_buffers);
    drop_all(connection->readback_places);
    owned<kalix_connection>{connection}.reset();
}

int kalix_connection_error(kalix_connection* connection)
{
    if (const int error = check_caller(connection))
        return error;
    const hold guard{connection->lock};
    return connection->lost;
}

// Names go first, as at the close: once the server has answered, their numbers may be another connection's.
int kalix_disconnect(kalix_connection* connection)
{
    if (const int error = check_caller(connection))
        return error;
    const hold guard{connection->lock};
    for (command_buffer* one = connection->command_buffers.get(); one; one = one->next.get())
        shm_remove(*connection, command_buffer_name(*connection, one->number));
    const kalix_request_header header{KALIX_REQUEST_MAGIC, KALIX_DISCONNECT, 0};
    const answer got = request(*connection, {std::as_bytes(std::span{&header, 1}), {}, {}}, {});
    if (got.error)
        return got.error;
    if (got.status == 0) {
        drop_all(connection->command_buffers);
        drop_all(connection->readback_places);
    }
    return result_of_status(got.status);
}

int kalix_request(kalix_connection* connection, int32_t command, const void* payload, uint32_t payload_bytes,
                  void* reply, uint32_t reply_room, uint32_t* reply_bytes, int32_t* status)
{
    if (const int error = check_caller(connection))
        return error;
    if (!status || (!payload && payload_bytes) || (!reply && reply_room))
        return -EINVAL;
    // The server would end the connection for a longer one; here the caller alone has erred.
    if (payload_bytes > KALIX_MESSAGE_MAX - sizeof(kalix_request_header))
        return -EMSGSIZE;
    const kalix_request_header header{KALIX_REQUEST_MAGIC, command, static_cast<int32_t>(payload_bytes)};
    const hold guard{connection->lock};
    const answer got =
        request(*connection,
                {std::as_bytes(std::span{&header, 1}), {static_cast<const std::byte*>(payload), payload_bytes}, {}},
                {static_cast<std::byte*>(reply), reply_room});
    if (got.error)
        return got.error;
    *status = got.status;
    if (reply_bytes)
        *reply_bytes = got.data_bytes;
    return 0;
}
