// Guest memory regions (GMRs) and the DMA buffers of clients.
//
// The device reaches guest memory only through GMRs, whose pages the driver describes to it. usedGmrs, the
// table of region ids, is guarded by gmr_lock, held from the choice of an id until it is marked, across the
// device's answer. A DMA buffer is a shared-memory object that its client maps, with a GMR of its own; its
// record owns descriptor, mapping, name and GMR until dma_destroy.
#pragma once

#include "driver/objects/resource.h"

namespace kalix {

struct dma_buffer : resource_object { // id: the handle, 1 to 4096
    int32_t fd = -1;
    char name[32] = {};       // of the shared object, "/svga_dma_%d" with the handle
    uint32_t size = 0;        // bytes the client asked for
    uint32_t alloc_size = 0;  // bytes of the object: size and a page
    uint32_t data_offset = 0; // where in the object the buffer begins, at a physical page
    uint32_t gmr_id = 0;
    void* map = nullptr; // the driver's mapping of the whole object
    int32_t map_len = 0;
    share_holder* share = nullptr; // charged with its slot and descriptor
};

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

// Makes the shared object of that name and its region; none after a line that says why.
dma_buffer* dma_create(const char* name, uint32_t size);

// Gives back all that a buffer holds; the registry's destroy function. Pages that the device could not be
// made to forget stay mapped, and charged, for good.
void dma_destroy(resource_object* buffer) KALIX_REQUIRES(_globals.device_mutex);

// Requests 1 and 2: 0, -22 or -12.
int vmw_dmabuf_alloc_ioctl(client_record* client, dmabuf_alloc_req* req) KALIX_REQUIRES(_globals.device_mutex);
int vmw_dmabuf_unref_ioctl(client_record* client, dmabuf_unref_req* req) KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix
