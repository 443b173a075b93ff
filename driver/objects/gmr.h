// Guest memory regions (GMRs): what the device may reach of the driver's memory.
//
// The device knows memory by region id and page; the driver describes each region's pages to it before anything
// names the region, and makes it forget them before the pages are released. usedGmrs, the table of region ids, is
// guarded by gmr_lock, held from the choice of an id until it is marked, across the device's answer.
#pragma once

#include "driver/state/driver_state.h"

namespace kalix {

struct dma_buffer;

// Makes the table of region ids, and makes the device forget regions of an earlier run. Returns 0, or 1
// when memory runs out.
int dma_initialize();

// Makes a region of size bytes that starts at the first physical page boundary behind address, which is
// buffer_length bytes of driver memory, at least size and a page. *offset receives the distance from
// address to that start, 1 to 4096. Returns the region's id, or -1 after a line that says why.
int32_t dma_create_gmr(std::byte* address, uint32_t* offset, uint32_t size, uint32_t buffer_length, dma_buffer* owner);

// Makes the device forget a region and frees its id. When that cannot be queued, false: the id stays used,
// without an owner, and the device goes on reaching the region's pages.
bool removeGmr(uint32_t gmr_id) KALIX_REQUIRES(_globals.gmr_lock);

// The lowest free region id, or -1.
int32_t getFreeGmrId() KALIX_REQUIRES(_globals.gmr_lock);

// The buffer that a region backs; none for the driver's own and for ids that are not regions.
dma_buffer* dma_get_by_gmrId(uint32_t gmr_id);

} // namespace kalix
