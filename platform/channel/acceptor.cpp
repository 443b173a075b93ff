#include "platform/channel/acceptor.h"

#include "platform/log/clock.h"
#include "platform/log/log.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace kalix::platform {
namespace {

constexpr int64_t pause_ms = 100; // without descriptors: long enough not to spin, short enough not to be noticed

// Any descriptor will do: what counts is the number that it occupies.
unique_fd open_spare()
{
    return unique_fd{::open("/dev/null", O_RDONLY | O_CLOEXEC)};
}

} // namespace

bool acceptor::open(int epoll, uint64_t tag)
{
    epoll_ = epoll;
    tag_ = tag;
    spare_ = open_spare();
    return spare_ && poll(EPOLL_CTL_ADD, EPOLLIN);
}

unique_fd acceptor::accept_one()
{
    while (paused_until_ms_ == 0) {
        unique_fd socket{accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)};
        if (socket || errno == EAGAIN)
            return socket;
        if (errno == EINTR || errno == ECONNABORTED) // a client that has given up is not our error: the next one
            continue;
        const bool no_descriptor = errno == EMFILE || errno == ENFILE;
        slogf(log_code, log_error, "kalix: cannot accept a connection: %s (%d)", std::strerror(errno), errno);
        if (!no_descriptor || !turn_one_away())
            pause();
        break;
    }
    return unique_fd{};
}

// With the spare descriptor a client is accepted and at once let go: it learns that it is refused.
bool acceptor::turn_one_away()
{
    spare_.reset();
    const bool accepted = static_cast<bool>(unique_fd{accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)});
    spare_ = open_spare();
    return accepted && spare_;
}

// The listener stays readable while a client waits, so that polling it on would turn the loop without end.
void acceptor::pause()
{
    paused_until_ms_ = now_ms() + pause_ms;
    poll(EPOLL_CTL_MOD, 0);
}

void acceptor::listen_again()
{
    paused_until_ms_ = 0;
    if (!spare_) // turning a client away lost it to another thread
        spare_ = open_spare();
    if (!poll(EPOLL_CTL_MOD, EPOLLIN))
        slogf(log_code, log_error, "kalix: cannot listen again: %s (%d)", std::strerror(errno), errno);
}

bool acceptor::poll(int operation, uint32_t events)
{
    epoll_event event{};
    event.events = events;
    event.data.u64 = tag_;
    return epoll_ctl(epoll_, operation, listener_.get(), &event) == 0;
}

} // namespace kalix::platform
