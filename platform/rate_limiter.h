// How many log lines each call site may still write.
//
// A site has a window of one second from its first line; inside it, lines beyond the limit are counted.
// A count is due when its window is over. No allocation: the logger must work when memory is out.
// Not locked: the logger's lock guards it.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <string_view>

namespace kalix::platform {

inline constexpr uint32_t lines_per_window = 100;
inline constexpr int64_t rate_window_ms = 1000;
inline constexpr size_t call_sites_max = 1024; // the last is shared by all that find no place

struct call_site {
    const void* address = nullptr; // null: not in use
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

    // The site's record when it may write a line now, null when the line was counted instead.
    call_site* admit(const void* address, int64_t now);

    // When the earliest count is due; never when nothing is withheld.
    int64_t next_due_ms() const { return next_due_ms_; }

    // Calls report(site) for every site whose count is due at now, and starts it afresh.
    template <typename function>
    void take_due(int64_t now, function report)
    {
        if (now < next_due_ms_)
            return;
        next_due_ms_ = never;
        for (call_site& site : sites_) {
            if (site.withheld == 0)
                continue;
            if (now < due_ms(site)) {
                next_due_ms_ = std::min(next_due_ms_, due_ms(site));
                continue;
            }
            report(site);
            start_window(site, now);
        }
    }

private:
    static int64_t due_ms(const call_site& site) { return site.window_start_ms + rate_window_ms; }
    static void start_window(call_site& site, int64_t now);
    call_site& find(const void* address);

    std::array<call_site, call_sites_max> sites_{};
    int64_t next_due_ms_ = never;
};

} // namespace kalix::platform
