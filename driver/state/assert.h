// Internal consistency checks: conditions that no request can cause.
//
// A check that fails writes its line, never rate-limited, and ends the process with status 1. A source
// file that checks defines assert_module, its name without suffix as the line gives it; the text is
// the condition as it is known to those who read logs.
#pragma once

#include "platform/log/log.h"
#include "platform/process.h"

namespace kalix {

[[noreturn]] inline void assertion_failed(const char* module, int line, const char* text)
{
    platform::slogf_always(platform::log_code, platform::log_error, "kalix: assert in %s line %d failed for %s", module,
                           line, text);
    platform::process_exit(1);
}

} // namespace kalix

#define KALIX_ASSERT(condition, text)                                                                                  \
    ((condition) ? static_cast<void>(0) : ::kalix::assertion_failed(assert_module, __LINE__, text))
