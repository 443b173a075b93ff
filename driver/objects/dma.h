// DMA buffers: memory that a client shares with the device.
//
// A DMA buffer is a shared-memory object that its client maps, with a region of its own (gmr.h) through which
// the device reaches it. The record owns descriptor, mapping, name and region until dma_destroy.
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

// Makes the shared object of that name and its region; none after a line that says why.
dma_buffer* dma_create(const char* name, uint32_t size);

// Gives back all that a buffer holds; the registry's destroy function. Pages that the device could not be
// made to forget stay mapped, and charged, for good.
void dma_destroy(resource_object* buffer) KALIX_REQUIRES(_globals.device_mutex);

// Requests 1 and 2: 0, -22 or -12.
int vmw_dmabuf_alloc_ioctl(client_record* client, dmabuf_alloc_req* req) KALIX_REQUIRES(_globals.device_mutex);
int vmw_dmabuf_unref_ioctl(client_record* client, dmabuf_unref_req* req) KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix
