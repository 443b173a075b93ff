// Gathers one message of a connection from its socket, as its bytes come.
//
// Owns the bytes until they are taken. Memory grows with what has arrived, never with what was
// declared, and is charged to a budget that all connections of a channel share. The receive loop's
// thread alone calls this.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <kalix/protocol.h>
#include <memory>
#include <vector>

namespace kalix::platform {

inline constexpr size_t gathered_bytes_max = size_t{64} << 20; // of all connections together
static_assert(gathered_bytes_max >= KALIX_MESSAGE_MAX);

using message_bytes = std::vector<std::byte>;

struct gather_budget {
    size_t left = gathered_bytes_max;
};

enum class gathered {
    incomplete, // nothing more to read now
    complete,   // the message can be taken
    closed,     // the client has gone
    too_large,  // it declared more than a message may have
    no_memory,
    over_budget, // all gathered messages together would take too much
};

struct whole_message {
    std::shared_ptr<const message_bytes> bytes;
    uint32_t reply_room = 0; // data bytes that the sender takes back
};

class message_gatherer {
public:
    explicit message_gatherer(gather_budget& budget) : budget_{budget} {}
    ~message_gatherer() { drop(); }
    message_gatherer(const message_gatherer&) = delete;
    message_gatherer& operator=(const message_gatherer&) = delete;

    // Reads what there is, up to the end of the message.
    gathered gather(int socket);

    // Whether a byte of the next message has come, and when that was.
    bool started() const { return header_bytes_ > 0; }
    int64_t started_ms() const { return started_ms_; }
    size_t arrived() const { return bytes_.size(); }
    size_t declared() const { return header_.message_bytes; }

    // The complete message; the gatherer then awaits the next.
    whole_message take();

    // Forgets what has arrived, and gives its memory back.
    void drop();

private:
    gathered gather_header(int socket);
    gathered gather_bytes(int socket);

    gather_budget& budget_;
    kalix_request_frame header_{};
    size_t header_bytes_ = 0; // of header_, arrived
    int64_t started_ms_ = 0;
    message_bytes bytes_;
};

} // namespace kalix::platform
