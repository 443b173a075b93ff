// A texel's colour out of a block, worked out anew for each texel: whole blocks are not kept.

#include "device/state/dxt.h"

#include <cstring>

namespace kalix::device {
namespace {

constexpr size_t alpha_bytes = 8; // before the colours of a 16-byte block

template <typename word>
word load(const std::byte* from)
{
    word value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

// Each channel divided by its own largest value, so that white is white.
color from_565(uint32_t word)
{
    return {static_cast<float>(word >> 11 & 31) / 31.0f, static_cast<float>(word >> 5 & 63) / 63.0f,
            static_cast<float>(word & 31) / 31.0f, 1};
}

// a and b in shares of a whole.
color between(const color& a, const color& b, float share_a, float share_b, float whole)
{
    const auto mix = [&](float x, float y) { return (x * share_a + y * share_b) / whole; };
    return {mix(a.r, b.r), mix(a.g, b.g), mix(a.b, b.b), 1};
}

// The colour part of a block: two colours of 16 bits, then a code of two bits a texel. The codes stand for the two, and
// for two between them in thirds; where the first word is not the larger, for the middle and for a transparent texel.
// Blocks with an alpha part of their own know the first way only.
color color_texel(const std::byte* block, uint32_t x, uint32_t y, bool may_be_transparent)
{
    const uint32_t first = load<uint16_t>(block);
    const uint32_t second = load<uint16_t>(block + 2);
    const uint32_t code = load<uint32_t>(block + 4) >> (2 * (4 * y + x)) & 3;
    const color a = from_565(first);
    const color b = from_565(second);
    if (code < 2)
        return code == 0 ? a : b;
    if (first > second || !may_be_transparent)
        return code == 2 ? between(a, b, 2, 1, 3) : between(a, b, 1, 2, 3);
    return code == 2 ? between(a, b, 1, 1, 2) : color{0, 0, 0, 0};
}

// Two alphas of 8 bits, then a code of three bits a texel. The codes stand for the two and six between them, in
// sevenths; where the first is not the larger, for four in fifths, and 0 and 1.
float alpha_texel(const std::byte* block, uint32_t x, uint32_t y)
{
    const auto bits = load<uint64_t>(block);
    const auto first = static_cast<float>(bits & 255);
    const auto second = static_cast<float>(bits >> 8 & 255);
    const auto code = static_cast<uint32_t>(bits >> (16 + 3 * (4 * y + x)) & 7);
    if (code < 2)
        return (code == 0 ? first : second) / 255.0f;
    const bool eight = first > second;
    if (!eight && code >= 6)
        return code == 6 ? 0 : 1;
    const float steps = eight ? 7 : 5;
    const auto away = static_cast<float>(code - 1); // steps from the first
    return (first * (steps - away) + second * away) / steps / 255.0f;
}

} // namespace

color dxt1_texel(const std::byte* block, uint32_t x, uint32_t y)
{
    return color_texel(block, x, y, true);
}

color dxt3_texel(const std::byte* block, uint32_t x, uint32_t y)
{
    color texel = color_texel(block + alpha_bytes, x, y, false);
    texel.a = static_cast<float>(load<uint64_t>(block) >> (4 * (4 * y + x)) & 15) / 15.0f;
    return texel;
}

color dxt5_texel(const std::byte* block, uint32_t x, uint32_t y)
{
    color texel = color_texel(block + alpha_bytes, x, y, false);
    texel.a = alpha_texel(block, x, y);
    return texel;
}

} // namespace kalix::device
