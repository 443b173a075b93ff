#include "platform/channel/listener.h"

#include "platform/files/directory.h"
#include "platform/files/group.h"
#include "platform/log/log.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace kalix::platform {
namespace {

constexpr int backlog = 128; // connections that wait to be accepted

unique_fd failed(const char* what, const socket_place& place)
{
    slogf(log_code, log_error, "kalix: cannot %s %s/%s: %s (%d)", what, place.directory_path.c_str(),
          place.name.c_str(), std::strerror(errno), errno);
    return unique_fd{};
}

// The socket's path, by way of the open directory when the whole one is too long for an address.
std::string address_path(const socket_place& place)
{
    std::string whole = place.directory_path + "/" + place.name;
    if (whole.size() < sizeof sockaddr_un::sun_path)
        return whole;
    return "/proc/self/fd/" + std::to_string(place.directory.get()) + "/" + place.name;
}

bool bind_to(int socket, const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::ranges::copy(path, address.sun_path);
    return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

// Gives the socket to the group that the server shares with. That there is none is no failure.
bool give_to_group(const socket_place& place)
{
    const std::optional<gid_t> with = sharing_group();
    return !with ||
           fchownat(place.directory.get(), place.name.c_str(), static_cast<uid_t>(-1), *with, AT_SYMLINK_NOFOLLOW) == 0;
}

bool has(int socket, int option, int wanted)
{
    int value = 0;
    socklen_t length = sizeof value;
    return getsockopt(socket, SOL_SOCKET, option, &value, &length) == 0 && value == wanted;
}

} // namespace

// A duplicate: the one passed stays for a channel that is opened after this one.
unique_fd take_listener(int passed)
{
    unique_fd socket{fcntl(passed, F_DUPFD_CLOEXEC, 0)};
    const bool listens = socket && has(socket.get(), SO_DOMAIN, AF_UNIX) && has(socket.get(), SO_TYPE, SOCK_STREAM) &&
                         has(socket.get(), SO_ACCEPTCONN, 1);
    const int flags = listens ? fcntl(socket.get(), F_GETFL) : -1;
    if (flags >= 0 && fcntl(socket.get(), F_SETFL, flags | O_NONBLOCK) == 0)
        return socket;
    slogf(log_code, log_error, "kalix: descriptor %d was passed, which is no listening stream socket", passed);
    errno = ENOTSOCK;
    return unique_fd{};
}

unique_fd open_listener(const socket_place& place, mode_t mode)
{
    const int directory = place.directory.get();
    unique_fd socket{::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
    if (!socket)
        return failed("make the socket of", place);
    if (!remove_entry(directory, place.name.c_str()))
        return failed("replace", place);
    if (!bind_to(socket.get(), address_path(place)))
        return failed("bind to", place);
    // Nobody can connect before listen, so that the rights are set first.
    if (fchmodat(directory, place.name.c_str(), mode, 0) != 0 || !give_to_group(place))
        return failed("set the rights of", place);
    if (listen(socket.get(), backlog) != 0)
        return failed("listen on", place);
    return socket;
}

bool peer_of(int socket, peer& who)
{
    ucred credentials{};
    socklen_t length = sizeof credentials;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0)
        return false;
    if (credentials.pid <= 0) { // names of shared objects are made of the id, so that a client needs one
        errno = ESRCH;
        return false;
    }
    who = {static_cast<uint32_t>(credentials.pid), credentials.uid};
    return true;
}

} // namespace kalix::platform
