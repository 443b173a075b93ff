// The screen of a server as a picture file.
#pragma once

#include "tools/screen/screen_reader.h"

#include <string>

namespace kalix::tools {

// Writes the screen that a run directory's screen file shows as a PNG file; "-" is standard output. Returns the frame
// that was written. Tells on standard error, in the program's name, of a display that is off, whose picture is black.
// Throws std::system_error, or std::runtime_error with a whole sentence.
screen_frame write_screenshot(const std::string& run_directory, const std::string& file, cursor_drawing cursor,
                              const char* program);

} // namespace kalix::tools
