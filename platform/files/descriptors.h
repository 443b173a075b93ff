// How the descriptors that the host allows are divided, so that nothing takes those of the rest.
#pragma once

#include <cstddef>

namespace kalix::platform {

inline constexpr size_t connections_max = 1024;
inline constexpr size_t handed_max = 1024;
inline constexpr size_t own_descriptors = 64; // log, poll, store, screen and what a request opens for a moment

struct descriptor_shares {
    size_t connections; // at most connections_max
    size_t handed;      // objects without a file that wait to be opened; at most handed_max
    size_t objects;     // shared-memory objects of clients that are open
};

// By the limit as it is now; connections get at most half, what waits at most an eighth of the rest, and open
// objects what is left.
descriptor_shares divide_descriptors();

} // namespace kalix::platform
