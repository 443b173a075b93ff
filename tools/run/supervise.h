// Runs a command beside a private server.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kalix::run {

inline constexpr int exit_failed = 125; // of kalix-run itself

struct run_options {
    std::filesystem::path server;        // the server program
    std::filesystem::path log;           // of the server; empty: kept only until the end
    std::filesystem::path run_directory; // made for it and removed; empty: a fresh one
    std::vector<std::string> command;    // at least the program
};

// Starts the server, runs the command with it, and returns the exit status for kalix-run: the
// command's, or 128 and the signal that ended it, or exit_failed when the server ended meanwhile and the
// command did not mind. SIGINT, SIGTERM, SIGHUP and SIGQUIT go on to the command. Blocks these signals
// for the process. Throws failure or std::system_error.
int supervise(const run_options& options);

} // namespace kalix::run
