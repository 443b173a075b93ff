// Every format that holds colours or depths: two texels as they are stored, and the colours that they are.
#pragma once

#include "tests/unit/device/colors.h"

#include <cstdint>
#include <kalix/svga3d_types.h>
#include <vector>

namespace kalix::test {

struct channel_bits {
    uint32_t shift = 0, bits = 0;
};
using channel_layout = std::array<channel_bits, 4>; // red, green, blue, alpha

struct format_row {
    const char* name;
    uint32_t format;
    uint32_t index; // of its word of operations; 0: it has none
    uint32_t bytes; // of a texel, or a block of 4 x 4
    uint32_t side;  // of a block
    // Words of two texels, or of blocks of one colour. The first is also what its colour is encoded as.
    std::vector<uint32_t> first, second;
    uint32_t first_color, second_color; // 0xAARRGGBB, nearest
    channel_layout written = {};        // where a draw's channels go, of the announced targets
};

constexpr channel_layout in_8888 = {{{16, 8}, {8, 8}, {0, 8}, {24, 8}}};
constexpr channel_layout in_2101010 = {{{20, 10}, {10, 10}, {0, 10}, {30, 2}}};
constexpr channel_layout in_555 = {{{10, 5}, {5, 5}, {0, 5}, {15, 0}}};
constexpr channel_layout in_1555 = {{{10, 5}, {5, 5}, {0, 5}, {15, 1}}};
constexpr channel_layout in_4444 = {{{8, 4}, {4, 4}, {0, 4}, {12, 4}}};
constexpr channel_layout in_565 = {{{11, 5}, {5, 6}, {0, 5}, {16, 0}}};

// clang-format off
inline const std::vector<format_row> format_rows = {
    {"X8R8G8B8", SVGA3D_X8R8G8B8, 32, 4, 1, {0xFFC04020}, {0x34204080}, 0xFFC04020, 0xFF204080, in_8888},
    {"A8R8G8B8", SVGA3D_A8R8G8B8, 33, 4, 1, {0x80C04020}, {0x40204080}, 0x80C04020, 0x40204080, in_8888},
    {"A2R10G10B10", SVGA3D_A2R10G10B10, 34, 4, 1, {0xBFF00202}, {0x501FFC00}, 0xAAFF0080, 0x5540FF00, in_2101010},
    {"X1R5G5B5", SVGA3D_X1R5G5B5, 35, 2, 1, {0x7E00}, {0x83E8}, 0xFFFF8400, 0xFF00FF42, in_555},
    {"A1R5G5B5", SVGA3D_A1R5G5B5, 36, 2, 1, {0xFE00}, {0x03E8}, 0xFFFF8400, 0x0000FF42, in_1555},
    {"A4R4G4B4", SVGA3D_A4R4G4B4, 37, 2, 1, {0x8F40}, {0xF08F}, 0x88FF4400, 0xFF0088FF, in_4444},
    {"R5G6B5", SVGA3D_R5G6B5, 38, 2, 1, {0xFC00}, {0x07E8}, 0xFFFF8200, 0xFF00FF42, in_565},
    {"L16", SVGA3D_LUMINANCE16, 39, 2, 1, {0x4040}, {0xC0C0}, 0xFF404040, 0xFFC0C0C0},
    {"L8A8", SVGA3D_LUMINANCE8_ALPHA8, 40, 2, 1, {0x40C0}, {0xFF20}, 0x40C0C0C0, 0xFF202020},
    {"ALPHA8", SVGA3D_ALPHA8, 41, 1, 1, {0x40}, {0xC0}, 0x40000000, 0xC0000000},
    {"L8", SVGA3D_LUMINANCE8, 42, 1, 1, {0x40}, {0xC0}, 0xFF404040, 0xFFC0C0C0},
    {"Z_D16", SVGA3D_Z_D16, 43, 2, 1, {0x1234}, {0xFFFF}, 0, 0},
    {"Z_D24S8", SVGA3D_Z_D24S8, 44, 4, 1, {0x12345678}, {0xFFFFFFFF}, 0, 0},
    {"Z_D24X8", SVGA3D_Z_D24X8, 45, 4, 1, {0x12345678}, {0xFFFFFFFF}, 0, 0},
    {"DXT1", SVGA3D_DXT1, 46, 8, 4, {0x001FF800, 0}, {0x001FF800, 0x55555555}, 0xFFFF0000, 0xFF0000FF},
    {"DXT2", SVGA3D_DXT2, 47, 16, 4, {0x88888888, 0x88888888, 0x001FF800, 0},
     {0x44444444, 0x44444444, 0x001FF800, 0x55555555}, 0x88FF0000, 0x440000FF},
    {"DXT3", SVGA3D_DXT3, 48, 16, 4, {0x99999999, 0x99999999, 0x001FF800, 0},
     {0x33333333, 0x33333333, 0x001FF800, 0x55555555}, 0x99FF0000, 0x330000FF},
    {"DXT4", SVGA3D_DXT4, 49, 16, 4, {0x8040, 0, 0x001FF800, 0}, {0x10A0, 0, 0x001FF800, 0x55555555},
     0x40FF0000, 0xA00000FF},
    {"DXT5", SVGA3D_DXT5, 50, 16, 4, {0x8050, 0, 0x001FF800, 0}, {0x1090, 0, 0x001FF800, 0x55555555},
     0x50FF0000, 0x900000FF},
    {"L4A4", SVGA3D_LUMINANCE4_ALPHA4, 0, 1, 1, {0x4C}, {0xF2}, 0x44CCCCCC, 0xFF222222},
    {"G16R16", SVGA3D_G16R16, 0, 4, 1, {0xC0C04040}, {0x2020FFFF}, 0xFF40C000, 0xFFFF2000},
    {"A16B16G16R16", SVGA3D_A16B16G16R16, 0, 8, 1, {0x4040C0C0, 0x80802020}, {0x20208080, 0xFFFF4040},
     0x80C04020, 0xFF802040},
    {"half R", SVGA3D_R_S10E5, 0, 2, 1, {0x3C00}, {0x3400}, 0xFFFF0000, 0xFF400000},
    {"half RG", SVGA3D_RG_S10E5, 0, 4, 1, {0x3C000000}, {0x34003C00}, 0xFF00FF00, 0xFFFF4000},
    {"half ARGB", SVGA3D_ARGB_S10E5, 0, 8, 1, {0x00003C00, 0x3C003C00}, {0x34000000, 0x34000000},
     0xFFFF00FF, 0x40004000},
    {"float R", SVGA3D_R_S23E8, 0, 4, 1, {0x3F800000}, {0x3E800000}, 0xFFFF0000, 0xFF400000},
    {"float RG", SVGA3D_RG_S23E8, 0, 8, 1, {0, 0x3F800000}, {0x3F800000, 0x3E800000}, 0xFF00FF00, 0xFFFF4000},
    {"float ARGB", SVGA3D_ARGB_S23E8, 0, 16, 1, {0x3F800000, 0, 0x3F800000, 0x3F800000},
     {0x3E800000, 0x3F800000, 0, 0}, 0xFFFF00FF, 0x0040FF00},
};
// clang-format on

} // namespace kalix::test
