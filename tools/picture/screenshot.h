// The screen of a server as a picture file.
#pragma once

#include "tools/screen/screen_reader.h"

#include <string>

namespace kalix::tools {

// The screen that a run directory's screen file shows. Throws std::system_error, or std::runtime_error with a whole
// sentence.
screen_frame take_screenshot(const std::string& run_directory, cursor_drawing cursor);

// Writes it as a PNG file; "-" is standard output. Throws likewise.
void write_screenshot(const screen_frame& frame, const std::string& file);

} // namespace kalix::tools
