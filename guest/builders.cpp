// One function for each 3D command that the driver sends (svga3d.h), all by two templates: a body alone, or a body and
// a list of records that the caller fills in place before it commits.

#include "svga/svga.h"
#include "svga/svga3d.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

// A command of a body record and bytes that follow it. All words of the interface are 32 bits wide, so that
// what follows is aligned for its records wherever the ring is.
struct command_space {
    std::byte* trailing = nullptr; // null: no space could be reserved
};

template <typename record>
command_space begin(uint32_t id, const record& body, uint64_t trailing_bytes)
{
    const uint64_t body_bytes = sizeof body + trailing_bytes;
    // Counted in 64 bits and compared before it is cut to 32: counts come from outside.
    if (body_bytes > SVGA_FIFO_RESERVATION_MAX - sizeof(svga3d_command_header))
        return {};
    const svga3d_command_header header{id, static_cast<uint32_t>(body_bytes)};
    auto* const space = static_cast<std::byte*>(SVGA_FIFOReserve(static_cast<uint32_t>(sizeof header + body_bytes)));
    if (!space)
        return {};
    std::memcpy(space, &header, sizeof header);
    std::memcpy(space + sizeof header, &body, sizeof body);
    return {space + sizeof header + sizeof body};
}

// Begins a command that count records follow; they go where *records then points.
template <typename record, typename trailing>
int begin_with(uint32_t id, const record& body, trailing** records, uint32_t count)
{
    const command_space space = begin(id, body, uint64_t{count} * sizeof(trailing));
    *records = reinterpret_cast<trailing*>(space.trailing);
    return space.trailing ? 0 : -1;
}

template <typename record>
int send(uint32_t id, const record& body)
{
    if (!begin(id, body, 0).trailing)
        return -1;
    SVGA_FIFOCommitAll();
    return 0;
}

} // namespace

int SVGA3D_DefineContext(uint32_t cid)
{
    return send(SVGA_3D_CMD_CONTEXT_DEFINE, svga3d_context{cid});
}

int SVGA3D_SetRenderTarget(uint32_t cid, uint32_t type, const svga3d_image* target)
{
    return send(SVGA_3D_CMD_SETRENDERTARGET, svga3d_set_render_target{cid, type, *target});
}

int SVGA3D_SetTransform(uint32_t cid, uint32_t type, const float matrix[16])
{
    svga3d_set_transform body{cid, type, {}};
    std::copy_n(matrix, 16, body.matrix);
    return send(SVGA_3D_CMD_SETTRANSFORM, body);
}

int SVGA3D_SetZRange(uint32_t cid, float z_min, float z_max)
{
    return send(SVGA_3D_CMD_SETZRANGE, svga3d_set_z_range{cid, z_min, z_max});
}

int SVGA3D_SetViewport(uint32_t cid, const svga3d_rect* rect)
{
    return send(SVGA_3D_CMD_SETVIEWPORT, svga3d_set_viewport{cid, *rect});
}

int SVGA3D_SetMaterial(uint32_t cid, uint32_t face, const svga3d_material* material)
{
    return send(SVGA_3D_CMD_SETMATERIAL, svga3d_set_material{cid, face, *material});
}

int SVGA3D_BeginSurfaceDMA(const svga3d_guest_image* guest, const svga3d_image* host, uint32_t transfer,
                           svga3d_copy_box** boxes, uint32_t count)
{
    return begin_with(SVGA_3D_CMD_SURFACE_DMA, svga3d_surface_dma{*guest, *host, transfer}, boxes, count);
}

int SVGA3D_BeginSurfaceCopy(const svga3d_image* source, const svga3d_image* destination, svga3d_copy_box** boxes,
                            uint32_t count)
{
    return begin_with(SVGA_3D_CMD_SURFACE_COPY, svga3d_surface_copy{*source, *destination}, boxes, count);
}

int SVGA3D_BeginPresent(uint32_t sid, svga3d_copy_rect** rects, uint32_t count)
{
    return begin_with(SVGA_3D_CMD_PRESENT, svga3d_present{sid}, rects, count);
}

int SVGA3D_BeginBlitSurfaceToScreen(const svga3d_image* source, const svga3d_signed_rect* source_rect,
                                    uint32_t screen_id, const svga3d_signed_rect* destination_rect,
                                    svga3d_signed_rect** clip_rects, uint32_t count)
{
    return begin_with(SVGA_3D_CMD_BLIT_SURFACE_TO_SCREEN,
                      svga3d_blit_to_screen{*source, *source_rect, screen_id, *destination_rect}, clip_rects, count);
}

int SVGA3D_BeginClear(uint32_t cid, uint32_t flags, uint32_t color, float depth, uint32_t stencil, svga3d_rect** rects,
                      uint32_t count)
{
    return begin_with(SVGA_3D_CMD_CLEAR, svga3d_clear{cid, flags, color, depth, stencil}, rects, count);
}

int SVGA3D_BeginSetRenderState(uint32_t cid, svga3d_render_state_value** states, uint32_t count)
{
    return begin_with(SVGA_3D_CMD_SETRENDERSTATE, svga3d_context{cid}, states, count);
}

int SVGA3D_BeginSetTextureState(uint32_t cid, svga3d_texture_state_value** states, uint32_t count)
{
    return begin_with(SVGA_3D_CMD_SETTEXTURESTATE, svga3d_context{cid}, states, count);
}

int SVGA3D_BeginDrawPrimitives(uint32_t cid, svga3d_vertex_declaration** declarations, uint32_t declaration_count,
                               svga3d_primitive_range** ranges, uint32_t range_count)
{
    const uint64_t declaration_bytes = uint64_t{declaration_count} * sizeof(svga3d_vertex_declaration);
    const command_space space =
        begin(SVGA_3D_CMD_DRAW_PRIMITIVES, svga3d_draw_primitives{cid, declaration_count, range_count},
              declaration_bytes + uint64_t{range_count} * sizeof(svga3d_primitive_range));
    *declarations = reinterpret_cast<svga3d_vertex_declaration*>(space.trailing);
    // Two lists behind one body: the ranges follow the declarations.
    *ranges = space.trailing ? reinterpret_cast<svga3d_primitive_range*>(space.trailing + declaration_bytes) : nullptr;
    return space.trailing ? 0 : -1;
}
