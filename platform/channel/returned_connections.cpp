#include "platform/channel/returned_connections.h"

#include "platform/log/log.h"

#include <cerrno>
#include <cstring>
#include <sys/eventfd.h>

namespace kalix::platform {

bool returned_connections::open(size_t most)
{
    const hold held{lock_};
    scoids_.reserve(most);
    ready_.reset(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (!ready_)
        slogf(log_code, log_error, "kalix: cannot make a list of connections: %s (%d)", std::strerror(errno), errno);
    return static_cast<bool>(ready_);
}

void returned_connections::close()
{
    const hold held{lock_};
    scoids_.clear();
    ready_.reset();
}

int returned_connections::put(uint32_t scoid)
{
    const hold held{lock_};
    if (!ready_ || scoids_.size() == scoids_.capacity()) { // full: more than there can be, some given back twice
        errno = EBADF;
        return -1;
    }
    scoids_.push_back(scoid);
    return eventfd_write(ready_.get(), 1);
}

void returned_connections::take(std::vector<uint32_t>& scoids)
{
    scoids.clear();
    const hold held{lock_};
    // Emptied under the lock with the list: what comes back behind this makes the descriptor readable again.
    eventfd_t times = 0;
    eventfd_read(ready_.get(), &times);
    scoids.swap(scoids_);
}

} // namespace kalix::platform
