#include "driver/objects/dma.h"

#include "driver/objects/gmr.h"
#include "driver/objects/shares.h"
#include "platform/files/shared_memory.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <new>

namespace kalix {
namespace {

constexpr uint32_t spare_bytes = SVGA_PAGE_BYTES;       // so that an aligned span always fits
constexpr uint32_t size_max = 0x7FFFFFFF - spare_bytes; // the object's length stays a positive int
constexpr unsigned object_mode = 0777; // without effect: the platform makes every object its user's alone

// Opens the object and gives it its size; false after a line, and then nothing is left of it.
bool make_object(dma_buffer& buffer)
{
    buffer.fd = platform::shm_open(buffer.name, platform::open_read_write | platform::open_create, object_mode);
    if (buffer.fd == -1) {
        slogf(log_code, log_error, "kalix: dma_create: failed to open shared object for dma, errno=%d", errno);
        return false;
    }
    // A size that is too large fails as the host's call would, in the same line; alloc_size has wrapped by then.
    const bool fits = buffer.size <= size_max;
    if (!fits)
        errno = EINVAL;
    if (fits && platform::ftruncate(buffer.fd, buffer.alloc_size) == 0)
        return true;
    slogf(log_code, log_error, "kalix: dma_create: failed to set size of new shared object for dma, errno=%d", errno);
    platform::close(buffer.fd);
    platform::shm_unlink(buffer.name);
    return false;
}

void unmap(dma_buffer& buffer)
{
    if (buffer.map)
        platform::munmap(buffer.map, buffer.alloc_size);
}

// By its name, without a look at what has it: the handle's name is the driver's to give and to take.
void close_object(dma_buffer& buffer)
{
    platform::close(buffer.fd);
    platform::shm_unlink(buffer.name);
}

// Mapping and region of an object that has its size; false with what was made still noted, for the caller to undo.
bool make_region(dma_buffer& buffer)
{
    buffer.map = platform::mmap(buffer.alloc_size, platform::protect_read | platform::protect_write, buffer.fd);
    if (!buffer.map)
        return false;
    buffer.map_len = static_cast<int32_t>(buffer.alloc_size);
    const int32_t gmr = dma_create_gmr(static_cast<std::byte*>(buffer.map), &buffer.data_offset, buffer.size,
                                       buffer.alloc_size, &buffer);
    if (gmr == -1)
        return false;
    buffer.gmr_id = static_cast<uint32_t>(gmr);
    return true;
}

} // namespace

dma_buffer* dma_create(const char* name, uint32_t size)
{
    std::unique_ptr<dma_buffer> buffer{new (std::nothrow) dma_buffer};
    if (!buffer)
        return nullptr;
    buffer->magic_cookie = resource_magic + RESOURCE_DMA;
    buffer->size = size;
    buffer->alloc_size = size + spare_bytes;
    buffer->bytes = buffer->alloc_size;
    std::snprintf(buffer->name, sizeof buffer->name, "%s", name);
    if (!make_object(*buffer))
        return nullptr;
    if (!make_region(*buffer)) {
        unmap(*buffer);
        close_object(*buffer);
        return nullptr;
    }
    return buffer.release();
}

void dma_destroy(resource_object* object)
{
    if (!object)
        return;
    auto& buffer = *static_cast<dma_buffer*>(object);
    bool forgotten = false;
    {
        // The device lets go of the pages before they are released.
        hold lock{_globals.gmr_lock};
        forgotten = removeGmr(buffer.gmr_id);
    }
    // Else the device goes on reaching the pages: they stay mapped, and the client stays charged with them.
    if (forgotten) {
        unmap(buffer);
        share_give_back(share_kind::dma_buffer, buffer.share);
    }
    close_object(buffer);
    id_release(&_globals.dma_ids, buffer.id);
}

int vmw_dmabuf_alloc_ioctl(client_record* client, dmabuf_alloc_req* req)
{
    if (!client || !req)
        return status_invalid;
    // Each step gives back, when it fails, what those before it have taken.
    share_holder* share = nullptr;
    const share_bound reached = share_take(share_kind::dma_buffer, *client, &share);
    if (reached != share_bound::none) {
        share_log_refusal(share_kind::dma_buffer, *client, reached);
        return status_no_memory;
    }
    const uint32_t handle = id_get(&_globals.dma_ids);
    if (handle == 0) {
        share_give_back(share_kind::dma_buffer, share);
        return status_no_memory;
    }
    char name[32];
    std::snprintf(name, sizeof name, "/svga_dma_%d", static_cast<int>(handle));
    // The size comes in the low half of the word that takes the offset back.
    dma_buffer* const buffer = dma_create(name, static_cast<uint32_t>(req->data_offset));
    if (!buffer) {
        req->handle = 0; // replied beside the status, as 0 is no handle
        req->data_offset = 0;
        id_release(&_globals.dma_ids, handle);
        share_give_back(share_kind::dma_buffer, share);
        slogf(log_code, log_error, "kalix: vmw_dmabuf_alloc_ioctl: could not create dma object!");
        return status_no_memory;
    }
    buffer->id = handle;
    buffer->share = share;
    if (resource_add(RESOURCE_DMA, client, buffer) != 0) {
        dma_destroy(buffer);
        delete buffer;
        return status_no_memory;
    }
    *req = {buffer->data_offset, handle, buffer->gmr_id, 0, handle};
    return 0;
}

int vmw_dmabuf_unref_ioctl(client_record* client, dmabuf_unref_req* req)
{
    if (!client || !req)
        return status_invalid;
    resource_object* const buffer = resource_get(RESOURCE_DMA, client, req->handle);
    if (!buffer) {
        slogf(log_code, log_error, "kalix: vmw_dmabuf_unref_ioctl: dma with sid %d is unknown!",
              static_cast<int>(req->handle));
        return status_invalid;
    }
    resource_unref(RESOURCE_DMA, client, buffer, dma_destroy, nullptr);
    return 0;
}

} // namespace kalix
