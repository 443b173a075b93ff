// One connection, as libkalix makes it, but with an end to its patience: a library that waits for ever for a server that
// is stopped is right, a doctor is not. The greeting is answered by the thread that receives, the parameter by a worker
// under the device mutex, so that both are known to go on.

#include "base/unique_fd.h"
#include "tools/ctl/doctor.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <kalix/protocol.h>
#include <kalix/rundir.h>
#include <span>
#include <sys/socket.h>
#include <sys/un.h>

namespace kalix::ctl {
namespace {

struct hello {
    kalix_request_frame frame{sizeof(kalix_io_connect), 0};
    kalix_io_connect message{KALIX_IO_CONNECT, 0};
};
struct question {
    kalix_request_frame frame{sizeof(kalix_request_header) + sizeof(getparam_req), sizeof(getparam_req)};
    kalix_request_header header{KALIX_REQUEST_MAGIC, KALIX_GETPARAM, sizeof(getparam_req)};
    std::array<std::byte, sizeof(getparam_req)> parameter{};
};
static_assert(sizeof(hello) == 12 && sizeof(question) == 36);

unique_fd patient_socket()
{
    unique_fd made{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    const timeval patience{probe_seconds, 0};
    for (const int direction : {SO_RCVTIMEO, SO_SNDTIMEO}) // a connect waits as a send does
        setsockopt(made.get(), SOL_SOCKET, direction, &patience, sizeof patience);
    return made;
}

// A path that does not fit is reached through the open directory.
sockaddr_un address_in(const std::string& path, int directory)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t room = sizeof address.sun_path;
    const int length = std::snprintf(address.sun_path, room, "%s/%s", path.c_str(), kalix_channel_file);
    if (length < 0 || static_cast<size_t>(length) >= room)
        std::snprintf(address.sun_path, room, "/proc/self/fd/%d/%s", directory, kalix_channel_file);
    return address;
}

// Sends a whole message and takes so many bytes; 0 or what happened instead.
int exchange(int socket, std::span<const std::byte> message, std::span<std::byte> reply)
{
    if (send(socket, message.data(), message.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(message.size()))
        return errno;
    while (!reply.empty()) {
        const ssize_t got = recv(socket, reply.data(), reply.size(), 0);
        if (got == 0)
            return ECONNRESET;
        if (got < 0 && errno != EINTR)
            return errno;
        reply = reply.subspan(got < 0 ? 0 : static_cast<size_t>(got));
    }
    return 0;
}

int talk(int socket)
{
    std::array<std::byte, sizeof(kalix_reply_frame) + sizeof(getparam_req)> reply;
    const hello greeting;
    if (const int error =
            exchange(socket, std::as_bytes(std::span{&greeting, 1}), std::span{reply}.first(sizeof(kalix_reply_frame))))
        return error;
    question asked;
    const getparam_req parameter{0, KALIX_PARAM_HAVE_3D, 0};
    std::memcpy(asked.parameter.data(), &parameter, sizeof parameter);
    return exchange(socket, std::as_bytes(std::span{&asked, 1}), reply);
}

} // namespace

probe probe_server(const std::string& directory)
{
    const unique_fd open_directory{open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
    const unique_fd socket = patient_socket();
    const sockaddr_un address = address_in(directory, open_directory.get());
    const auto start = std::chrono::steady_clock::now();
    int error = 0;
    if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        error = errno;
    const bool connected = error == 0;
    if (connected)
        error = talk(socket.get());
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - start;
    switch (error) {
    case 0:
        return {probe::answered, took.count()};
    case ENOENT:
    case ENOTDIR:
        return {probe::no_socket};
    case EACCES:
    case EPERM:
        return {probe::denied};
    case ECONNREFUSED:
        return {probe::refused};
    case EAGAIN:
    case EINPROGRESS:
        return {probe::silent};
    default:
        return {connected ? probe::closed : probe::refused};
    }
}

} // namespace kalix::ctl
