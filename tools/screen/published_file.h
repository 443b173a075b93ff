// A server's published files are opened here, so that who may not learns whose group would let him.
#pragma once

#include "base/unique_fd.h"

#include <string>
#include <sys/types.h>

namespace kalix::tools {

// Opens a file of a run directory for reading, not waiting whatever lies under its name. Throws std::system_error; its
// text has the path ("open .../status"), and where membership of a group would help, that group.
unique_fd open_published(const std::string& path);

// What the host calls a group; its number where it has no name.
std::string group_name(gid_t group);

} // namespace kalix::tools
