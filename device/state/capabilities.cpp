// The capability table (capabilities.h), and its two forms: words for clients, Markdown for people.

#include "device/state/capabilities.h"

#include "device/state/format.h"
#include "device/state/limits.h"
#include "svga/svga_regs.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <kalix/svga3d_types.h>

namespace kalix::device {
namespace {

static_assert(capability_area_words == SVGA_FIFO_3D_CAPS_LAST - SVGA_FIFO_3D_CAPS + 1);

constexpr uint32_t texture_extent = 8192; // texels; larger surfaces are defined as long as they fit the memory

constexpr uint32_t volume_extent = 2048; // texels a side

struct capability {
    uint32_t index, value;
    const char* name;
};

constexpr capability capabilities[] = {
    {0, 1, "3D"},
    {1, SVGA3D_LIGHTS, "lights"},
    {2, limits::texture_stages, "texture stages"},
    {3, limits::clip_planes, "user clip planes"},
    {4, 0, "vertex shaders: version"},
    {5, 0, "vertex shaders"},
    {6, 0, "fragment shaders: version"},
    {7, 0, "fragment shaders"},
    {8, limits::render_targets, "colour targets of a draw"},
    {12, 1, "Z_D16"},
    {13, 1, "Z_D24S8"},
    {14, 1, "Z_D24X8"},
    {15, SVGA3D_QUERYTYPE_MAX, "query types"},
    {17, std::bit_cast<uint32_t>(limits::point_size), "point size, pixels (f32)"},
    {18, 0, "textures of a fragment shader"},
    {19, texture_extent, "texture width"},
    {20, texture_extent, "texture height"},
    {21, volume_extent, "volume extent"},
    {25, limits::primitives, "primitives of a draw"},
    {26, limits::vertex_index, "vertex index"},
    {31, limits::texture_operations, "combiner operations, by bit"},
};

// The formats that have a word of operations, from index 32 on.
constexpr uint32_t first_format_index = 32;
struct described_format {
    uint32_t format;
    const char* name;
};
// The order is the interface's: a format's index is its place here.
constexpr described_format described_formats[] = {
    {SVGA3D_X8R8G8B8, "X8R8G8B8"}, {SVGA3D_A8R8G8B8, "A8R8G8B8"}, {SVGA3D_A2R10G10B10, "A2R10G10B10"},
    {SVGA3D_X1R5G5B5, "X1R5G5B5"}, {SVGA3D_A1R5G5B5, "A1R5G5B5"}, {SVGA3D_A4R4G4B4, "A4R4G4B4"},
    {SVGA3D_R5G6B5, "R5G6B5"},     {SVGA3D_LUMINANCE16, "L16"},   {SVGA3D_LUMINANCE8_ALPHA8, "L8A8"},
    {SVGA3D_ALPHA8, "ALPHA8"},     {SVGA3D_LUMINANCE8, "L8"},     {SVGA3D_Z_D16, "Z_D16"},
    {SVGA3D_Z_D24S8, "Z_D24S8"},   {SVGA3D_Z_D24X8, "Z_D24X8"},   {SVGA3D_DXT1, "DXT1"},
    {SVGA3D_DXT2, "DXT2"},         {SVGA3D_DXT3, "DXT3"},         {SVGA3D_DXT4, "DXT4"},
    {SVGA3D_DXT5, "DXT5"},
};

enum format_operation : uint32_t {
    sampled = 0x1,
    color_target = 0x2,
    depth_target = 0x4,
    linear_filtering = 0x8,
    cube_maps = 0x10,
    volumes = 0x20,
    blending = 0x40
};
struct operation_name {
    format_operation operation;
    const char* name;
};
constexpr operation_name operation_names[] = {
    {sampled, "sampled"},
    {color_target, "colour target"},
    {depth_target, "depth target"},
    {linear_filtering, "filtered"},
    {cube_maps, "cube"},
    {volumes, "volume"},
    {blending, "blended"},
};

// From the format table, so that a format that learns something announces it. Whatever can be sampled is filtered, and
// can be a cube or a volume: the sampler decodes texels one by one and asks nothing else of a format.
uint32_t operations_of(const format_info& format)
{
    uint32_t operations = 0;
    if (format.can_be_sampled())
        operations |= sampled | linear_filtering | cube_maps | volumes;
    if (format.kind == format_kind::color && format.target)
        operations |= color_target | blending;
    if (format.kind == format_kind::depth)
        operations |= depth_target;
    return operations;
}

constexpr size_t record_words = 2 + 2 * (std::size(capabilities) + std::size(described_formats));
static_assert(record_words < capability_area_words); // a word of 0 ends the list

} // namespace

void write_capabilities(std::span<uint32_t, capability_area_words> area)
{
    std::ranges::fill(area, 0u);
    auto next = area.begin();
    const auto put = [&next](uint32_t first, uint32_t second) {
        *next++ = first;
        *next++ = second;
    };
    // A record's length counts these two words, too.
    put(record_words, SVGA3DCAPS_RECORD_DEVCAPS_MIN);
    for (const capability& each : capabilities)
        put(each.index, each.value);
    for (uint32_t i = 0; i < std::size(described_formats); ++i)
        put(first_format_index + i, operations_of(format_of(described_formats[i].format)));
}

std::string capability_table()
{
    std::string text = "| index | capability | value |\n|---|---|---|\n";
    const auto add = [&text](uint32_t index, const std::string& name, const std::string& value) {
        text += "| " + std::to_string(index) + " | " + name + " | " + value + " |\n";
    };
    for (const capability& each : capabilities)
        add(each.index, each.name, std::to_string(each.value));
    for (uint32_t i = 0; i < std::size(described_formats); ++i) {
        const uint32_t operations = operations_of(format_of(described_formats[i].format));
        std::string names;
        for (const operation_name& each : operation_names)
            if (operations & each.operation)
                names += (names.empty() ? "" : ", ") + std::string{each.name};
        add(first_format_index + i, described_formats[i].name, std::to_string(operations) + ": " + names);
    }
    return text;
}

} // namespace kalix::device
