// The logger's side towards the platform itself; log.h is its face.
#pragma once

namespace kalix::platform {

// Reads KALIX_LOG anew and opens what it names; a file that cannot be opened is one warning line.
void log_open();

// The descriptor that log_open holds for a file, -1 for none: a background start leaves it open.
int log_descriptor();

// A timer descriptor that the logger sets off when a count of withheld lines is due; -1 for none.
// Whoever waits on it then calls log_write_due_counts.
void log_set_timer(int fd);
void log_write_due_counts();

// Writes all counts of withheld lines, due or not: the process ends.
void log_write_all_counts();

} // namespace kalix::platform
