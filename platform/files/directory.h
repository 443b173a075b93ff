// Removing what others may have put into a directory: files, links, and trees of any depth.
//
// Everything goes by an open directory, so that no path can be turned aside meanwhile, and no link is
// followed. Errors are in errno.
#pragma once

#include <array>

namespace kalix::platform {

// Calls visit(self, name) for every entry but "." and "..", as the directory was when the call began.
// Returns whether it could be read. Throws nothing, since the process may end with it: without memory it
// visits nothing and answers false with ENOMEM.
bool for_each_entry(int directory, void (*visit)(void* self, const char* name), void* self);

// The same for anything that can be called with a name.
template <typename visitor>
bool for_each_entry(int directory, visitor visit)
{
    const auto call = [](void* self, const char* name) { (*static_cast<visitor*>(self))(name); };
    return for_each_entry(directory, call, &visit);
}

// Removes a file, link or empty directory. True also when there was none of that name.
bool remove_entry(int directory, const char* name);

// Frees a name, whatever holds it: removes it, or moves a directory that is not empty aside, to a name
// of its own in the directory into.
bool free_name(int directory, const char* name, int into);

using aside_name = std::array<char, 40>;

// Renames it, whatever it is, to a name of its own in the directory into, noted in aside. False with errno.
bool move_aside(int directory, const char* name, int into, aside_name& aside);

// Removes everything. Nobody else may write into the directory meanwhile.
bool empty_directory(int directory);

} // namespace kalix::platform
