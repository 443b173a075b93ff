/* A triangle on the screen, in C: cc -std=c11 triangle.c $(pkg-config --cflags --libs libkalix) */
#include <kalix/client.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void step(const char* what, int result)
{
    if (result < 0)
        exit(fprintf(stderr, "triangle: %s: %s\n", what, strerror(-result)) != 0);
}

int main(void)
{
    /* -1 to 1 over the viewport, y upward; 0xAARRGGBB */
    const struct {
        float x, y, z;
        uint32_t color;
    } corners[] = {{-0.8f, -0.8f, 0, 0xFFFF3030}, {0, 0.8f, 0, 0xFF30FF30}, {0.8f, -0.8f, 0, 0xFF3030FF}};
    const struct svga3d_rect all = {0, 0, 800, 600};
    kalix_connection* server;
    struct kalix_dma_buffer staging;
    struct kalix_commands* list;
    uint32_t vertices, picture, cid, fence;

    step("connect", kalix_open(NULL, &server));
    step("set a mode", kalix_set_mode(server, all.w, all.h, 32)); /* and the display is on */
    step("allocate memory", kalix_dmabuf_alloc(server, sizeof corners, &staging));
    memcpy(staging.data, corners, sizeof corners);
    step("define vertices", kalix_surface_define_2d(server, 0, SVGA3D_BUFFER, sizeof corners, 1, &vertices));
    step("define a picture", kalix_surface_define_2d(server, 0, SVGA3D_A8R8G8B8, all.w, all.h, &picture));
    step("define a context", kalix_context_define(server, &cid));
    step("make a list", kalix_command_buffer(server, cid, &list)); /* 64 KiB: all of the below fits */

    const struct svga_guest_pointer memory = {staging.gmr_id, staging.gmr_offset};
    const struct svga3d_surface_dma upload = {{memory, 0}, {vertices, 0, 0}, SVGA3D_WRITE_HOST_VRAM};
    /* The first stage multiplies with a texture, and nothing is bound: take the colours of the vertices alone. */
    const struct svga3d_texture_state_value stage = {0, SVGA3D_TS_COLOROP, SVGA3D_TC_SELECTARG2};
    const struct svga3d_vertex_declaration layout[] = {
        {SVGA3D_DECLTYPE_FLOAT3, 0, SVGA3D_DECLUSAGE_POSITION, 0, {vertices, 0, sizeof corners[0]}, 0, 0},
        {SVGA3D_DECLTYPE_D3DCOLOR, 0, SVGA3D_DECLUSAGE_COLOR, 0, {vertices, 12, sizeof corners[0]}, 0, 0}};
    const struct svga3d_primitive_range one = {SVGA3D_PRIMITIVE_TRIANGLELIST, 1, {SVGA3D_INVALID_ID, 0, 0}, 0, 0};
    kalix_cmd_surface_dma(list, &upload, &(struct svga3d_copy_box){.w = sizeof corners, .h = 1, .d = 1}, 1, NULL);
    kalix_cmd_set_render_target(list, cid, SVGA3D_RT_COLOR0, &(struct svga3d_image){picture, 0, 0});
    kalix_cmd_set_viewport(list, cid, &all);
    kalix_cmd_clear(list, cid, SVGA3D_CLEAR_COLOR, 0xFF202030, 1, 0, &all, 1);
    kalix_cmd_set_texture_states(list, cid, &stage, 1);
    kalix_cmd_draw_primitives(list, cid, layout, 2, &one, 1, NULL);
    step("submit", kalix_submit(server, cid, &fence));
    step("wait", kalix_fence_wait(server, fence)); /* then the staging memory is free again */
    step("present", kalix_present(server, picture, 0, 0, 800, 600));
    kalix_close(server);
}
