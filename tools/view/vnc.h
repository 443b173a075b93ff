// The screen for remote viewers, several at once.
//
// It follows mode and zoom and sends whole frames, exact, of which only the rows that changed travel. One thread looks at the
// screen and serves all viewers in turn, so a picture is never changed while it is being sent. Viewers may be hostile:
// all that they can do is look, and move the cursor when they are allowed to.
#pragma once

#include "tools/view/options.h"
#include "tools/view/viewer_door.h"

namespace kalix::view {

// Takes viewers from the door until INT or TERM, or when its frames have been sent; prints the announcement once it
// can. They are asked for the password unless it is empty. Returns the program's exit status; throws std::runtime_error
// or std::system_error with a text that says what failed. Takes the process's handlers of INT, TERM and PIPE.
int serve_vnc(const view_options& options, viewer_door& door, const std::string& password,
              const std::string& announcement);

} // namespace kalix::view
