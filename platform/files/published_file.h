// Files of the run directory that tools read and this process writes.
#pragma once

#include <cstddef>

namespace kalix::platform {

// Maps a file of the run directory for writing, zero-filled, making it when missing; an existing one keeps
// its inode, so that readers stay attached, and never shrinks. It can be read by its user, and by the
// members of the group that the server shares with. Guarded like shared memory; there until the process
// ends. Null after one line that says why, with errno.
void* map_published_file(const char* name, std::size_t bytes);

} // namespace kalix::platform
