#include "platform/files/group.h"

#include <array>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kalix::platform {

// Only root may give files to a group that it is no member of, and only root's server has users other than its own.
std::optional<gid_t> sharing_group()
{
    std::array<char, 4096> room{}; // an entry that is longer counts as none
    group entry{};
    group* found = nullptr;
    if (geteuid() != 0 || getgrnam_r("kalix", &entry, room.data(), room.size(), &found) != 0 || found == nullptr)
        return std::nullopt;
    return found->gr_gid;
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
