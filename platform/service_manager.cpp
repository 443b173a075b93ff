#include "platform/service_manager.h"

#include "base/unique_fd.h"
#include "platform/settings.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <sys/socket.h>
#include <sys/un.h>

namespace kalix::platform {
namespace {

// The name of the manager's socket as the kernel wants it; '@' stands for an abstract one.
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

} // namespace

bool tell_manager(std::string_view lines)
{
    const std::string_view name = current_settings().notify_socket;
    if (name.empty())
        return true;
    sockaddr_un address;
    socklen_t length = 0;
    if (!notify_address(name, address, length))
        return false;
    const unique_fd socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    return socket && sendto(socket.get(), lines.data(), lines.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                            reinterpret_cast<const sockaddr*>(&address), length) >= 0;
}

} // namespace kalix::platform
