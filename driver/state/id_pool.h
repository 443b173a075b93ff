// Identifier pools: surface, DMA buffer, context and overlay ids.
//
// A pool hands out the ids 1 to its capacity, always the lowest free one, from a bitmap; 0 is no id. It
// does not record who holds an id. All pools share _globals.id_lock, the innermost lock, which id_get,
// id_take and id_release hold for their whole work; pools are made before any worker runs.
#pragma once

#include <cstdint>

namespace kalix {

struct id_pool {
    uint32_t* bits;     // id i in use: bit (i - 1) mod 32 of word (i - 1) div 32; null: no memory
    uint32_t size;      // capacity, the highest id
    uint32_t usecount;  // ids in use
    uint64_t exhausted; // times that none was free
};

// Makes a pool of that capacity, every id free. Without memory the pool hands out nothing.
void id_init_pool(id_pool* pool, uint32_t capacity);
void id_destroy_pool(id_pool* pool);

// The lowest free id, now in use, or 0 when there is none.
uint32_t id_get(id_pool* pool);

// How often none was free.
uint64_t id_exhausted(id_pool* pool);

// Marks one id as in use, so that it is not handed out; ignored outside the pool.
void id_take(id_pool* pool, uint32_t id);

// Marks an id free; ignored for 0, outside the pool, and when it is free already.
void id_release(id_pool* pool, uint32_t id);

} // namespace kalix
