#include "platform/log/clock.h"

#include <chrono>

namespace kalix::platform {

// Not the time of day, which a host sets forward and back: a time-out would pass at once, or never.
int64_t now_ms()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

uint64_t time_of_day_ns()
{
    using namespace std::chrono;
    return static_cast<uint64_t>(duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count());
}

} // namespace kalix::platform
