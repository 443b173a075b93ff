// How long the command may take.
#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <sys/types.h>

namespace kalix::run {

// Counts from its making. One thread; whoever waits wakes after poll_ms() and calls enforce().
class time_limit {
public:
    using seconds = std::chrono::seconds;

    // None: no limit.
    explicit time_limit(std::optional<seconds> limit);

    // Milliseconds until enforce() has something to do; -1: never.
    int poll_ms() const;
    // When the time is over: says so and ends this process's descendants but the spared ones and theirs, by SIGTERM,
    // and by SIGKILL when they have not ended after a grace.
    void enforce(std::span<const pid_t> spared);
    bool has_passed() const { return passed_; }

private:
    std::optional<seconds> limit_;
    std::optional<std::chrono::steady_clock::time_point> due_; // what is to be done next
    bool passed_ = false;
};

} // namespace kalix::run
