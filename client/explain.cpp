// Why a server could not be opened, for whoever reads it: a path, and what would help.
//
// Looked up anew, since an error number says neither. What has changed in between makes a less fitting sentence and
// no harm.

#include <kalix/client.h>
#include <kalix/rundir.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t entry_room = 16384; // of the host's user or group record

// What keeps this process from connecting: the directory, when it may not be entered, else the socket in it.
struct obstacle {
    char path[PATH_MAX + 16]; // a directory's, and the socket's name
    bool known = false;
    bool group_helps = false; // its members get through
    gid_t group = 0;
};

// Whether a socket's group is meant for others: a server that shares with nobody leaves it to its user's own group, and
// nobody is told to join that. A service's group kalix is its user's own and meant all the same.
bool is_shared(const struct stat& socket)
{
    char entries[entry_room];
    passwd owner{};
    passwd* found_owner = nullptr;
    if (getpwuid_r(socket.st_uid, &owner, entries, sizeof entries, &found_owner) != 0 || !found_owner ||
        found_owner->pw_gid != socket.st_gid)
        return true;
    group named{};
    group* found = nullptr;
    return getgrnam_r("kalix", &named, entries, sizeof entries, &found) == 0 && found && named.gr_gid == socket.st_gid;
}

void find_obstacle(const char* run_dir, obstacle& out)
{
    const bool enters = faccessat(AT_FDCWD, run_dir, X_OK, AT_EACCESS) == 0;
    std::snprintf(out.path, sizeof out.path, "%s%s%s", run_dir, enters ? "/" : "", enters ? kalix_channel_file : "");
    struct stat facts {};
    out.known = stat(out.path, &facts) == 0;
    out.group = facts.st_gid;
    out.group_helps = out.known && facts.st_gid != 0 && (facts.st_mode & (enters ? S_IWGRP : S_IXGRP)) != 0 &&
                      (!enters || is_shared(facts));
}

void write_group_name(gid_t id, char* name, size_t room)
{
    char entries[entry_room];
    group entry{};
    group* found = nullptr;
    if (getgrgid_r(id, &entry, entries, sizeof entries, &found) == 0 && found)
        std::snprintf(name, room, "%s", found->gr_name);
    else
        std::snprintf(name, room, "%u", id);
}

void write_user_name(char* name, size_t room)
{
    char entries[entry_room];
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, entries, sizeof entries, &found) == 0 && found)
        std::snprintf(name, room, "%s", found->pw_name);
    else
        std::snprintf(name, room, "NAME");
}

int explain_refusal(const char* run_dir, char* text, size_t room)
{
    obstacle in_the_way{};
    find_obstacle(run_dir, in_the_way);
    if (!in_the_way.group_helps)
        return std::snprintf(text, room, "%s: permission denied; the server is another user's", in_the_way.path);
    char group_name[256];
    char user_name[256];
    write_group_name(in_the_way.group, group_name, sizeof group_name);
    write_user_name(user_name, sizeof user_name);
    return std::snprintf(text, room, "%s: permission denied; its group is %s: usermod -aG %s %s, then log in again",
                         in_the_way.path, group_name, group_name, user_name);
}

int explain(const char* run_dir, int error, char* text, size_t room)
{
    switch (error) {
    case ENOENT:
        return std::snprintf(text, room, "no server: %s/%s is missing", run_dir, kalix_channel_file);
    case ECONNREFUSED:
        return std::snprintf(text, room, "the server has ended: nobody listens at %s/%s", run_dir, kalix_channel_file);
    case EACCES:
        return explain_refusal(run_dir, text, room);
    case EPIPE:
    case ECONNRESET:
        return std::snprintf(text, room,
                             "the server at %s/%s has let the connection go: it takes no more, or has ended", run_dir,
                             kalix_channel_file);
    default:
        return std::snprintf(text, room, "%s/%s: %s", run_dir, kalix_channel_file, std::strerror(error));
    }
}

} // namespace

int kalix_explain_open(const char* run_dir, int error, char* text, size_t room)
{
    if (!text && room)
        return -EINVAL;
    char path[PATH_MAX];
    if (!run_dir) {
        if (kalix_find_run_directory(path, sizeof path) < 0)
            return std::snprintf(text, room, "the run directory's name is too long");
        run_dir = path;
    }
    return explain(run_dir, error < 0 ? -error : error, text, room);
}
