/* libkalix: how a client process talks to a kalix server.
 *
 * A connection is a session with one server: it carries requests one after the other, and what the
 * client defines through it (contexts, surfaces, DMA buffers) is released when it closes. Commands are
 * collected in a command buffer, a shared-memory object that the server reads when it is submitted;
 * pixels and vertices travel through DMA buffers, and pictures come back with kalix_readback().
 *
 * Results. Every function that returns int returns 0, or a negative errno value of this host:
 *   - what the server answered: -EINVAL for an argument or object that it refuses, -ENOMEM when ids,
 *     memory or device space run out, -ENOENT for an unknown surface, -ENOSYS for a request that it
 *     does not know. Positive statuses of the server are turned into the errno that they mean;
 *   - what happened on the way: -EPIPE or -ECONNRESET when the server has gone, -EPROTO when it
 *     answered nonsense. After these the connection is lost: kalix_connection_error() says so, and
 *     every further request fails at once with the same value. A lost server never blocks a caller and
 *     never raises SIGPIPE;
 *   - what the library itself refuses: -EINVAL for a null pointer or an impossible argument, -EPERM in
 *     a process other than the one that opened the connection.
 * These hold for every function here; comments name only what is particular to one. A failed call
 * leaves its out parameters as they were. kalix_request() tells the server's own status apart.
 *
 * Threads. A connection may be used by any number of threads; their requests are carried out one at a
 * time, and a thread that waits for a fence makes the others wait. Command lists and the memory of DMA
 * buffers carry no lock: one thread at a time for each of them. kalix_close() comes last.
 *
 * Fork. A connection belongs to the process that opened it. A child may only kalix_close() its copy,
 * which frees memory and leaves the parent's session alone.
 *
 * Wants C11 or C++20, as every C header of the library does; no extension of either. */
#pragma once

#include <kalix/protocol.h>
#include <kalix/svga3d_types.h>

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* The library's version, "major.minor.patch". Static memory. */
const char *kalix_version(void);

/* ---- Connections ------------------------------------------------------------------------- */

/* A connection; what is in it is the library's. */
typedef struct kalix_connection kalix_connection;

/* Opens a connection to the server whose run directory is given; NULL means the one that KALIX_RUN_DIR
 * names, else the user's own server, else the host's in /run/kalix (rundir.h). The caller closes it.
 * Errors: -ENOENT when there is no server, -ECONNREFUSED when it was killed, -EACCES, -ENAMETOOLONG,
 * -ENOMEM, -EMFILE; -EPIPE or -ECONNRESET when the server takes no more connections. */
int kalix_open(const char *run_dir, kalix_connection **connection);

/* Says in words why kalix_open() of the same directory has just failed with this error, with the path and,
 * where membership of a group would help, that group: "no server: /run/user/1000/kalix/svga_ch is missing".
 * Writes at most room bytes, the closing zero included, and returns the length that the whole text has. */
int kalix_explain_open(const char *run_dir, int error, char *text, size_t room);

/* Ends the session: the server releases all that was made through it. Unmaps the connection's command
 * buffers; DMA buffers stay mapped until kalix_dmabuf_unmap(). NULL is ignored. */
void kalix_close(kalix_connection *connection);

/* 0 while the connection works, else the negative errno with which it was lost. */
int kalix_connection_error(kalix_connection *connection);

/* Releases all that the connection has made, as if it had been closed and opened again. Ids and command
 * lists had from it are void; DMA buffers must be given to kalix_dmabuf_unmap(). */
int kalix_disconnect(kalix_connection *connection);

/* Sends any request: the payload (payload_bytes) behind a header with the command, and takes back up to
 * reply_room bytes into reply and their number into *reply_bytes (may be NULL). Returns 0 when the
 * server has answered, whatever its status, which goes to *status untranslated. -EMSGSIZE for a payload
 * that no message holds; an error number with which the server refused the message itself. */
int kalix_request(kalix_connection *connection, int32_t command, const void *payload, uint32_t payload_bytes,
                  void *reply, uint32_t reply_room, uint32_t *reply_bytes, int32_t *status);

/* ---- Device parameters ------------------------------------------------------------------- */

/* param is of enum kalix_param; -EINVAL for one that the server does not know. */
int kalix_getparam(kalix_connection *connection, uint32_t param, uint64_t *value);
/* Reads a FIFO register by its number, 0 to 1024. */
int kalix_fifomap(kalix_connection *connection, uint32_t index, uint32_t *value);
/* The capability records: {length in words, type, pairs of index and value}, ended by a length of 0. */
int kalix_fifomap_caps(kalix_connection *connection, struct fifomap_caps_rep *caps);
/* 0 in *software_mode on every server that draws with its device. */
int kalix_software_mode(kalix_connection *connection, uint32_t *software_mode);

/* ---- DMA buffers ------------------------------------------------------------------------- */

/* Memory that this process and the device share. Filled by kalix_dmabuf_alloc(); read it, do not write
 * it. In commands the buffer's byte n is the guest pointer {gmr_id, gmr_offset + n}. */
struct kalix_dma_buffer {
    void *data;           /* size bytes, zero at first */
    uint32_t size;        /* bytes */
    uint32_t handle;      /* the server's number for it */
    uint32_t gmr_id;      /* the region that commands name */
    uint32_t gmr_offset;  /* of the first byte in the region */
    void *mapping;        /* the library's: what it has mapped */
    size_t mapping_bytes; /* the library's: how much */
};

/* Allocates size bytes and maps them. -ENOMEM when the server has no room, -ENOSPC when the run
 * directory's file system has none. The caller gives the buffer back with kalix_dmabuf_unref(). */
int kalix_dmabuf_alloc(kalix_connection *connection, uint32_t size, struct kalix_dma_buffer *buffer);
/* Gives the buffer back. Wait for the fences of commands that use it first. It is unmapped and cleared
 * whatever the result says. */
int kalix_dmabuf_unref(kalix_connection *connection, struct kalix_dma_buffer *buffer);
/* Unmaps and clears the buffer without a request: for after kalix_close() or kalix_disconnect(). */
void kalix_dmabuf_unmap(struct kalix_dma_buffer *buffer);

/* ---- Contexts and command buffers -------------------------------------------------------- */

/* A list of commands in memory of a given size. used is what the next command is appended behind; set
 * it to 0 to start anew, or back to an earlier value to take commands away. */
struct kalix_commands {
    void *memory;         /* the library's, or the caller's own */
    uint32_t capacity;    /* bytes */
    uint32_t used;        /* bytes */
};

/* *cid is the new context, its states as docs/device.md says. */
int kalix_context_define(kalix_connection *connection, uint32_t *cid);
/* Destroys the context and its command buffer: the list that kalix_command_buffer() gave for it is void. */
int kalix_context_destroy(kalix_connection *connection, uint32_t cid);

/* The command buffer with that number, made at the first call: 65536 bytes that the server can read.
 * A context's number is its cid, and contexts are what command buffers are meant for; other numbers are
 * shared by all clients of the server, first come, first served. The list belongs to the connection and
 * lives until the context is destroyed or the connection closed. Errors: -ENOSPC, -EACCES, -ENOMEM. */
int kalix_command_buffer(kalix_connection *connection, uint32_t number, struct kalix_commands **commands);

/* Submits what the command buffer holds. The server copies and checks all of it before anything runs:
 * -EINVAL when it refuses a command, and then none has run. On success the list is empty again and
 * *fence (may be NULL) is the fence behind the commands. -ENOENT for a number that kalix_command_buffer()
 * has not been asked for. */
int kalix_submit(kalix_connection *connection, uint32_t number, uint32_t *fence);

/* The submission request itself: byte_count bytes of the command buffer, committed after delay_us
 * microseconds; the list is left as it is. reply may be NULL. */
int kalix_execbuf(kalix_connection *connection, uint32_t number, uint32_t byte_count, uint32_t delay_us,
                  struct execbuf_rep *reply);

/* ---- Fences ------------------------------------------------------------------------------ */

/* Returns when the device has passed the fence, without a time limit. */
int kalix_fence_wait(kalix_connection *connection, uint32_t fence);
/* *signalled becomes 1 when the fence has been passed, else 0. passed (may be NULL): the last one that was. */
int kalix_fence_signalled(kalix_connection *connection, uint32_t fence, int *signalled, uint32_t *passed);
/* Fences are numbers and hold nothing; the request exists for completeness. */
int kalix_fence_unref(kalix_connection *connection, uint32_t fence);

/* ---- Surfaces ---------------------------------------------------------------------------- */

/* A surface of any shape, for kalix_surface_define(). */
struct kalix_surface_description {
    uint32_t flags;                    /* enum svga3d_surface_flag */
    uint32_t format;                   /* SVGA3D surface format */
    uint32_t mip_levels[SVGA3D_FACES]; /* of each face; all but the first 0 unless a cube map */
    const struct surface_size *sizes;  /* one for each level, face by face */
    uint32_t size_count;               /* the sum of mip_levels, at most KALIX_SURFACE_MIPS_MAX */
    uint32_t shared;                   /* non-zero: the candidate for the server's shared surface */
    uint32_t sid;                      /* the id wanted, from kalix_alloc_sid(); 0: any */
};

/* *sid is the new surface, on which this client holds one reference. */
int kalix_surface_define(kalix_connection *connection, const struct kalix_surface_description *description,
                         uint32_t *sid);
/* One image of one level. An SVGA3D_BUFFER of n bytes is n wide and 1 high. */
int kalix_surface_define_2d(kalix_connection *connection, uint32_t flags, uint32_t format, uint32_t width,
                            uint32_t height, uint32_t *sid);
/* Gives up one reference; with the last of all clients the surface goes. */
int kalix_surface_destroy(kalix_connection *connection, uint32_t sid);
/* Takes a reference on anybody's surface. information (may be NULL): its flags (in the field sid), format
 * and mip levels. -ENOENT for an id that names none. */
int kalix_surface_reference(kalix_connection *connection, uint32_t sid, struct surface_reference_req *information);
/* An id to define a surface with later. -ENOSPC when none is left. */
int kalix_alloc_sid(kalix_connection *connection, uint32_t *sid);

/* ---- Readback ---------------------------------------------------------------------------- */

/* What to read: a rectangle of level 0 of a surface, and the surface's own size and format, which the
 * server goes by. Right and bottom edge of the rectangle are at most KALIX_READBACK_EXTENT_MAX. */
struct kalix_readback_area {
    uint32_t sid;                           /* which surface */
    uint32_t surface_width, surface_height; /* its first level, pixels */
    uint32_t format;                        /* enum svga3d_surface_format */
    uint32_t x, y, width, height;           /* what of it, pixels */
};

/* Bytes of a pixel as readback delivers it; 0 for formats that it does not deliver. */
uint32_t kalix_readback_pixel_bytes(uint32_t format);

/* Copies the rectangle to pixels, its rows row_stride bytes apart. The commands that draw it need not
 * have finished. Format X8R8G8B8 comes with its fourth byte 255. -ENOTSUP for a format without pixels,
 * -ENOSPC when the run directory's file system is full.
 *
 * The server writes a surface's pixels to the place that was named at the surface's first readback,
 * whoever asks; the library keeps one place a surface for all connections of this process. A surface
 * that another process has read back already cannot be read here: its pixels go to that process. */
int kalix_readback(kalix_connection *connection, const struct kalix_readback_area *area, void *pixels,
                   size_t row_stride);

/* ---- Display ----------------------------------------------------------------------------- */

/* Shows a surface that this client holds: the region from its corner (0, 0) to (width, height) fills the
 * whole screen, with everybody's overlays on top. x and y say where on the screen the picture goes, in
 * pixels of the unzoomed screen. The picture shows what commands submitted before have drawn; the call
 * does not wait for it to show. 0 says that the frame is queued, not that anybody sees it: with the display
 * off (kalix_svga_enable(), kalix_set_mode()) the screen stays black, and the tools say so. */
int kalix_present(kalix_connection *connection, uint32_t sid, int32_t x, int32_t y, int32_t width, int32_t height);
/* Copies a rectangle of a surface that this client holds into the framebuffer, in rows of the surface's
 * width from a guest physical address on. -EINVAL when a byte would lie outside. */
int kalix_present_phys(kalix_connection *connection, uint32_t sid, uint32_t x, uint32_t y, uint32_t width,
                       uint32_t height, uint64_t phys_addr);

/* An overlay of the record's place, buffers and surfaces (its field id is not read), visible at once with
 * the next present of anybody; *id is its number. -EINVAL for a buffer count other than 1 and 2, pixels
 * outside the framebuffer, and when the server's KALIX_OVERLAYS_MAX are in use. */
int kalix_overlay_define(kalix_connection *connection, const struct overlay_define_req *overlay, uint32_t *id);
/* Takes the overlay away, from the next present on. */
int kalix_overlay_destroy(kalix_connection *connection, uint32_t id);
/* Shows (1) or hides (0) the overlay, from the next present on. */
int kalix_overlay_visible(kalix_connection *connection, uint32_t id, uint32_t visible);
/* Swaps the overlay's two buffers and shows the last picture again. -ENOENT when nothing is there to show. */
int kalix_oob_present(kalix_connection *connection, uint32_t overlay_id);

/* Turns the display on (1) or off (0). */
int kalix_svga_enable(kalix_connection *connection, uint32_t enable);
/* Sets the mode, in pixels and bits per pixel (16 or 32), and shows the last picture in all of it. A mode
 * that the device does not have leaves it as it is; the result does not tell. */
int kalix_set_mode(kalix_connection *connection, uint32_t width, uint32_t height, uint32_t bits_per_pixel);

/* A picture for the cursor. */
struct kalix_cursor_image {
    uint32_t width, height;          /* pixels, at most 256 a side */
    uint32_t hotspot_x, hotspot_y;   /* the pixel that points */
    const uint32_t *pixels;          /* packed rows of 0xAARRGGBB, colours multiplied by alpha */
};
/* Sets the cursor's picture; kalix_move_cursor() shows it. -EINVAL for more than 256 pixels a side. */
int kalix_set_cursor(kalix_connection *connection, const struct kalix_cursor_image *image);
/* Places the hot spot, in screen pixels. */
int kalix_move_cursor(kalix_connection *connection, uint32_t visible, uint32_t x, uint32_t y);

/* ---- Debugging --------------------------------------------------------------------------- */

/* These reach every surface of the server; under KALIX_STRICT=1 they are for the server's own user alone.
 * A record is question and answer (protocol.h says which field is which); -EINVAL for an unknown sid. */

/* Shows one surface alone, instead of all that is presented, until the reset. */
int kalix_debug_show(kalix_connection *connection, uint32_t sid);
/* Ends kalix_debug_show(). */
int kalix_debug_reset(kalix_connection *connection);
/* Size, format, references and holders of the surface in the field sid. */
int kalix_debug_info(kalix_connection *connection, struct sid_info_req *information);
/* KALIX_LIST_ENTRIES of the server's surfaces, behind those that the field first skips. */
int kalix_debug_list(kalix_connection *connection, struct list_sids_req *list);
/* Rows of a surface, at most KALIX_DUMP_BYTES_MAX bytes. Uses the framebuffer's beginning, which shows until
 * the next present; so does kalix_debug_fill(). */
int kalix_debug_dump(kalix_connection *connection, struct dump_sid_req *dump);
/* Fills a surface of format X8R8G8B8 or A8R8G8B8 with one pixel. */
int kalix_debug_fill(kalix_connection *connection, uint32_t sid, uint32_t pixel);

/* ---- Commands ---------------------------------------------------------------------------- */

/* Each appends one command to the list and returns 0; -ENOSPC when it does not fit, and the list is as
 * it was; -EINVAL for a null pointer where something must be. Counts are of elements; an array may be
 * NULL when its count is 0. Ids and values are not looked at: that is the server's task. */

/* Announces that a rectangle of the framebuffer has changed. */
int kalix_cmd_update(struct kalix_commands *list, uint32_t x, uint32_t y, uint32_t width, uint32_t height);
/* Defines a surface on the device alone: of the caller's own id, and no session's. sizes: one for each level. */
int kalix_cmd_surface_define(struct kalix_commands *list, const struct svga3d_surface_define *surface,
                             const struct svga3d_size *sizes, uint32_t size_count);
/* Destroys what kalix_cmd_surface_define() has defined. */
int kalix_cmd_surface_destroy(struct kalix_commands *list, uint32_t sid);
/* Copies boxes from image to image byte by byte, between formats whose blocks have one size. */
int kalix_cmd_surface_copy(struct kalix_commands *list, const struct svga3d_image *source,
                           const struct svga3d_image *destination, const struct svga3d_copy_box *boxes,
                           uint32_t box_count);
/* Copies a box of one image onto a box of another, scaled. */
int kalix_cmd_surface_stretchblt(struct kalix_commands *list, const struct svga3d_surface_stretchblt *blit);
/* Copies boxes between guest memory, a DMA buffer above all, and an image. x, y, z and srcx, srcy, srcz are places
 * in the image and in guest memory. suffix may be NULL. */
int kalix_cmd_surface_dma(struct kalix_commands *list, const struct svga3d_surface_dma *transfer,
                          const struct svga3d_copy_box *boxes, uint32_t box_count,
                          const struct svga3d_surface_dma_suffix *suffix);
/* Defines a context on the device alone, as kalix_cmd_surface_define() does a surface. */
int kalix_cmd_context_define(struct kalix_commands *list, uint32_t cid);
/* Destroys what kalix_cmd_context_define() has defined. */
int kalix_cmd_context_destroy(struct kalix_commands *list, uint32_t cid);
/* type is of enum svga3d_transform. The matrix is for row vectors, row by row: the translation is elements 12 to 14. */
int kalix_cmd_set_transform(struct kalix_commands *list, uint32_t cid, uint32_t type, const float matrix[16]);
/* What the depths 0 and 1 become in the depth target, both 0 to 1. */
int kalix_cmd_set_z_range(struct kalix_commands *list, uint32_t cid, float min, float max);
/* Sets states of the context, in their order. A float goes by its bits. */
int kalix_cmd_set_render_states(struct kalix_commands *list, uint32_t cid,
                                const struct svga3d_render_state_value *states, uint32_t count);
/* type is of enum svga3d_render_target. target NULL takes it away. */
int kalix_cmd_set_render_target(struct kalix_commands *list, uint32_t cid, uint32_t type,
                                const struct svga3d_image *target);
/* Sets states of the texture stages, in their order; SVGA3D_TS_BIND_TEXTURE takes a sid. */
int kalix_cmd_set_texture_states(struct kalix_commands *list, uint32_t cid,
                                 const struct svga3d_texture_state_value *states, uint32_t count);
/* face is of enum svga3d_face. It counts while SVGA3D_RS_LIGHTINGENABLE is 1. */
int kalix_cmd_set_material(struct kalix_commands *list, uint32_t cid, uint32_t face,
                           const struct svga3d_material *material);
/* Sets a light, 0 to 7; kalix_cmd_set_light_enabled() turns it on. */
int kalix_cmd_set_light_data(struct kalix_commands *list, uint32_t cid, uint32_t index,
                             const struct svga3d_light *light);
/* Turns a light on (1) or off (0). */
int kalix_cmd_set_light_enabled(struct kalix_commands *list, uint32_t cid, uint32_t index, uint32_t enabled);
/* Where on the target positions from -1 to 1 lie, pixels. A new context's is empty, and nothing is drawn. */
int kalix_cmd_set_viewport(struct kalix_commands *list, uint32_t cid, const struct svga3d_rect *rect);
/* A plane, 0 to 5, which its bit of SVGA3D_RS_CLIPPLANEENABLE turns on. */
int kalix_cmd_set_clip_plane(struct kalix_commands *list, uint32_t cid, uint32_t index, const float plane[4]);
/* Fills rectangles of the targets. flags are of enum svga3d_clear_flag, color is 0xAARRGGBB, depth 0 near to 1 far. */
int kalix_cmd_clear(struct kalix_commands *list, uint32_t cid, uint32_t flags, uint32_t color, float depth,
                    uint32_t stencil, const struct svga3d_rect *rects, uint32_t rect_count);
/* Copies rectangles of a surface to the screen, past what kalix_present() composes. */
int kalix_cmd_present(struct kalix_commands *list, uint32_t sid, const struct svga3d_copy_rect *rects,
                      uint32_t rect_count);
/* Keeps a shader's tokens under a number of the context's; shaders are not run. type: enum svga3d_shader_type. */
int kalix_cmd_shader_define(struct kalix_commands *list, uint32_t cid, uint32_t shader, uint32_t type,
                            const uint32_t *tokens, uint32_t token_count);
/* Forgets a shader. */
int kalix_cmd_shader_destroy(struct kalix_commands *list, uint32_t cid, uint32_t shader, uint32_t type);
/* Sets the shader of a type, SVGA3D_INVALID_ID for none; draws with one do nothing and are counted. */
int kalix_cmd_set_shader(struct kalix_commands *list, uint32_t cid, uint32_t type, uint32_t shader);
/* Sets one register of a type of shader. */
int kalix_cmd_set_shader_const(struct kalix_commands *list, const struct svga3d_set_shader_const *constant);
/* Draws each range with the vertices that the declarations lay out. divisors: one for each declaration, or NULL
 * for none. */
int kalix_cmd_draw_primitives(struct kalix_commands *list, uint32_t cid,
                              const struct svga3d_vertex_declaration *declarations, uint32_t declaration_count,
                              const struct svga3d_primitive_range *ranges, uint32_t range_count,
                              const uint32_t *divisors);
/* What of the target is drawn to while SVGA3D_RS_SCISSORTESTENABLE is 1, pixels. */
int kalix_cmd_set_scissor_rect(struct kalix_commands *list, uint32_t cid, const struct svga3d_rect *rect);
/* Counts, by enum svga3d_query_type, what is drawn from here to kalix_cmd_end_query(). */
int kalix_cmd_begin_query(struct kalix_commands *list, uint32_t cid, uint32_t type);
/* Ends counting: behind the submission's fence a struct svga3d_query_result lies at result. */
int kalix_cmd_end_query(struct kalix_commands *list, uint32_t cid, uint32_t type, struct svga_guest_pointer result);
/* Writes the last ended query's result once more; state is SVGA3D_QUERYSTATE_FAILED while one is counting. */
int kalix_cmd_wait_for_query(struct kalix_commands *list, uint32_t cid, uint32_t type,
                             struct svga_guest_pointer result);
/* Has the screen's rectangles in the framebuffer, where this device keeps them anyway. */
int kalix_cmd_present_readback(struct kalix_commands *list, const struct svga3d_rect *rects, uint32_t rect_count);
/* Copies a rectangle of an image onto one of the screen, only inside the clips when there are any. */
int kalix_cmd_blit_surface_to_screen(struct kalix_commands *list, const struct svga3d_blit_to_screen *blit,
                                     const struct svga3d_signed_rect *clips, uint32_t clip_count);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
