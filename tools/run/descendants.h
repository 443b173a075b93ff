// What the command starts and leaves: processes that outlive their parent become children of this process, however far
// down they were and whatever session they made their own, so that they can be ended with the command.
//
// One thread. Made before the first child; blocks SIGCHLD for the process.
#pragma once

#include "base/unique_fd.h"

#include <span>
#include <sys/types.h>
#include <vector>

namespace kalix::run {

class descendants {
public:
    // Throws std::system_error. Children that are in spared have an owner of their own: neither they nor what they
    // start are signalled or reaped here.
    descendants();
    descendants(const descendants&) = delete;
    descendants& operator=(const descendants&) = delete;

    // Readable when a child has ended.
    int watch_fd() const { return ended_.get(); }
    // Takes what has come to this process and ended; otherwise a command that runs for days would fill the table of
    // processes.
    void reap(std::span<const pid_t> spared) const;
    // SIGTERM to all, and SIGKILL to what is still there after a grace, or once hurry_fd is readable. On return none
    // is left but those that this process may not signal.
    void end(std::span<const pid_t> spared, int hurry_fd) const;
    // Sends a signal to each; returns how many there were.
    static size_t signal(int number, std::span<const pid_t> spared);

private:
    unique_fd ended_;
};

} // namespace kalix::run
