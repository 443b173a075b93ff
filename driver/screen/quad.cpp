#include "driver/screen/quad.h"

#include "svga/svga3d.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <span>

namespace kalix {
namespace {

// Guarded by fifo_lock.
uint32_t guest_buf_offset;    // bytes of the dirty GMR that the current pass has staged
uint32_t buffer_slot_counter; // next slot

// Positions are cut to the 16 bits that the device reads. Sums are made of unsigned words before that, which wrap.
int16_t position(uint32_t at)
{
    return static_cast<int16_t>(static_cast<uint16_t>(at));
}

drawable_object build(const quad& wanted, uint32_t slot)
{
    const int16_t left = position(static_cast<uint32_t>(wanted.x));
    const int16_t top = position(static_cast<uint32_t>(wanted.y));
    const int16_t right = position(static_cast<uint32_t>(wanted.x) + wanted.width);
    const int16_t bottom = position(static_cast<uint32_t>(wanted.y) + wanted.height);
    return {{{{left, top, 0, 0, wanted.color},
              {right, top, wanted.u_max, 0, wanted.color},
              {right, bottom, wanted.u_max, wanted.v_max, wanted.color},
              {left, bottom, 0, wanted.v_max, wanted.color}}},
            {0, 1, 2, 3},
            slot};
}

// As numbers, not as bytes: a texture coordinate that is no number differs from itself, and is uploaded every time.
bool same_vertex(const quad_vertex& a, const quad_vertex& b)
{
    return a.x == b.x && a.y == b.y && a.u == b.u && a.v == b.v && a.color == b.color;
}

// Stages data and sends it to a byte offset of a buffer surface. Each upload of a pass has a place of its own in the
// staging area, since the device reads them when it comes to them, all together a few hundred bytes.
int upload_buffer(std::span<const std::byte> data, uint32_t offset, uint32_t sid)
{
    const auto size = static_cast<uint32_t>(data.size());
    std::ranges::copy(data, _globals.dirty_gmr_base + guest_buf_offset);
    const svga3d_guest_image guest{{_globals.dirty_gmr_id, guest_buf_offset}, 0};
    const svga3d_image host{sid, 0, 0};
    svga3d_copy_box* box = nullptr;
    if (SVGA3D_BeginSurfaceDMA(&guest, &host, SVGA3D_WRITE_HOST_VRAM, &box, 1) != 0)
        return status_no_memory;
    *box = {offset, 0, 0, size, 1, 1, 0, 0, 0};
    SVGA_FIFOCommitAll();
    guest_buf_offset += size;
    return 0;
}

svga3d_vertex_declaration declare(uint32_t type, uint32_t usage, uint32_t offset)
{
    svga3d_vertex_declaration declaration{};
    declaration.type = type;
    declaration.usage = usage;
    declaration.array = {postprocess_vertex_sid, offset, sizeof(quad_vertex)};
    return declaration;
}

} // namespace

drawable_object* create_drawable_object()
{
    if (buffer_slot_counter == drawable_slots) // no further slot fits the buffer surfaces
        return nullptr;
    auto* const object = new (std::nothrow) drawable_object{};
    if (object)
        object->slot = buffer_slot_counter++;
    return object;
}

void begin_uploads()
{
    guest_buf_offset = 0;
}

uint32_t uploaded_bytes()
{
    return guest_buf_offset;
}

int update_buffers(drawable_object* object, const quad& wanted)
{
    const drawable_object scratch = build(wanted, object->slot);
    if (obj_same(object, &scratch))
        return 0;
    *object = scratch;
    if (upload_buffer(std::as_bytes(std::span{object->vertices}), object->slot * slot_vertex_bytes,
                      postprocess_vertex_sid) == 0 &&
        upload_buffer(std::as_bytes(std::span{object->indices}), object->slot * slot_index_bytes,
                      postprocess_index_sid) == 0)
        return 0;
    object->indices = {}; // differs from every quad, so that the next pass uploads it again
    return status_no_memory;
}

int obj_same(const drawable_object* a, const drawable_object* b)
{
    return a && b && std::ranges::equal(a->vertices, b->vertices, same_vertex) && a->indices == b->indices;
}

int draw_rect(const drawable_object* object)
{
    svga3d_vertex_declaration* declarations = nullptr;
    svga3d_primitive_range* range = nullptr;
    if (SVGA3D_BeginDrawPrimitives(driver_context_id, &declarations, 3, &range, 1) != 0)
        return status_no_memory;
    const uint32_t start = object->slot * slot_vertex_bytes;
    declarations[0] = declare(SVGA3D_DECLTYPE_SHORT2, SVGA3D_DECLUSAGE_POSITION, start);
    declarations[1] = declare(SVGA3D_DECLTYPE_FLOAT2, SVGA3D_DECLUSAGE_TEXCOORD, start + offsetof(quad_vertex, u));
    declarations[2] = declare(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, start + offsetof(quad_vertex, color));
    // Two triangles around the first corner, indices of two bytes.
    *range = {SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, {postprocess_index_sid, object->slot * slot_index_bytes, 2}, 2, 0};
    SVGA_FIFOCommitAll();
    return 0;
}

void reset_drawable_slots()
{
    buffer_slot_counter = 0;
}

} // namespace kalix
