// Colours as the interface packs them, 0xAARRGGBB, taken apart.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace kalix::test {

using rgba = std::array<double, 4>; // red, green, blue, alpha; 0..1 what is stored

constexpr uint32_t channel_of(uint32_t argb, size_t which)
{
    constexpr uint32_t shifts[] = {16, 8, 0, 24};
    return argb >> shifts[which] & 255;
}

constexpr rgba unpacked(uint32_t argb)
{
    return {channel_of(argb, 0) / 255.0, channel_of(argb, 1) / 255.0, channel_of(argb, 2) / 255.0,
            channel_of(argb, 3) / 255.0};
}

} // namespace kalix::test
