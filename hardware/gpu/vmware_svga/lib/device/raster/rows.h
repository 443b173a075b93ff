// Rows of 32-bit texels, moved whole: copied, blended, or filtered, as an axis-aligned picture is drawn.
//
// Copies and blends give the bytes of the general way. A filtered row is worked out in single precision, down
// and then across, and may differ from the general way by one level where a value lies between two.
#pragma once

#include "hardware/gpu/vmware_svga/lib/device/raster/numeric.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/sampler.h"
#include "hardware/gpu/vmware_svga/lib/device/surface.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>
#include <vector>

namespace kalix::device::raster {

inline uint32_t load_pixel(const std::byte* texel)
{
    uint32_t word;
    std::memcpy(&word, texel, sizeof word);
    return word;
}

inline constexpr int64_t fraction_bits = 16;
inline constexpr int64_t one = 1 << fraction_bits;
inline constexpr int64_t coordinate_limit = int64_t{1} << 52;

inline int64_t modulo(int64_t value, int64_t divisor)
{
    const int64_t rest = divisor > 0 ? value % divisor : 0;
    return rest < 0 ? rest + divisor : rest;
}

// One direction of a texture: its size and what lies beyond it.
class axis {
public:
    axis(uint32_t size, uint32_t mode)
        : side_{std::max(size, 1u)}, scale_{static_cast<double>(size)}, wraps_{mode == SVGA3D_TEX_ADDRESS_WRAP},
          mask_{std::has_single_bit(size) ? int64_t{size} - 1 : 0}
    {
    }

    int64_t position(double coordinate) const { return to_integer(coordinate * scale_ * one, coordinate_limit); }
    bool wraps() const { return wraps_; }
    double scale() const { return scale_; } // texels across
    size_t texel(int64_t at) const
    {
        if (static_cast<uint64_t>(at) < static_cast<uint64_t>(side_))
            return static_cast<size_t>(at);
        if (wraps_)
            return static_cast<size_t>(mask_ != 0 ? at & mask_ : modulo(at, side_));
        return at < 0 ? 0 : static_cast<size_t>(side_ - 1);
    }

private:
    int64_t side_;
    double scale_;
    bool wraps_;   // else the edge texel goes on
    int64_t mask_; // of a side that is a power of two: a remainder without a division
};

// A flat texture of one level and 32-bit texels.
struct texture {
    const image_view& image;
    axis u, v;
    uint32_t opaque; // of a format without alpha, what its fourth byte reads as

    explicit texture(const sampler& from)
        : image{from.image(0, 0)}, u{image.width, from.address_u}, v{image.height, from.address_v},
          opaque{image.format_number == SVGA3D_X8R8G8B8 ? 0xFF000000u : 0}
    {
    }
    const std::byte* row(size_t y) const { return image.bytes + y * image.row_bytes; }
    uint32_t word(const std::byte* at_row, size_t x) const { return load_pixel(at_row + x * 4) | opaque; }
};

// Copies pixels, setting the bits of alpha in each.
void copy_run(const std::byte* from, std::byte* to, size_t count, uint32_t alpha);

// Blends pixels over others by their own alpha: alpha is set in what is drawn, hidden in what lies under it.
void blend_run(const std::byte* from, std::byte* to, size_t count, uint32_t alpha, uint32_t hidden);

// Two texel rows mixed into one, in floats of 0 to 255, from which pixels are mixed across.
class filtered_row {
public:
    // Mixes the texels from column first to last; beyond the image its edge goes on.
    filtered_row(const image_view& image, const axis& down, double v, int64_t first, int64_t last);

    // The pixel between a column and the next, so many 2^-16 along.
    uint32_t pixel(int64_t column, int64_t fraction) const;

private:
    int64_t first_;
    const float* mixed_; // four channels a texel; memory of the thread's
};

} // namespace kalix::device::raster
