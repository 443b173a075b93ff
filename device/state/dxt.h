// Texels of block-compressed formats: 4 x 4 texels in 8 bytes (DXT1) or 16 (the others, whose alpha comes first).
//
// Codes follow each other row by row from a word's lowest bits on. Any bytes are a block: no code can lead outside.
#pragma once

#include "device/state/format.h"

namespace kalix::device {

// The texel at (x, y), each 0 to 3, of a block. What a format holds multiplied by alpha is not divided again.
color dxt1_texel(const std::byte* block, uint32_t x, uint32_t y);
color dxt3_texel(const std::byte* block, uint32_t x, uint32_t y); // and DXT2: four bits of alpha a texel
color dxt5_texel(const std::byte* block, uint32_t x, uint32_t y); // and DXT4: interpolated alpha

} // namespace kalix::device
