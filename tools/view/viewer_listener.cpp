// Whoever may connect sees the screen, unless a password is asked: so a unix socket is made with its final rights, and
// a port is bound to the one address that was named.

#include "tools/view/viewer_listener.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
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

// What a numeric address and a port mean to the host.
class tcp_address {
public:
    tcp_address(const std::string& address, uint16_t port)
    {
        addrinfo wanted{};
        wanted.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
        wanted.ai_socktype = SOCK_STREAM;
        if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &wanted, &found_) != 0)
            throw std::runtime_error{"cannot listen on " + address + ": it is no numeric address"};
    }
    ~tcp_address() { freeaddrinfo(found_); }
    tcp_address(const tcp_address&) = delete;
    tcp_address& operator=(const tcp_address&) = delete;
    const addrinfo* operator->() const { return found_; }

private:
    addrinfo* found_ = nullptr;
};

std::string address_name(const sockaddr& address)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address.sa_family == AF_INET6) {
        const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
        inet_ntop(AF_INET6, &six.sin6_addr, text.data(), text.size());
        return "[" + std::string{text.data()} + "]:" + std::to_string(ntohs(six.sin6_port));
    }
    const auto& four = reinterpret_cast<const sockaddr_in&>(address);
    inet_ntop(AF_INET, &four.sin_addr, text.data(), text.size());
    return std::string{text.data()} + ":" + std::to_string(ntohs(four.sin_port));
}

bool is_loopback(const sockaddr& address)
{
    if (address.sa_family == AF_INET6)
        return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
    return ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
}

// Whether somebody serves the socket of that address.
bool is_served(const sockaddr_un& address)
{
    const unique_fd probe{::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
    // A full queue answers EAGAIN: somebody serves, and has much to do.
    return connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 || errno == EAGAIN;
}

} // namespace

viewer_listener::viewer_listener(unique_fd socket, std::string name, std::string path, bool local)
    : socket_{std::move(socket)}, name_{std::move(name)}, path_{std::move(path)}, local_{local}
{
}

viewer_listener::viewer_listener(viewer_listener&& other) noexcept
    : socket_{std::move(other.socket_)}, name_{std::move(other.name_)}, path_{std::exchange(other.path_, {})},
      local_{other.local_}
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
    return {std::move(socket), path, path, true};
}

viewer_listener viewer_listener::on_port(const std::string& address, uint16_t port)
{
    const tcp_address wanted{address, port};
    unique_fd socket = bound(wanted->ai_family, wanted->ai_addr, wanted->ai_addrlen, address_name(*wanted->ai_addr));
    sockaddr_storage given{}; // with the port that was free
    socklen_t length = sizeof given;
    auto& got = reinterpret_cast<sockaddr&>(given);
    if (getsockname(socket.get(), &got, &length) != 0)
        fail(address);
    return {std::move(socket), address_name(got), "", is_loopback(got)};
}

unique_fd viewer_listener::accept()
{
    return unique_fd{accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC)};
}

void viewer_listener::wait(int milliseconds) const
{
    pollfd waiting{socket_.get(), POLLIN, 0};
    poll(&waiting, 1, milliseconds);
}

} // namespace kalix::view
