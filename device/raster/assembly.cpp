// How many vertices primitives take. Strips and fans share theirs, so their first primitive takes more than the others;
// no primitives take none.

#include "device/raster/assembly.h"

namespace kalix::device::raster {

uint64_t vertices_of(uint32_t type, uint64_t count)
{
    if (count == 0)
        return 0;
    switch (type) {
    case SVGA3D_PRIMITIVE_TRIANGLELIST:
        return 3 * count;
    case SVGA3D_PRIMITIVE_POINTLIST:
        return count;
    case SVGA3D_PRIMITIVE_LINELIST:
        return 2 * count;
    case SVGA3D_PRIMITIVE_LINESTRIP:
        return count + 1;
    case SVGA3D_PRIMITIVE_TRIANGLESTRIP:
    case SVGA3D_PRIMITIVE_TRIANGLEFAN:
        return count + 2;
    default:
        return 0;
    }
}

} // namespace kalix::device::raster
