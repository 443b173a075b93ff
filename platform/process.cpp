#include "platform/process.h"

#include "platform/log.h"
#include "platform/logger.h"
#include "platform/process_end.h"
#include "platform/run_directory.h"
#include "platform/settings.h"
#include "platform/unique_fd.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kalix::platform {
namespace {

std::atomic<void (*)()> farewell_call{nullptr};
std::atomic<bool> signals_taken{false};

sigset_t end_signals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    return set;
}

// Threads started later inherit the mask, so that only the receive loop sees these signals. A client or
// a reader of our log that goes away is an error number, not the end.
void take_signals()
{
    const sigset_t set = end_signals();
    if (const int error = pthread_sigmask(SIG_BLOCK, &set, nullptr); error != 0) {
        slogf(log_code, log_error, "kalix: cannot take SIGTERM and SIGINT over: %s (%d)", std::strerror(error), error);
        return;
    }
    std::signal(SIGPIPE, SIG_IGN);
    signals_taken = true;
}

void raise_descriptor_limit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        if (limit.rlim_cur == limit.rlim_max)
            return;
        limit.rlim_cur = limit.rlim_max;
        if (setrlimit(RLIMIT_NOFILE, &limit) == 0)
            return;
    }
    slogf(log_code, log_warning, "kalix: cannot raise the descriptor limit: %s (%d)", std::strerror(errno), errno);
}

// Closes everything but the standard streams, the log's file and the readiness descriptor.
void close_inherited()
{
    std::array kept{STDERR_FILENO, log_descriptor(), current_settings().ready_fd};
    std::ranges::sort(kept);
    unsigned first = STDERR_FILENO + 1;
    for (const int fd : kept) {
        if (fd < static_cast<int>(first))
            continue;
        if (fd > static_cast<int>(first))
            syscall(SYS_close_range, first, static_cast<unsigned>(fd) - 1, 0);
        first = static_cast<unsigned>(fd) + 1;
    }
    syscall(SYS_close_range, first, ~0U, 0);
}

bool silence_streams()
{
    const unique_fd null{::open("/dev/null", O_RDWR | O_CLOEXEC)};
    if (!null)
        return false;
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (dup2(null.get(), stream) < 0)
            return false;
    }
    return true;
}

// What the flags ask of the process in the background.
bool leave_foreground(unsigned flags)
{
    if (setsid() < 0)
        return false;
    if ((flags & daemon_keep_directory) == 0 && chdir("/") != 0)
        return false;
    if ((flags & daemon_keep_descriptors) == 0)
        close_inherited();
    return (flags & daemon_keep_streams) != 0 || silence_streams();
}

int background_failed()
{
    slogf(log_code, log_error, "kalix: cannot go into the background: %s (%d)", std::strerror(errno), errno);
    return -1;
}

} // namespace

void process_begin(void (*farewell)())
{
    log_open();
    read_settings();
    farewell_call = farewell;
    raise_descriptor_limit();
    take_signals();
}

int procmgr_daemon(int status, unsigned flags)
{
    if (current_settings().foreground || !current_settings().notify_socket.empty())
        return 0;
    const pid_t child = fork();
    if (child < 0)
        return background_failed();
    if (child > 0)
        _exit(status);
    return leave_foreground(flags) ? 0 : background_failed();
}

void process_exit(int status)
{
    clean_run_directory();
    log_write_all_counts();
    _exit(status);
}

int open_signal_descriptor()
{
    if (!signals_taken)
        return -1;
    const sigset_t set = end_signals();
    const int fd = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    if (fd < 0)
        slogf(log_code, log_error, "kalix: cannot wait for signals: %s (%d)", std::strerror(errno), errno);
    return fd;
}

void end_on_signal()
{
    if (void (*farewell)() = farewell_call)
        farewell();
    process_exit(0);
}

uint32_t own_user()
{
    return ::geteuid();
}

uint32_t own_process()
{
    return static_cast<uint32_t>(getpid());
}

int ThreadCtl(int /*command*/, void* /*data*/)
{
    return 0;
}

void sleep_us(uint64_t microseconds)
{
    if (microseconds == 0)
        return;
    timespec left{static_cast<time_t>(microseconds / 1'000'000), static_cast<long>(microseconds % 1'000'000 * 1000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}

void* dlopen(const char* path, int mode)
{
    return ::dlopen(path, (mode & load_lazy) != 0 ? RTLD_LAZY : RTLD_NOW);
}

const char* dlerror()
{
    return ::dlerror();
}

int dlclose(void* handle)
{
    return ::dlclose(handle);
}

} // namespace kalix::platform
