// Procedural textures, words of 0xAARRGGBB from the top row on.
#pragma once

#include <cstdint>
#include <vector>

namespace kalix::demo {

inline constexpr uint32_t tiles_extent = 128; // texels a side

// Two by two floor tiles with joints and a grain; it repeats without a seam.
std::vector<uint32_t> tiles_texture();

} // namespace kalix::demo
