#include "hardware/gpu/vmware_svga/lib/device/raster/depth_stencil.h"

#include "hardware/gpu/vmware_svga/lib/device/raster/numeric.h"

#include <cstring>

namespace kalix::device::raster {
namespace {

constexpr uint32_t mask_of(uint32_t bits)
{
    return bits >= 32 ? ~0u : (1u << bits) - 1;
}

} // namespace

depth_layout depth_layout_of(uint32_t format)
{
    switch (format) {
    case SVGA3D_Z_D16:
        return {2, 0, 16, 0};
    case SVGA3D_Z_D15S1:
        return {2, 1, 15, 1};
    case SVGA3D_Z_D32:
        return {4, 0, 32, 0};
    case SVGA3D_Z_D24S8:
        return {4, 8, 24, 8};
    case SVGA3D_Z_D24X8:
        return {4, 8, 24, 0};
    default:
        return {};
    }
}

uint32_t load_word(const depth_layout& layout, const std::byte* texel)
{
    uint32_t word = 0;
    std::memcpy(&word, texel, layout.bytes);
    return word;
}

void store_word(const depth_layout& layout, uint32_t word, std::byte* texel)
{
    std::memcpy(texel, &word, layout.bytes);
}

uint32_t quantized_depth(const depth_layout& layout, double depth)
{
    return static_cast<uint32_t>(clamp01(depth) * mask_of(layout.depth_bits) + 0.5);
}

uint32_t depth_of(const depth_layout& layout, uint32_t word)
{
    return word >> layout.depth_shift & mask_of(layout.depth_bits);
}

uint32_t stencil_of(const depth_layout& layout, uint32_t word)
{
    return word & mask_of(layout.stencil_bits);
}

uint32_t with_depth(const depth_layout& layout, uint32_t word, uint32_t depth)
{
    return (word & mask_of(layout.depth_shift)) | depth << layout.depth_shift;
}

uint32_t with_stencil(const depth_layout& layout, uint32_t word, uint32_t stencil)
{
    const uint32_t mask = mask_of(layout.stencil_bits);
    return (word & ~mask) | (stencil & mask);
}

uint32_t stencil_result(uint32_t operation, uint32_t value, uint32_t reference, uint32_t bits)
{
    const uint32_t largest = mask_of(bits);
    switch (operation) {
    case SVGA3D_STENCILOP_ZERO:
        return 0;
    case SVGA3D_STENCILOP_REPLACE:
        return reference & largest;
    case SVGA3D_STENCILOP_INCRSAT:
        return value < largest ? value + 1 : largest;
    case SVGA3D_STENCILOP_DECRSAT:
        return value > 0 ? value - 1 : 0;
    case SVGA3D_STENCILOP_INVERT:
        return ~value & largest;
    case SVGA3D_STENCILOP_INCR:
        return (value + 1) & largest;
    case SVGA3D_STENCILOP_DECR:
        return (value - 1) & largest;
    default:
        return value;
    }
}

} // namespace kalix::device::raster
