// How the device lays a surface's format out in memory, for the bounds of transfers that it makes.
//
// format_to_bpp (surface.h) is another table: what readback counts, 0 where it does not work.
#pragma once

#include <cstdint>

namespace kalix {

struct storage_block {      // the smallest unit of a format
    uint32_t width, height; // pixels; more than 1 for compressed and paired formats
    uint32_t bytes;         // 0 for a format that does not exist

    // Bytes of a row of blocks, and how many such rows there are, partial blocks counted whole.
    uint64_t row_bytes(uint32_t pixels) const { return (uint64_t{pixels} + width - 1) / width * bytes; }
    uint32_t rows(uint32_t pixels) const { return static_cast<uint32_t>((uint64_t{pixels} + height - 1) / height); }
};

storage_block storage_of(uint32_t format);

} // namespace kalix
