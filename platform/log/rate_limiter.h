// How many log lines of each kind may still be written.
//
// A kind is what a line's format makes it, told by the format's address: calls that a compiler merges, or
// that one function makes for many, still are as many kinds as they have formats. A kind has a window of one
// second from its first line; inside it, lines beyond the limit are counted. A count is due when its window
// is over. No allocation: the logger must work when memory is out.
// Not locked: the logger's lock guards it.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <string_view>

namespace kalix::platform {

inline constexpr uint32_t lines_per_window = 100;
inline constexpr int64_t rate_window_ms = 1000;
inline constexpr size_t line_kinds_max = 1024; // the last is shared by all that find no place

struct line_kind {
    const void* format = nullptr; // null: not in use
    int64_t window_start_ms = 0;
    uint32_t written = 0;
    uint32_t withheld = 0;
    int severity = 0;                  // of the last line written
    std::array<char, 104> last_line{}; // its beginning, zero-terminated

    void remember(int line_severity, std::string_view line);
};

class rate_limiter {
public:
    static constexpr int64_t never = std::numeric_limits<int64_t>::max();

    // The kind's record when it may write a line now, null when the line was counted instead.
    line_kind* admit(const void* format, int64_t now);

    // When the earliest count is due; never when nothing is withheld.
    int64_t next_due_ms() const { return next_due_ms_; }

    // Calls report(kind) for every kind whose count is due at now, and starts it afresh.
    template <typename function>
    void take_due(int64_t now, function report)
    {
        if (now < next_due_ms_)
            return;
        next_due_ms_ = never;
        for (line_kind& kind : kinds_) {
            if (kind.withheld == 0)
                continue;
            if (now < due_ms(kind)) {
                next_due_ms_ = std::min(next_due_ms_, due_ms(kind));
                continue;
            }
            report(kind);
            start_window(kind, now);
        }
    }

private:
    static int64_t due_ms(const line_kind& kind) { return kind.window_start_ms + rate_window_ms; }
    static void start_window(line_kind& kind, int64_t now);
    line_kind& find(const void* format);

    std::array<line_kind, line_kinds_max> kinds_{};
    int64_t next_due_ms_ = never;
};

} // namespace kalix::platform
