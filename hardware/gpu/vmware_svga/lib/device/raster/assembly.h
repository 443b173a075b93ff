// Assembly: which vertices make a primitive, for every primitive type.
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
assembled assemble(uint32_t type, uint64_t i);

} // namespace kalix::device::raster
