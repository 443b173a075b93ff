// The clock by which the platform measures waiting, which never jumps, and the time of day.
#pragma once

#include <cstdint>

namespace kalix::platform {

// Milliseconds since some fixed moment.
int64_t now_ms();

// Nanoseconds since 1970, as the host has it.
uint64_t time_of_day_ns();

} // namespace kalix::platform
