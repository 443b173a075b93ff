// The format table: how each kind of texel is decoded and encoded, and one row a format.
//
// Each layout becomes a pair of functions at compile time, so that a texel costs a call and no look at its layout.

#include "device/state/format.h"

#include "device/state/dxt.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <kalix/svga3d_formats.h>
#include <kalix/svga3d_types.h>

namespace kalix::device {
namespace {

template <typename word>
word load(const std::byte* from)
{
    word value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <typename word>
void store(word value, std::byte* to)
{
    std::memcpy(to, &value, sizeof value);
}

// ---- Channels of a packed word: where they lie, and how many bits they have ------------------------

struct channel {
    int shift = 0;
    int bits = 0; // 0: the format does not have it
};

constexpr uint32_t largest(channel c)
{
    return (1u << c.bits) - 1;
}

float unpack(uint64_t word, channel c, float otherwise)
{
    if (c.bits == 0)
        return otherwise;
    return static_cast<float>(word >> c.shift & largest(c)) / static_cast<float>(largest(c));
}

// A value of 0..1 as the nearest step of the channel; a value that is not a number packs as 0. In double precision,
// where the product of a float and 16 bits is exact: rounded before the half is added, it could take the next step.
uint64_t pack(float value, channel c)
{
    if (c.bits == 0)
        return 0;
    const float clamped = value > 0 ? std::min(value, 1.0f) : 0.0f;
    const auto step = static_cast<uint64_t>(static_cast<double>(clamped) * largest(c) + 0.5);
    return step << c.shift;
}

struct packed_layout {
    channel r, g, b, a;
};

template <typename word, packed_layout layout>
color decode_packed(const std::byte* texel)
{
    const uint64_t value = load<word>(texel);
    return {unpack(value, layout.r, 0), unpack(value, layout.g, 0), unpack(value, layout.b, 0),
            unpack(value, layout.a, 1)};
}

// Bits that no channel covers are written as zero, but for the fourth byte of X8R8G8B8 (below).
template <typename word, packed_layout layout>
void encode_packed(const color& value, std::byte* texel)
{
    store(static_cast<word>(pack(value.r, layout.r) | pack(value.g, layout.g) | pack(value.b, layout.b) |
                            pack(value.a, layout.a)),
          texel);
}

// {shift, bits} of r, g, b, a in the little-endian word.
constexpr packed_layout a8r8g8b8{{16, 8}, {8, 8}, {0, 8}, {24, 8}};
constexpr packed_layout x8r8g8b8{{16, 8}, {8, 8}, {0, 8}, {}};
constexpr packed_layout r5g6b5{{11, 5}, {5, 6}, {0, 5}, {}};
constexpr packed_layout x1r5g5b5{{10, 5}, {5, 5}, {0, 5}, {}};
constexpr packed_layout a1r5g5b5{{10, 5}, {5, 5}, {0, 5}, {15, 1}};
constexpr packed_layout a4r4g4b4{{8, 4}, {4, 4}, {0, 4}, {12, 4}};
constexpr packed_layout a2r10g10b10{{20, 10}, {10, 10}, {0, 10}, {30, 2}};
constexpr packed_layout g16r16{{0, 16}, {16, 16}, {}, {}};
constexpr packed_layout a16b16g16r16{{0, 16}, {16, 16}, {32, 16}, {48, 16}};
constexpr packed_layout alpha8{{}, {}, {}, {0, 8}};

// ---- Luminance ----------------------------------------------------------------------------------------

struct luminance_layout {
    channel l, a;
};

template <typename word, luminance_layout layout>
color decode_luminance(const std::byte* texel)
{
    const uint64_t value = load<word>(texel);
    const float l = unpack(value, layout.l, 0);
    return {l, l, l, unpack(value, layout.a, 1)};
}

// No target is of luminance; scaled copies write it, and take red for it.
template <typename word, luminance_layout layout>
void encode_luminance(const color& value, std::byte* texel)
{
    store(static_cast<word>(pack(value.r, layout.l) | pack(value.a, layout.a)), texel);
}

constexpr luminance_layout l8{{0, 8}, {}};
constexpr luminance_layout l16{{0, 16}, {}};
constexpr luminance_layout l4a4{{0, 4}, {4, 4}};
constexpr luminance_layout l8a8{{0, 8}, {8, 8}};

// ---- Floats: halves and singles, one to four channels, missing ones 0, 0, 0, 1 -------------------------

// Exact: every half is a float. 112 is what the biases of the exponents, 127 and 15, differ by.
float half_to_float(uint16_t half)
{
    const uint32_t sign = uint32_t{half} >> 15 << 31;
    const uint32_t exponent = half >> 10 & 31;
    const uint32_t fraction = half & 1023;
    if (exponent == 0) {
        const float magnitude = static_cast<float>(fraction) / 16777216.0f; // 2^-24 a step
        return sign ? -magnitude : magnitude;
    }
    if (exponent == 31)
        return std::bit_cast<float>(sign | 0x7F800000 | fraction << 13);
    return std::bit_cast<float>(sign | (exponent + 112) << 23 | fraction << 13);
}

// Rounds to the nearest half, ties to even; what is too large becomes infinite. The bounds below, as bits of floats,
// are infinity, 2^16 and 2^-25: from 2^16 on nothing rounds down to a half, below 2^-25 everything rounds to 0.
uint16_t float_to_half(float value)
{
    const auto bits = std::bit_cast<uint32_t>(value);
    const auto sign = static_cast<uint16_t>(bits >> 16 & 0x8000);
    const uint32_t magnitude = bits & 0x7FFFFFFF;
    if (magnitude > 0x7F800000)
        return static_cast<uint16_t>(sign | 0x7E00);
    if (magnitude >= 0x47800000)
        return static_cast<uint16_t>(sign | 0x7C00);
    if (magnitude < 0x33000000)
        return sign;
    // Denormal halves have steps of 2^-24; the others drop 13 bits of the fraction.
    const uint32_t exponent = magnitude >> 23;
    const bool denormal = exponent < 113;
    const uint32_t fraction = denormal ? (magnitude & 0x7FFFFF) | 0x800000 : magnitude - (112u << 23);
    const uint32_t dropped = denormal ? 126 - exponent : 13;
    const uint32_t kept = fraction >> dropped;
    const uint32_t rest = fraction & ((1u << dropped) - 1);
    const uint32_t middle = 1u << (dropped - 1);
    // A carry out of the fraction raises the exponent, which is right: up to infinity, and from denormal to normal.
    return static_cast<uint16_t>(sign | (kept + (rest > middle || (rest == middle && kept & 1))));
}

float load_float(const std::byte* from, float)
{
    return load<float>(from);
}
float load_float(const std::byte* from, uint16_t)
{
    return half_to_float(load<uint16_t>(from));
}
void store_float(float value, std::byte* to, float)
{
    store(value, to);
}
void store_float(float value, std::byte* to, uint16_t)
{
    store(float_to_half(value), to);
}

template <typename number, int channels>
color decode_floats(const std::byte* texel)
{
    float c[4] = {0, 0, 0, 1};
    for (int i = 0; i < channels; ++i)
        c[i] = load_float(texel + static_cast<size_t>(i) * sizeof(number), number{});
    return {c[0], c[1], c[2], c[3]};
}

template <typename number, int channels>
void encode_floats(const color& value, std::byte* texel)
{
    const float c[4] = {value.r, value.g, value.b, value.a};
    for (int i = 0; i < channels; ++i)
        store_float(c[i], texel + static_cast<size_t>(i) * sizeof(number), number{});
}

// ---- The table ----------------------------------------------------------------------------------------

template <typename word, packed_layout layout>
constexpr format_info packed(bool target = true)
{
    return {.kind = format_kind::color,
            .block_bytes = sizeof(word),
            .target = target,
            .decode = decode_packed<word, layout>,
            .encode = encode_packed<word, layout>};
}

template <typename word, luminance_layout layout>
constexpr format_info luminance()
{
    return {.kind = format_kind::color,
            .block_bytes = sizeof(word),
            .decode = decode_luminance<word, layout>,
            .encode = encode_luminance<word, layout>};
}

template <typename number, int channels>
constexpr format_info floats()
{
    return {.kind = format_kind::color,
            .block_bytes = sizeof(number) * channels,
            .target = true,
            .normalized = false,
            .decode = decode_floats<number, channels>,
            .encode = encode_floats<number, channels>};
}

// What a texel or a block costs stands in one table for all, kalix/svga3d_formats.h; the decoders read what it says.
constexpr format_info sized(format_info info, const svga3d_block& block)
{
    if (info.block_bytes != 0 && info.block_bytes != block.bytes)
        throw "a decoder reads another number of bytes"; // ends the build
    info.block_bytes = static_cast<uint8_t>(block.bytes);
    info.block_width = static_cast<uint8_t>(block.width);
    info.block_height = static_cast<uint8_t>(block.height);
    // Of the paired formats (UYVY, YUY2) and the compressed ones too: stored and copied whole.
    if (info.kind == format_kind::none && block.bytes != 0)
        info.kind = format_kind::opaque;
    return info;
}

constexpr auto formats = [] {
    std::array<format_info, SVGA3D_FORMAT_MAX> table{};
    // Drawing writes alpha into X8R8G8B8's fourth byte; reading takes it as 1.
    table[SVGA3D_X8R8G8B8] = packed<uint32_t, x8r8g8b8>();
    table[SVGA3D_X8R8G8B8].encode = encode_packed<uint32_t, a8r8g8b8>;
    table[SVGA3D_A8R8G8B8] = packed<uint32_t, a8r8g8b8>();
    table[SVGA3D_R5G6B5] = packed<uint16_t, r5g6b5>();
    table[SVGA3D_X1R5G5B5] = packed<uint16_t, x1r5g5b5>();
    table[SVGA3D_A1R5G5B5] = packed<uint16_t, a1r5g5b5>();
    table[SVGA3D_A4R4G4B4] = packed<uint16_t, a4r4g4b4>();
    table[SVGA3D_A2R10G10B10] = packed<uint32_t, a2r10g10b10>();
    table[SVGA3D_G16R16] = packed<uint32_t, g16r16>();
    table[SVGA3D_A16B16G16R16] = packed<uint64_t, a16b16g16r16>();
    table[SVGA3D_ALPHA8] = packed<uint8_t, alpha8>(false);
    table[SVGA3D_LUMINANCE8] = luminance<uint8_t, l8>();
    table[SVGA3D_LUMINANCE16] = luminance<uint16_t, l16>();
    table[SVGA3D_LUMINANCE4_ALPHA4] = luminance<uint8_t, l4a4>();
    table[SVGA3D_LUMINANCE8_ALPHA8] = luminance<uint16_t, l8a8>();
    table[SVGA3D_ARGB_S10E5] = floats<uint16_t, 4>();
    table[SVGA3D_ARGB_S23E8] = floats<float, 4>();
    table[SVGA3D_R_S10E5] = floats<uint16_t, 1>();
    table[SVGA3D_R_S23E8] = floats<float, 1>();
    table[SVGA3D_RG_S10E5] = floats<uint16_t, 2>();
    table[SVGA3D_RG_S23E8] = floats<float, 2>();
    for (const uint32_t depth : {SVGA3D_Z_D16, SVGA3D_Z_D15S1, SVGA3D_Z_D32, SVGA3D_Z_D24S8, SVGA3D_Z_D24X8})
        table[depth].kind = format_kind::depth;
    table[SVGA3D_BUFFER].kind = format_kind::bytes;
    table[SVGA3D_DXT1].decode_block = dxt1_texel;
    for (const uint32_t dxt : {SVGA3D_DXT2, SVGA3D_DXT3})
        table[dxt].decode_block = dxt3_texel;
    for (const uint32_t dxt : {SVGA3D_DXT4, SVGA3D_DXT5})
        table[dxt].decode_block = dxt5_texel;
    for (uint32_t format = 0; format < table.size(); ++format)
        table[format] = sized(table[format], svga3d_block_of(format));
    return table;
}();

} // namespace

const format_info& format_of(uint32_t format)
{
    return formats[format < formats.size() ? format : uint32_t{SVGA3D_FORMAT_INVALID}];
}

} // namespace kalix::device
