// Real servers, each in a private run directory, and what can be seen of one from outside.
#pragma once

#include "tests/support.h"

namespace kalix::test {

// One whose files lie in memory.
class run_directory {
public:
    std::string path() const { return directory_.path(); }
    std::vector<std::string> shared_objects() const;

private:
    fresh_directory directory_{"/dev/shm"};
};

// The path of a program under test.
std::string program(const std::string& name);

class server {
public:
    // Starts the program in a run directory and waits until it is ready, or has ended. With words on its command
    // line it is not waited for. Before it is started the child does what it becomes the server with.
    explicit server(
        const run_directory& in, const std::vector<std::string>& words = {},
        const std::function<void()>& before = [] {});
    ~server();
    server(const server&) = delete;
    server& operator=(const server&) = delete;

    bool is_ready() const { return ready_; }
    pid_t pid() const { return pid_; }
    void send(int signal) const;
    // Waits for its end; its exit status, or 1000 + the signal that ended it.
    int wait();

    // The lines that it has logged, without their times.
    std::vector<std::string> log() const;
    size_t descriptors() const;
    size_t mapped_objects() const; // mappings of files in shm/

private:
    pid_t pid_ = -1;
    bool ready_ = false;
    std::string log_path_;
};

} // namespace kalix::test
