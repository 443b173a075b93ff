// The group whose members may use this server: they connect, look at the screen and read the status.
#pragma once

#include <optional>
#include <sys/types.h>

namespace kalix::platform {

// Set once, by whoever reads the settings, before there are threads; none until then.
void share_with(std::optional<gid_t> group);
std::optional<gid_t> sharing_group();

// Gives an open file the mode alone, or the group and shared_mode where there is one. False with errno.
bool share_with_group(int fd, mode_t mode, mode_t shared_mode);

} // namespace kalix::platform
