// The types of elements, the usages that fixed-function drawing reads, and indices.

#include "device/raster/vertex_fetch.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace kalix::device::raster {
namespace {

template <typename word>
word load(const std::byte* from)
{
    word value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <typename number, int count>
attribute_value read_numbers(const std::byte* from)
{
    std::array<double, 4> value{0, 0, 0, 1};
    for (size_t i = 0; i < count; ++i)
        value[i] = static_cast<double>(load<number>(from + i * sizeof(number)));
    return load_four(value.data());
}

// Integers taken as fractions of their largest value; the lowest signed one counts as -1.
template <typename number, int count>
attribute_value read_normalized(const std::byte* from)
{
    constexpr auto largest = static_cast<double>(std::numeric_limits<number>::max());
    std::array<double, 4> value{0, 0, 0, 1};
    for (size_t i = 0; i < count; ++i)
        value[i] = std::max(static_cast<double>(load<number>(from + i * sizeof(number))) / largest, -1.0);
    return load_four(value.data());
}

// Three numbers of ten bits, x in the lowest; they are not fractions.
attribute_value read_udec3(const std::byte* from)
{
    const auto word = load<uint32_t>(from);
    return four_of(word & 1023, word >> 10 & 1023, word >> 20 & 1023, 1);
}

// A fraction of 511, in two's complement; -512 counts as -1.
double signed_ten_bits(uint32_t word, int shift)
{
    const auto field = static_cast<int32_t>(word >> shift & 1023);
    return std::max((field >= 512 ? field - 1024 : field) / 511.0, -1.0);
}

attribute_value read_dec3n(const std::byte* from)
{
    const auto word = load<uint32_t>(from);
    return four_of(signed_ten_bits(word, 0), signed_ten_bits(word, 10), signed_ten_bits(word, 20), 1);
}

// Halves are read as the surface formats of one and two of them are.
template <uint32_t pairs>
attribute_value read_halves(const std::byte* from)
{
    std::array<double, 4> value{0, 0, 0, 1};
    for (size_t i = 0; i < pairs; ++i) {
        const color pair = format_of(SVGA3D_RG_S10E5).decode(from + i * 4);
        value[2 * i] = static_cast<double>(pair.r);
        value[2 * i + 1] = static_cast<double>(pair.g);
    }
    return load_four(value.data());
}

struct declaration_type {
    attribute_value (*read)(const std::byte* from);
    uint32_t bytes;
    reading how = reading::by_function;
};

constexpr declaration_type declaration_types[SVGA3D_DECLTYPE_MAX] = {
    // By number, from 0 on: floats, a colour, bytes and shorts as they are, the same as fractions, ten bits, halves.
    {read_floats<1>, 4},
    {read_floats<2>, 8, reading::float2},
    {read_floats<3>, 12, reading::float3},
    {read_floats<4>, 16, reading::float4},
    {read_d3dcolor, 4, reading::d3dcolor},
    {read_numbers<uint8_t, 4>, 4},
    {read_numbers<int16_t, 2>, 4},
    {read_numbers<int16_t, 4>, 8},
    {read_normalized<uint8_t, 4>, 4},
    {read_normalized<int16_t, 2>, 4},
    {read_normalized<int16_t, 4>, 8},
    {read_normalized<uint16_t, 2>, 4},
    {read_normalized<uint16_t, 4>, 8},
    {read_udec3, 4},
    {read_dec3n, 4},
    {read_halves<1>, 4},
    {read_halves<2>, 8},
};

// Which attribute a declaration is; null for one that fixed-function drawing does not read.
attribute* attribute_of(vertex_fetch& fetch, const svga3d_vertex_declaration& declaration)
{
    const uint32_t index = declaration.usage_index;
    switch (declaration.usage) {
    case SVGA3D_DECLUSAGE_POSITION:
    case SVGA3D_DECLUSAGE_POSITIONT:
        return index == 0 ? &fetch.position : nullptr;
    case SVGA3D_DECLUSAGE_NORMAL:
        return index == 0 ? &fetch.normal : nullptr;
    case SVGA3D_DECLUSAGE_COLOR:
        return index == 0 ? &fetch.diffuse : index == 1 ? &fetch.specular : nullptr;
    case SVGA3D_DECLUSAGE_TEXCOORD:
        return index < fetch.coordinates.size() ? &fetch.coordinates[index] : nullptr;
    case SVGA3D_DECLUSAGE_FOG:
        return &fetch.fog;
    case SVGA3D_DECLUSAGE_PSIZE:
        return &fetch.point_size;
    default:
        return nullptr;
    }
}

bool attribute_holds(const attribute& a, uint64_t last)
{
    // Two factors of 32 bits: the product fits.
    return !a.start || (a.bytes <= a.room && last * a.stride <= a.room - a.bytes);
}

// Where indices lie, all of them inside their array.
struct index_array {
    const std::byte* start;
    uint64_t stride, count;
};

// Widens indices of one width, and tells their bounds; an index's bias is added modulo 2^32.
template <typename word>
std::pair<word, word> widen(const index_array& from, uint32_t bias, uint32_t* out)
{
    word low = std::numeric_limits<word>::max();
    word high = 0;
    for (uint64_t i = 0; i < from.count; ++i) {
        const auto index = load<word>(from.start + i * from.stride);
        low = std::min(low, index);
        high = std::max(high, index);
        out[i] = uint32_t{index} + bias;
    }
    return {low, high};
}

std::pair<uint32_t, uint32_t> widen(const index_array& from, uint32_t width, uint32_t bias, uint32_t* out)
{
    switch (width) {
    case 1:
        return widen<uint8_t>(from, bias, out);
    case 2:
        return widen<uint16_t>(from, bias, out);
    default:
        return widen<uint32_t>(from, bias, out);
    }
}

// Whether numbers from low to high stay within 32 bits with the bias added.
bool are_numbers(uint64_t low, uint64_t high, int32_t bias)
{
    return static_cast<int64_t>(low) + bias >= 0 && static_cast<int64_t>(high) + bias <= UINT32_MAX;
}

} // namespace

bool vertex_fetch::holds(uint64_t last) const
{
    return attribute_holds(position, last) && attribute_holds(normal, last) && attribute_holds(diffuse, last) &&
           attribute_holds(specular, last) && attribute_holds(fog, last) && attribute_holds(point_size, last) &&
           std::ranges::all_of(coordinates, [last](const attribute& a) { return attribute_holds(a, last); });
}

bool are_transformed(std::span<const svga3d_vertex_declaration> declarations)
{
    return std::ranges::any_of(declarations, [](const svga3d_vertex_declaration& each) {
        return each.usage == SVGA3D_DECLUSAGE_POSITIONT && each.usage_index == 0;
    });
}

draw_result make_fetch(surface_store& surfaces, std::span<const svga3d_vertex_declaration> declarations,
                       vertex_fetch& out)
{
    out.diffuse.otherwise = four_of(1, 1, 1, 1);
    out.fog.otherwise = four_of(1, 0, 0, 0);
    for (attribute& coordinates : out.coordinates)
        coordinates.otherwise = four_of(0, 0, 0, 1);
    for (const svga3d_vertex_declaration& declaration : declarations) {
        if (declaration.type >= SVGA3D_DECLTYPE_MAX)
            return draw_result::bad_declaration;
        // A declaration that nothing reads needs no array.
        attribute* const named = attribute_of(out, declaration);
        if (!named)
            continue;
        const image_view array = surfaces.view({declaration.array.sid, 0, 0});
        if (!array || declaration.array.offset > array.byte_size())
            return draw_result::outside;
        const declaration_type& type = declaration_types[declaration.type];
        named->start = array.bytes + declaration.array.offset;
        named->room = array.byte_size() - declaration.array.offset;
        named->stride = declaration.array.stride;
        named->bytes = type.bytes;
        named->read = type.read;
        named->how = type.how;
    }
    out.transformed = are_transformed(declarations);
    return out.position.start ? draw_result::done : draw_result::bad_declaration;
}

std::optional<vertex_numbers> read_indices(surface_store& surfaces, const svga3d_primitive_range& range, uint64_t count,
                                           std::vector<uint32_t>& numbers)
{
    const int32_t bias = range.index_bias;
    if (range.index_array.sid == SVGA3D_INVALID_ID) {
        if (count == 0)
            return vertex_numbers{};
        if (!are_numbers(0, count - 1, bias))
            return std::nullopt;
        // Vertex i + bias is read; the bias is not negative here, since number 0 has passed.
        const auto first = static_cast<uint32_t>(bias);
        return vertex_numbers{false, first, 0, first + static_cast<uint32_t>(count - 1)};
    }
    const image_view array = surfaces.view({range.index_array.sid, 0, 0});
    // A stride of 0 stands for indices without gaps: all the same one would draw nothing.
    const uint64_t stride = range.index_array.stride != 0 ? range.index_array.stride : range.index_width;
    const uint64_t offset = range.index_array.offset;
    if (!array || count == 0)
        return array ? std::optional{vertex_numbers{}} : std::nullopt;
    const uint64_t end = array.byte_size();
    if (offset > end || range.index_width > end - offset || (count - 1) * stride > end - offset - range.index_width)
        return std::nullopt;
    // At most three numbers for each of the 2^20 primitives of a draw: 12 MiB.
    const size_t at = numbers.size();
    numbers.resize(at + count);
    const auto [low, high] = widen({array.bytes + offset, stride, count}, range.index_width,
                                   static_cast<uint32_t>(bias), numbers.data() + at);
    if (!are_numbers(low, high, bias))
        return std::nullopt;
    return vertex_numbers{true, 0, at, high + static_cast<uint32_t>(bias)};
}

} // namespace kalix::device::raster
