// Sockets that only this machine reaches: whoever may connect sees the screen, so a unix socket is made with its final
// rights, and a port is bound to the loopback interface and nothing else.

#include "tools/view/viewer_listener.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace kalix::view {
namespace {

constexpr int backlog = 8;

[[noreturn]] void fail(const std::string& name)
{
    throw std::system_error{errno, std::generic_category(), "listen on " + name};
}

unique_fd bound(int domain, const sockaddr* address, socklen_t length, const std::string& name)
{
    unique_fd socket{::socket(domain, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
    // Otherwise connections that ended within the last minute keep the port from being bound again.
    const int yes = 1;
    if (!socket || setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
        bind(socket.get(), address, length) != 0 || listen(socket.get(), backlog) != 0)
        fail(name);
    return socket;
}

// Whether somebody serves the socket of that address.
bool is_served(const sockaddr_un& address)
{
    const unique_fd probe{::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
    // A full queue answers EAGAIN: somebody serves, and has much to do.
    return connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 || errno == EAGAIN;
}

} // namespace

viewer_listener::viewer_listener(unique_fd socket, std::string name, std::string path)
    : socket_{std::move(socket)}, name_{std::move(name)}, path_{std::move(path)}
{
}

viewer_listener::viewer_listener(viewer_listener&& other) noexcept
    : socket_{std::move(other.socket_)}, name_{std::move(other.name_)}, path_{std::exchange(other.path_, {})}
{
}

viewer_listener::~viewer_listener()
{
    if (!path_.empty())
        unlink(path_.c_str());
}

viewer_listener viewer_listener::on_path(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        fail(path);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size());
    if (is_served(address)) {
        errno = EADDRINUSE;
        fail(path);
    }
    // Left by one that was killed. Anything else of that name is not ours to remove: bind refuses.
    struct stat facts {};
    if (lstat(path.c_str(), &facts) == 0 && S_ISSOCK(facts.st_mode))
        unlink(path.c_str());
    const mode_t before = umask(0177); // for this user alone, from the first moment
    unique_fd socket = bound(AF_UNIX, reinterpret_cast<const sockaddr*>(&address), sizeof address, path);
    umask(before);
    return {std::move(socket), path, path};
}

viewer_listener viewer_listener::on_port(uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::string name = "127.0.0.1:" + std::to_string(port);
    return {bound(AF_INET, reinterpret_cast<const sockaddr*>(&address), sizeof address, name), name, ""};
}

unique_fd viewer_listener::accept() const
{
    return unique_fd{accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC)};
}

void viewer_listener::wait(int milliseconds) const
{
    pollfd waiting{socket_.get(), POLLIN, 0};
    poll(&waiting, 1, milliseconds);
}

} // namespace kalix::view
