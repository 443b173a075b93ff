// How the process ends: what the receive loop needs of process.cpp.
#pragma once

namespace kalix::platform {

// A descriptor that becomes readable when SIGTERM or SIGINT has come; -1 when process_begin has not
// taken these signals over (or, after one line, when the host refuses). The caller owns it.
int open_signal_descriptor();

// Calls the farewell given to process_begin and ends the process with status 0.
[[noreturn]] void end_on_signal();

} // namespace kalix::platform
