// The shared-memory objects of a server: files in the directory shm/ of its run directory.
//
// A file is followed through no symbolic link, is a regular file, and belongs to this user, or it is
// not used. Room is taken on the file system before the memory is, so that a full file system is an
// error here and not a bus error later.
#pragma once

#include "client/resources.h"

#include <cstddef>
#include <cstdint>

namespace kalix::client_library {

struct object_name {
    char text[64];
};
object_name command_buffer_name(uint32_t number); // execbuf_<process>_<number>
object_name readback_name(uint32_t number);       // vm_svga:<process>:<number>
object_name dma_buffer_name(uint32_t handle);     // svga_dma_<handle>

// Each opens or makes the object, maps its first bytes bytes and returns 0 or a negative errno.
int shm_create(int directory, const object_name& name, size_t bytes, mapping& out); // replaces what is there
int shm_share(int directory, const object_name& name, size_t bytes, mapping& out);  // keeps it, and lets it grow
int shm_attach(int directory, const object_name& name, size_t bytes, mapping& out); // another made it, that long

void shm_remove(int directory, const object_name& name);

} // namespace kalix::client_library
