// The lock is the directory's own, so that there is no moment in which a directory has none: a sweeper that comes
// between the making and the lock removes an empty directory, which its maker finds out and makes another.

#include "tools/run/private_directory.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <kalix/rundir.h>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kalix::run {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view fresh_name = "kalix-run."; // and six letters

std::string base_directory()
{
    const char* given = std::getenv("TMPDIR");
    if (given && *given)
        return given;
    // In memory where the host has such a place: clients' buffers lie in the run directory, too.
    return access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : "/tmp";
}

fs::path make(const fs::path& given)
{
    std::string name =
        given.empty() ? base_directory().append("/").append(fresh_name).append("XXXXXX") : given.string();
    const bool made = given.empty() ? mkdtemp(name.data()) != nullptr : mkdir(name.c_str(), S_IRWXU) == 0;
    if (!made)
        throw std::system_error{errno, std::generic_category(), "make a run directory " + name};
    return fs::absolute(name);
}

unique_fd open_folder(const fs::path& path)
{
    return unique_fd{open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
}

bool is_named(const fs::path& path, int folder)
{
    struct stat named {
    }, held{};
    return lstat(path.c_str(), &named) == 0 && fstat(folder, &held) == 0 && named.st_dev == held.st_dev &&
           named.st_ino == held.st_ino;
}

bool is_own(int folder)
{
    struct stat facts {};
    return fstat(folder, &facts) == 0 && facts.st_uid == geteuid();
}

// A server outlives a killed run for as long as it takes to end.
bool has_server(int folder)
{
    const unique_fd lock{openat(folder, kalix_lock_file, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
    return lock && flock(lock.get(), LOCK_EX | LOCK_NB) != 0;
}

void sweep(const fs::path& path)
{
    const unique_fd folder = open_folder(path);
    if (!folder || !is_own(folder.get()) || flock(folder.get(), LOCK_EX | LOCK_NB) != 0 || has_server(folder.get()))
        return;
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

} // namespace

private_directory::private_directory(const fs::path& given)
{
    do {
        path_ = make(given);
        lock_ = open_folder(path_);
        // Waits for a sweeper that came first. A file system without such locks has no sweepers either.
        while (lock_ && flock(lock_.get(), LOCK_EX) != 0 && errno == EINTR) {
        }
    } while (lock_ && !is_named(path_, lock_.get()));
}

private_directory::~private_directory()
{
    std::error_code ignored; // what cannot be removed has no better place to be told than nowhere
    fs::remove_all(path_, ignored);
}

void sweep_dead_directories()
{
    std::error_code gone;
    for (fs::directory_iterator entry{base_directory(), gone}, end; !gone && entry != end; entry.increment(gone))
        if (entry->path().filename().string().starts_with(fresh_name))
            sweep(entry->path());
}

} // namespace kalix::run
