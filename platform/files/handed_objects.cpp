#include "platform/files/handed_objects.h"

#include "base/lock.h"
#include "base/never_destroyed.h"
#include "platform/files/descriptors.h"
#include "platform/log/log.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace kalix::platform {
namespace {

struct handed_object {
    object_owner owner;
    uint64_t bytes;
    int32_t descriptor; // the table's while it waits
    bool is_open;       // the driver's
};

using object_table = std::map<std::string, handed_object, std::less<>>;

struct object_book {
    mutex lock;
    object_table objects KALIX_GUARDED_BY(lock);
};

object_book& the_book()
{
    static never_destroyed<object_book> only; // workers may use it to the process's end
    return *only;
}

int32_t fail_with(int error)
{
    errno = error;
    return -1;
}

unique_fd duplicate_of(int32_t fd)
{
    return unique_fd{fcntl(fd, F_DUPFD_CLOEXEC, 0)};
}

// The name is for those who look at the process's mappings.
unique_fd new_memory(const std::string& name)
{
    return unique_fd{memfd_create(name.c_str(), MFD_CLOEXEC | MFD_ALLOW_SEALING)};
}

unique_fd new_sealed_memory(const std::string& name, uint64_t bytes)
{
    unique_fd memory = new_memory(name);
    if (!memory || ftruncate(memory.get(), static_cast<off_t>(bytes)) != 0)
        return unique_fd{};
    seal_handed_object(memory.get());
    return memory;
}

object_table::iterator forget(object_table& objects, object_table::iterator which)
{
    if (!which->second.is_open)
        ::close(which->second.descriptor);
    return objects.erase(which);
}

template <typename condition>
void forget_those(object_table& objects, condition matches)
{
    for (auto each = objects.begin(); each != objects.end();)
        each = matches(each->second) ? forget(objects, each) : std::next(each);
}

enum class bound { none, all, user, bytes };

// The bound that another one of so many bytes would pass.
bound reached(const object_table& objects, const object_owner& by, uint64_t bytes)
{
    size_t waiting = 0;
    size_t of_user = 0;
    uint64_t bytes_of_user = bytes;
    for (const auto& [name, each] : objects) {
        if (each.is_open)
            continue;
        ++waiting;
        if (each.owner.user != by.user)
            continue;
        ++of_user;
        bytes_of_user += each.bytes;
    }
    const size_t most = divide_descriptors().handed;
    if (waiting >= most)
        return bound::all;
    if (by.user == geteuid()) // trusted with all that there is
        return bound::none;
    if (of_user >= most / 4)
        return bound::user;
    return bytes_of_user > handed_bytes_of_a_user_max ? bound::bytes : bound::none;
}

void log_refusal(const object_owner& by, bound of)
{
    switch (of) {
    case bound::all:
        return slogf(log_code, log_warning, "kalix: process %u of user %u refused: too many objects wait to be opened",
                     by.process, by.user);
    case bound::user:
        return slogf(log_code, log_warning,
                     "kalix: process %u of user %u refused: too many objects of this user wait to be opened",
                     by.process, by.user);
    case bound::bytes:
        return slogf(log_code, log_warning,
                     "kalix: process %u of user %u refused: no more than %llu bytes of one user wait to be opened",
                     by.process, by.user, static_cast<unsigned long long>(handed_bytes_of_a_user_max));
    case bound::none:
        return;
    }
}

// Enters a new one for its owner; the bound that keeps it out. The caller's copy is made first: nothing may fail behind
// the entry.
bound enter(object_table& objects, const object_owner& owner, const std::string& name, uint64_t bytes, unique_fd& copy)
{
    if (const auto old = objects.find(name); old != objects.end())
        forget(objects, old);
    if (const bound kept_out = reached(objects, owner, bytes); kept_out != bound::none)
        return kept_out;
    unique_fd memory = new_sealed_memory(name, bytes);
    copy = memory ? duplicate_of(memory.get()) : unique_fd{};
    if (!copy)
        return bound::none;
    objects.emplace(name, handed_object{owner, bytes, memory.get(), false});
    memory.release(); // the table's now
    return bound::none;
}

} // namespace

unique_fd make_handed_object(const object_owner& owner, std::string_view name, uint64_t bytes)
{
    unique_fd copy;
    bound kept_out = bound::none;
    try {
        object_book& book = the_book();
        const hold held{book.lock};
        kept_out = enter(book.objects, owner, std::string{name}, bytes, copy);
    } catch (const std::bad_alloc&) {
        copy.reset();
    }
    log_refusal(owner, kept_out);
    errno = ENOMEM;
    return copy;
}

unique_fd find_handed_object(const object_owner& asking, std::string_view name)
{
    object_book& book = the_book();
    const hold held{book.lock};
    const auto found = book.objects.find(name);
    if (found == book.objects.end()) {
        errno = ENOENT;
        return unique_fd{};
    }
    const object_owner& owner = found->second.owner;
    if (owner.user == asking.user && (owner.process == 0 || owner.process == asking.process))
        return duplicate_of(found->second.descriptor);
    errno = EACCES;
    return unique_fd{};
}

// Of one that is open already its holder has the number: who opens it once more gets another, and closes that himself.
int32_t open_handed_object(std::string_view name, uint32_t user)
{
    object_book& book = the_book();
    const hold held{book.lock};
    const auto found = book.objects.find(name);
    if (found == book.objects.end())
        return fail_with(ENOENT);
    handed_object& object = found->second;
    if (object.owner.user != user)
        return fail_with(EACCES);
    if (object.is_open)
        return duplicate_of(object.descriptor).release();
    object.is_open = true;
    return object.descriptor;
}

int32_t make_object_to_hand(std::string_view name, uint32_t user)
{
    try {
        const std::string whole{name};
        unique_fd memory = new_memory(whole);
        if (!memory)
            return -1;
        object_book& book = the_book();
        const hold held{book.lock};
        if (const auto old = book.objects.find(whole); old != book.objects.end())
            forget(book.objects, old);
        book.objects.emplace(whole, handed_object{{user, 0, 0}, 0, memory.get(), true});
        return memory.release();
    } catch (const std::bad_alloc&) {
        return fail_with(ENOMEM);
    }
}

// Other files refuse seals, which changes nothing for them.
void seal_handed_object(int32_t fd)
{
    const int kept = errno;
    fcntl(fd, F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL);
    errno = kept;
}

// Looked for one by one, which a server whose objects are files does not pay for: its table is empty.
bool take_back_handed_object(int32_t fd)
{
    object_book& book = the_book();
    const hold held{book.lock};
    for (auto each = book.objects.begin(); each != book.objects.end(); ++each) {
        handed_object& object = each->second;
        if (!object.is_open || object.descriptor != fd)
            continue;
        const bool goes_back =
            object.owner.process != 0 && reached(book.objects, object.owner, object.bytes) == bound::none;
        if (goes_back)
            object.is_open = false;
        else
            book.objects.erase(each);
        return goes_back;
    }
    return false;
}

bool forget_handed_object(std::string_view name)
{
    object_book& book = the_book();
    const hold held{book.lock};
    const auto found = book.objects.find(name);
    if (found == book.objects.end())
        return false;
    forget(book.objects, found);
    return true;
}

bool forget_handed_object(std::string_view name, int32_t open_as)
{
    object_book& book = the_book();
    const hold held{book.lock};
    const auto found = book.objects.find(name);
    if (found == book.objects.end() || !found->second.is_open || found->second.descriptor != open_as)
        return false;
    forget(book.objects, found);
    return true;
}

void forget_handed_of_connection(uint32_t connection)
{
    object_book& book = the_book();
    const hold held{book.lock};
    forget_those(book.objects, [connection](const handed_object& each) {
        return !each.is_open && each.owner.process != 0 && each.owner.connection == connection;
    });
}

void forget_handed_of_process(uint32_t process)
{
    object_book& book = the_book();
    const hold held{book.lock};
    forget_those(book.objects, [process](const handed_object& each) { return each.owner.process == process; });
}

void forget_handed_objects()
{
    object_book& book = the_book();
    const hold held{book.lock};
    forget_those(book.objects, [](const handed_object&) { return true; });
}

} // namespace kalix::platform
