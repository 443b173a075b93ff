// Boxes of texels: whether they lie in an image, and where they lie in its memory.
//
// Boxes are in texels; a format of blocks takes boxes of whole blocks, or ones that reach the image's edge. They come
// from clients, so everything here holds for any numbers; what takes addresses wants a box that box_fits() has passed.
#pragma once

#include "device/state/surface.h"

#include <cstddef>
#include <cstdint>
#include <kalix/svga3d_types.h>

namespace kalix::device {

constexpr bool is_empty(const svga3d_box& box)
{
    return box.w == 0 || box.h == 0 || box.d == 0;
}

// Whether count from first on lie in size, without a sum of numbers that are not one's own.
constexpr bool lies_in(uint32_t first, uint32_t count, uint32_t size)
{
    return first <= size && count <= size - first;
}
static_assert(lies_in(3, 0, 3) && lies_in(0, 4, 4) && !lies_in(1, 4, 4) && !lies_in(1, 0xFFFFFFFF, 4));

constexpr bool is_whole(uint32_t first, uint32_t count, uint32_t size, uint32_t block)
{
    return first % block == 0 && (count % block == 0 || count == size - first);
}

// Whether a box lies in an image and is one of whole blocks.
inline bool box_fits(const image_view& in, const svga3d_box& box)
{
    return lies_in(box.x, box.w, in.width) && lies_in(box.y, box.h, in.height) && lies_in(box.z, box.d, in.depth) &&
           is_whole(box.x, box.w, in.width, in.format->block_width) &&
           is_whole(box.y, box.h, in.height, in.format->block_height);
}

// A box as rows of blocks.
// Its rows lie as far apart as the image's or the guest's do, which is not said here.
struct block_rows {
    uint64_t row_bytes = 0;
    uint32_t rows = 0, slices = 0;
};

// count / block, rounded up; the sum that one would write could pass 32 bits.
constexpr uint32_t blocks_in(uint32_t count, uint32_t block)
{
    return count / block + (count % block != 0);
}

inline block_rows rows_of(const image_view& in, const svga3d_box& box)
{
    return {uint64_t{blocks_in(box.w, in.format->block_width)} * in.format->block_bytes,
            blocks_in(box.h, in.format->block_height), box.d};
}

// Address of the block that holds a texel inside the image.
inline std::byte* block_at(const image_view& in, uint32_t x, uint32_t y, uint32_t z)
{
    return in.bytes + z * in.slice_bytes + uint64_t{y / in.format->block_height} * in.row_bytes +
           uint64_t{x / in.format->block_width} * in.format->block_bytes;
}

} // namespace kalix::device
