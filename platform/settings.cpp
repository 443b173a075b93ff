#include "platform/settings.h"

#include "base/environment.h"
#include "base/sharing_group.h"
#include "platform/files/group.h"
#include "platform/log/log.h"

#include <charconv>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

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

// The whole text as a number to that base, 1 to most; nothing for any other text.
std::optional<uint64_t> whole_number(std::string_view text, int base, uint64_t most)
{
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    const bool is_whole = error == std::errc{} && end == text.data() + text.size();
    return is_whole && value >= 1 && value <= most ? std::optional{value} : std::nullopt;
}

bool is_own_process(const char* value)
{
    return whole_number(value, 10, INT_MAX) == static_cast<uint64_t>(getpid());
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

std::optional<gid_t> read_group()
{
    return sharing_group_of_environment([](const char* value, group_fault fault) {
        if (fault == group_fault::unknown)
            return warn_unreadable("KALIX_GROUP", value, "none");
        slogf(log_code, log_warning, "kalix: KALIX_GROUP is \"%s\", a group that this user is no member of; using none",
              value);
    });
}

mode_t read_socket_mode()
{
    const char* value = value_of("KALIX_SOCKET_MODE");
    if (value == nullptr)
        return settings{}.socket_mode;
    const std::optional<uint64_t> mode = whole_number(value, 8, 0777);
    if (!mode)
        warn_unreadable("KALIX_SOCKET_MODE", value, "0660");
    return mode ? static_cast<mode_t>(*mode) : settings{}.socket_mode;
}

// The first of the descriptors that a service manager passes, which begin at 3. Those that it means for another
// process, whose environment came down to us, are none of ours.
int read_listen_fd()
{
    constexpr int first = 3;
    const char* process = value_of("LISTEN_PID");
    const char* count = value_of("LISTEN_FDS");
    if (process == nullptr || count == nullptr || !is_own_process(process))
        return -1;
    if (whole_number(count, 10, INT_MAX) && fcntl(first, F_SETFD, FD_CLOEXEC) == 0)
        return first;
    warn_unreadable("LISTEN_FDS", count, "none");
    return -1;
}

uint64_t read_watchdog()
{
    const char* process = value_of("WATCHDOG_PID");
    const char* interval = value_of("WATCHDOG_USEC");
    if (interval == nullptr || (process != nullptr && !is_own_process(process)))
        return 0;
    const std::optional<uint64_t> microseconds = whole_number(interval, 10, INT64_MAX);
    if (!microseconds)
        warn_unreadable("WATCHDOG_USEC", interval, "none");
    return microseconds.value_or(0);
}

settings from_environment()
{
    settings read;
    read.foreground = read_foreground();
    if (const char* socket = value_of("NOTIFY_SOCKET"))
        read.notify_socket = socket;
    read.ready_fd = read_ready_fd();
    read.group = read_group();
    read.socket_mode = read_socket_mode();
    read.listen_fd = read_listen_fd();
    read.watchdog_us = read_watchdog();
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
    share_with(in_force->group);
    for (const char* name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"})
        unsetenv(name);
}

} // namespace kalix::platform
