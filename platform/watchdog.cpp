#include "platform/watchdog.h"

#include "platform/service_manager.h"
#include "platform/settings.h"

#include <algorithm>
#include <cstdint>
#include <sys/timerfd.h>
#include <unistd.h>

namespace kalix::platform {

bool watchdog::open()
{
    const uint64_t allowed_us = current_settings().watchdog_us;
    if (allowed_us == 0)
        return true;
    timer_.reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    const uint64_t half_us = std::max<uint64_t>(allowed_us / 2, 1); // 0 would disarm the timer
    const timespec half{static_cast<time_t>(half_us / 1'000'000), static_cast<long>(half_us % 1'000'000 * 1000)};
    const itimerspec again{half, half};
    return timer_ && timerfd_settime(timer_.get(), 0, &again, nullptr) == 0;
}

// A manager that does not take it will end the process, and says so itself.
void watchdog::beat()
{
    uint64_t expirations = 0;
    if (::read(timer_.get(), &expirations, sizeof expirations) > 0)
        tell_manager("WATCHDOG=1");
}

} // namespace kalix::platform
