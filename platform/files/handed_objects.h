// Objects without a file: memory that travels to its client over the connection.
//
// A server that is not root cannot give a file to another user, and a client in a container sees no shm/. Such an
// object is a memory file of fixed size, sealed so that nobody can cut it short, under the name that its file would
// have. This table knows whose each is. One waits until the driver opens it, or is open: then its descriptor is the
// driver's, and the table only notes the number, so that an object costs one descriptor and can still be handed out.
// What the driver closes waits again, as a file would, when a client made it and its name has not been forgotten.
//
// What waits is bounded, by number in all (descriptors.h), and for a user other than the server's own by a quarter of
// that and by bytes. One lock guards the table; it is taken last, and nothing is waited for under it. Any thread;
// errors are in errno, and no lack of memory goes further.
#pragma once

#include "base/unique_fd.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kalix::platform {

inline constexpr uint64_t handed_bytes_of_a_user_max = uint64_t{256} << 20; // that wait, of one user

struct object_owner {
    uint32_t user;
    uint32_t process;    // 0: the server made it
    uint32_t connection; // over which it was asked for
};

// The receive loop's side. Each returns a descriptor of the object, to be sent and closed.
//
// Makes an object; one of that name is replaced, which an open one's holder does not notice. ENOMEM: the host has no
// more, or a bound is reached, after a line.
unique_fd make_handed_object(const object_owner& owner, std::string_view name, uint64_t bytes);
// One that this process made, or the server for this user. ENOENT; EACCES: another's.
unique_fd find_handed_object(const object_owner& asking, std::string_view name);

// The driver's side, by way of shared_memory.h.
//
// Opens one of the user's. ENOENT: none of that name; EACCES: another user's.
int32_t open_handed_object(std::string_view name, uint32_t user);
// Makes an empty one, open, that clients of the user can be handed; the first size it is given is its last.
int32_t make_object_to_hand(std::string_view name, uint32_t user);
// Fixes the size of one; of any other file, that of nothing.
void seal_handed_object(int32_t fd);
// Takes an open one back; false for what the caller has to close.
bool take_back_handed_object(int32_t fd);

// What goes by these is closed when it waits, and its holder's alone when it is open. False when there is none.
bool forget_handed_object(std::string_view name);
bool forget_handed_object(std::string_view name, int32_t open_as); // that one and no newer one
void forget_handed_of_connection(uint32_t connection);             // those that wait
void forget_handed_of_process(uint32_t process);
void forget_handed_objects();

} // namespace kalix::platform
