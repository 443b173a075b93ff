// Vertex fetch: from the bytes of vertex and index arrays to numbers.
//
// A fetch is made once for a draw and knows where each attribute lies; every access has been found to lie
// inside its array's surface before the first vertex is read.
#pragma once

#include "hardware/gpu/vmware_svga/lib/device/raster/raster.h"

#include <array>
#include <optional>
#include <vector>

namespace kalix::device::raster {

using attribute_value = std::array<double, 4>; // missing components 0, 0, 0, 1

// One attribute of the draw's vertices.
struct attribute {
    const std::byte* start = nullptr; // null: not declared
    uint64_t room = 0;                // bytes from start to the end of its surface
    uint32_t stride = 0;
    uint32_t bytes = 0; // of one element
    attribute_value (*read)(const std::byte* from) = nullptr;
    attribute_value otherwise{}; // when it is not declared
};

struct vertex_fetch {
    attribute position, normal, diffuse, specular, fog, point_size;
    std::array<attribute, SVGA3D_TEXTURE_STAGES> coordinates; // by usage index
    bool transformed = false;                                 // positions are target pixels already

    // Whether the vertices up to this one lie inside every array.
    bool holds(uint64_t last) const;
};

attribute_value read_attribute(const attribute& from, uint64_t index);

// Finds the arrays that declarations name; the result that refuses the draw instead when one is wrong.
draw_result make_fetch(surface_store& surfaces, std::span<const svga3d_vertex_declaration> declarations,
                       vertex_fetch& out);

// The vertex numbers of one range, with the bias added, in order. None when one would be read outside the
// index array or lies outside 32 bits.
std::optional<std::vector<uint32_t>> read_indices(surface_store& surfaces, const svga3d_primitive_range& range,
                                                  uint64_t count);

} // namespace kalix::device::raster
