#include "platform/channel/pulse_queue.h"

#include "platform/log/log.h"

#include <cerrno>
#include <cstring>
#include <sys/eventfd.h>

namespace kalix::platform {

bool pulse_queue::open()
{
    // Counting one by one, so that the descriptor stays readable until the last pulse is taken.
    ready_.reset(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC | EFD_SEMAPHORE));
    if (!ready_)
        slogf(log_code, log_error, "kalix: cannot make a pulse queue: %s (%d)", std::strerror(errno), errno);
    return static_cast<bool>(ready_);
}

void pulse_queue::close()
{
    const hold held{lock_};
    count_ = 0;
    ready_.reset();
}

int pulse_queue::put(const _pulse& pulse)
{
    const hold held{lock_};
    if (count_ == pulses_max) {
        errno = EAGAIN;
        return -1;
    }
    if (eventfd_write(ready_.get(), 1) != 0) // first, since it is what can fail
        return -1;
    pulses_[(first_ + count_++) % pulses_max] = pulse; // under the lock, so nobody has looked for it yet
    return 0;
}

std::optional<_pulse> pulse_queue::take()
{
    const hold held{lock_};
    eventfd_t one = 0;
    if (eventfd_read(ready_.get(), &one) != 0 || count_ == 0)
        return std::nullopt;
    const _pulse first = pulses_[first_];
    first_ = (first_ + 1) % pulses_max;
    --count_;
    return first;
}

} // namespace kalix::platform
