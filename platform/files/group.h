// The group kalix, whose members may use a root server, on hosts that have it.
#pragma once

#include <optional>
#include <sys/types.h>

namespace kalix::platform {

// Its id, when this process runs as root and the host has the group.
std::optional<gid_t> sharing_group();

// Gives an open file the mode alone, or the group and shared_mode where there is one. False with errno.
bool share_with_group(int fd, mode_t mode, mode_t shared_mode);

} // namespace kalix::platform
