// The lock is the directory's own, so that there is no moment in which a directory has none but its first: a sweeper
// leaves what is not marked alone, and the mark is made under the lock.

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

constexpr std::string_view fresh_name = "kalix-run."; // and as many letters and digits as follow
constexpr std::string_view fresh_letters = "XXXXXX";
constexpr char marker[] = ".kalix-run"; // lies in fresh directories: a name alone makes nothing ours to remove

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
        given.empty() ? base_directory().append("/").append(fresh_name).append(fresh_letters) : given.string();
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

// As mkdtemp makes them.
bool is_fresh_name(std::string_view name)
{
    constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    return name.starts_with(fresh_name) && name.size() == fresh_name.size() + fresh_letters.size() &&
           name.find_first_not_of(letters, fresh_name.size()) == std::string_view::npos;
}

void mark(int folder)
{
    unique_fd{openat(folder, marker, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR)};
}

bool is_marked(int folder)
{
    return faccessat(folder, marker, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

void sweep(const fs::path& path)
{
    const unique_fd folder = open_folder(path);
    if (!folder || !is_own(folder.get()) || !is_marked(folder.get()) || flock(folder.get(), LOCK_EX | LOCK_NB) != 0 ||
        has_server(folder.get()))
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
    if (lock_ && given.empty())
        mark(lock_.get());
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
        if (is_fresh_name(entry->path().filename().string()))
            sweep(entry->path());
}

} // namespace kalix::run
