#include "tools/screen/published_file.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <sys/stat.h>
#include <system_error>

namespace kalix::tools {
namespace {

// The group whose members could open the file: its own, or that of the directory that does not let this user look.
std::string group_that_may(const std::string& path)
{
    struct stat facts {};
    mode_t needed = S_IRGRP;
    if (stat(path.c_str(), &facts) != 0) {
        if (stat(std::filesystem::path{path}.parent_path().c_str(), &facts) != 0)
            return "";
        needed = S_IXGRP;
    }
    return facts.st_gid != 0 && (facts.st_mode & needed) != 0 ? " (its group is " + group_name(facts.st_gid) + ")" : "";
}

} // namespace

std::string group_name(gid_t group)
{
    std::array<char, 16384> room;
    ::group entry{};
    ::group* found = nullptr;
    if (getgrgid_r(group, &entry, room.data(), room.size(), &found) != 0 || !found)
        return std::to_string(group);
    return found->gr_name;
}

unique_fd open_published(const std::string& path)
{
    unique_fd file{open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
    if (file)
        return file;
    const int error = errno;
    throw std::system_error{error, std::generic_category(),
                            "open " + path + (error == EACCES ? group_that_may(path) : "")};
}

} // namespace kalix::tools
