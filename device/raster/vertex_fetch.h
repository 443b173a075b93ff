// Vertex fetch: from the bytes of vertex and index arrays to numbers.
//
// A fetch is made once for a draw and knows where each attribute lies; every access has been found to lie inside its
// array's surface before the first vertex is read.
//
// The largest vertex number of a range bounds all of them, so one comparison an attribute is enough. Elements have any
// alignment and may overlap; a stride of 0 gives all vertices the same. Little-endian, as all words of the interface.
#pragma once

#include "device/raster/float4.h"
#include "device/raster/raster.h"

#include <array>
#include <cstring>
#include <optional>
#include <vector>

namespace kalix::device::raster {

using attribute_value = four; // missing components 0, 0, 0, 1

// How an attribute is read: the common types in place, the others by their function.
enum class reading : uint8_t { none, float2, float3, float4, d3dcolor, by_function };

// One attribute of the draw's vertices.
struct attribute {
    const std::byte* start = nullptr; // null: not declared
    uint64_t room = 0;                // bytes from start to the end of its surface
    uint32_t stride = 0;              // bytes from one vertex to the next
    uint32_t bytes = 0;               // of one element
    reading how = reading::none;
    attribute_value (*read)(const std::byte* from) = nullptr;
    attribute_value otherwise = four_of(0, 0, 0, 0); // when it is not declared
};

struct vertex_fetch {
    attribute position, normal, diffuse, specular, fog, point_size;
    std::array<attribute, SVGA3D_TEXTURE_STAGES> coordinates; // by usage index
    bool transformed = false;                                 // positions are target pixels already

    // Whether the vertices up to this one lie inside every array.
    bool holds(uint64_t last) const;
};

// The quotients by 255 of all bytes.
inline constexpr auto byte_fractions = [] {
    std::array<double, 256> out{};
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<double>(i) / 255.0;
    return out;
}();

template <size_t count>
attribute_value read_floats(const std::byte* from)
{
    std::array<float, count> n;
    std::memcpy(&n, from, sizeof n);
    const auto part = [&n](size_t i) { return i < count ? static_cast<double>(n[i]) : i == 3 ? 1.0 : 0.0; };
    return four_of(part(0), part(1), part(2), part(3));
}

inline attribute_value read_d3dcolor(const std::byte* from)
{
    uint32_t argb = 0; // read as a whole: one load for four
    std::memcpy(&argb, from, sizeof argb);
    const auto part = [argb](uint32_t shift) { return byte_fractions[argb >> shift & 255]; };
    return four_of(part(16), part(8), part(0), part(24));
}

inline attribute_value read_attribute(const attribute& from, uint64_t index)
{
    const uint64_t offset = index * from.stride;
    switch (from.how) {
    case reading::none:
        return from.otherwise;
    case reading::float2:
        return read_floats<2>(from.start + offset);
    case reading::float3:
        return read_floats<3>(from.start + offset);
    case reading::float4:
        return read_floats<4>(from.start + offset);
    case reading::d3dcolor:
        return read_d3dcolor(from.start + offset);
    default:
        return from.read(from.start + offset);
    }
}

// Whether the declared positions are target pixels already.
bool are_transformed(std::span<const svga3d_vertex_declaration> declarations);

// Finds the arrays that declarations name; the result that refuses the draw instead when one is wrong.
draw_result make_fetch(surface_store& surfaces, std::span<const svga3d_vertex_declaration> declarations,
                       vertex_fetch& out);

// The vertex numbers of one range, in the order in which its primitives take them.
struct vertex_numbers {
    bool indexed = false;
    uint32_t first = 0;   // not indexed: the number of the first vertex, and the others follow it
    size_t at = 0;        // indexed: where they stand among the draw's numbers
    uint32_t largest = 0; // of all
};

// Reads the numbers of a range of count vertices and adds the bias; those of indices go to the end of the
// draw's. None when one would be read outside the index array or lies outside 32 bits.
std::optional<vertex_numbers> read_indices(surface_store& surfaces, const svga3d_primitive_range& range, uint64_t count,
                                           std::vector<uint32_t>& numbers);

} // namespace kalix::device::raster
