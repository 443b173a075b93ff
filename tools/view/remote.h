// Viewers that are not a window here: the door they come in by, and what they must know.
#pragma once

#include "tools/view/options.h"

namespace kalix::view {

// Serves them until INT or TERM, or when its frames have been sent. Returns the program's exit status; throws
// std::runtime_error or std::system_error with a text that says what failed.
int serve_remote(const view_options& options);

} // namespace kalix::view
