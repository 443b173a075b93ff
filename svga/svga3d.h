/* Builders of the 3D commands that the driver itself sends.
 *
 * A Set or Define function reserves, writes and commits one command. A Begin function reserves one
 * command with room for count trailing records, fills the fixed part, hands out where the records go,
 * and leaves the commit to the caller (SVGA_FIFOCommitAll). All return 0, or -1 (and a NULL out
 * pointer) when no space could be reserved. Serialised by the caller like all FIFO writing. */
#pragma once

#include <kalix/svga3d_types.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* 0 when the device offers 3D, else 1. */
int SVGA3D_Init(void);

int SVGA3D_DefineContext(uint32_t cid);
int SVGA3D_SetRenderTarget(uint32_t cid, uint32_t type, const struct svga3d_image* target);
int SVGA3D_SetTransform(uint32_t cid, uint32_t type, const float matrix[16]);
int SVGA3D_SetZRange(uint32_t cid, float z_min, float z_max);
int SVGA3D_SetViewport(uint32_t cid, const struct svga3d_rect* rect);
int SVGA3D_SetMaterial(uint32_t cid, uint32_t face, const struct svga3d_material* material);

int SVGA3D_BeginSurfaceDMA(const struct svga3d_guest_image* guest, const struct svga3d_image* host, uint32_t transfer,
                           struct svga3d_copy_box** boxes, uint32_t count);
int SVGA3D_BeginSurfaceCopy(const struct svga3d_image* source, const struct svga3d_image* destination,
                            struct svga3d_copy_box** boxes, uint32_t count);
int SVGA3D_BeginPresent(uint32_t sid, struct svga3d_copy_rect** rects, uint32_t count);
int SVGA3D_BeginBlitSurfaceToScreen(const struct svga3d_image* source, const struct svga3d_signed_rect* source_rect,
                                    uint32_t screen_id, const struct svga3d_signed_rect* destination_rect,
                                    struct svga3d_signed_rect** clip_rects, uint32_t count);
int SVGA3D_BeginClear(uint32_t cid, uint32_t flags, uint32_t color, float depth, uint32_t stencil,
                      struct svga3d_rect** rects, uint32_t count);
int SVGA3D_BeginSetRenderState(uint32_t cid, struct svga3d_render_state_value** states, uint32_t count);
int SVGA3D_BeginSetTextureState(uint32_t cid, struct svga3d_texture_state_value** states, uint32_t count);
int SVGA3D_BeginDrawPrimitives(uint32_t cid, struct svga3d_vertex_declaration** declarations,
                               uint32_t declaration_count, struct svga3d_primitive_range** ranges,
                               uint32_t range_count);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
