#include "platform/rate_limiter.h"

#include <algorithm>
#include <functional>

namespace kalix::platform {

void call_site::remember(int line_severity, std::string_view line)
{
    severity = line_severity;
    const size_t length = std::min(line.size(), last_line.size() - 1);
    *std::copy_n(line.begin(), length, last_line.begin()) = '\0';
}

call_site* rate_limiter::admit(const void* address, int64_t now)
{
    call_site& site = find(address);
    if (site.withheld == 0 && now >= due_ms(site))
        start_window(site, now);
    if (site.written < lines_per_window) {
        ++site.written;
        return &site;
    }
    ++site.withheld;
    next_due_ms_ = std::min(next_due_ms_, due_ms(site));
    return nullptr;
}

void rate_limiter::start_window(call_site& site, int64_t now)
{
    site.window_start_ms = now;
    site.written = 0;
    site.withheld = 0;
}

call_site& rate_limiter::find(const void* address)
{
    constexpr size_t own_places = call_sites_max - 1;
    const size_t start = std::hash<const void*>{}(address) % own_places;
    for (size_t step = 0; step < own_places; ++step) {
        call_site& site = sites_[(start + step) % own_places];
        if (site.address == nullptr)
            site.address = address;
        if (site.address == address)
            return site;
    }
    return sites_.back();
}

} // namespace kalix::platform
