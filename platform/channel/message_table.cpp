#include "platform/channel/message_table.h"

#include "platform/log/log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>

namespace kalix::platform {

bool send_answer(int socket, const answer& given, uint32_t reply_room)
{
    const auto data = given.data.first(std::min<size_t>(given.data.size(), reply_room));
    kalix_reply_frame frame{static_cast<uint32_t>(given.kind), given.value, static_cast<uint32_t>(data.size())};
    std::array<iovec, 2> parts{iovec{&frame, sizeof frame}, iovec{const_cast<std::byte*>(data.data()), data.size()}};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> beside{};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    if (given.descriptor >= 0) {
        message.msg_control = beside.data();
        message.msg_controllen = beside.size();
        cmsghdr* const rights = CMSG_FIRSTHDR(&message);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof given.descriptor);
        std::memcpy(CMSG_DATA(rights), &given.descriptor, sizeof given.descriptor);
    }
    const ssize_t sent = sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0)
        return false;
    errno = EAGAIN; // a part that went cannot be taken back, and the rest is not waited for: the stream is spoilt
    return static_cast<size_t>(sent) == sizeof frame + data.size();
}

// A client that has gone is no news; one that lets its replies pile up is told.
void end_untaken(const connection& of, int error)
{
    if (error == EAGAIN)
        slogf(log_code, log_warning, "kalix: process %u does not read its replies, connection closed", of.pid);
    shutdown(of.socket.get(), SHUT_RDWR); // the receive loop, which owns the descriptor, sees the end and closes it
}

void message_table::set_poll(int epoll)
{
    const hold held{lock_};
    epoll_ = epoll;
    messages_.clear();
}

// Ids go round all positive numbers before one is used again, so that a late answer meets nobody else's message.
int32_t message_table::next_id()
{
    do {
        last_id_ = last_id_ == std::numeric_limits<int32_t>::max() ? 1 : last_id_ + 1;
    } while (messages_.contains(last_id_));
    return last_id_;
}

int32_t message_table::add(connection& from, whole_message message)
{
    const hold held{lock_};
    const int32_t rcvid = next_id();
    messages_.emplace(rcvid, outstanding{&from, std::move(message)});
    turn_in(from) = turn::server;
    return rcvid;
}

std::shared_ptr<const message_bytes> message_table::find(int32_t rcvid)
{
    const hold held{lock_};
    const auto found = messages_.find(rcvid);
    return found != messages_.end() ? found->second.message.bytes : nullptr;
}

// All under the lock, the sending included, which never waits. The turn changes before the connection is polled: the
// loop may be woken at once, and asks whose turn it is.
int message_table::give(int32_t rcvid, const answer& given)
{
    const hold held{lock_};
    const auto found = messages_.find(rcvid);
    if (found == messages_.end()) {
        errno = ESRCH;
        return -1;
    }
    connection& to = *found->second.from;
    const bool taken = send_answer(to.socket.get(), given, found->second.message.reply_room);
    const int error = errno;
    messages_.erase(found);
    turn_in(to) = taken ? turn::client : turn::over;
    if (!taken)
        end_untaken(to, error);
    if (!poll_once(epoll_, to, EPOLL_CTL_MOD))
        slogf(log_code, log_error, "kalix: cannot poll connection %u: %s (%d)", to.scoid, std::strerror(errno), errno);
    errno = error;
    return taken ? 0 : -1;
}

turn message_table::turn_of(connection& of)
{
    const hold held{lock_};
    return turn_in(of);
}

// One event and then silence, until it is asked for again: what a client sends while the server owes it an answer
// stays in its socket, and takes no memory of ours.
bool message_table::poll_once(int epoll, const connection& which, int operation)
{
    epoll_event event{};
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.u64 = which.scoid;
    return epoll_ctl(epoll, operation, which.socket.get(), &event) == 0;
}

} // namespace kalix::platform
