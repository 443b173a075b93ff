// Shares: how much of what the server maps for clients each client and each user may hold.
//
// A command buffer, a readback destination and a DMA buffer take a mapping slot of the platform's guard and
// a descriptor each. Every kind has a pool of its own, so that none runs out by another. A pool has 4096
// shares, or fewer when the host allows too few descriptors: a client may hold a quarter, a user other than
// the server's own half, and the last quarter goes only to users who hold none of that kind. Guarded by the
// device mutex. What an object was charged to outlives its client when the object does.
#pragma once

#include "driver/state/driver_state.h"

#include <cstddef>
#include <cstdint>

namespace kalix {

struct client_record;

inline constexpr uint32_t shares_of_a_kind_max = 4096;

// Which bound kept a share from being taken.
enum class share_bound { none, client, user, kept_back, memory };

// Sizes the pools by the descriptors that objects may take.
void shares_init(size_t descriptors) KALIX_REQUIRES(_globals.device_mutex);

// Charges one share to the client and notes whom in *holder; none, or the bound that is reached.
[[nodiscard]] share_bound share_take(share_kind kind, const client_record& client, share_holder** holder)
    KALIX_REQUIRES(_globals.device_mutex);

// Gives back what a holder was charged with.
void share_give_back(share_kind kind, share_holder* holder) KALIX_REQUIRES(_globals.device_mutex);

// Says, in one line, which bound a client has reached.
void share_log_refusal(share_kind kind, const client_record& client, share_bound bound)
    KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix
