// DMA buffers: the server makes the shared object, the client maps it and finds its bytes at an offset.
//
// The mapping is the caller's, not the connection's: it outlives a lost or closed connection, so that a thread that
// is still writing pixels does not fault, until kalix_dmabuf_unref() or kalix_dmabuf_unmap().

#include "client/connection.h"
#include "client/shm.h"

using namespace kalix::client_library;

namespace {

constexpr uint64_t data_offset_last = 65536; // a server aligns to a page, and no page is larger

// Maps the object that the server has made for the buffer.
int map_buffer(kalix_connection& connection, const dmabuf_alloc_req& reply, uint32_t size, kalix_dma_buffer& buffer)
{
    if (reply.data_offset > data_offset_last || reply.handle == 0)
        return -EPROTO;
    const size_t bytes = static_cast<size_t>(reply.data_offset) + size;
    mapping memory;
    {
        const hold guard{connection.lock};
        if (const int error = shm_attach(connection, dma_buffer_name(reply.handle), bytes, memory))
            return error;
    }
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
    // One word in two roles: the size on the way there, the offset of the bytes on the way back.
    req.data_offset = size;
    if (const int error = call(connection, KALIX_DMABUF_ALLOC, req, sizeof req))
        return error;
    const int error = map_buffer(*connection, req, size, *buffer);
    // The server has a buffer that nobody here can reach: it is given back.
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
    // Whatever the answer: a server that does not know the buffer does not use it either.
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
