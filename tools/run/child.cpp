// Between fork and exec nothing allocates and nothing throws: what the child needs, its arguments and environment as
// arrays of pointers, is laid out before the fork.

#include "tools/run/child.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>

namespace kalix::run {

namespace {

[[noreturn]] void fail(const char* what)
{
    throw std::system_error{errno, std::generic_category(), what};
}

// Some C libraries declare their function for this for C alone.
int open_process(pid_t pid)
{
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

std::string_view name_of(std::string_view entry)
{
    return entry.substr(0, entry.find('='));
}

std::vector<std::string> environment_for(const start_options& options)
{
    const auto replaced = [&options](std::string_view name) {
        return std::ranges::any_of(options.environment, [name](const auto& set) { return set.first == name; }) ||
               std::ranges::find(options.removed, name) != options.removed.end();
    };
    std::vector<std::string> entries;
    for (char** entry = environ; *entry; ++entry)
        if (!replaced(name_of(*entry)))
            entries.emplace_back(*entry);
    for (const auto& [name, value] : options.environment)
        entries.push_back(std::string{name}.append("=").append(value));
    return entries;
}

std::vector<char*> pointers_to(std::vector<std::string>& strings)
{
    std::vector<char*> pointers;
    pointers.reserve(strings.size() + 1);
    for (std::string& string : strings)
        pointers.push_back(string.data());
    pointers.push_back(nullptr);
    return pointers;
}

// The rest runs in the child, between fork and exec: system calls alone.

void end_with(pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    // A parent that died before the line above has sent no signal.
    if (getppid() != parent)
        _exit(exit_not_executable);
}

void enter_background()
{
    // Its own group, or a ctrl-C at the terminal would end the server before the command it serves.
    setpgid(0, 0);
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

void tell(const char* text)
{
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, std::strlen(text));
}

[[noreturn]] void become(const start_options& options, char* const* arguments, char* const* environment, pid_t parent)
{
    end_with(parent);
    if (options.background)
        enter_background();
    // Everything is open for this process alone; this one descriptor is for the child.
    if (options.inherited_fd >= 0)
        fcntl(options.inherited_fd, F_SETFD, 0);
    if (options.signal_mask)
        sigprocmask(SIG_SETMASK, options.signal_mask, nullptr);
    execvpe(arguments[0], arguments, environment);
    const int error = errno;
    tell("kalix-run: cannot start ");
    tell(arguments[0]);
    tell(": ");
    tell(strerrordesc_np(error));
    tell("\n");
    _exit(error == ENOENT ? exit_not_found : exit_not_executable);
}

} // namespace

child::child(const start_options& options)
{
    std::vector<std::string> command = options.command;
    std::vector<std::string> entries = environment_for(options);
    const std::vector<char*> arguments = pointers_to(command);
    const std::vector<char*> environment = pointers_to(entries);
    const pid_t parent = getpid();
    pid_ = fork();
    // Does not return.
    if (pid_ == 0)
        become(options, arguments.data(), environment.data(), parent);
    watch();
}

child::child(const std::function<int()>& work)
{
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) {
        end_with(parent);
        _exit(work());
    }
    watch();
}

void child::watch()
{
    if (pid_ < 0)
        fail("start a process");
    process_fd_ = unique_fd{open_process(pid_)};
    if (!process_fd_) {
        const int error = errno;
        kill(pid_, SIGKILL);
        wait();
        errno = error;
        fail("watch a process");
    }
}

child::~child()
{
    signal(SIGKILL);
    wait();
}

void child::signal(int number) const
{
    if (running())
        kill(pid_, number); // not reaped yet, so the number is still its own
}

int child::wait()
{
    // No such child, the one other error, ends the wait as well: there is nothing to wait for.
    while (running())
        if (waitpid(pid_, &status_, 0) == pid_ || errno != EINTR)
            pid_ = -1;
    return status_;
}

bool child::wait_for(int milliseconds)
{
    if (!running())
        return true;
    pollfd watched{process_fd_.get(), POLLIN, 0};
    if (poll(&watched, 1, milliseconds) != 1)
        return false;
    wait();
    return true;
}

int exit_status_of(int wait_status)
{
    // Shells tell a signal's end so; scripts around kalix-run know it.
    constexpr int signal_base = 128;
    return WIFSIGNALED(wait_status) ? signal_base + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

std::string description_of(int wait_status)
{
    if (!WIFSIGNALED(wait_status))
        return "exit status " + std::to_string(WEXITSTATUS(wait_status));
    const int number = WTERMSIG(wait_status);
    return "signal " + std::to_string(number) + " (" + sigdescr_np(number) + ")";
}

} // namespace kalix::run
