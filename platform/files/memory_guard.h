// The guard: faults in shared mappings that another process can spoil.
//
// Whoever shares an object can shrink it, or fill the file system behind it, and every access to a page
// that is then missing is a SIGBUS. In a mapping that is registered here the page is replaced by one of
// zeros of our own: reads give zeros, writes go nowhere, and the thread goes on. Every other fault goes
// on to the action that was there before, so that true faults and sanitizers work as ever.
//
// The handler reads a fixed table without locks; adding and removing take the guard's lock. The first
// page faults of the process cost their page alone; when the budget for that is gone, all of a mapping
// from the page on is replaced. That bounds the mappings that the kernel must keep apart (it allows
// 65530 and refuses the replacement beyond): no client can use them up by spoiling every other page.
#pragma once

#include "platform/files/shared_memory.h"

#include <cstddef>

namespace kalix::platform {

inline constexpr size_t single_pages_max = 4096;
static_assert(2 * guarded_mappings_max + 2 * single_pages_max < 65530, "mappings that the kernel allows");

// Registers a mapping of whole pages with the protection (PROT_...) that its replacement pages get.
// False, with errno ENOMEM, when the table is full.
bool guard_add(void* address, size_t bytes, int protection);

// Forgets the mapping that begins there; false when there is none of that length.
bool guard_remove(void* address, size_t bytes);

size_t guard_count();

} // namespace kalix::platform
