// How the descriptors that the host allows are divided, so that nothing takes those of the rest.
#pragma once

#include <cstddef>

namespace kalix::platform {

inline constexpr size_t connections_max = 1024;
inline constexpr size_t own_descriptors = 64; // log, poll, store, screen and what a request opens for a moment

struct descriptor_shares {
    size_t connections; // at most connections_max
    size_t objects;     // shared-memory objects of clients
};

// By the limit as it is now; connections get at most half, objects what is left.
descriptor_shares divide_descriptors();

} // namespace kalix::platform
