#include "platform/settings.h"

#include "base/environment.h"
#include "platform/log/log.h"

#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <optional>

namespace kalix::platform {
namespace {

// Set and empty counts as not set, as scripts have it that clear a variable by assigning nothing.
const char* value_of(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

void warn_unreadable(const char* name, const char* value, const char* used)
{
    slogf(log_code, log_warning, "kalix: %s is \"%s\", which cannot be read; using %s", name, value, used);
}

bool read_foreground()
{
    const char* value = value_of("KALIX_FOREGROUND");
    if (value == nullptr)
        return false;
    const std::optional<uint32_t> foreground = number_in(value, 0, 1);
    if (!foreground)
        warn_unreadable("KALIX_FOREGROUND", value, "0");
    return foreground.value_or(0) != 0;
}

int read_ready_fd()
{
    const char* value = value_of("KALIX_READY_FD");
    if (value == nullptr)
        return -1;
    const std::optional<uint32_t> fd = number_in(value, 0, INT_MAX);
    // The call also tells whether the descriptor is open. What the process starts must not keep it open.
    if (fd && fcntl(static_cast<int>(*fd), F_SETFD, FD_CLOEXEC) == 0)
        return static_cast<int>(*fd);
    warn_unreadable("KALIX_READY_FD", value, "none");
    return -1;
}

settings from_environment()
{
    settings read;
    read.foreground = read_foreground();
    if (const char* socket = value_of("NOTIFY_SOCKET"))
        read.notify_socket = socket;
    read.ready_fd = read_ready_fd();
    return read;
}

// None until first asked for, so that a program without process_begin has settings as well.
std::optional<settings> in_force;

} // namespace

const settings& current_settings()
{
    if (!in_force)
        read_settings();
    return *in_force;
}

void read_settings()
{
    in_force = from_environment();
}

} // namespace kalix::platform
