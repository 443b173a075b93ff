// A server of one's own: in a fresh private run directory, which goes when the server does.
//
// One thread. The object's end stops the server (SIGTERM, and SIGKILL when it does not follow) and
// removes the directory. Failures are thrown, with a text that a user can act on.
#pragma once

#include "tools/run/child.h"
#include "tools/run/private_directory.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

namespace kalix::run {

struct failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct server_options {
    std::filesystem::path program;
    std::filesystem::path log;           // empty: inside the run directory
    std::filesystem::path run_directory; // empty: a fresh one
    std::chrono::seconds ready_within{}; // from its start
    const sigset_t* signal_mask = nullptr;
};

class private_server {
public:
    explicit private_server(const server_options& options);
    private_server(const private_server&) = delete;
    private_server& operator=(const private_server&) = delete;
    ~private_server();

    // Returns true once the server takes connections, false when interrupt_fd has become readable
    // first; throws when the server ends before, or does neither within its time.
    bool await_ready(int interrupt_fd);

    child& process() { return *process_; }
    const std::filesystem::path& run_directory() const { return directory_.path(); }
    // What a client has to find in its environment.
    std::vector<std::pair<std::string, std::string>> client_environment() const;
    // The end of the server's log, for a message: at most 64 KiB.
    std::string log_tail() const;

private:
    private_directory directory_;
    std::filesystem::path pps_, log_, program_;
    std::chrono::seconds ready_within_;
    unique_fd ready_;
    std::optional<child> process_;
};

} // namespace kalix::run
