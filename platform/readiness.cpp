#include "platform/readiness.h"

#include "base/unique_fd.h"
#include "platform/log/log.h"
#include "platform/settings.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

namespace kalix::platform {
namespace {

// A warning alone: clients can be served, whoever waits to hear of it.
void told_nobody(const char* whom)
{
    slogf(log_code, log_warning, "kalix: cannot report readiness to %s: %s (%d)", whom, std::strerror(errno), errno);
}

// The name of a service manager's socket as the kernel wants it; '@' stands for an abstract one.
bool notify_address(std::string_view name, sockaddr_un& address, socklen_t& length)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (name.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::ranges::copy(name, address.sun_path);
    if (name.front() == '@')
        address.sun_path[0] = '\0';
    length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    return true;
}

bool notify(std::string_view name)
{
    constexpr std::string_view ready{"READY=1"};
    sockaddr_un address;
    socklen_t length = 0;
    if (!notify_address(name, address, length))
        return false;
    const unique_fd socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    return socket && sendto(socket.get(), ready.data(), ready.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                            reinterpret_cast<const sockaddr*>(&address), length) >= 0;
}

} // namespace

void report_ready()
{
    static std::atomic<bool> reported{false};
    // Asked at every receive, so that the usual answer costs a load and no exchange.
    if (reported.load(std::memory_order_relaxed) || reported.exchange(true))
        return;
    const settings& given = current_settings();
    if (!given.notify_socket.empty() && !notify(given.notify_socket))
        told_nobody("NOTIFY_SOCKET");
    if (given.ready_fd < 0)
        return;
    const unique_fd ready{given.ready_fd}; // closed behind the byte: who reads to the end must not wait for ours
    if (::write(ready.get(), "\n", 1) != 1)
        told_nobody("KALIX_READY_FD");
}

} // namespace kalix::platform
