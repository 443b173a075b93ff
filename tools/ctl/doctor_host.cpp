// Around the server: its directory, who may reach it, whether it lives and answers, its store.

#include "tools/ctl/doctor.h"
#include "tools/ctl/status_text.h"
#include "tools/screen/published_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <kalix/client.h>
#include <kalix/rundir.h>
#include <unistd.h>
#include <vector>

namespace kalix::ctl {
namespace {

bool is_set(const char* variable)
{
    const char* const given = std::getenv(variable);
    return given && *given;
}

// In the order in which kalix_find_run_directory goes.
const char* why(const std::string& directory)
{
    if (is_set("KALIX_RUN_DIR"))
        return "KALIX_RUN_DIR";
    if (geteuid() == 0)
        return "root's";
    if (directory == kalix_host_run_directory)
        return "the host's, since you run no server";
    return is_set("XDG_RUNTIME_DIR") ? "XDG_RUNTIME_DIR" : "KALIX_RUN_DIR and XDG_RUNTIME_DIR are not set";
}

bool may(const std::string& path, int what)
{
    return faccessat(AT_FDCWD, path.c_str(), what, AT_EACCESS) == 0;
}

bool is_member(gid_t group)
{
    if (getegid() == group)
        return true;
    std::vector<gid_t> groups(static_cast<size_t>(std::max(getgroups(0, nullptr), 0)));
    const int count = getgroups(static_cast<int>(groups.size()), groups.data());
    groups.resize(static_cast<size_t>(std::max(count, 0)));
    return std::ranges::find(groups, group) != groups.end();
}

// What keeps this user from connecting, and what would help.
std::string why_denied(const patient& of)
{
    std::array<char, 4352> text{};
    kalix_explain_open(of.directory.c_str(), -EACCES, text.data(), text.size());
    return text.data();
}

} // namespace

finding check_directory(const patient& of)
{
    const std::string path = fmt::format("{} ({})", of.directory, why(of.directory));
    if (of.directory_error == ENOENT)
        return {severity::fault, fault::no_directory, path + " does not exist",
                "start a server (kalix), or name its directory in KALIX_RUN_DIR"};
    if (of.directory_error != 0)
        return {severity::fault, fault::directory_closed,
                fmt::format("{} cannot be looked at: {}", path, std::strerror(of.directory_error)),
                "ask who owns it, or name another in KALIX_RUN_DIR"};
    const std::string rights =
        fmt::format("user {}, mode {:04o}", user_name(of.directory_facts.st_uid), of.directory_facts.st_mode & 07777u);
    if (!S_ISDIR(of.directory_facts.st_mode) || !may(of.directory, X_OK))
        return {severity::fault, fault::directory_closed, fmt::format("{} does not let you in: {}", path, rights),
                why_denied(of)};
    if ((of.directory_facts.st_mode & S_IWOTH) != 0)
        return {severity::warn, fault::directory_closed,
                fmt::format("every user may write into {}, which a server refuses", path), "chmod o-w it"};
    return fine(fmt::format("{}, {}", path, rights));
}

finding check_group(const patient& of)
{
    if (!of.socket_facts)
        return {};
    const struct stat& facts = *of.socket_facts;
    if (geteuid() == 0 || geteuid() == facts.st_uid)
        return fine("not needed: you are root, or the server's user");
    if (may(of.directory + "/" + kalix_channel_file, W_OK))
        return fine(is_member(facts.st_gid) ? "you are in group " + tools::group_name(facts.st_gid)
                                            : "not needed: the socket is open to you");
    return {severity::fault, fault::not_in_group, "the server does not serve you", why_denied(of)};
}

finding check_server(const patient& of)
{
    if (of.directory_error != 0 || of.server == tools::server_state::none || !may(of.directory, X_OK))
        return {};
    if (!of.server || !of.status)
        return {severity::warn, fault::status_unreadable, "the status file cannot be read",
                "its user and the group that it shares with may; or server and tools are of different versions"};
    const std::string process =
        fmt::format("process {}, started {}", of.status->server_pid, time_text(of.status->start_ns));
    if (of.server == tools::server_state::lives)
        return fine(process);
    return {severity::fault, fault::server_ended, "the server has ended: the files are those of " + process,
            "start it again; its last picture: kalixctl screenshot --last FILE"};
}

finding check_socket(const patient& of)
{
    switch (of.answer.outcome) {
    case probe::not_made:
        return {};
    case probe::no_socket:
        return {severity::fault, fault::no_socket, "there is no socket svga_ch",
                "no server runs here: start one (kalix)"};
    case probe::denied:
        return {severity::fault, fault::socket_denied, "the socket svga_ch does not let you connect",
                "what would let you in is said above"};
    case probe::refused:
        return {severity::fault, fault::nobody_listens, "nobody listens on the socket svga_ch",
                "its server has ended: start one (kalix)"};
    default:
        return fine("svga_ch takes connections");
    }
}

finding check_answer(const patient& of)
{
    const std::string process = of.status ? std::to_string(of.status->server_pid) : "PID";
    switch (of.answer.outcome) {
    case probe::answered:
        return fine(fmt::format("in {:.0f} us", of.answer.round_trip_us));
    case probe::silent:
        return {severity::fault, fault::no_answer,
                fmt::format("none within {} s: the server is stopped or stuck", probe_seconds),
                fmt::format("kill -CONT {0}, or end it: kill -KILL {0}", process)};
    case probe::closed:
        return {severity::fault, fault::no_answer, "the server closes the connection",
                "it has as many as it takes (docs/security.md, Bounds); its log says so"};
    default:
        return {};
    }
}

finding check_store(const patient& of)
{
    if (!of.status || of.server != tools::server_state::lives)
        return {};
    const std::string store = of.status->store;
    if (store.empty())
        return {severity::warn, fault::store, "the server has none: the zoom cannot be set",
                "its log says why (pps init failed)"};
    if (geteuid() != 0 && geteuid() != of.directory_facts.st_uid)
        return fine(store + ", which its server's user writes");
    if (!may(store + "/services", W_OK | X_OK))
        return {severity::warn, fault::store,
                fmt::format("{} cannot be written by you: {}", store, std::strerror(errno)),
                "the zoom is set by who may; a store that was removed comes back when the server starts"};
    return fine(store);
}

finding check_viewer(const patient&)
{
    for (const char* const variable : {"WAYLAND_DISPLAY", "DISPLAY"})
        if (is_set(variable))
            return fine(fmt::format("kalix-view opens a window on {} {}", variable, std::getenv(variable)));
    return fine("no DISPLAY and no WAYLAND_DISPLAY here: kalix-view --web serves browsers, --vnc viewers");
}

} // namespace kalix::ctl
