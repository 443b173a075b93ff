// The commands of kalixctl: each does one thing to a server and reports what came of it.
//
// Each reads the parameters of its own table in main.cpp, by their names. Failures are exceptions whose text says what
// failed and, where that is known, what to do: std::system_error from libkalix ("cannot " stands before it),
// std::runtime_error with a whole sentence.
#pragma once

#include "tools/command_line.h"
#include "tools/ctl/report.h"

namespace kalix::ctl {

using tools::arguments;

report list_surfaces(const arguments&);
report describe_surface(const arguments&);
report show_surface(const arguments&);
report reset_display(const arguments&);
report dump_surface(const arguments&);
report dump_bytes(const arguments&);
report fill_surface(const arguments&);
report take_screenshot(const arguments&);
report tell_frame(const arguments&);
report tell_statistics(const arguments&);
report tell_or_set_zoom(const arguments&);
report set_mode(const arguments&);
report ping(const arguments&);

// What prints by itself, and returns the exit status.
int tell_events(const arguments&);
int show_top(const arguments&);
int examine_server(const arguments&);

} // namespace kalix::ctl
