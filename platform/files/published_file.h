// Files of the run directory that tools read and this process writes.
#pragma once

#include <cstddef>

namespace kalix::platform {

// Makes a file of the run directory and maps it for writing, of zeros. It takes the place of an earlier server's,
// which stays as it is for readers that are still attached. It can be read by its user, and by the members of the
// group that the server shares with. The process holds a write lock on it (of the open file description) until it ends:
// by that readers know that somebody writes it. Guarded like shared memory; there until the process ends. Null after
// one line that says why, with errno.
void* map_published_file(const char* name, std::size_t bytes);

} // namespace kalix::platform
