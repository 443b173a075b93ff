// The receive loop: accepts clients, gathers their messages, notices when they go.
//
// Owns the connections and everything polled. One thread, the caller of MsgReceivev, uses it; what
// other threads do (answers, pulses) goes through the message table and the pulse queue, which have
// locks of their own. A connection ends here alone, and only while no message of it is outstanding.
//
// A connection that has ended stays among the connections, its socket closed, until the server gives it
// back. Meanwhile the other connections of its process are not read: they wait, unpolled, and are polled
// again when it has come back. A connection's first message waits as well for older ones of its process
// whose client has gone though the loop has not noticed yet. Nobody waits for a younger one that still
// lives, so that no two wait for each other, and what is waited for never depends on a client.
#pragma once

#include "platform/channel/acceptor.h"
#include "platform/channel/channel.h"
#include "platform/files/descriptors.h"
#include "platform/channel/message_gatherer.h"
#include "platform/channel/message_table.h"
#include "platform/channel/pulse_queue.h"
#include "platform/channel/returned_connections.h"
#include "platform/watchdog.h"
#include "base/unique_fd.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <sys/epoll.h>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace kalix::platform {

inline constexpr size_t connections_of_a_user_max = 128; // of one that is not the server's own

struct delivery {      // what one MsgReceivev returns
    int32_t rcvid = 0; // 0: a pulse
    _msg_info sender{};
    std::shared_ptr<const message_bytes> message;
    _pulse pulse{};
};

class receive_loop {
public:
    receive_loop(unique_fd listener, message_table& messages, pulse_queue& pulses, returned_connections& returned);
    ~receive_loop();
    receive_loop(const receive_loop&) = delete;
    receive_loop& operator=(const receive_loop&) = delete;

    // Makes what is polled; false with errno after one line.
    bool open();
    int poll_descriptor() const { return epoll_.get(); }

    // Waits for the next message or pulse; nothing when waiting itself fails (errno, after one line).
    std::optional<delivery> receive();

private:
    struct gathering { // a message whose first byte has come
        int64_t started_ms;
        uint32_t scoid;
        bool operator<(const gathering& other) const
        {
            return std::tie(started_ms, scoid) < std::tie(other.started_ms, other.scoid);
        }
    };

    bool poll_for(int fd, uint64_t tag);
    bool wait();
    int wait_limit_ms() const;
    std::optional<delivery> handle(uint64_t tag);
    std::optional<delivery> handle_pulse();
    std::optional<delivery> handle_connection(uint32_t scoid);
    std::optional<delivery> judge_slow_senders();
    std::optional<delivery> conclude(connection& from, gathered result);
    std::optional<delivery> hand_out(connection& from);
    std::optional<delivery> answer_here(connection& from, const whole_message& message);
    bool await_rest(connection& from);
    static void tell_why(const connection& ends, gathered result);
    delivery disconnect(connection& gone);
    bool must_wait(const connection& reader) const;
    void take_back();
    void poll_waiting(uint32_t pid);

    void accept_waiting();
    void admit(unique_fd socket);
    const char* refusal_of(uint32_t uid) const; // the line that says so, or null
    uint32_t next_scoid();

    message_table& messages_;
    pulse_queue& pulses_;
    returned_connections& returned_;
    acceptor door_;
    unique_fd epoll_;
    unique_fd log_timer_;
    watchdog watchdog_;
    gather_budget budget_;
    std::unordered_map<uint32_t, std::unique_ptr<connection>> connections_; // by scoid
    std::vector<uint32_t> came_back_; // exchanged with the list of what is given back: both keep their room
    size_t allowed_ = connections_max;
    size_t ended_ = 0; // connections that have ended and not come back
    uint32_t last_scoid_ = 0;
    uint64_t last_age_ = 0;
    std::vector<epoll_event> ready_;  // polled and not yet handled, the next at the end
    // In order of their first bytes; one a connection at most, which its message takes along when it is whole. The
    // connection may have gone since.
    std::set<gathering> gathering_;
};

// How long a message may take from its first byte to its last.
void set_gather_timeout(int milliseconds);

} // namespace kalix::platform
