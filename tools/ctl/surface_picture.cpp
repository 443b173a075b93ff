// One table says where each format keeps its channels, and one loop reads by it: a dump is not fast, but every row of
// the table can be checked against the format's definition by eye.

#include "tools/ctl/surface_picture.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <kalix/svga3d_formats.h>

namespace kalix::ctl {
namespace {

struct channel {
    uint32_t shift, bits; // no bits: all ones
};

struct layout {
    uint32_t format;
    channel red, green, blue, alpha;
};
constexpr channel none{0, 0};
constexpr layout layouts[] = {
    {SVGA3D_X8R8G8B8, {16, 8}, {8, 8}, {0, 8}, none},
    {SVGA3D_A8R8G8B8, {16, 8}, {8, 8}, {0, 8}, {24, 8}},
    {SVGA3D_R5G6B5, {11, 5}, {5, 6}, {0, 5}, none},
    {SVGA3D_X1R5G5B5, {10, 5}, {5, 5}, {0, 5}, none},
    {SVGA3D_A1R5G5B5, {10, 5}, {5, 5}, {0, 5}, {15, 1}},
    {SVGA3D_A4R4G4B4, {8, 4}, {4, 4}, {0, 4}, {12, 4}},
    {SVGA3D_A2R10G10B10, {20, 10}, {10, 10}, {0, 10}, {30, 2}},
    {SVGA3D_LUMINANCE8, {0, 8}, {0, 8}, {0, 8}, none},
    {SVGA3D_LUMINANCE16, {0, 16}, {0, 16}, {0, 16}, none},
    {SVGA3D_LUMINANCE8_ALPHA8, {0, 8}, {0, 8}, {0, 8}, {8, 8}},
    {SVGA3D_ALPHA8, {0, 8}, {0, 8}, {0, 8}, none}, // a picture of its one channel
    {SVGA3D_Z_D16, {0, 16}, {0, 16}, {0, 16}, none},
};

const layout* layout_of(uint32_t format)
{
    const auto* const found = std::ranges::find(layouts, format, &layout::format);
    return found == std::end(layouts) ? nullptr : found;
}

std::byte extract(uint32_t pixel, channel from)
{
    if (from.bits == 0)
        return std::byte{255};
    // The brightest of few bits is the brightest of eight, and what lies between is rounded.
    const uint32_t most = (1u << from.bits) - 1;
    const uint32_t value = pixel >> from.shift & most;
    return static_cast<std::byte>((value * 255 + most / 2) / most);
}

} // namespace

bool has_picture(uint32_t format)
{
    return layout_of(format) != nullptr;
}

tools::picture picture_of(uint32_t format, uint32_t width, uint32_t height, std::span<const std::byte> rows)
{
    const layout& from = *layout_of(format);
    const uint32_t bytes = svga3d_block_of(format).bytes;
    tools::picture out{width, height, {}};
    out.pixels.reserve(size_t{width} * height * 4);
    for (size_t at = 0; at + bytes <= rows.size(); at += bytes) {
        uint32_t pixel = 0;
        std::memcpy(&pixel, &rows[at], bytes);
        for (const channel each : {from.blue, from.green, from.red, from.alpha})
            out.pixels.push_back(extract(pixel, each));
    }
    return out;
}

} // namespace kalix::ctl
