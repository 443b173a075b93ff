/* Registers, FIFO registers, capability bits and 2D commands of the SVGA device.
 *
 * The numbers and layouts that both sides of the bus share (svga/bus.h), the device in device/ and the driver's side in
 * guest/; those of 3D commands are in kalix/svga3d_types.h. All words are 32 bits, little-endian. Numbers that are left
 * out mean nothing to this device: such a register reads 0 and ignores writes. In C, as the library's face is. */
#pragma once

#include <assert.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

static const uint32_t SVGA_ID_2 = 0x90000002u;               /* interface version written to SVGA_REG_ID */
static const uint32_t SVGA_FRAMEBUFFER_BASE = 0x40000000u;   /* guest physical address of the framebuffer */
static const uint32_t SVGA_ID_INVALID = 0xFFFFFFFFu;         /* names nothing; as a screen id, the screen */

enum svga_register {
    SVGA_REG_ID = 0,
    SVGA_REG_ENABLE = 1,                         /* 1: display on; a write makes what was written before it the mode */
    SVGA_REG_WIDTH = 2,                          /* of the screen, pixels: the mode times the zoom */
    SVGA_REG_HEIGHT = 3,
    SVGA_REG_MAX_WIDTH = 4,                      /* pixels: a side of the largest square mode */
    SVGA_REG_MAX_HEIGHT = 5,
    SVGA_REG_DEPTH = 6,                          /* bits of colour in a pixel */
    SVGA_REG_BITS_PER_PIXEL = 7,
    SVGA_REG_RED_MASK = 9,
    SVGA_REG_GREEN_MASK = 10,
    SVGA_REG_BLUE_MASK = 11,
    SVGA_REG_BYTES_PER_LINE = 12,                /* pitch of the screen */
    SVGA_REG_FB_START = 13,                      /* guest physical address of the framebuffer */
    SVGA_REG_FB_OFFSET = 14,                     /* of the visible picture in it: 0 */
    SVGA_REG_VRAM_SIZE = 15,                     /* bytes of the framebuffer */
    SVGA_REG_FB_SIZE = 16,                       /* bytes of the visible mode */
    SVGA_REG_CAPABILITIES = 17,                  /* enum svga_capability */
    SVGA_REG_MEM_START = 18,                     /* guest physical address of FIFO memory */
    SVGA_REG_MEM_SIZE = 19,                      /* its bytes */
    SVGA_REG_CONFIG_DONE = 20,                   /* 1: the device may read the ring */
    SVGA_REG_SYNC = 21,                          /* a write returns once the ring is empty */
    SVGA_REG_BUSY = 22,                          /* 1 while it is not */
    SVGA_REG_GUEST_ID = 23,                      /* kept, not interpreted */
    SVGA_REG_GMR_ID = 41,                        /* the region that the next register is about */
    SVGA_REG_GMR_DESCRIPTOR = 42,                /* 0 removes it; regions are defined by command */
    SVGA_REG_GMR_MAX_IDS = 43,
    SVGA_REG_GMR_MAX_DESCRIPTOR_LENGTH = 44,
    SVGA_REG_TRACES = 45,                        /* kept, not interpreted */
    SVGA_REG_GMRS_MAX_PAGES = 46,                /* of all regions together */
    SVGA_REG_MEMORY_SIZE = 47,                   /* bytes that the device has for surfaces */
    SVGA_REG_TOP = 48                            /* number of registers */
};

enum svga_capability {
    SVGA_CAP_CURSOR = 0x00000020,
    SVGA_CAP_CURSOR_BYPASS = 0x00000040,
    SVGA_CAP_CURSOR_BYPASS_2 = 0x00000080,
    SVGA_CAP_ALPHA_CURSOR = 0x00000200,
    SVGA_CAP_3D = 0x00004000,
    SVGA_CAP_EXTENDED_FIFO = 0x00008000,
    SVGA_CAP_PITCHLOCK = 0x00020000,
    SVGA_CAP_IRQMASK = 0x00040000,
    SVGA_CAP_GMR = 0x00100000,
    SVGA_CAP_TRACES = 0x00200000,
    SVGA_CAP_GMR2 = 0x00400000
};

/* FIFO registers: indices of 32-bit words at the start of FIFO memory. */
enum svga_fifo_register {
    SVGA_FIFO_MIN = 0,               /* byte offset of the ring's start */
    SVGA_FIFO_MAX = 1,               /* byte offset of its end */
    SVGA_FIFO_NEXT_CMD = 2,          /* byte offset of the next byte the driver side writes */
    SVGA_FIFO_STOP = 3,              /* byte offset of the next byte the device reads */
    SVGA_FIFO_CAPABILITIES = 4,
    SVGA_FIFO_FENCE = 6,             /* last fence passed */
    SVGA_FIFO_3D_HWVERSION = 7,
    SVGA_FIFO_CURSOR_ON = 9,
    SVGA_FIFO_CURSOR_X = 10,
    SVGA_FIFO_CURSOR_Y = 11,
    SVGA_FIFO_CURSOR_COUNT = 12,     /* raised after each change */
    SVGA_FIFO_RESERVED = 14,         /* bytes reserved and not yet committed */
    SVGA_FIFO_CURSOR_SCREEN_ID = 15,
    SVGA_FIFO_3D_CAPS = 32,          /* capability records, back to back; a length of 0 ends them */
    SVGA_FIFO_3D_CAPS_LAST = 287,
    SVGA_FIFO_GUEST_3D_HWVERSION = 288, /* what the driver side speaks */
    SVGA_FIFO_FENCE_GOAL = 289,
    SVGA_FIFO_BUSY = 290
};

enum svga_fifo_layout {
    SVGA_FIFO_RING_START = 8192,                 /* every register that may be read by number lies below */
    SVGA_FIFO_RING_BYTES = 16 << 20,
    SVGA_FIFO_RESERVATION_MAX = 8 << 20          /* bytes; a definition of the largest region fits */
};

enum svga_fifo_capability {
    SVGA_FIFO_CAP_FENCE = 0x1,
    SVGA_FIFO_CAP_ACCELFRONT = 0x2,
    SVGA_FIFO_CAP_PITCHLOCK = 0x4,
    SVGA_FIFO_CAP_CURSOR_BYPASS_3 = 0x20,
    SVGA_FIFO_CAP_RESERVE = 0x40,
    SVGA_FIFO_CAP_GMR2 = 0x100,
    SVGA_FIFO_CAP_SCREEN_OBJECT = 0x400
};

/* Major number in the high half, minor in the low one. */
enum svga_3d_version { SVGA3D_HWVERSION_2_1 = 0x00020001 };

/* Capability records in the 3D_CAPS area: {length in words, type}, then pairs of index and value. */
enum { SVGA3DCAPS_RECORD_DEVCAPS_MIN = 0x100, SVGA3DCAPS_RECORD_DEVCAPS_MAX = 0x1FF };

/* 2D commands begin with their number and carry no size: each is as long as its fields say. */
enum svga_2d_command {
    SVGA_CMD_UPDATE = 1,
    SVGA_CMD_DEFINE_ALPHA_CURSOR = 22,
    SVGA_CMD_FENCE = 30,
    SVGA_CMD_DEFINE_GMR2 = 41,
    SVGA_CMD_REMAP_GMR2 = 42
};
enum { SVGA_REMAP_GMR2_PPN64 = 2 };              /* page numbers of 64 bits; no other form is taken */
enum { SVGA_PAGE_BYTES = 4096 };
enum { SVGA_GMR_IDS = 4097 };                    /* every DMA handle and the driver's own region find one */
enum { SVGA_CURSOR_EXTENT_MAX = 256 };           /* pixels a side */

struct svga_cmd_update { uint32_t id, x, y, width, height; };
struct svga_cmd_fence { uint32_t id, seqno; };
struct svga_cmd_define_gmr2 { uint32_t id, gmr_id, pages; };
struct svga_cmd_remap_gmr2 {                     /* then pages x u64 page numbers */
    uint32_t id, gmr_id, flags, first_page, pages;
};
struct svga_alpha_cursor {                       /* then width x height premultiplied pixels */
    uint32_t id, hotspot_x, hotspot_y, width, height;
};
static_assert(sizeof(struct svga_cmd_update) == 20 && sizeof(struct svga_cmd_define_gmr2) == 12, "device record");
static_assert(sizeof(struct svga_cmd_remap_gmr2) == 20 && sizeof(struct svga_alpha_cursor) == 20, "device record");

#ifdef __cplusplus
}
#endif
