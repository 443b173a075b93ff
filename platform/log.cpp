#include "platform/log.h"

#include "base/lock.h"
#include "base/never_destroyed.h"
#include "platform/clock.h"
#include "platform/logger.h"
#include "platform/rate_limiter.h"
#include "platform/unique_fd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <span>
#include <string_view>
#include <sys/timerfd.h>
#include <syslog.h>

namespace kalix::platform {
namespace {

constexpr size_t line_max = 2048; // bytes with time and newline; longer ones are cut

enum class target { unopened, system_log, standard_error, file };

struct logger {
    mutex lock;
    target kind KALIX_GUARDED_BY(lock) = target::unopened;
    unique_fd file KALIX_GUARDED_BY(lock);
    int timer KALIX_GUARDED_BY(lock) = -1;
    rate_limiter limiter KALIX_GUARDED_BY(lock);
};

// Never destroyed: threads write lines until the process is gone.
logger& the_logger()
{
    static never_destroyed<logger> only;
    return *only;
}

int system_priority(int severity)
{
    constexpr std::array priorities{LOG_EMERG,  LOG_CRIT, LOG_ERR,   LOG_WARNING,
                                    LOG_NOTICE, LOG_INFO, LOG_DEBUG, LOG_DEBUG};
    return priorities[static_cast<size_t>(std::clamp(severity, 0, 7))];
}

// Writes "2026-01-31T12:00:00.123456Z 2 " and returns its length.
size_t write_stamp(std::span<char> line, int severity)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    const size_t seconds = std::strftime(line.data(), line.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    const int rest =
        std::snprintf(line.data() + seconds, line.size() - seconds, ".%06ldZ %d ", now.tv_nsec / 1000, severity);
    return seconds + static_cast<size_t>(rest);
}

// One write a line: with O_APPEND whole lines stay whole, also beside other processes.
void write_stamped(int fd, int severity, std::string_view text)
{
    std::array<char, line_max> line;
    const size_t stamp = write_stamp(line, severity);
    const size_t length = std::min(text.size(), line.size() - stamp - 1);
    std::copy_n(text.begin(), length, line.begin() + static_cast<std::ptrdiff_t>(stamp));
    line[stamp + length] = '\n';
    while (::write(fd, line.data(), stamp + length + 1) < 0 && errno == EINTR) {
    }
}

void write_text(logger& log, int severity, std::string_view text) KALIX_REQUIRES(log.lock)
{
    switch (log.kind) {
    case target::file:
        return write_stamped(log.file.get(), severity, text);
    case target::standard_error:
        return write_stamped(STDERR_FILENO, severity, text);
    case target::system_log:
    case target::unopened:
        return syslog(system_priority(severity), "%.*s", static_cast<int>(text.size()), text.data());
    }
}

void open_target(logger& log) KALIX_REQUIRES(log.lock)
{
    const char* wanted = std::getenv("KALIX_LOG");
    log.file.reset();
    log.kind = isatty(STDERR_FILENO) != 0 ? target::standard_error : target::system_log;
    openlog("kalix", LOG_PID, LOG_DAEMON);
    if (wanted == nullptr || *wanted == '\0')
        return;
    if (std::strcmp(wanted, "stderr") == 0) {
        log.kind = target::standard_error;
        return;
    }
    log.file.reset(::open(wanted, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0640));
    if (log.file) {
        log.kind = target::file;
        return;
    }
    std::array<char, 512> line;
    std::snprintf(line.data(), line.size(), "kalix: cannot open KALIX_LOG file %s: %s (%d)", wanted,
                  std::strerror(errno), errno);
    write_text(log, log_warning, line.data());
}

void open_if_needed(logger& log) KALIX_REQUIRES(log.lock)
{
    if (log.kind == target::unopened)
        open_target(log);
}

void write_counts(logger& log, int64_t now) KALIX_REQUIRES(log.lock)
{
    log.limiter.take_due(now, [&log](const call_site& site) KALIX_NO_THREAD_SAFETY_ANALYSIS {
        std::array<char, 192> line;
        std::snprintf(line.data(), line.size(), "kalix: %u more lines not written, like: %s", site.withheld,
                      site.last_line.data());
        write_text(log, site.severity, line.data());
    });
}

// Sets the timer to the moment at which the next count is due.
void set_timer(logger& log, int64_t now) KALIX_REQUIRES(log.lock)
{
    const int64_t due = log.limiter.next_due_ms();
    if (log.timer < 0 || due == rate_limiter::never)
        return;
    const int64_t wait_ms = std::max<int64_t>(due - now, 1);
    itimerspec when{};
    when.it_value = {wait_ms / 1000, wait_ms % 1000 * 1'000'000};
    timerfd_settime(log.timer, 0, &when, nullptr);
}

// Formats into text, with every control character made a blank, so that a line is one line.
__attribute__((format(printf, 2, 0))) std::string_view format_text(std::span<char> text, const char* format,
                                                                   va_list arguments)
{
    const int wanted = std::vsnprintf(text.data(), text.size(), format, arguments);
    const size_t length = std::min(static_cast<size_t>(std::max(wanted, 0)), text.size() - 1);
    std::replace_if(
        text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, ' ');
    return {text.data(), length};
}

// A line from a call site, or one without limit when site is null.
__attribute__((format(printf, 3, 0))) void write_line(const void* site, int severity, const char* format,
                                                      va_list arguments)
{
    const int kept = errno;
    logger& log = the_logger();
    {
        const hold held{log.lock};
        open_if_needed(log);
        const int64_t now = now_ms();
        write_counts(log, now);
        call_site* admitted = site != nullptr ? log.limiter.admit(site, now) : nullptr;
        if (site == nullptr || admitted != nullptr) {
            std::array<char, line_max> text;
            const std::string_view line = format_text(text, format, arguments);
            write_text(log, severity, line);
            if (admitted != nullptr)
                admitted->remember(severity, line);
        } else {
            set_timer(log, now);
        }
    }
    errno = kept;
}

} // namespace

__attribute__((noinline)) void slogf(int /*code*/, int severity, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    write_line(__builtin_return_address(0), severity, format, arguments);
    va_end(arguments);
}

void slogf_always(int /*code*/, int severity, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    write_line(nullptr, severity, format, arguments);
    va_end(arguments);
}

void log_open()
{
    logger& log = the_logger();
    const hold held{log.lock};
    open_target(log);
}

int log_descriptor()
{
    logger& log = the_logger();
    const hold held{log.lock};
    return log.file.get();
}

void log_set_timer(int fd)
{
    logger& log = the_logger();
    const hold held{log.lock};
    log.timer = fd;
    set_timer(log, now_ms());
}

void log_write_due_counts()
{
    logger& log = the_logger();
    const hold held{log.lock};
    const int64_t now = now_ms();
    write_counts(log, now);
    set_timer(log, now);
}

void log_write_all_counts()
{
    logger& log = the_logger();
    const hold held{log.lock};
    write_counts(log, now_ms() + rate_window_ms);
}

} // namespace kalix::platform
