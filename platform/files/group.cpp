#include "platform/files/group.h"

#include <sys/stat.h>
#include <unistd.h>

namespace kalix::platform {
namespace {

std::optional<gid_t> shared_with;

} // namespace

void share_with(std::optional<gid_t> group)
{
    shared_with = group;
}

std::optional<gid_t> sharing_group()
{
    return shared_with;
}

// The group first, the mode behind it: the group that the file was made with never gets the rights.
bool share_with_group(int fd, mode_t mode, mode_t shared_mode)
{
    const std::optional<gid_t> with = sharing_group();
    if (with && fchown(fd, static_cast<uid_t>(-1), *with) != 0)
        return false;
    return fchmod(fd, with ? shared_mode : mode) == 0;
}

} // namespace kalix::platform
