// A server that follows a script: it listens in a run directory of its own, keeps every message, and
// answers each with what the test's function says.
#pragma once

#include "base/unique_fd.h"
#include "tests/support.h"

#include <atomic>
#include <gtest/gtest.h>
#include <kalix/client.h>
#include <mutex>
#include <thread>

namespace kalix::test {

using words = std::vector<uint32_t>;

struct received {
    uint32_t room = 0;
    std::vector<std::byte> message;
    words as_words() const; // whole words of the message
    uint32_t word(size_t index) const { return as_words().at(index); }
    int32_t command() const { return static_cast<int32_t>(word(1)); }
};

struct reaction {
    std::vector<std::byte> bytes; // written as they are
    bool hang_up = false;         // then the connection is closed
    int descriptor = -1;          // sent beside them
};
reaction reply(int32_t status, const words& data = {}, uint32_t kind = KALIX_REPLY_STATUS);
// Payload and all of the request given back, with status 0: what a handler that changes nothing does.
reaction echo(const received& request);

class fake_server {
public:
    using script = std::function<reaction(const received&)>;

    // Answers the connect message of every connection itself; the rest is the script's, called by one
    // thread for each connection, one at a time.
    explicit fake_server(script answers, const std::string& below = "");
    ~fake_server();

    const std::filesystem::path& path() const { return path_; } // the run directory
    std::filesystem::path object(const std::string& name) const { return path_ / "shm" / name; }
    std::vector<received> requests(); // so far, without connect messages
    size_t connects() const { return connects_; }

private:
    void accept_all();
    void serve(int socket);

    fresh_directory root_;
    std::filesystem::path path_;
    script script_;
    unique_fd listener_;
    std::atomic<size_t> connects_ = 0;
    std::mutex lock_; // guards what follows, held around the script
    std::vector<received> requests_;
    std::vector<unique_fd> sockets_;
    std::vector<std::jthread> threads_;
    std::thread acceptor_;
};

// A connection to it.
class open_client {
public:
    explicit open_client(const fake_server& server) { EXPECT_EQ(kalix_open(server.path().c_str(), &connection_), 0); }
    open_client(const open_client&) = delete;
    open_client& operator=(const open_client&) = delete;
    ~open_client() { kalix_close(connection_); }
    operator kalix_connection*() const { return connection_; } // NOLINT(google-explicit-constructor)

private:
    kalix_connection* connection_ = nullptr;
};

} // namespace kalix::test
