#include "platform/files/run_directory.h"

#include "base/lock.h"
#include "base/never_destroyed.h"
#include "platform/files/directory.h"
#include "platform/files/group.h"
#include "platform/files/handed_objects.h"
#include "platform/log/log.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <kalix/rundir.h>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>

namespace kalix::platform {
namespace {

struct taken_directory {
    mutex lock;
    unique_fd directory KALIX_GUARDED_BY(lock);
    unique_fd objects KALIX_GUARDED_BY(lock); // shm/
    unique_fd lock_file KALIX_GUARDED_BY(lock);
    std::string socket_name KALIX_GUARDED_BY(lock);
    socket_origin origin KALIX_GUARDED_BY(lock) = socket_origin::bound;
    bool is_cleaned KALIX_GUARDED_BY(lock) = false; // the process is ending: whatever came now would stay
};

taken_directory& taken()
{
    static never_destroyed<taken_directory> only; // the end of the process still needs it
    return *only;
}

bool is_root()
{
    return geteuid() == 0;
}

// One line with errno; the descriptor that could not be had.
unique_fd failed(const char* what, const char* path)
{
    slogf(log_code, log_error, "kalix: cannot %s %s: %s (%d)", what, path, std::strerror(errno), errno);
    return unique_fd{};
}

unique_fd refused(const char* path, const char* why)
{
    slogf(log_code, log_error, "kalix: directory %s is refused: %s", path, why);
    errno = EACCES;
    return unique_fd{};
}

// Opens a directory of ours below another, making it when missing. No link is followed.
unique_fd open_own(int parent, const char* path, mode_t mode)
{
    // Made first and looked at then: between a look and the making another user could put a directory there.
    const bool made = mkdirat(parent, path, mode) == 0;
    if (!made && errno != EEXIST)
        return failed("make directory", path);
    unique_fd directory{openat(parent, path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
    struct stat facts {};
    if (!directory || fstat(directory.get(), &facts) != 0)
        return failed("open directory", path);
    if (facts.st_uid != geteuid())
        return refused(path, "another user owns it");
    if (made && fchmod(directory.get(), mode) != 0) // the creation mask may have taken rights away
        return failed("set the mode of", path);
    return directory;
}

// Lets the members of the group that a server shares with enter and read its directory. Root's is open to all. Rights
// are given and none taken: the directory may be one that serves for more.
bool open_to_group(int directory, const struct stat& facts)
{
    constexpr mode_t enter_and_read = 0050;
    const std::optional<gid_t> with = sharing_group();
    if (!with || is_root())
        return true;
    if (facts.st_gid != *with && fchown(directory, static_cast<uid_t>(-1), *with) != 0)
        return false;
    const mode_t mode = (facts.st_mode & 07777) | enter_and_read;
    return mode == (facts.st_mode & 07777) || fchmod(directory, mode) == 0;
}

// Opens the run directory that the environment names; its path goes into path.
unique_fd open_run_directory(std::string& path)
{
    std::array<char, PATH_MAX> room{};
    if (kalix_run_directory(room.data(), room.size()) < 0) {
        errno = ENAMETOOLONG;
        return failed("open directory", "KALIX_RUN_DIR");
    }
    path = room.data();
    unique_fd directory = open_own(AT_FDCWD, room.data(), is_root() ? 0755 : 0700);
    struct stat facts {};
    // Who may write into it may put a socket of his own in the place of ours, whoever owns the directory.
    if (directory && (fstat(directory.get(), &facts) != 0 || (facts.st_mode & S_IWOTH) != 0))
        return refused(room.data(), "every user may write into it");
    if (directory && sharing_group() && !is_root() && (facts.st_mode & S_IWGRP) != 0)
        return refused(room.data(), "the group that shares it may write into it");
    if (directory && !open_to_group(directory.get(), facts))
        return failed("share directory", room.data());
    return directory;
}

// The lock ends with its holder, however that ends, so that a dead server blocks nobody. The file itself stays for
// good: were it removed, two servers could each hold a lock on a file of that name.
unique_fd lock_server(int directory, const std::string& name, const std::string& path)
{
    const std::string file = name + ".lock";
    const std::string whole = path + "/" + file;
    unique_fd lock{openat(directory, file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)};
    if (!lock)
        return failed("open", whole.c_str());
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
        return failed("lock", whole.c_str());
    return lock;
}

// Removes what an earlier server or its clients left. Clients are kept out while that goes on, so that
// it ends; root's shm/ is then open to all users, each file to its owner alone.
unique_fd open_empty_objects(int directory)
{
    unique_fd objects = open_own(directory, kalix_shm_directory, 0700);
    if (!objects)
        return objects;
    if (fchmod(objects.get(), 0700) != 0 || !empty_directory(objects.get()))
        return failed("empty", kalix_shm_directory);
    if (is_root() && fchmod(objects.get(), 01777) != 0)
        return failed("set the mode of", kalix_shm_directory);
    return objects;
}

// Only what is ours: a server that did not get the lock removes nothing of the one that holds it.
void clean(taken_directory& ours) KALIX_REQUIRES(ours.lock)
{
    if (!ours.lock_file || !ours.objects)
        return;
    if (ours.origin == socket_origin::bound && unlinkat(ours.directory.get(), ours.socket_name.c_str(), 0) != 0 &&
        errno != ENOENT)
        failed("remove", ours.socket_name.c_str());
    if (fchmod(ours.objects.get(), 0700) != 0 || !empty_directory(ours.objects.get()))
        failed("empty", kalix_shm_directory);
}

} // namespace

socket_place take_run_directory(const char* name, socket_origin origin)
{
    socket_place place;
    place.name = name;
    unique_fd directory = open_run_directory(place.directory_path);
    if (!directory)
        return place;
    unique_fd lock_file = lock_server(directory.get(), place.name, place.directory_path);
    if (!lock_file)
        return place;
    unique_fd objects = open_empty_objects(directory.get());
    if (!objects)
        return place;
    // Callers get duplicates, here and below: what they hold stays open whatever becomes of the record.
    place.directory.reset(fcntl(directory.get(), F_DUPFD_CLOEXEC, 0));
    if (!place.directory) {
        failed("duplicate the descriptor of", place.directory_path.c_str());
        return place;
    }
    taken_directory& ours = taken();
    const hold held{ours.lock};
    ours.directory = std::move(directory);
    ours.objects = std::move(objects);
    ours.lock_file = std::move(lock_file);
    ours.socket_name = place.name;
    ours.origin = origin;
    ours.is_cleaned = false;
    return place;
}

void clean_run_directory()
{
    forget_handed_objects();
    taken_directory& ours = taken();
    const hold held{ours.lock};
    clean(ours);
    ours.objects.reset(); // a second end of the process, on another thread, finds nothing to clean
    ours.is_cleaned = true;
}

void leave_run_directory()
{
    forget_handed_objects();
    taken_directory& ours = taken();
    const hold held{ours.lock};
    clean(ours);
    ours.lock_file.reset();
    ours.objects.reset();
    ours.directory.reset();
}

unique_fd open_taken_directory()
{
    taken_directory& ours = taken();
    const hold held{ours.lock};
    if (ours.directory)
        return unique_fd{fcntl(ours.directory.get(), F_DUPFD_CLOEXEC, 0)};
    errno = ENOENT;
    return unique_fd{};
}

unique_fd open_objects()
{
    {
        taken_directory& ours = taken();
        const hold held{ours.lock};
        if (ours.objects)
            return unique_fd{fcntl(ours.objects.get(), F_DUPFD_CLOEXEC, 0)};
        if (ours.is_cleaned) {
            errno = ENOENT;
            return unique_fd{};
        }
    }
    // No channel is open. Shared memory does without one, in the directory that the environment names.
    std::string path;
    const unique_fd directory = open_run_directory(path);
    return directory ? open_own(directory.get(), kalix_shm_directory, 0700) : unique_fd{};
}

// Found by name, since the server has only opened some of them. The separator ends the id: 12 must not match 123.
void remove_objects_of(uint32_t pid)
{
    forget_handed_of_process(pid);
    const unique_fd objects = open_objects();
    const std::string command_buffers = "execbuf_" + std::to_string(pid) + "_";
    const std::string readbacks = "vm_svga:" + std::to_string(pid) + ":";
    const auto remove_if_theirs = [&](const char* name) {
        const std::string_view file{name};
        if (!file.starts_with(command_buffers) && !file.starts_with(readbacks))
            return;
        if (!remove_entry(objects.get(), name))
            failed("remove", name);
    };
    if (objects && !for_each_entry(objects.get(), remove_if_theirs))
        failed("read", kalix_shm_directory);
}

} // namespace kalix::platform
