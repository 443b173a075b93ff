/* How surface formats lie in memory: blocks of pixels, row after row. Wants C11 or C++20. */
#pragma once

#include <kalix/svga3d_types.h>

#ifdef __cplusplus
extern "C" {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast" /* this header is C */
#endif

struct svga3d_block {            /* the smallest unit of a format */
    uint32_t width, height;      /* pixels; more than 1 for compressed and paired formats */
    uint32_t bytes;              /* 0 for a format that does not exist */
};

/* Bytes of a block of each format. The one table of them: the device's formats are sized by it. */
#ifdef __cplusplus
constexpr
#else
static const
#endif
uint8_t svga3d_block_bytes[SVGA3D_FORMAT_MAX] = {
    0, 4, 4, 2, 2, 2, 2, 4, 2, 4, 2, 1, 1, 2, 2, 8, 16, 16, 16, 16, 2, 2,
    4, 3, 8, 16, 4, 2, 4, 2, 4, 4, 1, 2, 4, 4, 8, 1, 4, 4, 4, 8, 4, 4,
};

/* The smallest unit of a format (enum svga3d_surface_format, or anything). */
#ifdef __cplusplus
constexpr inline
#else
static inline
#endif
struct svga3d_block svga3d_block_of(uint32_t format)
{
    struct svga3d_block block = {1, 1, 0};
    if (format < SVGA3D_FORMAT_MAX)
        block.bytes = svga3d_block_bytes[format];
    if (format >= SVGA3D_DXT1 && format <= SVGA3D_DXT5)
        block.width = block.height = 4;
    else if (format == SVGA3D_UYVY || format == SVGA3D_YUY2)
        block.width = 2;
    return block;
}

/* Bytes of a row of that many pixels; partial blocks count whole, here and below. */
static inline uint64_t svga3d_row_bytes(struct svga3d_block block, uint32_t pixels)
{
    return ((uint64_t)pixels + block.width - 1) / block.width * block.bytes;
}
/* Rows of blocks for that many rows of pixels. */
static inline uint32_t svga3d_block_rows(struct svga3d_block block, uint32_t pixels)
{
    return (uint32_t)(((uint64_t)pixels + block.height - 1) / block.height);
}

#ifdef __cplusplus
#pragma GCC diagnostic pop
}
#endif
