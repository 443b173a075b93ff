#include "driver/state/id_pool.h"

#include "driver/state/driver_state.h"

#include <bit>
#include <new>

namespace kalix {
namespace {

constexpr uint32_t word_bits = 32;
constexpr uint32_t full_word = 0xFFFFFFFF;

// Ids count from 1, so that 0 can mean none; bits count from 0.
uint32_t& word_of(id_pool* pool, uint32_t id) KALIX_REQUIRES(_globals.id_lock)
{
    return pool->bits[(id - 1) / word_bits];
}
uint32_t bit_of(uint32_t id)
{
    return 1u << (id - 1) % word_bits;
}

bool holds(const id_pool* pool, uint32_t id)
{
    return pool && pool->bits && id != 0 && id <= pool->size;
}

uint64_t& exhausted_of(id_pool* pool) KALIX_REQUIRES(_globals.id_lock)
{
    return pool->exhausted;
}

enum class search { found, full, inconsistent };

// The lowest, so that ids stay dense, which the hash tables that they are keys of count on.
search take_lowest(id_pool* pool, uint32_t& id) KALIX_REQUIRES(_globals.id_lock)
{
    if (!pool || !pool->bits || pool->usecount == pool->size)
        return search::full;
    for (uint32_t base = 0; base < pool->size; base += word_bits) {
        const uint32_t word = pool->bits[base / word_bits];
        if (word == full_word)
            continue;
        id = base + static_cast<uint32_t>(std::countr_one(word)) + 1;
        if (id > pool->size) // the last word has bits behind the capacity, which are never set
            return search::full;
        word_of(pool, id) |= bit_of(id);
        ++pool->usecount;
        return search::found;
    }
    return search::inconsistent; // the count says that one is free, and the bits do not
}

} // namespace

void id_init_pool(id_pool* pool, uint32_t capacity)
{
    if (!pool)
        return;
    const uint32_t words = capacity / word_bits + (capacity % word_bits != 0); // rounding up a sum could wrap
    *pool = {new (std::nothrow) uint32_t[words]{}, capacity, 0, 0};
}

void id_destroy_pool(id_pool* pool)
{
    if (!pool)
        return;
    delete[] pool->bits;
    pool->bits = nullptr;
}

uint32_t id_get(id_pool* pool)
{
    uint32_t id = 0;
    search result;
    { // the line below is written without the innermost lock
        hold lock{_globals.id_lock};
        result = take_lowest(pool, id);
        if (pool && result == search::full)
            ++exhausted_of(pool);
    }
    if (result == search::inconsistent)
        slogf(log_code, log_error, "kalix: id_get: usecount is invalid!");
    return result == search::found ? id : 0;
}

uint64_t id_exhausted(id_pool* pool)
{
    hold lock{_globals.id_lock};
    return exhausted_of(pool);
}

void id_take(id_pool* pool, uint32_t id)
{
    hold lock{_globals.id_lock};
    if (!holds(pool, id) || word_of(pool, id) & bit_of(id))
        return;
    word_of(pool, id) |= bit_of(id);
    ++pool->usecount;
}

void id_release(id_pool* pool, uint32_t id)
{
    hold lock{_globals.id_lock};
    if (!holds(pool, id) || !(word_of(pool, id) & bit_of(id)))
        return;
    word_of(pool, id) &= ~bit_of(id);
    --pool->usecount;
}

} // namespace kalix
