// A process's parent stands in its stat file. A process that forks while the files are read may be missed once; its
// parent is then killed and it is this process's child the next time, so passes are made until one finds nobody.

#include "tools/run/descendants.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace kalix::run {

namespace {

constexpr int grace_ms = 2'000;  // to end by SIGTERM: whoever is still there has lost its server anyway
constexpr int pass_ms = 20;      // between two looks
constexpr int kill_passes = 250; // five seconds: a killed process goes at once, unless the kernel holds it

struct process {
    pid_t parent;
    bool ended; // and not reaped yet
};

// "PID (name) state PPID ...", where a name may hold anything, parentheses and spaces too.
bool read_process(const std::filesystem::path& folder, process& out)
{
    std::ifstream file{folder / "stat"};
    const std::string text{std::istreambuf_iterator<char>{file}, {}};
    const size_t behind_name = text.rfind(") ");
    if (behind_name == std::string::npos || behind_name + 4 >= text.size())
        return false;
    const char state = text[behind_name + 2];
    out.ended = state == 'Z' || state == 'X';
    return std::from_chars(&text[behind_name + 4], text.data() + text.size(), out.parent).ec == std::errc{};
}

std::map<pid_t, process> all_processes()
{
    std::map<pid_t, process> all;
    std::error_code gone; // a process that ends meanwhile is none
    for (std::filesystem::directory_iterator entry{"/proc", gone}, end; !gone && entry != end; entry.increment(gone)) {
        const std::string name = entry->path().filename();
        pid_t pid = 0;
        const auto [rest, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
        process one{};
        if (error == std::errc{} && rest == name.data() + name.size() && read_process(entry->path(), one))
            all.emplace(pid, one);
    }
    return all;
}

// This process's, without those that have ended.
std::vector<pid_t> living(std::span<const pid_t> spared)
{
    const std::map<pid_t, process> all = all_processes();
    std::vector<pid_t> found;
    std::vector<pid_t> parents{getpid()};
    while (!parents.empty()) {
        const pid_t parent = parents.back();
        parents.pop_back();
        for (const auto& [pid, one] : all)
            if (one.parent == parent && std::ranges::find(spared, pid) == spared.end()) {
                parents.push_back(pid);
                if (!one.ended)
                    found.push_back(pid);
            }
    }
    return found;
}

} // namespace

descendants::descendants()
{
    sigset_t wanted;
    sigemptyset(&wanted);
    sigaddset(&wanted, SIGCHLD);
    sigprocmask(SIG_BLOCK, &wanted, nullptr);
    ended_ = unique_fd{signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK)};
    if (!ended_ || prctl(PR_SET_CHILD_SUBREAPER, 1) != 0)
        throw std::system_error{errno, std::generic_category(), "watch for the command's descendants"};
}

void descendants::reap(std::span<const pid_t> spared) const
{
    signalfd_siginfo info{};
    while (read(ended_.get(), &info, sizeof info) == sizeof info) {
    }
    for (;;) {
        siginfo_t first{}; // looked at without taking it: it may be another's
        if (waitid(P_ALL, 0, &first, WEXITED | WNOHANG | WNOWAIT) != 0 || first.si_pid == 0 ||
            std::ranges::find(spared, first.si_pid) != spared.end())
            return;
        waitpid(first.si_pid, nullptr, WNOHANG);
    }
}

size_t descendants::signal(int number, std::span<const pid_t> spared)
{
    const std::vector<pid_t> all = living(spared);
    // Numbers go round before they come again, so that one just looked at is no other process's yet.
    return static_cast<size_t>(std::ranges::count_if(all, [number](pid_t pid) { return kill(pid, number) == 0; }));
}

void descendants::end(std::span<const pid_t> spared, int hurry_fd) const
{
    reap(spared);
    if (signal(SIGTERM, spared) == 0)
        return;
    std::array<pollfd, 2> watched{{{ended_.get(), POLLIN, 0}, {hurry_fd, POLLIN, 0}}};
    for (int waited = 0; waited < grace_ms && !watched[1].revents && signal(0, spared) != 0; waited += pass_ms) {
        poll(watched.data(), watched.size(), pass_ms);
        reap(spared);
    }
    for (int pass = 0; pass < kill_passes && signal(SIGKILL, spared) != 0; ++pass) {
        poll(watched.data(), 1, pass_ms);
        reap(spared);
    }
}

} // namespace kalix::run
