// A run directory of one run, and what runs that were killed have left.
#pragma once

#include "base/unique_fd.h"

#include <filesystem>

namespace kalix::run {

// A directory of this user alone, removed at the end: the one given, which must not exist yet, or a fresh one under
// $TMPDIR, else /dev/shm, else /tmp. Held locked from its making on, so that others see that its run goes on.
class private_directory {
public:
    // Throws std::system_error.
    explicit private_directory(const std::filesystem::path& given);
    private_directory(const private_directory&) = delete;
    private_directory& operator=(const private_directory&) = delete;
    ~private_directory();
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    unique_fd lock_;
};

// Removes the fresh directories of this user whose runs have died without doing so. What cannot be looked at or
// removed stays: sweeping is a courtesy to the host, and no reason not to run.
void sweep_dead_directories();

} // namespace kalix::run
