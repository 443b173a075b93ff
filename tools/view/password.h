// What remote viewers must know.
#pragma once

#include <string>

namespace kalix::view {

// VNC's passwords are compared in their first eight bytes; a longer one would seem stronger than it is.
inline constexpr size_t password_bytes_most = 8;

// The first line of a file. Throws std::system_error, or std::runtime_error for one that is no password.
std::string read_password(const std::string& file);

// One for this run, of 46 random bits. Throws std::system_error.
std::string make_password();

} // namespace kalix::view
