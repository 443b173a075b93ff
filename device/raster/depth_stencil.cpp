// The layouts of the five formats, and what stencil operations do. What an operation gives is cut to the stencil's
// bits; which of these are written is for the caller's mask to say.

#include "device/raster/depth_stencil.h"

namespace kalix::device::raster {
// Bytes of a texel, where its depth begins, bits of depth, bits of stencil.
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

uint32_t stencil_result(uint32_t operation, uint32_t value, uint32_t reference, uint32_t bits)
{
    const uint32_t largest = bit_mask(bits);
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
