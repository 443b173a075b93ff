#include "platform/store/store_files.h"

#include "platform/store/store_text.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>
#include <vector>

namespace kalix::platform {
namespace {

constexpr std::string_view prefix = "/pps/";

// Each in turn from the root; one that is there already is no failure, also when another process has just made it.
bool make_directories(const std::string& path)
{
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        if (mkdir(path.substr(0, end).c_str(), 0755) != 0 && errno != EEXIST)
            return false;
        if (end == std::string::npos)
            return true;
    }
}

// The path below the store's directory, or nothing when it names no object in there. No ".." may lead out of it,
// which refuses some names that would not.
std::string_view inside(std::string_view path)
{
    if (!path.starts_with(prefix))
        return {};
    path.remove_prefix(prefix.size());
    const bool good = !path.empty() && !path.starts_with('/') && !path.ends_with('/') && path.find("//") == path.npos &&
                      path.find("..") == path.npos;
    return good ? path : std::string_view{};
}

// From the beginning, wherever the descriptor stands; short only where the file ends.
int64_t read_all(int file, std::span<std::byte> buffer)
{
    size_t count = 0;
    while (count < buffer.size()) {
        const ssize_t got = pread(file, buffer.data() + count, buffer.size() - count, static_cast<off_t>(count));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        count += static_cast<size_t>(got);
    }
    return static_cast<int64_t>(count);
}

bool write_all(int file, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t put = ::write(file, text.data(), text.size());
        if (put < 0 && errno != EINTR)
            return false;
        text.remove_prefix(put < 0 ? 0 : static_cast<size_t>(put));
    }
    return true;
}

// What the object holds; empty for one that is missing or a link, which a write replaces.
std::optional<std::string> held_text(const object_place& place)
{
    std::vector<std::byte> room(object_bytes_max + 1); // the one byte more tells that there is too much
    const int64_t count = read_object(place, room);
    if (count < 0)
        return errno == ENOENT || errno == ELOOP ? std::optional<std::string>{""} : std::nullopt;
    if (count > static_cast<int64_t>(object_bytes_max)) {
        errno = EFBIG;
        return std::nullopt;
    }
    return std::string{reinterpret_cast<const char*>(room.data()), static_cast<size_t>(count)};
}

// A new file renamed over the object, so that readers see the old text or the new one, and on the disk before that, so
// that a power failure leaves one of them as well. What a writer that died has left under the new file's name goes.
int replace(const object_place& place, const std::string& text)
{
    const int directory = place.directory.get();
    const std::string temporary = "." + place.file + ".new";
    unlinkat(directory, temporary.c_str(), 0);
    const unique_fd file{
        openat(directory, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644)};
    if (!file)
        return -1;
    if (write_all(file.get(), text) && ::fsync(file.get()) == 0 &&
        renameat(directory, temporary.c_str(), directory, place.file.c_str()) == 0)
        return 0;
    const int error = errno;
    unlinkat(directory, temporary.c_str(), 0);
    errno = error;
    return -1;
}

} // namespace

std::string store_path()
{
    const auto from = [](const char* variable) {
        const char* const value = std::getenv(variable);
        return std::string{value ? value : ""};
    };
    if (std::string given = from("KALIX_PPS_DIR"); !given.empty())
        return given;
    if (geteuid() == 0)
        return "/var/lib/kalix/pps";
    const std::string state = from("XDG_STATE_HOME");
    return (state.empty() ? from("HOME") + "/.local/state" : state) + "/kalix/pps";
}

object_place find_object(std::string_view path, bool create)
{
    object_place place;
    const std::string_view object = inside(path);
    if (object.empty()) {
        errno = EINVAL;
        return place;
    }
    const std::string whole = store_path() + "/" + std::string{object};
    const size_t slash = whole.rfind('/');
    const std::string directory = whole.substr(0, slash);
    if (create && !make_directories(directory))
        return place;
    place.directory.reset(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    place.file = whole.substr(slash + 1);
    return place;
}

unique_fd open_object_file(const object_place& place)
{
    unique_fd file{
        openat(place.directory.get(), place.file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)};
    struct stat facts {};
    if (file && (fstat(file.get(), &facts) != 0 || !S_ISREG(facts.st_mode))) {
        file.reset();
        errno = EINVAL;
    }
    return file;
}

int64_t read_object(const object_place& place, std::span<std::byte> buffer)
{
    const unique_fd file = open_object_file(place);
    return file ? read_all(file.get(), buffer) : -1;
}

int merge_object(const object_place& place, std::string_view written)
{
    // A description of its own: the lock is the descriptor's, and writers of one process share place.
    const unique_fd lock{openat(place.directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (!lock || flock(lock.get(), LOCK_EX) != 0)
        return -1;
    const std::optional<std::string> held = held_text(place);
    return held ? replace(place, merge_attributes(place.file, *held, written)) : -1;
}

} // namespace kalix::platform
