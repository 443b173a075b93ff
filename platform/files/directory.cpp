#include "platform/files/directory.h"

#include "base/unique_fd.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace kalix::platform {
namespace {

struct directory_closer {
    void operator()(DIR* stream) const { closedir(stream); }
};

// Lifts what lies in a directory up into its parent, so that trees of any depth go level by level.
bool lift_entries(int directory, const char* name)
{
    const unique_fd inner{openat(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
    if (!inner)
        return false;
    bool lifted = true;
    const bool listed = for_each_entry(
        inner.get(), [&](const char* entry) { lifted = free_name(inner.get(), entry, directory) && lifted; });
    return listed && lifted;
}

// Removes an entry, or of a tree its top: what lay in it then lies beside it, for the next round. No recursion, whose
// depth whoever made the tree would choose.
bool remove_tree_level(int directory, const char* name)
{
    if (remove_entry(directory, name))
        return true;
    return errno == ENOTEMPTY && lift_entries(directory, name) && remove_entry(directory, name);
}

} // namespace

bool for_each_entry(int directory, void (*visit)(void* self, const char* name), void* self)
{
    // A description of its own: duplicates share the place to which a directory has been read.
    unique_fd own{openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (!own)
        return false;
    const std::unique_ptr<DIR, directory_closer> stream{fdopendir(own.get())};
    if (!stream)
        return false;
    own.release(); // the stream closes it
    // All names before the first visit: visitors remove entries, and a directory that changes may be read with gaps.
    std::vector<std::string> names;
    try {
        while (const dirent* entry = readdir(stream.get())) {
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                names.emplace_back(entry->d_name);
        }
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return false;
    }
    for (const std::string& name : names)
        visit(self, name.c_str());
    return true;
}

bool remove_entry(int directory, const char* name)
{
    if (unlinkat(directory, name, 0) == 0 || errno == ENOENT)
        return true;
    if (errno != EISDIR)
        return false;
    return unlinkat(directory, name, AT_REMOVEDIR) == 0 || errno == ENOENT;
}

bool move_aside(int directory, const char* name, int into, aside_name& aside)
{
    static std::atomic<unsigned> moved{0};
    // A name that is taken fails here; the next number is tried.
    for (int attempt = 0; attempt < 64; ++attempt) {
        std::snprintf(aside.data(), aside.size(), ".moved-aside-%u", ++moved);
        if (renameat2(directory, name, into, aside.data(), RENAME_NOREPLACE) == 0)
            return true;
        if (errno != EEXIST)
            return false;
    }
    return false;
}

bool free_name(int directory, const char* name, int into)
{
    if (remove_entry(directory, name))
        return true;
    aside_name aside{};
    return errno == ENOTEMPTY && move_aside(directory, name, into, aside);
}

// Round by round, as trees lose their tops; a round that removes nothing ends it, so that it cannot run for ever.
bool empty_directory(int directory)
{
    for (;;) {
        bool any = false;
        bool removed_one = false;
        const bool listed = for_each_entry(directory, [&](const char* name) {
            any = true;
            removed_one = remove_tree_level(directory, name) || removed_one;
        });
        if (!listed || (any && !removed_one))
            return false;
        if (!any)
            return true;
    }
}

} // namespace kalix::platform
