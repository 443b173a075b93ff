// Assembly: which vertices make a primitive, for every primitive type.
//
// Places are counted in the range's own list of vertex numbers (vertex_fetch.h), not in the vertex array, in 64 bits:
// three times a count of 32 bits does not fit fewer.
#pragma once

#include <array>
#include <cstdint>
#include <kalix/svga3d_types.h>

namespace kalix::device::raster {

struct assembled {
    std::array<uint64_t, 3> at{}; // places in the range's list of vertex numbers
    uint32_t corners = 0;         // 1 point, 2 line, 3 triangle
    uint32_t flat = 0;            // the corner whose colours a flat primitive takes
};

// Vertices that count primitives of a type take; 0 for a type that the interface does not have.
uint64_t vertices_of(uint32_t type, uint64_t count);

// Primitive i of a range of a type that the interface has.
inline assembled assemble(uint32_t type, uint64_t i)
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
        // A fan, whose vertex 0 is part of every triangle, takes flat colours from vertex i + 1.
        return {{0, i + 1, i + 2}, 3, 1};
    }
}

} // namespace kalix::device::raster
