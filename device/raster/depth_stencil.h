// Depth and stencil values: how each format stores them, and the tests.
//
// Depth lies in the high bits of a word, stencil in the low ones. Depths are compared as the integers that the format
// stores, so that what was drawn once is equal to itself when it is drawn again. Words are little-endian, of two bytes
// or four.
#pragma once

#include "device/raster/numeric.h"
#include "device/state/surface.h"

#include <cstdint>
#include <cstring>

namespace kalix::device::raster {

struct depth_layout {
    uint32_t bytes = 0; // of a texel; 0: no depth format
    uint32_t depth_shift = 0, depth_bits = 0;
    uint32_t stencil_bits = 0;
};

// Of a format that is no depth format, one of 0 bytes.
depth_layout depth_layout_of(uint32_t format);

constexpr uint32_t bit_mask(uint32_t bits)
{
    return bits >= 32 ? ~0u : (1u << bits) - 1;
}

// The word of a texel.
inline uint32_t load_word(const depth_layout& layout, const std::byte* texel)
{
    uint32_t word = 0;
    if (layout.bytes == 4)
        std::memcpy(&word, texel, 4);
    else
        std::memcpy(&word, texel, 2);
    return word;
}
inline void store_word(const depth_layout& layout, uint32_t word, std::byte* texel)
{
    if (layout.bytes == 4)
        std::memcpy(texel, &word, 4);
    else
        std::memcpy(texel, &word, 2);
}

// A depth of 0..1 as the nearest integer of the format, and the parts of a word. In double precision: 32 bits of depth
// fit its 53, and not a float's 24.
inline double depth_scale(const depth_layout& layout)
{
    return bit_mask(layout.depth_bits);
}
inline uint32_t quantized_depth(const depth_layout& layout, double depth)
{
    return nearest_word(clamp01(depth) * depth_scale(layout));
}
inline uint32_t depth_of(const depth_layout& layout, uint32_t word)
{
    return word >> layout.depth_shift & bit_mask(layout.depth_bits);
}
inline uint32_t stencil_of(const depth_layout& layout, uint32_t word)
{
    return word & bit_mask(layout.stencil_bits);
}
inline uint32_t with_depth(const depth_layout& layout, uint32_t word, uint32_t depth)
{
    return (word & bit_mask(layout.depth_shift)) | depth << layout.depth_shift;
}
inline uint32_t with_stencil(const depth_layout& layout, uint32_t word, uint32_t stencil)
{
    const uint32_t mask = bit_mask(layout.stencil_bits);
    return (word & ~mask) | (stencil & mask);
}

// Whether left passes against right under an svga3d_compare; one that the interface does not have passes.
template <typename value>
bool passes(uint32_t compare, value left, value right)
{
    switch (compare) {
    case SVGA3D_CMP_NEVER:
        return false;
    case SVGA3D_CMP_LESS:
        return left < right;
    case SVGA3D_CMP_EQUAL:
        return left == right;
    case SVGA3D_CMP_LESSEQUAL:
        return left <= right;
    case SVGA3D_CMP_GREATER:
        return left > right;
    case SVGA3D_CMP_NOTEQUAL:
        return left != right;
    case SVGA3D_CMP_GREATEREQUAL:
        return left >= right;
    default:
        return true;
    }
}

// What a stencil operation makes of a value of so many bits; an unknown one keeps it.
uint32_t stencil_result(uint32_t operation, uint32_t value, uint32_t reference, uint32_t bits);

} // namespace kalix::device::raster
