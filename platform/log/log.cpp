#include "platform/log/log.h"

#include "base/lock.h"
#include "base/never_destroyed.h"
#include "platform/log/clock.h"
#include "platform/log/log_sink.h"
#include "platform/log/logger.h"
#include "platform/log/rate_limiter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <span>
#include <string_view>
#include <sys/timerfd.h>

namespace kalix::platform {
namespace {

constexpr int log_finish_ms = 200; // that the end of the process waits for a reader of the log

struct logger {
    mutex lock;
    log_sink sink KALIX_GUARDED_BY(lock);
    int timer KALIX_GUARDED_BY(lock) = -1;
    rate_limiter limiter KALIX_GUARDED_BY(lock);
};

// Never destroyed: threads write lines until the process is gone.
logger& the_logger()
{
    static never_destroyed<logger> only;
    return *only;
}

// A line may be written before process_begin has opened the log, in tests and in tools, and is not lost then.
void open_if_needed(logger& log) KALIX_REQUIRES(log.lock)
{
    if (!log.sink.is_open())
        log.sink.open();
}

// The callback runs under the lock that is held here, which clang cannot see through the template.
void write_counts(logger& log, int64_t now) KALIX_REQUIRES(log.lock)
{
    log.limiter.take_due(now, [&log](const line_kind& kind) KALIX_NO_THREAD_SAFETY_ANALYSIS {
        std::array<char, 192> line;
        std::snprintf(line.data(), line.size(), "kalix: %u more lines not written, like: %s", kind.withheld,
                      kind.last_line.data());
        log.sink.write(kind.severity, line.data());
    });
}

// Sets the timer to the moment at which the next count is due, or lines that wait are tried again.
void set_timer(logger& log, int64_t now) KALIX_REQUIRES(log.lock)
{
    const int64_t due =
        std::min(log.limiter.next_due_ms(), log.sink.waits() ? now + log_retry_ms : rate_limiter::never);
    if (log.timer < 0 || due == rate_limiter::never)
        return;
    const int64_t wait_ms = std::max<int64_t>(due - now, 1); // 0 would disarm the timer
    itimerspec when{};
    when.it_value = {wait_ms / 1000, wait_ms % 1000 * 1'000'000};
    timerfd_settime(log.timer, 0, &when, nullptr);
}

// Formats into text, with every control character made a blank: a line stays one line, whatever a client's bytes are,
// and no terminal obeys them.
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

// Writes a line, or counts it when its kind has had its share of lines; one that is only counted is not formatted, so
// that a flood is cheap. A count that is due goes first, in the order of events.
__attribute__((format(printf, 2, 0))) void write_limited(int severity, const char* format, va_list arguments)
{
    logger& log = the_logger();
    const hold held{log.lock};
    open_if_needed(log);
    const int64_t now = now_ms();
    write_counts(log, now);
    if (line_kind* const admitted = log.limiter.admit(format, now)) {
        std::array<char, log_line_max> text;
        const std::string_view line = format_text(text, format, arguments);
        log.sink.write(severity, line);
        admitted->remember(severity, line);
        if (!log.sink.waits()) // nothing is due that the timer does not know of
            return;
    }
    set_timer(log, now);
}

} // namespace

void slogf(int /*code*/, int severity, const char* format, ...)
{
    const int kept = errno;
    va_list arguments;
    va_start(arguments, format);
    write_limited(severity, format, arguments);
    va_end(arguments);
    errno = kept;
}

void slogf_always(int /*code*/, int severity, const char* format, ...)
{
    const int kept = errno;
    va_list arguments;
    va_start(arguments, format);
    std::array<char, log_line_max> text;
    const std::string_view line = format_text(text, format, arguments);
    va_end(arguments);
    logger& log = the_logger();
    {
        const hold held{log.lock};
        open_if_needed(log);
        log.sink.write(severity, line, line_class::last_words);
    }
    errno = kept;
}

void log_open()
{
    logger& log = the_logger();
    const hold held{log.lock};
    log.sink.open();
}

int log_descriptor()
{
    logger& log = the_logger();
    const hold held{log.lock};
    return log.sink.descriptor();
}

void log_set_timer(int fd)
{
    logger& log = the_logger();
    const hold held{log.lock};
    log.timer = fd;
    set_timer(log, now_ms());
}

void log_catch_up()
{
    logger& log = the_logger();
    const hold held{log.lock};
    const int64_t now = now_ms();
    log.sink.catch_up();
    write_counts(log, now);
    set_timer(log, now);
}

void log_finish()
{
    logger& log = the_logger();
    const hold held{log.lock};
    write_counts(log, now_ms() + rate_window_ms); // by then every window is over
    log.sink.finish(log_finish_ms);
}

} // namespace kalix::platform
