#include "platform/store/store.h"

#include "base/lock.h"
#include "base/never_destroyed.h"
#include "platform/channel/channel.h"
#include "platform/log/log.h"
#include "platform/process.h"
#include "platform/store/store_files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <sched.h>
#include <string>
#include <sys/inotify.h>
#include <sys/utsname.h>

namespace kalix::platform {
namespace {

// In-place edits, renames over the object, and rights given back.
constexpr uint32_t changes = IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE | IN_DELETE | IN_ATTRIB;

// Guarded by the store's lock but for place, which never changes: reading and writing the file need no lock of ours.
struct open_object {
    object_place place;
    bool unread = true; // changed since it was read
    int watch = -1;     // inotify's, of its directory; -1: not watched
    std::optional<pulse_event> armed;
};

struct store {
    mutex lock;
    std::map<int32_t, std::shared_ptr<open_object>> objects KALIX_GUARDED_BY(lock); // by descriptor
    int inotify KALIX_GUARDED_BY(lock) = -1;                                        // -1: nothing watched yet
};

int without_memory()
{
    errno = ENOMEM;
    return -1;
}

store& the_store()
{
    static never_destroyed<store> only; // the watching thread outlives every static
    return *only;
}

std::shared_ptr<open_object> find(store& ours, int32_t fd) KALIX_REQUIRES(ours.lock)
{
    const auto found = ours.objects.find(fd);
    if (found != ours.objects.end())
        return found->second;
    errno = EBADF;
    return nullptr;
}

// A pulse that found no room leaves the event armed, for the next change to try.
void note_change(open_object& object)
{
    object.unread = true;
    if (!object.armed)
        return;
    const pulse_event event = *object.armed;
    if (MsgSendPulse(event.coid, event.priority, event.code, event.value) == 0)
        object.armed.reset();
}

void take_event(store& ours, const inotify_event& event)
{
    const hold held{ours.lock};
    const bool all = (event.mask & IN_Q_OVERFLOW) != 0; // some were lost: look at everything
    // Objects of one directory have one watch between them, so that the name decides.
    for (const auto& [fd, object] : ours.objects)
        if (all || (object->watch == event.wd && event.len > 0 && object->place.file == event.name))
            note_change(*object);
}

// The watching thread, which lives as long as the process. Events are not taken on the receiving thread, since the
// store stands on the channel and the channel knows no store.
void* watch_entry(void* descriptor)
{
    const int inotify = static_cast<int>(reinterpret_cast<intptr_t>(descriptor));
    alignas(inotify_event) std::array<std::byte, 16384> buffer;
    for (;;) {
        const ssize_t got = ::read(inotify, buffer.data(), buffer.size());
        if (got < 0 && errno != EINTR) {
            slogf(log_code, log_error, "kalix: store: cannot watch any longer: %s", std::strerror(errno));
            return nullptr;
        }
        for (ssize_t at = 0; at < got;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(&buffer[static_cast<size_t>(at)]);
            take_event(the_store(), *event);
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
    }
}

bool start_watching(store& ours) KALIX_REQUIRES(ours.lock)
{
    if (ours.inotify >= 0)
        return true;
    ours.inotify = inotify_init1(IN_CLOEXEC);
    thread_id thread = 0;
    const int error = ours.inotify < 0 ? errno
                                       : pthread_create(&thread, watch_entry,
                                                        reinterpret_cast<void*>(static_cast<intptr_t>(ours.inotify)));
    if (error == 0) {
        pthread_setname_np(thread, "store-watch");
        return true;
    }
    slogf(log_code, log_error, "kalix: store: cannot watch: %s", std::strerror(error));
    if (ours.inotify >= 0)
        ::close(ours.inotify);
    ours.inotify = -1;
    errno = error;
    return false;
}

bool watch(store& ours, open_object& object) KALIX_REQUIRES(ours.lock)
{
    if (object.watch >= 0)
        return true;
    if (!start_watching(ours))
        return false;
    // The directory that the object was opened in, wherever its path leads by now.
    char directory[32];
    std::snprintf(directory, sizeof directory, "/proc/self/fd/%d", object.place.directory.get());
    object.watch = inotify_add_watch(ours.inotify, directory, changes);
    object.unread = true; // what changed before it was watched
    return object.watch >= 0;
}

} // namespace

bool store_directory(std::span<char> path)
try {
    char whole[PATH_MAX];
    if (!realpath(store_path().c_str(), whole))
        return false;
    return static_cast<size_t>(std::snprintf(path.data(), path.size(), "%s", whole)) < path.size();
} catch (const std::bad_alloc&) {
    return false;
}

int32_t open(const char* path, unsigned flags)
try {
    const bool create = (flags & open_create) != 0;
    auto object = std::make_shared<open_object>();
    object->place = find_object(path, create);
    if (!object->place.directory)
        return -1;
    unique_fd file = open_object_file(object->place);
    if (!file && !(create && errno == ENOENT && merge_object(object->place, "") == 0))
        return -1;
    // The directory stays open and not the file, which writers replace; its number is the object's name to callers.
    const int32_t fd = object->place.directory.get();
    store& ours = the_store();
    const hold held{ours.lock};
    ours.objects[fd] = std::move(object);
    return fd;
} catch (const std::bad_alloc&) {
    return without_memory();
}

void close_object(int32_t fd)
{
    store& ours = the_store();
    const hold held{ours.lock};
    ours.objects.erase(fd);
}

int64_t read(int32_t fd, std::span<std::byte> buffer)
{
    std::shared_ptr<open_object> object;
    {
        store& ours = the_store();
        const hold held{ours.lock};
        object = find(ours, fd);
        if (object)
            object->unread = false; // a change from here on is another one
    }
    return object ? read_object(object->place, buffer) : -1;
}

int64_t write(int32_t fd, std::span<const std::byte> lines)
try {
    std::shared_ptr<open_object> object;
    {
        store& ours = the_store();
        const hold held{ours.lock};
        object = find(ours, fd);
    }
    const std::string_view text{reinterpret_cast<const char*>(lines.data()), lines.size()};
    return object && merge_object(object->place, text) == 0 ? static_cast<int64_t>(lines.size()) : -1;
} catch (const std::bad_alloc&) {
    return without_memory();
}

int fsync(int32_t fd)
{
    return ::fsync(fd); // the directory: the text itself was made safe before it was renamed
}

int ionotify(int32_t fd, uint32_t action, uint32_t conditions, const pulse_event* event)
{
    if (action != notify_poll_arm || conditions != notify_input || !event) {
        errno = EINVAL;
        return -1;
    }
    store& ours = the_store();
    const hold held{ours.lock};
    const std::shared_ptr<open_object> object = find(ours, fd);
    if (!object || !watch(ours, *object))
        return -1;
    if (object->unread)
        return static_cast<int>(notify_input);
    object->armed = *event;
    return 0;
}

int uname(machine_name* name)
{
    utsname host{};
    if (::uname(&host) != 0)
        return -1;
    std::snprintf(name->machine, sizeof name->machine, "%s", host.machine);
    return 0;
}

int SchedGet(int32_t /*process*/, int32_t /*thread*/, sched_param* scheduling)
{
    ::sched_param host{};
    if (sched_getparam(0, &host) != 0)
        return -1;
    scheduling->priority = host.sched_priority;
    return 0;
}

} // namespace kalix::platform
