// What the platform's tests share: a private run directory, a raw client, a captured log.
#pragma once

#include "base/unique_fd.h"
#include "platform/channel/channel.h"
#include "tests/support.h"

#include <optional>
#include <random>
#include <span>

namespace kalix::platform {

using test::contents;
using test::end_of;
using test::put;
using test::run_child;
using test::soon;
using test::start_child;
using test::test_seed;

// A run directory of the test's own, in the environment while this lives and removed with it.
class private_run_directory {
public:
    private_run_directory();
    private_run_directory(const private_run_directory&) = delete;
    private_run_directory& operator=(const private_run_directory&) = delete;
    // Puts the run directory below itself, at a path of at least that many bytes.
    void lengthen(size_t bytes);
    const std::string& path() const { return path_; }
    std::string object(const std::string& name) const { return path_ + "/shm/" + name; }

private:
    test::fresh_directory root_;
    std::string path_;
};

// The log, as a file of the test's own.
class captured_log {
public:
    captured_log();
    ~captured_log();
    captured_log(const captured_log&) = delete;
    captured_log& operator=(const captured_log&) = delete;
    std::vector<std::string> lines() const;
    size_t count(const std::string& text) const; // lines that contain the text

private:
    test::fresh_directory directory_;
    std::string path_ = directory_.path() / "log";
};

using bytes = std::vector<std::byte>;
bytes text_bytes(const std::string& text);
bytes frame(const bytes& message, uint32_t reply_room = 64);
bytes header_only(uint32_t message_bytes, uint32_t reply_room = 64);

struct reply {
    uint32_t kind = 0;
    int32_t value = 0;
    bytes data;
    bool operator==(const reply&) const = default;
};

// A client that speaks the wire itself.
class raw_client {
public:
    explicit raw_client(const std::string& run_directory);
    explicit operator bool() const { return static_cast<bool>(socket_); }
    int fd() const { return socket_.get(); }
    bool send(std::span<const std::byte> data);        // false when the server has gone
    size_t send_some(std::span<const std::byte> data); // without waiting
    std::optional<reply> receive();                    // nothing: the connection has ended
    bool ended();                                      // waits for the end
    void close();

private:
    unique_fd socket_;
};

struct received {
    int32_t rcvid = -1;
    _msg_info info{};
    _pulse pulse{};
    bytes head; // the first 24 bytes, as the receive buffer got them
};

// A channel of this process, in a private run directory; the test's thread is its receive loop.
class own_channel {
public:
    own_channel();
    ~own_channel();
    own_channel(const own_channel&) = delete;
    own_channel& operator=(const own_channel&) = delete;
    received next();
    // Everything that has come until now, the loop idle again afterwards.
    std::vector<received> settle();
    bytes read(const received& message);
    raw_client connect() { return raw_client{directory.path()}; }

    private_run_directory directory;
    name_attach_t* attached = nullptr;
    int32_t self = -1;
    bool detaches = true; // connections whose end next() has seen
};

} // namespace kalix::platform
