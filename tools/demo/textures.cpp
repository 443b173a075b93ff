#include "tools/demo/textures.h"

#include <algorithm>

namespace kalix::demo {

namespace {

constexpr uint32_t tile_extent = tiles_extent / 2;
constexpr uint32_t joint_texels = 2;

// A scatter of 0 to 15 that looks like grain and is the same everywhere.
uint32_t grain(uint32_t x, uint32_t y)
{
    uint32_t hash = x * 0x9E3779B1u ^ y * 0x85EBCA77u;
    hash = (hash ^ (hash >> 15)) * 0x2C1B3C6Du;
    return (hash >> 28) & 15;
}

uint32_t grey(uint32_t red, uint32_t green, uint32_t blue, uint32_t add)
{
    const auto channel = [add](uint32_t value) { return std::min<uint32_t>(value + add, 255); };
    return 0xFF000000u | channel(red) << 16 | channel(green) << 8 | channel(blue);
}

uint32_t texel(uint32_t x, uint32_t y)
{
    if (x % tile_extent < joint_texels || y % tile_extent < joint_texels)
        return grey(40, 44, 56, 0);
    const bool light = (x / tile_extent + y / tile_extent) % 2 == 0;
    return light ? grey(212, 214, 222, grain(x, y)) : grey(88, 98, 126, grain(x, y));
}

} // namespace

std::vector<uint32_t> tiles_texture()
{
    std::vector<uint32_t> texels;
    texels.reserve(size_t{tiles_extent} * tiles_extent);
    for (uint32_t y = 0; y < tiles_extent; ++y)
        for (uint32_t x = 0; x < tiles_extent; ++x)
            texels.push_back(texel(x, y));
    return texels;
}

} // namespace kalix::demo
