// Shared memory objects and their mappings.
//
// The object "/name" is the file shm/name of the run directory. Whose object a call is about is the
// sender that the dispatcher has declared on this thread (sender.h); without one it is the server's
// own. An object that a client made is opened only when that client's user owns it; an object made
// here can be opened by that client's user and the server's, and whatever has its name is replaced,
// never reused. No symbolic link is followed, and only regular files with one name are opened.
//
// Where no file will do the object is memory that travels over the connection (handed_objects.h). It is
// looked for first; every function here serves both, and callers do not learn which one they have.
//
// Clients can truncate their objects at any time. Every mapping made here is registered with a guard:
// a fault inside it reads zeros or drops the write instead of ending the process. A page that was
// replaced so stays ours until the mapping goes, also when the object grows again. All functions are
// safe on any thread and set errno on failure; the caller tells it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kalix::platform {

inline constexpr unsigned open_read_write = 0x002; // flag words of the interface, not the host's
inline constexpr unsigned open_create = 0x100;

inline constexpr unsigned protect_read = 0x1;
inline constexpr unsigned protect_write = 0x2;

// Opens, or with open_create makes, the object; returns a descriptor or -1. EINVAL: a name without
// leading slash, with a second slash, with "..", or longer than 63 bytes. EACCES: another user's, or no
// regular file. A made object is empty, of mode 0600 and the sender's user, whatever the mode asks for.
int32_t shm_open(const char* name, unsigned flags, unsigned mode);
// Opens the user's object that is a file, for reading and writing, and no other; -1 as shm_open.
int32_t shm_open_file(const char* name);
// Removes the object's name; 0 or -1.
int shm_unlink(const char* name);
// Removes the name when it still names the object open as fd, and leaves whatever else a client has put
// there since, also when that happens meanwhile; 0 or -1.
int shm_unlink_open(const char* name, int32_t fd);
// Sets an object's size in bytes; 0 or -1.
int ftruncate(int32_t fd, int64_t bytes);
// An object that has no file keeps its contents for the next open, as a file does, unless its name is gone.
int close(int32_t fd);

// Maps the first bytes of an object, shared. Returns null on failure. ENXIO: the object is shorter.
void* mmap(std::size_t bytes, unsigned protection, int32_t fd);
// Ends a whole mapping that mmap made; EINVAL for anything else.
int munmap(void* address, std::size_t bytes);

// Puts a mapping made elsewhere, from a page's beginning, under the guard, or takes it out again before
// it is unmapped. 0, or -1 (ENOMEM: the guard watches as many as it can; EINVAL: not watched).
int guard_mapping(void* address, std::size_t bytes, unsigned protection);
int unguard_mapping(void* address, std::size_t bytes);

std::size_t getpagesize();

// Physical address of the byte at address, in *physical; 0, or -1. Guest-physical memory is this
// process's own address space, so that it is the address itself.
int mem_offset(const void* address, uint64_t* physical);

inline constexpr std::size_t guarded_mappings_max = 16384; // that the guard watches

// How many objects may be open at once, so that connections and the server itself keep their descriptors.
std::size_t objects_max();

// How many mappings the guard watches; for tests of what is left behind.
std::size_t guarded_mappings();

} // namespace kalix::platform
