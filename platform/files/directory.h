// Removing what others may have put into a directory: files, links, and trees of any depth.
//
// Everything goes by an open directory, so that no path can be turned aside meanwhile, and no link is
// followed. Errors are in errno.
#pragma once

#include <array>
#include <functional>
#include <string_view>

namespace kalix::platform {

// Calls visit(name) for every entry but "." and "..", as the directory was when the call began.
// Returns whether it could be read.
bool for_each_entry(int directory, const std::function<void(const char* name)>& visit);

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
