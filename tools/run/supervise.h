// Runs a command beside a private server.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kalix::run {

inline constexpr int exit_timed_out = 124;
inline constexpr int exit_failed = 125; // of kalix-run itself

struct run_options {
    std::filesystem::path server;                   // the server program
    std::filesystem::path log;                      // of the server; empty: kept only until the end
    std::filesystem::path run_directory;            // made for it and removed; empty: a fresh one
    std::string screenshot;                         // the file for the screen at the command's end; empty: none
    std::chrono::seconds ready_within{};            // from the server's start
    std::optional<std::chrono::seconds> time_limit; // from the command's start; none: no limit
    std::vector<std::string> command;               // at least the program
};

// Starts the server, runs the command with it, and returns the exit status for kalix-run: the command's, or 128 and
// the signal that ended it; exit_timed_out when its time was over; exit_failed when the command did well and the server
// ended meanwhile or the screenshot failed. SIGINT, SIGTERM, SIGHUP and SIGQUIT go on to the command, and what it has
// started ends with it. Blocks these signals and SIGCHLD for the process. Throws failure or std::system_error: nothing
// has been started then, or nothing is left of it.
int supervise(const run_options& options);

} // namespace kalix::run
