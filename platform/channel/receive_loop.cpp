#include "platform/channel/receive_loop.h"

#include "platform/channel/listener.h"
#include "platform/channel/own_messages.h"
#include "platform/files/handed_objects.h"
#include "platform/files/run_directory.h"
#include "platform/log/clock.h"
#include "platform/log/log.h"
#include "platform/log/logger.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <poll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace kalix::platform {
namespace {

// Tags of what is polled; a connection's tag is its scoid, which is below them. No tag is a pointer: of the events
// that came together one may end the connection that another is about.
constexpr uint64_t tag_listener = uint64_t{1} << 32;
constexpr uint64_t tag_pulses = tag_listener + 1;
constexpr uint64_t tag_log_timer = tag_listener + 2;
constexpr uint64_t tag_returned = tag_listener + 3;
constexpr uint64_t tag_watchdog = tag_listener + 4;
constexpr uint32_t scoid_max = side_channel - 1; // apart from connections to oneself, and positive

constexpr size_t events_at_once = 64;
constexpr int accepts_at_once = 16; // then messages have their turn, however fast clients come

std::atomic<int> gather_timeout_ms{5000}; // set by the tests' threads

// The line takes errno's text and number.
__attribute__((format(printf, 1, 0))) void log_failure(const char* line)
{
    slogf(log_code, log_error, line, std::strerror(errno), errno);
}

delivery pulse_delivery(const _pulse& pulse)
{
    delivery given;
    given.pulse = pulse;
    return given;
}

// Whether the client of a connection has closed it, also when messages of it wait to be read.
bool has_gone(const connection& of)
{
    pollfd asked{of.socket.get(), POLLRDHUP, 0};
    return poll(&asked, 1, 0) == 1;
}

} // namespace

void set_gather_timeout(int milliseconds)
{
    gather_timeout_ms = milliseconds;
}

receive_loop::receive_loop(unique_fd listener, message_table& messages, pulse_queue& pulses,
                           returned_connections& returned)
    : messages_{messages}, pulses_{pulses}, returned_{returned}, door_{std::move(listener)}
{
}

receive_loop::~receive_loop()
{
    log_set_timer(-1);
    for (const auto& [scoid, each] : connections_)
        shutdown(each->socket.get(), SHUT_RDWR);
}

bool receive_loop::open()
{
    allowed_ = divide_descriptors().connections;
    // Room for both is taken now: neither waiting nor taking back may fail for want of memory.
    ready_.reserve(events_at_once);
    came_back_.reserve(connections_max);
    epoll_.reset(epoll_create1(EPOLL_CLOEXEC));
    log_timer_.reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    if (!epoll_ || !log_timer_ || !watchdog_.open() || !door_.open(epoll_.get(), tag_listener)) {
        log_failure("kalix: cannot make a receive loop: %s (%d)");
        return false;
    }
    log_set_timer(log_timer_.get());
    return poll_for(pulses_.descriptor(), tag_pulses) && poll_for(returned_.descriptor(), tag_returned) &&
           poll_for(log_timer_.get(), tag_log_timer) &&
           (watchdog_.descriptor() < 0 || poll_for(watchdog_.descriptor(), tag_watchdog));
}

bool receive_loop::poll_for(int fd, uint64_t tag)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = tag;
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) == 0)
        return true;
    log_failure("kalix: cannot poll for messages: %s (%d)");
    return false;
}

// One delivery a call; what else has come stays in ready_ for the next ones. Slow senders are judged only when that is
// empty, so that a message which has arrived is never held against its sender.
std::optional<delivery> receive_loop::receive()
{
    for (;;) {
        while (!ready_.empty()) {
            const uint64_t tag = ready_.back().data.u64;
            ready_.pop_back();
            if (std::optional<delivery> given = handle(tag))
                return given;
        }
        if (std::optional<delivery> given = judge_slow_senders())
            return given;
        if (!wait())
            return std::nullopt;
    }
}

// Fills ready_ with what has come.
bool receive_loop::wait()
{
    ready_.resize(events_at_once);
    const int count = epoll_wait(epoll_.get(), ready_.data(), static_cast<int>(ready_.size()), wait_limit_ms());
    const int error = errno;
    ready_.resize(static_cast<size_t>(std::max(count, 0)));
    std::ranges::reverse(ready_); // taken from the end, in the order in which they came
    if (door_.paused_until_ms() != 0 && now_ms() >= door_.paused_until_ms())
        door_.listen_again();
    if (count >= 0 || error == EINTR)
        return true;
    errno = error;
    log_failure("kalix: cannot wait for messages: %s (%d)");
    return false;
}

// Milliseconds, -1 for no limit. A minute at most, which fits an int whatever the clock says; waking early does no
// harm.
int receive_loop::wait_limit_ms() const
{
    int64_t until = door_.paused_until_ms();
    if (!gathering_.empty()) {
        const int64_t judged = gathering_.begin()->started_ms + gather_timeout_ms;
        until = until == 0 ? judged : std::min(until, judged);
    }
    return until == 0 ? -1 : static_cast<int>(std::clamp<int64_t>(until - now_ms(), 0, 60'000));
}

std::optional<delivery> receive_loop::handle(uint64_t tag)
{
    switch (tag) {
    case tag_listener:
        accept_waiting();
        return std::nullopt;
    case tag_pulses:
        return handle_pulse();
    case tag_log_timer: {
        uint64_t expirations = 0;
        if (::read(log_timer_.get(), &expirations, sizeof expirations) > 0)
            log_catch_up();
        return std::nullopt;
    }
    case tag_returned:
        take_back();
        return std::nullopt;
    case tag_watchdog:
        watchdog_.beat();
        return std::nullopt;
    default:
        return handle_connection(static_cast<uint32_t>(tag));
    }
}

std::optional<delivery> receive_loop::handle_pulse()
{
    const std::optional<_pulse> pulse = pulses_.take();
    return pulse ? std::optional{pulse_delivery(*pulse)} : std::nullopt;
}

std::optional<delivery> receive_loop::handle_connection(uint32_t scoid)
{
    const auto found = connections_.find(scoid);
    if (found == connections_.end() || found->second->ended) // an earlier event of the same batch ended it
        return std::nullopt;
    connection& from = *found->second;
    switch (messages_.turn_of(from)) {
    case turn::client:
        from.waits = must_wait(from);
        if (from.waits)
            return std::nullopt;
        break;
    case turn::server: // an event from before its message was handed out; the answer polls again
        return std::nullopt;
    case turn::over:
        return disconnect(from);
    }
    return conclude(from, from.gatherer.gather(from.socket.get()));
}

// Ends connections whose message is not whole in time. Whatever can be read counts: a sender that was
// in time is not punished for a loop that was late.
std::optional<delivery> receive_loop::judge_slow_senders()
{
    while (!gathering_.empty()) {
        const gathering oldest = *gathering_.begin();
        const auto found = connections_.find(oldest.scoid);
        // Its message has been handed out or its connection has gone; or it waits, through no fault of its sender.
        const bool stale = found == connections_.end() || found->second->waits || !found->second->gatherer.started() ||
                           found->second->gatherer.started_ms() != oldest.started_ms;
        if (!stale && now_ms() < oldest.started_ms + gather_timeout_ms)
            return std::nullopt;
        gathering_.erase(gathering_.begin());
        if (stale)
            continue;
        connection& from = *found->second;
        const gathered result = from.gatherer.gather(from.socket.get());
        if (result != gathered::incomplete)
            return conclude(from, result);
        slogf(log_code, log_warning, "kalix: process %u sent %zu of %zu message bytes in %d ms, connection closed",
              from.pid, from.gatherer.arrived(), from.gatherer.declared(), gather_timeout_ms.load());
        return disconnect(from);
    }
    return std::nullopt;
}

// What becomes of a connection that was read: a message, further waiting, or its end.
std::optional<delivery> receive_loop::conclude(connection& from, gathered result)
{
    try {
        if (result == gathered::complete)
            return hand_out(from);
        if (result == gathered::incomplete && await_rest(from))
            return std::nullopt;
    } catch (const std::bad_alloc&) {
        result = gathered::no_memory;
    }
    tell_why(from, result);
    return disconnect(from);
}

// What ends a connection, apart from its client's going.
void receive_loop::tell_why(const connection& ends, gathered result)
{
    switch (result) {
    case gathered::too_large:
        slogf(log_code, log_warning, "kalix: process %u sent a message of %zu bytes, connection closed", ends.pid,
              ends.gatherer.declared());
        // The wire promises this one answer before the end: the sender has to learn that its message is the cause.
        send_answer(ends.socket.get(), {KALIX_REPLY_ERROR, error_message_size, {}}, 0);
        return;
    case gathered::over_budget:
        return slogf(log_code, log_warning, "kalix: messages being gathered exceed %zu bytes, process %u disconnected",
                     gathered_bytes_max, ends.pid);
    case gathered::no_memory:
        return slogf(log_code, log_error, "kalix: no memory for a message of process %u, connection closed", ends.pid);
    case gathered::incomplete:
    case gathered::complete:
    case gathered::closed:
        return;
    }
}

// Has the connection polled for the rest of its message, or for the next one.
bool receive_loop::await_rest(connection& from)
{
    if (from.gatherer.started())
        gathering_.insert({from.gatherer.started_ms(), from.scoid});
    if (message_table::poll_once(epoll_.get(), from, EPOLL_CTL_MOD))
        return true;
    log_failure("kalix: cannot poll a connection: %s (%d)");
    return false;
}

std::optional<delivery> receive_loop::hand_out(connection& from)
{
    gathering_.erase({from.gatherer.started_ms(), from.scoid});
    from.entered = true;
    whole_message message = from.gatherer.take();
    if (is_own_message(*message.bytes))
        return answer_here(from, message);
    delivery given;
    given.message = message.bytes;
    given.sender = {from.pid, from.uid, from.scoid, static_cast<uint32_t>(given.message->size())};
    given.rcvid = messages_.add(from, std::move(message));
    return given;
}

// A message of the platform's own: nobody else hears of it, and the connection is read on.
std::optional<delivery> receive_loop::answer_here(connection& from, const whole_message& message)
{
    if (answer_own_message(from, message) && await_rest(from))
        return std::nullopt;
    return disconnect(from);
}

// Ends a connection; the pulse that says so is delivered at once. Needs no memory, so that no end is lost.
delivery receive_loop::disconnect(connection& gone)
{
    const uint32_t pid = gone.pid;
    _pulse pulse{};
    pulse.code = pulse_code_disconnect;
    pulse.scoid = static_cast<int32_t>(gone.scoid);
    // A duplicate in a forked child does not keep the client waiting for the end.
    shutdown(gone.socket.get(), SHUT_RDWR);
    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, gone.socket.get(), nullptr);
    gone.socket.reset();
    gone.gatherer.drop();
    gone.ended = true;
    forget_handed_of_connection(gone.scoid);
    slogf(log_code, log_information, "kalix: process %u of user %u disconnected", pid, gone.uid);
    ++ended_;
    // Who waits to be accepted comes first: the process may have connected anew, and made objects.
    accept_waiting();
    const bool was_last = std::ranges::none_of(
        connections_, [pid](const auto& each) { return each.second->pid == pid && !each.second->ended; });
    // Objects that the server was never asked to open would stay for good; what it has mapped needs no name.
    try {
        if (was_last)
            remove_objects_of(pid);
    } catch (const std::bad_alloc&) {
        slogf(log_code, log_error, "kalix: no memory to remove the objects of process %u", pid);
    }
    return pulse_delivery(pulse);
}

// Whether others of its process must come back before this connection is read.
bool receive_loop::must_wait(const connection& reader) const
{
    if (reader.entered && ended_ == 0) // the common case, without a walk
        return false;
    return std::ranges::any_of(connections_, [&reader](const auto& each) {
        const connection& other = *each.second;
        if (other.pid != reader.pid || &other == &reader)
            return false;
        return other.ended || (!reader.entered && other.age < reader.age && has_gone(other));
    });
}

// Forgets the connections that the server has given back; who waited for them is read again.
void receive_loop::take_back()
{
    returned_.take(came_back_);
    for (const uint32_t scoid : came_back_) {
        const auto found = connections_.find(scoid);
        if (found == connections_.end() || !found->second->ended) // an id that the server made up
            continue;
        const uint32_t pid = found->second->pid;
        connections_.erase(found);
        --ended_;
        poll_waiting(pid);
    }
}

void receive_loop::poll_waiting(uint32_t pid)
{
    for (const auto& [scoid, each] : connections_) {
        if (each->pid != pid || !each->waits)
            continue;
        each->waits = false;
        if (!message_table::poll_once(epoll_.get(), *each, EPOLL_CTL_MOD))
            log_failure("kalix: cannot poll a connection: %s (%d)");
    }
}

// Takes in a bounded number of clients; the listener stays readable while there are more.
void receive_loop::accept_waiting()
{
    for (int i = 0; i < accepts_at_once; ++i) {
        unique_fd socket = door_.accept_one();
        if (!socket)
            return;
        try {
            admit(std::move(socket));
        } catch (const std::bad_alloc&) {
            slogf(log_code, log_error, "kalix: no memory for another connection");
        }
    }
}

// Takes a client in, or lets the socket close: a refused client finds its connection ended, without an answer.
void receive_loop::admit(unique_fd socket)
{
    peer who;
    if (!peer_of(socket.get(), who))
        return log_failure("kalix: cannot tell who connects; refused: %s (%d)");
    if (const char* refusal = refusal_of(who.uid))
        return slogf(log_code, log_warning, refusal, who.pid, who.uid);
    auto added = std::make_unique<connection>(std::move(socket), who.pid, who.uid, next_scoid(), ++last_age_, budget_);
    const connection& entered = *connections_.emplace(added->scoid, std::move(added)).first->second;
    if (message_table::poll_once(epoll_.get(), entered, EPOLL_CTL_ADD))
        return slogf(log_code, log_information, "kalix: process %u of user %u connected", who.pid, who.uid);
    log_failure("kalix: cannot poll a connection: %s (%d)");
    connections_.erase(entered.scoid);
}

// A user's bound keeps the others from being locked out; the server's own user is trusted with all that there is.
const char* receive_loop::refusal_of(uint32_t uid) const
{
    if (connections_.size() >= allowed_)
        return "kalix: connection of process %u of user %u refused: too many connections";
    if (uid == geteuid())
        return nullptr;
    const auto of_user =
        std::ranges::count_if(connections_, [uid](const auto& each) { return each.second->uid == uid; });
    return static_cast<size_t>(of_user) >= connections_of_a_user_max
               ? "kalix: connection of process %u of user %u refused: too many connections of this user"
               : nullptr;
}

uint32_t receive_loop::next_scoid()
{
    do {
        last_scoid_ = last_scoid_ == scoid_max ? 1 : last_scoid_ + 1;
    } while (connections_.contains(last_scoid_));
    return last_scoid_;
}

} // namespace kalix::platform
