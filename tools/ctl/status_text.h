// What the status file says, in words.
#pragma once

#include "tools/ctl/report.h"

#include <kalix/status.h>

namespace kalix::ctl {

// "2026-01-31T12:00:00.123Z", of nanoseconds since 1970.
std::string time_text(uint64_t time_ns);

// "command buffer: -22, set render target, surface not held 0x1267", or unknown when nothing was refused.
value last_refusal(const kalix_status_client& client);

// A request's answer: "present: -22"; with the 3D command that it failed at, unless that is 0.
std::string refusal_text(uint32_t request, int32_t status, uint32_t command);

// A process's name as /proc has it, what no terminal should see replaced; empty where it cannot be seen.
std::string process_name(uint32_t pid);

// A user's name, or the number where it has none.
std::string user_name(uint32_t uid);

} // namespace kalix::ctl
