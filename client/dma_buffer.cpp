// DMA buffers: the server makes the shared object, the client maps it and finds its bytes at an offset.

#include "client/connection.h"

using namespace kalix::client_library;

namespace {

constexpr uint64_t data_offset_last = 65536; // a server aligns to a page, and no page is larger

// Maps the object that the server has made for the buffer.
int map_buffer(const kalix_connection& connection, const dmabuf_alloc_req& reply, uint32_t size,
               kalix_dma_buffer& buffer)
{
    if (reply.data_offset > data_offset_last || reply.handle == 0)
        return -EPROTO;
    const size_t bytes = static_cast<size_t>(reply.data_offset) + size;
    mapping memory;
    if (const int error = shm_attach(connection.shm_directory.get(), dma_buffer_name(reply.handle), bytes, memory))
        return error;
    buffer = {.data = memory.data() + reply.data_offset,
              .size = size,
              .handle = reply.handle,
              .gmr_id = reply.gmr_id,
              .gmr_offset = reply.gmr_offset,
              .mapping = nullptr,
              .mapping_bytes = memory.bytes()};
    buffer.mapping = memory.release();
    return 0;
}

} // namespace

int kalix_dmabuf_alloc(kalix_connection* connection, uint32_t size, kalix_dma_buffer* buffer)
{
    if (!buffer)
        return -EINVAL;
    dmabuf_alloc_req req{};
    req.data_offset = size;
    if (const int error = call(connection, KALIX_DMABUF_ALLOC, req, sizeof req))
        return error;
    const int error = map_buffer(*connection, req, size, *buffer);
    if (error) {
        dmabuf_unref_req undo{req.handle};
        call(connection, KALIX_DMABUF_UNREF, undo, 0);
    }
    return error;
}

int kalix_dmabuf_unref(kalix_connection* connection, kalix_dma_buffer* buffer)
{
    if (!buffer)
        return -EINVAL;
    dmabuf_unref_req req{buffer->handle};
    const int result = call(connection, KALIX_DMABUF_UNREF, req, 0);
    kalix_dmabuf_unmap(buffer);
    return result;
}

void kalix_dmabuf_unmap(kalix_dma_buffer* buffer)
{
    if (!buffer)
        return;
    if (buffer->mapping)
        munmap(buffer->mapping, buffer->mapping_bytes);
    *buffer = {};
}
