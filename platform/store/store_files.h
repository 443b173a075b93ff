// The files of the publish/subscribe store: where an object lies, and whole reads and writes of it.
//
// Everything goes by the open directory of the object. No link is followed to an object, and only regular
// files are read. Writers keep each other out with a lock on the directory.
#pragma once

#include "base/unique_fd.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kalix::platform {

inline constexpr size_t object_bytes_max = 1 << 20; // that a write merges into

// The store's directory, as the environment names it.
std::string store_path();

struct object_place {
    unique_fd directory; // -1: none, with errno
    std::string file;    // in it
};

// Where the object of a path lies; makes its directory when asked to.
object_place find_object(std::string_view path, bool create);

// Opens the object for reading: -1 with errno when it is missing or no regular file.
unique_fd open_object_file(const object_place& place);

// Reads from the beginning, as far as there is room: the bytes, or -1.
int64_t read_object(const object_place& place, std::span<std::byte> buffer);

// Puts a merged text in the object's place, in one step: 0 or -1 (EFBIG: it holds more than is merged).
int merge_object(const object_place& place, std::string_view written);

} // namespace kalix::platform
