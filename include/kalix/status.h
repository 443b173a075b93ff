/* The status file: what a server's driver tells its tools.
 *
 * The file "status" of the run directory holds struct kalix_status. The driver alone writes it, and holds a
 * write lock of its open file description (F_OFD_SETLK) on all of it for as long as the server lives: a reader
 * asks for that with F_OFD_GETLK and a read lock, for which a read-only descriptor will do. The next server
 * makes a file of its own in its place; one that is mapped keeps what its server wrote last. A reader takes a
 * snapshot so: read sequence (retry while odd), copy the record up to its levels, read sequence again and retry
 * when it changed. All words are little-endian. What the device counts lies in the screen file (screen.h).
 *
 * What these names mean in every record that has them:
 *   magic  KALIX_STATUS_MAGIC
 *   version  KALIX_STATUS_VERSION
 *   server_pid, owner_pid  the process
 *   uid  the process's user
 *   sid  the surface
 *   zoom  the factor by which the picture shrinks, 1 at most
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
    KALIX_STATUS_VERSION = 2,
    KALIX_STATUS_CLIENTS = 1024,             /* as many connections as a server takes */
    KALIX_STATUS_OVERLAYS = 8,
    KALIX_STATUS_EVENTS = 256,               /* that the ring keeps */
    KALIX_STATUS_STORE_BYTES = 1024,         /* of the store's path, with its end */
    KALIX_STATUS_SURFACE_IDS = 32768         /* surface ids whose levels are told: those that the server gives */
};

enum kalix_status_object {       /* indices of a client's counts */
    KALIX_STATUS_CONTEXTS = 0,
    KALIX_STATUS_DMA_BUFFERS = 1,
    KALIX_STATUS_SURFACES = 2,
    KALIX_STATUS_COMMAND_BUFFERS = 3,
    KALIX_STATUS_OVERLAYS_HELD = 4,
    KALIX_STATUS_OBJECT_TYPES = 5
};

enum kalix_status_bound {        /* indices of the counts of refusals by a bound (docs/security.md) */
    KALIX_STATUS_BOUND_COMMAND_BUFFERS = 0,  /* of a client, of a user, or the part kept back */
    KALIX_STATUS_BOUND_READBACKS = 1,
    KALIX_STATUS_BOUND_DMA_BUFFERS = 2,
    KALIX_STATUS_BOUND_CONTEXT_IDS = 3,      /* all are in use */
    KALIX_STATUS_BOUND_SURFACE_IDS = 4,
    KALIX_STATUS_BOUND_OVERLAY_IDS = 5,
    KALIX_STATUS_BOUNDS = 6
};

enum kalix_status_reason {       /* why a command buffer was refused */
    KALIX_STATUS_REASON_OTHER = 0,           /* not for what is in it, or the request was another */
    KALIX_STATUS_REASON_COMMAND,             /* a command that no client may send, or one that is too short */
    KALIX_STATUS_REASON_CONTEXT,             /* it names a context that the client does not hold */
    KALIX_STATUS_REASON_SURFACE,             /* a surface, likewise */
    KALIX_STATUS_REASON_REGION,              /* a region, likewise */
    KALIX_STATUS_REASON_LENGTH               /* its commands do not end where the buffer does */
};

struct kalix_status_refusal {    /* what a client was refused last */
    uint32_t count;              /* of all its requests that were answered with anything but 0, modulo 2^32 */
    int32_t status;              /* the answer */
    uint32_t request;            /* enum kalix_command */
    uint32_t reason;             /* enum kalix_status_reason */
    uint32_t command;            /* the 3D command that refused its buffer, 0: none */
    uint32_t named;              /* the id that it named, of a context, surface or region; 0: none */
};
static_assert(sizeof(struct kalix_status_refusal) == 24, "file record");

struct kalix_status_client {     /* one connection */
    uint32_t pid;                /* 0: the slot is free */
    uint32_t uid;
    uint64_t requests;           /* that it made */
    uint64_t presents;           /* that were shown */
    uint64_t device_bytes;       /* of the surfaces that it holds, all levels; shared ones count for each holder */
    uint64_t shared_bytes;       /* of the DMA and command buffers that it holds */
    uint32_t objects[KALIX_STATUS_OBJECT_TYPES]; /* that it holds, by enum kalix_status_object */
    struct kalix_status_refusal refused; /* the last of its requests that was refused */
    uint32_t unused;             /* 0 */
};
static_assert(sizeof(struct kalix_status_client) == 88, "file record");

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
    uint64_t time_ns;            /* when it was committed, since 1970 */
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
static_assert(offsetof(struct kalix_status_frame, overlays) == 64, "file record");

enum kalix_event_kind {          /* and what a, b and c are */
    KALIX_EVENT_NONE = 0,
    KALIX_EVENT_CONNECT,         /* a client's first request */
    KALIX_EVENT_DISCONNECT,      /* its requests, modulo 2^32 */
    KALIX_EVENT_REFUSAL,         /* request, 3D command (0: none), status; one that goes on is told once a second */
    KALIX_EVENT_MODE,            /* width, height, bits per pixel: taken by the device */
    KALIX_EVENT_ZOOM,            /* millionths */
    KALIX_EVENT_OVERLAY_DEFINED, /* overlay; of its owner, as the next two are */
    KALIX_EVENT_OVERLAY_DESTROYED,
    KALIX_EVENT_OVERLAY_VISIBLE, /* overlay, 1: shown, 0: hidden */
    KALIX_EVENT_DISPLAY          /* 1: on, 0: off */
};

struct kalix_status_event {      /* something that happened */
    uint64_t number;             /* counted from 1 */
    uint64_t time_ns;            /* since 1970 */
    uint32_t kind;               /* enum kalix_event_kind */
    uint32_t pid, uid;           /* who did it; 0, 0: the server */
    uint32_t a, b, c;            /* as the kind says, 0 where it says nothing */
};
static_assert(sizeof(struct kalix_status_event) == 40, "file record");

struct kalix_status {            /* the whole file */
    uint32_t magic, version;
    uint32_t header_bytes;       /* sizeof(struct kalix_status) of the writer */
    uint32_t server_pid;
    uint32_t sequence;           /* odd while the driver changes anything below, up to the levels */
    float zoom;                  /* in force; the next frame has it */
    uint32_t debug_show_sid;     /* the surface that debug display shows, 0: off */
    uint32_t clients_seen;       /* connections that made a request, modulo 2^32 */
    uint64_t start_ns;           /* when the server started, since 1970 */
    uint64_t event_number;       /* of the last event, 0: none yet; number n lies at events[(n - 1) % 256] */
    uint64_t bounds_reached[KALIX_STATUS_BOUNDS]; /* refusals, by enum kalix_status_bound */
    char store[KALIX_STATUS_STORE_BYTES]; /* directory of the publish/subscribe store; empty: the server has none */
    struct kalix_status_frame frame;
    struct kalix_status_overlay overlays[KALIX_STATUS_OVERLAYS]; /* as defined, by id - 1 */
    struct kalix_status_event events[KALIX_STATUS_EVENTS]; /* a ring: the last ones */
    struct kalix_status_client clients[KALIX_STATUS_CLIENTS];
    uint8_t levels[KALIX_STATUS_SURFACE_IDS]; /* mip levels of a face of the surface last defined under each id; each
                                                 byte is written by itself, whatever the sequence says */
};
static_assert(offsetof(struct kalix_status, start_ns) == 32, "file record");
static_assert(offsetof(struct kalix_status, store) == 96, "file record");
static_assert(offsetof(struct kalix_status, frame) == 96 + 1024, "file record");
static_assert(offsetof(struct kalix_status, overlays) == 1120 + 448, "file record");
static_assert(offsetof(struct kalix_status, events) == 1568 + 384, "file record");
static_assert(offsetof(struct kalix_status, clients) == 1952 + 10240, "file record");
static_assert(offsetof(struct kalix_status, levels) == 12192 + 1024 * 88, "file record");

#ifdef __cplusplus
}
#endif
