// The group with which a server shares its socket, screen and status: one rule for platform and device, which know
// nothing of each other.
//
// KALIX_GROUP names it, by name or number; "none" is no sharing. Without that it is the group kalix, where the host has
// it: for root, and for a server that runs with that group as its own, as a service does. A user who merely is a member
// of it keeps a private server. Who is not root shares only with a group that it is a member of, since the host lets it
// give files to no other.
#pragma once

#include "base/environment.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <grp.h>
#include <optional>
#include <string_view>
#include <unistd.h>

namespace kalix {

enum class group_fault {
    unknown,      // the host has no such group
    not_a_member, // this process is none
};

// An entry beyond 64 KiB, some thousands of members, counts as none.
inline std::optional<gid_t> group_of_name(const char* name)
{
    std::array<char, 65536> room;
    group entry{};
    group* found = nullptr;
    if (getgrnam_r(name, &entry, room.data(), room.size(), &found) != 0 || found == nullptr)
        return std::nullopt;
    return found->gr_gid;
}

inline bool is_member(gid_t of)
{
    std::array<gid_t, NGROUPS_MAX> groups;
    const int count = getgroups(static_cast<int>(groups.size()), groups.data());
    const auto end = groups.begin() + std::max(count, 0);
    return getegid() == of || std::find(groups.begin(), end, of) != end;
}

// None where nothing is shared. Of a group that was asked for and is not to be had, complain(value, fault) is told.
template <typename function>
std::optional<gid_t> sharing_group_of_environment(const function& complain)
{
    const char* const given = std::getenv("KALIX_GROUP");
    const bool is_root = geteuid() == 0;
    if (given == nullptr || *given == '\0') {
        const std::optional<gid_t> usual = group_of_name("kalix");
        return usual && (is_root || getegid() == *usual) ? usual : std::nullopt;
    }
    if (std::string_view{given} == "none")
        return std::nullopt;
    std::optional<gid_t> named = number_in(given, 0, UINT32_MAX - 1); // all ones is no group to the host
    if (!named)
        named = group_of_name(given);
    if (named && (is_root || is_member(*named)))
        return named;
    complain(given, named ? group_fault::not_a_member : group_fault::unknown);
    return std::nullopt;
}

} // namespace kalix
