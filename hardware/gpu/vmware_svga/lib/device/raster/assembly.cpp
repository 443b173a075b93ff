#include "hardware/gpu/vmware_svga/lib/device/raster/assembly.h"

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

assembled assemble(uint32_t type, uint64_t i)
{
    switch (type) {
    case SVGA3D_PRIMITIVE_TRIANGLELIST:
        return {{3 * i, 3 * i + 1, 3 * i + 2}, 3, 0};
    case SVGA3D_PRIMITIVE_POINTLIST:
        return {{i, 0, 0}, 1, 0};
    case SVGA3D_PRIMITIVE_LINELIST:
        return {{2 * i, 2 * i + 1, 0}, 2, 0};
    case SVGA3D_PRIMITIVE_LINESTRIP:
        return {{i, i + 1, 0}, 2, 0};
    case SVGA3D_PRIMITIVE_TRIANGLESTRIP:
        // Every other triangle is turned round, so that all have the winding of the first.
        return i % 2 == 0 ? assembled{{i, i + 1, i + 2}, 3, 0} : assembled{{i, i + 2, i + 1}, 3, 0};
    default:
        return {{0, i + 1, i + 2}, 3, 1};
    }
}

} // namespace kalix::device::raster
