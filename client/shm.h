// The shared-memory objects of a server, wherever they are: files in the directory shm/ of its run directory, or
// memory that it sends over the connection.
//
// Files do where both sides reach them: the server is root or runs as this user, in the same process namespace. Else
// the server makes the objects and sends their descriptors, and no directory is needed. Nobody but this module knows
// which it is.
//
// A file is followed through no symbolic link, is a regular file, and belongs to this user, or it is
// not used. Room is taken on the file system before the memory is, so that a full file system is an
// error here and not a bus error later.
#pragma once

#include "client/connection.h"

#include <cstddef>
#include <cstdint>

namespace kalix::client_library {

// Finds out how objects are had, once the server has answered the greeting: it has made the directory then, and
// emptied it. 0 or a negative errno.
int find_objects(int run_directory, int socket, object_place& out);

struct object_name {
    char text[64];
};
object_name command_buffer_name(const kalix_connection& connection, uint32_t number); // execbuf_<process>_<number>
object_name readback_name(const kalix_connection& connection, uint32_t number);       // vm_svga:<process>:<number>
object_name dma_buffer_name(uint32_t handle);                                         // svga_dma_<handle>

// Each opens or makes the object, maps its first bytes bytes and returns 0 or a negative errno. Create replaces what
// is there; share keeps it when it is this process's, and lets it grow until the server has taken it; attach finds
// one that the server has made, that long.
int shm_create(kalix_connection& connection, const object_name& name, size_t bytes, mapping& out)
    KALIX_REQUIRES(connection.lock);
int shm_share(kalix_connection& connection, const object_name& name, size_t bytes, mapping& out)
    KALIX_REQUIRES(connection.lock);
int shm_attach(kalix_connection& connection, const object_name& name, size_t bytes, mapping& out)
    KALIX_REQUIRES(connection.lock);

// Takes the name away. One that came over the connection goes with it, or makes way for the next of its name.
void shm_remove(const kalix_connection& connection, const object_name& name);

} // namespace kalix::client_library
