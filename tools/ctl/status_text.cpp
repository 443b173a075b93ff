#include "tools/ctl/status_text.h"

#include "tools/ctl/svga_names.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <fmt/format.h>
#include <fstream>
#include <pwd.h>

namespace kalix::ctl {
namespace {

constexpr uint32_t first_command = 1040;

} // namespace

std::string time_text(uint64_t time_ns)
{
    constexpr uint64_t second = 1'000'000'000;
    const auto seconds = static_cast<time_t>(time_ns / second);
    tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    return fmt::format("{}.{:03}Z", text.data(), time_ns % second / 1'000'000);
}

std::string refusal_text(uint32_t request, int32_t status, uint32_t command)
{
    std::string text = fmt::format("{}: {}", request_name(request), status);
    if (command >= first_command)
        text += ", " + command_name(command - first_command);
    else if (command != 0)
        text += fmt::format(", command {}", command);
    return text;
}

value last_refusal(const kalix_status_client& client)
{
    const kalix_status_refusal& last = client.refused;
    if (last.count == 0)
        return unknown{};
    std::string text = refusal_text(last.request, last.status, last.command);
    if (last.reason != KALIX_STATUS_REASON_OTHER)
        text += ", " + reason_name(last.reason);
    if (last.named != 0)
        text += fmt::format(" {}", last.named);
    return text;
}

// The process names itself: what it says may move a cursor.
std::string process_name(uint32_t pid)
{
    std::ifstream file{fmt::format("/proc/{}/comm", pid)};
    std::string name;
    std::getline(file, name);
    std::ranges::replace_if(
        name, [](char c) { return c < ' ' || c > '~'; }, '?');
    return name;
}

std::string user_name(uint32_t uid)
{
    std::array<char, 4096> room;
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(uid, &entry, room.data(), room.size(), &found) != 0 || !found)
        return std::to_string(uid);
    return found->pw_name;
}

} // namespace kalix::ctl
