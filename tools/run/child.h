// A child process: started, watched through a descriptor, signalled and reaped by its owner.
//
// One thread. The descriptor becomes readable when the process has ended, so its number cannot be
// taken by another process between a look and a signal. A child gets SIGTERM when this process dies, however it
// does. Failures are thrown as std::system_error.
#pragma once

#include "base/unique_fd.h"

#include <csignal>
#include <functional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace kalix::run {

struct start_options {
    std::vector<std::string> command;                             // the program and its arguments
    std::vector<std::pair<std::string, std::string>> environment; // set, over this process's own
    std::vector<std::string> removed;                             // taken out of it
    const sigset_t* signal_mask = nullptr;                        // the mask to start with
    int inherited_fd = -1;                                        // stays open in the child
    // A process in the background: its own group, no input, its output on standard error.
    bool background = false;
};

class child {
public:
    explicit child(const start_options& options);
    // A fork of this process that exits with what work returns.
    explicit child(const std::function<int()>& work);
    child(const child&) = delete;
    child& operator=(const child&) = delete;
    ~child(); // kills and reaps what still runs

    int watch_fd() const { return process_fd_.get(); }
    pid_t pid() const { return pid_; } // -1 once it has been reaped
    bool running() const { return pid_ > 0; }
    void signal(int number) const;   // ignored once it has ended
    int wait();                      // blocks; returns the wait status
    bool wait_for(int milliseconds); // false when it still runs after that time

private:
    void watch();

    pid_t pid_ = -1;
    int status_ = 0;
    unique_fd process_fd_;
};

// What a shell would make of a wait status: the exit status, or 128 and the signal.
int exit_status_of(int wait_status);
// "exit status 3" or "signal 11 (Segmentation fault)".
std::string description_of(int wait_status);

// What the child exits with when its program could not be started.
inline constexpr int exit_not_executable = 126;
inline constexpr int exit_not_found = 127;

} // namespace kalix::run
