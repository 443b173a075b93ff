// Real servers, each in a private run directory, and what can be seen of one from outside.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kalix::test {

// Whether a condition comes true within twenty seconds.
bool soon(const std::function<bool()>& condition);

class run_directory {
public:
    run_directory();
    ~run_directory();
    run_directory(const run_directory&) = delete;
    run_directory& operator=(const run_directory&) = delete;
    const std::string& path() const { return path_; }
    std::vector<std::string> shared_objects() const;

private:
    std::string path_;
};

class server {
public:
    // Starts the program in a run directory and waits until it is ready, or has ended. With words on its command
    // line it is not waited for.
    explicit server(const run_directory& in, std::vector<std::string> environment = {},
                    std::vector<std::string> words = {});
    ~server();
    server(const server&) = delete;
    server& operator=(const server&) = delete;

    bool is_ready() const { return ready_; }
    pid_t pid() const { return pid_; }
    void send(int signal) const;
    // Waits for its end; the wait status.
    int wait();

    // The lines that it has logged, without their times.
    std::vector<std::string> log() const;
    size_t descriptors() const;
    size_t mapped_objects() const; // mappings of files in shm/
    size_t resident_bytes() const;

private:
    pid_t pid_ = -1;
    bool ready_ = false;
    std::string log_path_;
};

} // namespace kalix::test
