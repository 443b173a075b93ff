// Whether the server of a run directory lives.
//
// A server holds a write lock on its status file for as long as it lives, however it ends, and its files stay behind:
// what shows a picture or a number out of them asks here first. Asking needs no right but to read the file, takes
// nothing and disturbs nobody; a server that is stopped or stuck lives.
#pragma once

#include <stdexcept>
#include <string>

namespace kalix::tools {

enum class server_state {
    none, // no status file: no server was ever here, or none that could make one
    lives,
    ended, // the files are those of a server that has gone
};

// Throws std::system_error when the status file is there and cannot be opened.
server_state state_of_server(const std::string& directory);

// The same in one word, for who looks again and again: false also when nothing can be found out.
bool server_lives(const std::string& directory) noexcept;

// Whether the writer of an open status file lives.
bool writer_lives(int status_file) noexcept;

struct server_ended : std::runtime_error {
    server_ended() : std::runtime_error{"the server has ended"} {}
};

// Throws server_ended unless it lives; without a status file std::system_error, as reading that file would.
void expect_server(const std::string& directory);

} // namespace kalix::tools
