#include "platform/process.h"

#include "base/unique_fd.h"
#include "platform/files/run_directory.h"
#include "platform/log/clock.h"
#include "platform/log/log.h"
#include "platform/log/logger.h"
#include "platform/service_manager.h"
#include "platform/settings.h"

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
#include <sys/syscall.h>
#include <unistd.h>

namespace kalix::platform {
namespace {

std::atomic<void (*)()> farewell_call{nullptr}; // set before there are threads, called on the one that ends the process
// Who looks for SIGTERM and SIGINT: nobody yet, the main thread whenever it sleeps, a thread of their own.
enum class watch { nobody, sleeper, thread };
std::atomic<watch> watched_by{watch::nobody};

sigset_t end_signals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    return set;
}

// Threads started later inherit the mask, so that only who waits for these signals sees them. A client or
// a reader of our log that goes away is an error number, not the end.
void take_signals()
{
    const sigset_t set = end_signals();
    if (const int error = pthread_sigmask(SIG_BLOCK, &set, nullptr); error != 0) {
        slogf(log_code, log_error, "kalix: cannot take SIGTERM and SIGINT over: %s (%d)", std::strerror(error), error);
        return;
    }
    std::signal(SIGPIPE, SIG_IGN);
    watched_by = watch::sleeper;
}

// Not in a signal handler, where neither logging nor removing files is allowed: the signals are blocked, and waited
// for by a thread that may do anything.
[[noreturn]] void end_on_signal()
{
    if (void (*farewell)() = farewell_call)
        farewell();
    process_exit(0);
}

// Waits until a signal ends the process; no lock of ours delays it.
void* watch_signals(void* /*nothing*/)
{
    const sigset_t set = end_signals();
    int signal = 0;
    while (sigwait(&set, &signal) != 0) {
    }
    end_on_signal();
}

timespec time_of(uint64_t microseconds)
{
    return {static_cast<time_t>(microseconds / 1'000'000), static_cast<long>(microseconds % 1'000'000 * 1000)};
}

// Sleeps, or ends the process when a signal comes or has come.
void sleep_or_end(uint64_t microseconds)
{
    const sigset_t set = end_signals();
    const int64_t until = now_ms() + static_cast<int64_t>(microseconds / 1000);
    uint64_t left = microseconds;
    for (;;) {
        const timespec limit = time_of(left);
        if (sigtimedwait(&set, nullptr, &limit) >= 0)
            end_on_signal();
        if (errno != EINTR)
            return;
        left = static_cast<uint64_t>(std::max<int64_t>(until - now_ms(), 0)) * 1000; // a debugger's doing
    }
}

// Many hosts allow few descriptors unless asked, for the sake of programs that use select, which the server does not.
// A limit that stays low is no reason not to serve: the bounds follow it (descriptors.h).
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
    // In gaps between what is kept, so that one call closes many: a descriptor limit may lie in the millions.
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
    log_open(); // standard error is another one now
    return true;
}

// What the flags ask of the process in the background.
bool leave_foreground(unsigned flags)
{
    if (setsid() < 0) // the terminal's interrupts and its hanging up are no longer for us
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

// The log first, since all that follows may write to it; the signals last, when there is an end to bring about.
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
    // A service manager watches the process that it started, and would take the parent's exit for the server's.
    const settings& given = current_settings();
    if (given.foreground || !given.notify_socket.empty() || given.listen_fd >= 0)
        return 0;
    if (watched_by == watch::sleeper)
        sleep_or_end(0); // the child does not inherit what is pending
    const pid_t child = fork();
    if (child < 0)
        return background_failed();
    if (child > 0)
        _exit(status); // not exit: what the streams have buffered is the child's to write, once
    return leave_foreground(flags) ? 0 : background_failed();
}

void process_watch_signals()
{
    if (watched_by != watch::sleeper)
        return;
    thread_id watcher = 0;
    if (pthread_create(&watcher, watch_signals, nullptr) == 0) {
        pthread_setname_np(watcher, "kalix-signals");
        watched_by = watch::thread;
        return;
    }
    // Without a thread the host's own action still ends the process at once.
    const sigset_t set = end_signals();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    watched_by = watch::nobody;
}

// No destructor runs: workers go on to the last, and would use what is destroyed. The files before the log, since
// removing them may log.
void process_exit(int status)
{
    tell_manager("STOPPING=1\nSTATUS=ending");
    clean_run_directory();
    log_finish();
    _exit(status);
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
    if (watched_by == watch::sleeper)
        return sleep_or_end(microseconds);
    timespec left = time_of(microseconds);
    // The call gives its error as its value, and what is left of the time behind an interruption.
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
