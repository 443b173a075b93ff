// What the environment asks of the driver, read once at start. A value that cannot be read is one warning
// line and the default.
//
//   KALIX_STRICT=1         refuse what a well-behaved client never needs (see docs/security.md)
//   KALIX_MAX_DELAY_US=N   bound of a command buffer's delay: 1,000,000, or 10,000 under KALIX_STRICT=1
#pragma once

#include "driver/state/driver_state.h"

namespace kalix {

// Called once, behind the start of the log; the record keeps the result. Never fails.
driver_settings read_settings();

} // namespace kalix
