#include "driver/objects/shares.h"

#include "driver/objects/client.h"
#include "platform/files/shared_memory.h"

#include <algorithm>
#include <new>

namespace kalix {

// By connection and user: a destination that outlives its connection stays charged, and a later connection that gets
// the same scoid takes the charge over only if it is the same user's.
struct share_holder {
    uint32_t scoid, uid;
    std::array<uint32_t, share_kinds> held{};
    share_holder* next;
};

namespace {

// The server's own mappings need slots too.
static_assert(share_kinds * shares_of_a_kind_max + 1024 <= platform::guarded_mappings_max);

constexpr const char* plural[share_kinds] = {"command buffers", "readback destinations", "DMA buffers"};

// Fractions and not numbers, so that the bounds keep their proportions where the host allows few descriptors.
uint32_t client_bound() KALIX_REQUIRES(_globals.device_mutex)
{
    return _globals.shares.of_a_kind / 4;
}

uint32_t user_bound() KALIX_REQUIRES(_globals.device_mutex)
{
    return _globals.shares.of_a_kind / 2;
}

uint32_t kept_back() KALIX_REQUIRES(_globals.device_mutex)
{
    return _globals.shares.of_a_kind / 4;
}

// A list, searched from the front: it is as long as there are clients that hold something, 1024 at most but for those
// that left a destination behind.
share_holder* holder_of(const client_record& client) KALIX_REQUIRES(_globals.device_mutex)
{
    for (share_holder* each = _globals.shares.first; each; each = each->next)
        if (each->scoid == client.scoid && each->uid == client.uid)
            return each;
    auto* const added = new (std::nothrow) share_holder{client.scoid, client.uid, {}, _globals.shares.first};
    if (added)
        _globals.shares.first = added;
    return added;
}

uint32_t held_by_user(size_t kind, uint32_t uid) KALIX_REQUIRES(_globals.device_mutex)
{
    uint32_t sum = 0;
    for (const share_holder* each = _globals.shares.first; each; each = each->next)
        sum += each->uid == uid ? each->held[kind] : 0;
    return sum;
}

// A holder lives as long as anything is charged to it, so that the list cannot grow by clients that come and go.
void forget_if_empty(share_holder* holder)
{
    if (std::ranges::any_of(holder->held, [](uint32_t count) { return count != 0; }))
        return;
    share_holder** link = &_globals.shares.first;
    while (*link != holder)
        link = &(*link)->next;
    *link = holder->next;
    delete holder;
}

// From the narrowest bound to the widest, so that the line names the one that its client can do something about.
share_bound bound_reached(size_t kind, const share_holder& holder) KALIX_REQUIRES(_globals.device_mutex)
{
    const uint32_t of_user = held_by_user(kind, holder.uid);
    if (holder.held[kind] >= client_bound())
        return share_bound::client;
    if (of_user >= user_bound() && holder.uid != platform::own_user())
        return share_bound::user;
    // The last quarter is for those who come late: half for each of two users would leave the third with nothing.
    const uint32_t left = _globals.shares.of_a_kind - _globals.shares.taken[kind];
    return left == 0 || (of_user != 0 && left <= kept_back()) ? share_bound::kept_back : share_bound::none;
}

} // namespace

void shares_init(size_t descriptors)
{
    _globals.shares = {};
    _globals.shares.of_a_kind =
        static_cast<uint32_t>(std::min<size_t>(shares_of_a_kind_max, descriptors / share_kinds));
}

share_bound share_take(share_kind kind, const client_record& client, share_holder** holder)
{
    const auto index = static_cast<size_t>(kind);
    share_holder* const charged = holder_of(client);
    if (!charged)
        return share_bound::memory;
    const share_bound reached = bound_reached(index, *charged);
    if (reached != share_bound::none) {
        ++_globals.shares.refused[index];
        forget_if_empty(charged);
        return reached;
    }
    ++charged->held[index];
    ++_globals.shares.taken[index];
    *holder = charged;
    return share_bound::none;
}

void share_give_back(share_kind kind, share_holder* holder)
{
    if (!holder)
        return;
    const auto index = static_cast<size_t>(kind);
    --holder->held[index];
    --_globals.shares.taken[index];
    forget_if_empty(holder);
}

void share_log_refusal(share_kind kind, const client_record& client, share_bound bound)
{
    const char* const what = plural[static_cast<size_t>(kind)];
    switch (bound) {
    case share_bound::none:
        return;
    case share_bound::client:
        return slogf(log_code, log_error, "kalix: process %u refused: no more than %u %s for one client", client.pid,
                     client_bound(), what);
    case share_bound::user:
        return slogf(log_code, log_error, "kalix: process %u of user %u refused: no more than %u %s for one user",
                     client.pid, client.uid, user_bound(), what);
    case share_bound::kept_back:
        return slogf(log_code, log_error,
                     "kalix: process %u of user %u refused: the last %u %s are for users who hold none", client.pid,
                     client.uid, kept_back(), what);
    case share_bound::memory:
        return slogf(log_code, log_error, "kalix: process %u refused: no memory to count its %s", client.pid, what);
    }
}

} // namespace kalix
