/* The screen file: what a server's device shows, for viewers to map read-only.
 *
 * The file "screen" of the run directory begins with struct kalix_screen; the framebuffer follows at
 * framebuffer_offset. The device alone writes it. It is reused by the next server and never shrinks, so
 * a mapping stays good. A reader takes a frame so: read sequence (retry while odd), copy what it wants,
 * read sequence again and retry when it changed. All words are little-endian.
 *
 * What these names mean in every record that has them:
 *   magic  KALIX_SCREEN_MAGIC
 *   version  KALIX_SCREEN_VERSION
 *   hotspot_x, hotspot_y  the pixel of the picture that points
 *   visible  1: shown
 *   fences  passed
 *   draws  draw commands
 *   commands  3D commands that ran, by id - 1040
 *   framebuffer_bytes  its whole size
 *   statistics  what the device counts since it started
 *   cursor  as it is drawn over the picture
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
    KALIX_SCREEN_MAGIC = 0x4E52434B,         /* "KCRN" */
    KALIX_SCREEN_VERSION = 1,
    KALIX_SCREEN_CURSOR_EXTENT = 256,        /* pixels a side, most */
    KALIX_SCREEN_COMMANDS = 32,              /* counters of 3D commands, by id - 1040 */
    KALIX_SCREEN_REFUSED = 16                /* counters of refused commands, by kind */
};

enum kalix_refused {             /* why a command did nothing */
    KALIX_REFUSED_UNKNOWN_COMMAND = 0,
    KALIX_REFUSED_SHORT_COMMAND,
    KALIX_REFUSED_NO_SURFACE,
    KALIX_REFUSED_NO_IMAGE,
    KALIX_REFUSED_NO_CONTEXT,
    KALIX_REFUSED_NO_REGION,
    KALIX_REFUSED_OUTSIDE,       /* a box, pointer, vertex or index outside the object named */
    KALIX_REFUSED_BAD_VALUE,     /* an index or enumeration that the interface does not have */
    KALIX_REFUSED_NO_TARGET,
    KALIX_REFUSED_NOT_SUPPORTED,
    KALIX_REFUSED_NO_MEMORY,
    KALIX_REFUSED_MODE,
    KALIX_REFUSED_CURSOR
};

struct kalix_screen_cursor {     /* the cursor, which is not in the picture */
    uint32_t visible;
    uint32_t x, y;               /* screen pixels */
    uint32_t hotspot_x, hotspot_y;
    uint32_t width, height;      /* 0 when none was defined */
    uint32_t generation;         /* raised with each new image */
    uint32_t pixels[KALIX_SCREEN_CURSOR_EXTENT * KALIX_SCREEN_CURSOR_EXTENT]; /* premultiplied ARGB, packed rows */
};

struct kalix_screen_statistics { /* counts since the device started, and what is defined now */
    uint64_t frames;             /* presents, blits and updates of the screen */
    uint64_t fences;
    uint64_t bytes_moved;        /* by surface DMA */
    uint64_t draws;
    uint64_t surfaces, contexts, regions;    /* now defined */
    uint64_t surface_bytes;      /* memory of surfaces now in use */
    uint64_t commands[KALIX_SCREEN_COMMANDS];
    uint64_t refused[KALIX_SCREEN_REFUSED];  /* by enum kalix_refused */
};

struct kalix_screen {            /* the file's beginning */
    uint32_t magic, version;
    uint32_t header_bytes;       /* sizeof(struct kalix_screen) of the writer */
    uint32_t server_pid;         /* 0 when the device has stopped */
    uint32_t sequence;           /* odd while the device changes anything below or the picture */
    uint32_t enabled;            /* the display: 0 off, 1 on */
    uint32_t width, height;      /* screen, pixels */
    uint32_t pitch;              /* bytes */
    uint32_t bits_per_pixel;     /* 16 or 32 */
    uint64_t damage;             /* raised with each change of the picture */
    uint64_t framebuffer_offset; /* in this file */
    uint64_t framebuffer_bytes;
    struct kalix_screen_statistics statistics;
    struct kalix_screen_cursor cursor;
};
static_assert(offsetof(struct kalix_screen, damage) == 40, "file record");
static_assert(offsetof(struct kalix_screen, statistics) == 64, "file record");
static_assert(offsetof(struct kalix_screen, cursor) == 64 + 64 + 8 * 32 + 8 * 16, "file record");

#ifdef __cplusplus
}
#endif
