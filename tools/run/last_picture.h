// The screen as the command has left it.
#pragma once

#include <filesystem>
#include <string>

namespace kalix::run {

// Writes the screen of a run's server to a PNG file, once the device has drawn what was asked for; "-" is standard
// output. A server that does not answer for ten seconds gets a line, and its screen is written as it is. Throws
// std::system_error or std::runtime_error.
void write_last_picture(const std::filesystem::path& run_directory, const std::string& file);

} // namespace kalix::run
