// The logger's side towards the platform itself; log.h is its face.
#pragma once

namespace kalix::platform {

// Reads KALIX_LOG anew and opens what it names; a file that cannot be opened is one warning line.
void log_open();

// The descriptor that log_open holds for what it writes to, -1 for none: a background start leaves it open.
int log_descriptor();

// A timer descriptor that the logger sets off when a count of withheld lines is due, or lines that found no
// room are to be tried again; -1 for none. Whoever waits on it then calls log_catch_up.
void log_set_timer(int fd);
void log_catch_up();

// The process ends: writes all counts of withheld lines, due or not, and waits a fifth of a second at most for
// a reader that has fallen behind.
void log_finish();

} // namespace kalix::platform
