// A picture in the characters of a terminal.
#pragma once

#include "tools/screen/screen_reader.h"

#include <string>

namespace kalix::ctl {

// As large as the terminal of standard output, or of 80 columns where there is none; in as many colours as TERM and
// COLORTERM say that it has. Throws std::runtime_error in a build without libchafa.
std::string terminal_picture(const tools::screen_frame& frame);

} // namespace kalix::ctl
