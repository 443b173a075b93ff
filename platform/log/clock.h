// The clock by which the platform measures waiting: it never jumps.
#pragma once

#include <cstdint>

namespace kalix::platform {

// Milliseconds since some fixed moment.
int64_t now_ms();

} // namespace kalix::platform
