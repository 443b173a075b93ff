/* The status file: what a server's driver tells its tools.
 *
 * The file "status" of the run directory holds struct kalix_status. The driver alone writes it; it is
 * reused by the next server and never shrinks, so a mapping stays good. A reader takes a snapshot so:
 * read sequence (retry while odd), copy the whole record, read sequence again and retry when it changed.
 * All words are little-endian. What the device counts lies in the screen file (screen.h).
 *
 * What these names mean in every record that has them:
 *   magic  KALIX_STATUS_MAGIC
 *   version  KALIX_STATUS_VERSION
 *   server_pid, owner_pid  the process
 *   uid  the process's user
 *   sid  the surface
 *   zoom  the factor by which all is shown larger
 *   screen_width, screen_height  pixels
 *   visible  1: shown
 *   buffer_count  1 or 2
 *   overlay_count  how many of the list were drawn
 *   frame  the last one
 *   clients  connections that made a request
 *
 * Wants C11 or C++20. */
#pragma once

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    KALIX_STATUS_MAGIC = 0x4153434B,         /* "KCSA" */
    KALIX_STATUS_VERSION = 1,
    KALIX_STATUS_CLIENTS = 1024,             /* as many connections as a server takes */
    KALIX_STATUS_OVERLAYS = 8
};

enum kalix_status_object {       /* indices of a client's counts */
    KALIX_STATUS_CONTEXTS = 0,
    KALIX_STATUS_DMA_BUFFERS = 1,
    KALIX_STATUS_SURFACES = 2,
    KALIX_STATUS_COMMAND_BUFFERS = 3,
    KALIX_STATUS_OVERLAYS_HELD = 4,
    KALIX_STATUS_OBJECT_TYPES = 5
};

struct kalix_status_client {     /* one connection */
    uint32_t pid;                /* 0: the slot is free */
    uint32_t uid;
    uint32_t objects[KALIX_STATUS_OBJECT_TYPES]; /* that it holds, by enum kalix_status_object */
    uint32_t requests;           /* that it made, modulo 2^32 */
};
static_assert(sizeof(struct kalix_status_client) == 32, "file record");

struct kalix_status_overlay {    /* an overlay, as defined or as drawn */
    uint32_t id;                 /* 1 to 8; 0: none */
    uint32_t owner_pid;
    int32_t x, y;                /* pixels: of the unzoomed screen where defined, of the screen where drawn */
    uint32_t width, height;      /* pixels, likewise; drawn ones before they are turned */
    uint32_t visible;
    uint32_t buffer_count;
    uint32_t sids[2];            /* surfaces of the buffers, 0: none */
    uint32_t shown_buffer;       /* the index of the one that is shown */
    uint32_t turned;             /* 1: drawn turned by a quarter */
};
static_assert(sizeof(struct kalix_status_overlay) == 48, "file record");

struct kalix_status_frame {      /* what the last frame was made of */
    uint64_t number;             /* frames since the start; 0: none yet */
    uint32_t sid;
    uint32_t debug;              /* 1: a debug request chose the surface, which is shown alone */
    int32_t x, y, width, height; /* the presented rectangle */
    float zoom;
    uint32_t screen_width, screen_height;
    uint32_t uploaded_bytes;     /* of vertices and indices */
    uint32_t waited;             /* 1: the driver waited for the device */
    uint32_t overlay_count;
    struct kalix_status_overlay overlays[KALIX_STATUS_OVERLAYS]; /* as drawn, in that order */
};
static_assert(offsetof(struct kalix_status_frame, overlays) == 56, "file record");

struct kalix_status {            /* the whole file */
    uint32_t magic, version;
    uint32_t header_bytes;       /* sizeof(struct kalix_status) of the writer */
    uint32_t server_pid;
    uint32_t sequence;           /* odd while the driver changes anything below */
    float zoom;                  /* in force; the next frame has it */
    uint32_t debug_show_sid;     /* the surface that debug display shows, 0: off */
    uint32_t clients_seen;       /* connections that made a request, modulo 2^32 */
    struct kalix_status_frame frame;
    struct kalix_status_overlay overlays[KALIX_STATUS_OVERLAYS]; /* as defined, by id - 1 */
    struct kalix_status_client clients[KALIX_STATUS_CLIENTS];
};
static_assert(offsetof(struct kalix_status, frame) == 32, "file record");

#ifdef __cplusplus
}
#endif
