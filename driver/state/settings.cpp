#include "driver/state/settings.h"

#include "base/environment.h"

namespace kalix {
namespace {

// A delay is slept with the device mutex and fifo_lock held, so that one client's delay is everybody's.
constexpr uint32_t max_delay_us = 1'000'000;
constexpr uint32_t max_delay_strict_us = 10'000;

uint32_t number_from(const char* name, uint32_t largest, uint32_t otherwise)
{
    return environment_number(name, 0, largest, otherwise, [=](const char* given) {
        slogf(log_code, log_warning, "kalix: %s=\"%s\" is not a number of 0 to %u, using %u", name, given, largest,
              otherwise);
    });
}

} // namespace

driver_settings read_settings()
{
    const bool strict = number_from("KALIX_STRICT", 1, 0) != 0;
    return {strict, number_from("KALIX_MAX_DELAY_US", UINT32_MAX, strict ? max_delay_strict_us : max_delay_us)};
}

} // namespace kalix
