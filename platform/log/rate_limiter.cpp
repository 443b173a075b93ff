#include "platform/log/rate_limiter.h"

#include <algorithm>
#include <functional>

namespace kalix::platform {

void line_kind::remember(int line_severity, std::string_view line)
{
    severity = line_severity;
    const size_t length = std::min(line.size(), last_line.size() - 1);
    *std::copy_n(line.begin(), length, last_line.begin()) = '\0';
}

line_kind* rate_limiter::admit(const void* format, int64_t now)
{
    line_kind& kind = find(format);
    // A window with a count stays until take_due has reported it: a new one would forget what was withheld.
    if (kind.withheld == 0 && now >= due_ms(kind))
        start_window(kind, now);
    if (kind.written < lines_per_window) {
        ++kind.written;
        return &kind;
    }
    ++kind.withheld;
    next_due_ms_ = std::min(next_due_ms_, due_ms(kind));
    return nullptr;
}

void rate_limiter::start_window(line_kind& kind, int64_t now)
{
    kind.window_start_ms = now;
    kind.written = 0;
    kind.withheld = 0;
}

// A table that only fills: a program has the formats of its source, far fewer than there are places, and no kind is
// ever removed. By address, not by text, which would have to be read for every line of a flood.
line_kind& rate_limiter::find(const void* format)
{
    constexpr size_t own_places = line_kinds_max - 1;
    const size_t start = std::hash<const void*>{}(format) % own_places;
    for (size_t step = 0; step < own_places; ++step) {
        line_kind& kind = kinds_[(start + step) % own_places];
        if (kind.format == nullptr)
            kind.format = format;
        if (kind.format == format)
            return kind;
    }
    return kinds_.back(); // more kinds than places: these share one limit, and none is written without one
}

} // namespace kalix::platform
