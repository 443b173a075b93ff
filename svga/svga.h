/* The SVGA device library: registers, mode, FIFO, fences and cursor.
 *
 * The library owns the one device record, which SVGA_Init fills and returns; it stays valid until
 * SVGA_Disable. The FIFO is written by one thread at a time: the caller serialises everything here
 * but SVGA_ReadReg and SVGA_SyncToFence. 3D commands: svga3d.h. */
#pragma once

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "svga/svga_regs.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

struct svga_device {
    uint32_t fb_physical;   /* 0x00 guest physical address of the framebuffer */
    uint32_t fifo_physical; /* 0x04 the same of FIFO memory */
    uint32_t fifo_bytes;    /* 0x08 its registers and the ring */
    uint32_t reserved0c;
    uint32_t* fifo;       /* 0x10 FIFO memory: registers by word, then the ring */
    uint8_t* framebuffer; /* 0x18 */
    uint32_t reserved20;
    uint32_t fb_bytes;       /* 0x24 all of the framebuffer */
    uint32_t visible_bytes;  /* 0x28 bytes of the visible mode */
    uint32_t version;        /* 0x2c */
    uint32_t capabilities;   /* 0x30 enum svga_capability */
    uint32_t width;          /* 0x34 screen, pixels: the mode times the zoom */
    uint32_t height;         /* 0x38 */
    uint32_t bits_per_pixel; /* 0x3c of the mode */
    uint32_t pitch;          /* 0x40 screen, bytes */
    uint32_t reserved44[5];
    uint32_t mode_width;  /* 0x58 of the last mode set */
    uint32_t mode_height; /* 0x5c */
    float zoom;           /* 0x60 0.1 to 1.0, written by the driver */
    uint32_t cursor;      /* 0x64 written 0 after every cursor definition */
};
static_assert(offsetof(struct svga_device, fb_physical) == 0x00, "device record");
static_assert(offsetof(struct svga_device, fifo) == 0x10, "device record");
static_assert(offsetof(struct svga_device, framebuffer) == 0x18, "device record");
static_assert(offsetof(struct svga_device, fb_bytes) == 0x24, "device record");
static_assert(offsetof(struct svga_device, version) == 0x2c, "device record");
static_assert(offsetof(struct svga_device, capabilities) == 0x30, "device record");
static_assert(offsetof(struct svga_device, width) == 0x34, "device record");
static_assert(offsetof(struct svga_device, height) == 0x38, "device record");
static_assert(offsetof(struct svga_device, bits_per_pixel) == 0x3c, "device record");
static_assert(offsetof(struct svga_device, pitch) == 0x40, "device record");
static_assert(offsetof(struct svga_device, mode_width) == 0x58, "device record");
static_assert(offsetof(struct svga_device, mode_height) == 0x5c, "device record");
static_assert(offsetof(struct svga_device, zoom) == 0x60, "device record");
static_assert(offsetof(struct svga_device, cursor) == 0x64, "device record");

/* Where the library's own lines go (severity 2 error, 3 warning, 5 information; text without newline,
 * called from any thread). None by default; set before SVGA_Init. */
typedef void (*svga_log_function)(int severity, const char* text);
void SVGA_SetLogFunction(svga_log_function log);

/* Starts the device and returns its record, or NULL (a line says why). */
struct svga_device* SVGA_Init(void);
/* Stops the device; the record is gone. Without a device nothing happens. */
void SVGA_Disable(void);

/* Registers by number (enum svga_register). One that does not exist reads 0 and ignores writes. Reading never waits for
 * a command; writing SYNC waits for all of them, and writing ENABLE or GMR_DESCRIPTOR for the one that is at work. */
uint32_t SVGA_ReadReg(uint32_t index);
void SVGA_WriteReg(uint32_t index, uint32_t value);

/* Sets the mode (pixels, bits per pixel 16 or 32, display on or off) after the FIFO has run empty, and
 * clears the visible picture. A mode that does not fit leaves everything as it was and is counted. */
void SVGA_SetMode(uint32_t width, uint32_t height, uint32_t bits_per_pixel, uint32_t enable);
/* Announces that a rectangle of the visible picture changed, in screen pixels: a command like others, in the FIFO. */
void SVGA_Update(uint32_t x, uint32_t y, uint32_t width, uint32_t height);

/* Space for bytes in the FIFO, waiting until there is some; NULL only above SVGA_FIFO_RESERVATION_MAX.
 * A reservation of 0 bytes gives a pointer and opens nothing. */
void* SVGA_FIFOReserve(uint32_t bytes);
/* Hands the first bytes of the reservation to the device; 0 abandons it. */
void SVGA_FIFOCommit(uint32_t bytes);
void SVGA_FIFOCommitAll(void);

/* Puts a fence behind everything committed and returns its number, never 0. */
uint32_t SVGA_InsertFence(void);
/* Returns once the fence has passed; at once for 0 and for a number never handed out. */
void SVGA_SyncToFence(uint32_t seqno);

/* Reserves an alpha-cursor definition; *image receives where width x height x 4 bytes go. Commit with
 * SVGA_FIFOCommitAll. Returns 0, or -1 with *image NULL above 256 x 256, which is counted as refused. */
int SVGA_BeginDefineAlphaCursor(const struct svga_alpha_cursor* header, void** image);
/* Position in screen pixels. */
void SVGA_MoveCursor(uint32_t visible, uint32_t x, uint32_t y, uint32_t screen_id);
/* Keeps a copy of a cursor, and defines the kept one again (nothing without one). */
void NEBO_SVGA_PreserveCursor(const void* image, const struct svga_alpha_cursor* header);
void NEBO_SVGA_RestoreCursor(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
