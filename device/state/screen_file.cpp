// Opens the screen's file with care: what lies under its name may have been put there by somebody else.

#include "device/state/screen_file.h"

#include "base/sharing_group.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <kalix/rundir.h>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kalix::device {
namespace {

// The framebuffer begins behind the header, at a page.
constexpr uint64_t framebuffer_offset = (sizeof(kalix_screen) + 4095) / 4096 * 4096;

constexpr int warning = 3;

int give_up(int descriptor, log_function log, const char* step, int error)
{
    if (log) {
        char line[256];
        std::snprintf(line, sizeof line, "device: the screen has no file: %s: %s", step, std::strerror(error));
        log(warning, line);
    }
    if (descriptor >= 0)
        close(descriptor);
    return -1;
}

// Lets the members of the group that the server shares with read its screen. The platform, which reads the same rule,
// has complained of a group that is not to be had.
void give_to_group(int descriptor)
{
    const auto with = sharing_group_of_environment([](const char*, group_fault) {});
    if (with && fchown(descriptor, static_cast<uid_t>(-1), *with) == 0)
        (void)fchmod(descriptor, 0640);
}

std::string screen_path()
{
    char directory[4096];
    const int length = kalix_run_directory(directory, sizeof directory);
    if (length < 0)
        return {};
    // Mostly there already; where it cannot be made, opening the file says so.
    (void)mkdir(directory, geteuid() == 0 ? 0755 : 0700);
    return std::string{directory, static_cast<size_t>(length)} + "/" + kalix_screen_file;
}

// Opens, locks and sizes the file; -1 after a line that says why not.
int open_screen(uint64_t bytes, log_function log)
{
    const std::string path = screen_path();
    if (path.empty())
        return give_up(-1, log, "the run directory's name is too long", ENAMETOOLONG);
    // A link is not followed and nothing is waited for; what is not a file of this user's is not used.
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (file < 0)
        return give_up(file, log, "open", errno);
    struct stat about {};
    if (fstat(file, &about) != 0)
        return give_up(file, log, "stat", errno);
    if (!S_ISREG(about.st_mode) || about.st_uid != geteuid())
        return give_up(file, log, "not a file of this user", EPERM);
    if (flock(file, LOCK_EX | LOCK_NB) != 0)
        return give_up(file, log, "lock", errno);
    if (fchmod(file, 0600) != 0)
        return give_up(file, log, "chmod", errno);
    // Grown, never cut: a viewer has mapped what was there.
    if (static_cast<uint64_t>(about.st_size) < bytes && ftruncate(file, static_cast<off_t>(bytes)) != 0)
        return give_up(file, log, "truncate", errno);
    give_to_group(file);
    return file;
}

std::span<std::byte> map(int descriptor, uint64_t bytes)
{
    // Anonymous memory takes no pages until it is drawn to.
    const int flags = descriptor >= 0 ? MAP_SHARED : MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
    void* const at = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, flags, descriptor, 0);
    if (at == MAP_FAILED)
        return {};
    return {static_cast<std::byte*>(at), bytes};
}

} // namespace

screen_file::screen_file(uint64_t framebuffer_bytes, log_function log)
{
    const uint64_t bytes = framebuffer_offset + framebuffer_bytes;
    descriptor_ = open_screen(bytes, log);
    memory_ = map(descriptor_, bytes);
    // A file that is there and cannot be mapped is given up for memory without a name, as one that cannot be opened.
    if (memory_.empty() && named()) {
        descriptor_ = give_up(descriptor_, log, "map", errno);
        memory_ = map(-1, bytes);
    }
    if (memory_.empty())
        return;
    kalix_screen& screen = header();
    screen.magic = KALIX_SCREEN_MAGIC;
    screen.version = KALIX_SCREEN_VERSION;
    screen.header_bytes = sizeof(kalix_screen);
    screen.framebuffer_offset = framebuffer_offset;
    screen.framebuffer_bytes = framebuffer_bytes;
}

screen_file::~screen_file()
{
    if (!memory_.empty())
        munmap(memory_.data(), memory_.size());
    if (descriptor_ >= 0)
        close(descriptor_);
}

std::span<std::byte> screen_file::framebuffer() const
{
    return memory_.subspan(framebuffer_offset);
}

} // namespace kalix::device
