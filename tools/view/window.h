// The screen in a window of this machine's display.
//
// It follows mode and zoom, shows frames whole, and rests while nothing moves. One thread: the display library wants
// its calls from one, the main one.
#pragma once

#include "tools/view/options.h"

namespace kalix::view {

// Until it is closed or has shown its frames. Returns the program's exit status; throws std::runtime_error or
// std::system_error with a text that says what failed.
int show_window(const view_options& options);

} // namespace kalix::view
