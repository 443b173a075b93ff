// The messages that were handed out and not yet answered, by receive id.
//
// One lock guards the table and what it knows of a connection (its turn). The receive loop adds
// messages; any thread reads and answers them. A connection with a message in this table is not polled;
// the answer has it polled again.
#pragma once

#include "base/lock.h"
#include "platform/channel/message_gatherer.h"
#include "base/unique_fd.h"

#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>

namespace kalix::platform {

enum class turn {
    client, // the client's: its socket may be read
    server, // ours: a message is to be answered
    over,   // nobody's: the client did not take its answer
};

struct connection {
    connection(unique_fd s, uint32_t p, uint32_t u, uint32_t id, uint64_t a, gather_budget& budget)
        : socket{std::move(s)}, pid{p}, uid{u}, scoid{id}, age{a}, gatherer{budget}
    {
    }

    unique_fd socket; // closed when the connection has ended, which no message outlives
    const uint32_t pid;
    const uint32_t uid;
    const uint32_t scoid;
    const uint64_t age; // rises from one connection to the next

    // The receive loop's alone.
    message_gatherer gatherer;
    bool entered = false; // its first message was handed out
    bool waits = false;   // not polled, until others of its process have come back
    bool ended = false;   // its end was told

private:
    friend class message_table;
    turn whose_ = turn::client; // reached by message_table::turn_in, which asks for the lock
};

struct answer {
    kalix_reply_kind kind;
    int32_t value; // the status or error number
    std::span<const std::byte> data;
    int descriptor = -1; // sent beside it; stays the caller's
};

// Sends an answer without waiting; whether the socket took all of it.
bool send_answer(int socket, const answer& given, uint32_t reply_room);
// Ends the stream of a connection whose client did not take an answer, for that errno.
void end_untaken(const connection& of, int error);

class message_table {
public:
    // The descriptor by which connections are polled; -1 ends all messages.
    void set_poll(int epoll);

    // Hands a connection's message out: its receive id, above 0. The turn is then the server's.
    int32_t add(connection& from, whole_message message);

    // The bytes of a message, or null when the receive id is not one.
    std::shared_ptr<const message_bytes> find(int32_t rcvid);

    // Answers a message and ends its receive id. 0, or -1: ESRCH when it is not one; what send gave when
    // the client did not take the answer, and its connection is then over.
    int give(int32_t rcvid, const answer& given);

    turn turn_of(connection& of);

    // Has the connection polled for one event; false with errno.
    static bool poll_once(int epoll, const connection& which, int operation);

private:
    struct outstanding {
        connection* from;
        whole_message message;
    };
    int32_t next_id() KALIX_REQUIRES(lock_);
    turn& turn_in(connection& of) KALIX_REQUIRES(lock_) { return of.whose_; }

    mutex lock_;
    int epoll_ KALIX_GUARDED_BY(lock_) = -1;
    int32_t last_id_ KALIX_GUARDED_BY(lock_) = 0;
    std::unordered_map<int32_t, outstanding> messages_ KALIX_GUARDED_BY(lock_);
};

} // namespace kalix::platform
