// Rows of 32-bit texels, moved whole: filled, copied, blended, picked or filtered.
//
// All work is in integers, so that the bytes are the same with every instruction set. Copies and blends give the bytes
// of the general way; what is filtered is rounded twice, and stays within one level of the exact value. Pixels lie at
// addresses of whole words. Nothing is allocated, and nothing kept: pictures.h knows what is moved where, clear.cpp
// fills by the same functions.
#pragma once

#include "device/raster/numeric.h"
#include "device/raster/sampler.h"
#include "device/state/surface.h"

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

// One direction of a texture: its size and what lies beyond it.
class axis {
public:
    axis(uint32_t size, uint32_t mode)
        : side_{std::max(size, 1u)}, scale_{static_cast<double>(size)}, wraps_{mode == SVGA3D_TEX_ADDRESS_WRAP},
          mask_{std::has_single_bit(size) ? int64_t{size} - 1 : 0}
    {
    }

    // In 2^-16 texels, of a coordinate of 0..1 across; the operations are sampler.cpp's.
    int64_t position(double coordinate) const { return to_integer(coordinate * scale_ * one, coordinate_limit); }
    bool wraps() const { return wraps_; }
    double scale() const { return scale_; } // texels across
    // Inside for any position. Most lie inside already, and a side that is a power of two needs no division.
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

// A flat texture that is seen in one level, of 32-bit texels.
struct texture {
    image_view image;
    axis u, v;
    uint32_t opaque; // of a format without alpha, what its fourth byte reads as

    explicit texture(const sampler& from)
        : image{from.image(0, from.first_level)}, u{image.width, from.address_u}, v{image.height, from.address_v},
          opaque{image.format_number == SVGA3D_X8R8G8B8 ? 0xFF000000u : 0}
    {
    }
    const std::byte* row(size_t y) const { return image.bytes + y * image.row_bytes; }
    uint32_t word(const std::byte* at_row, size_t x) const { return load_pixel(at_row + x * 4) | opaque; }
};

// What follows takes runs of 32-bit pixels by their address and number; sources and targets do not overlap.

void fill_run(std::byte* to, size_t count, uint32_t word);

// Replaces every word by its kept bits and those of another one.
void replace_bits(std::byte* to, size_t count, uint32_t word, uint32_t kept);

// Copies pixels, setting the bits of alpha in each.
void copy_run(const std::byte* from, std::byte* to, size_t count, uint32_t alpha);

// Blends pixels over others by their own alpha: alpha is set in what is drawn, hidden in what lies under it.
void blend_run(const std::byte* from, std::byte* to, size_t count, uint32_t alpha, uint32_t hidden);

// A row of texels, from which pixels are taken by their columns, each below width.
struct texel_row {
    const std::byte* texels;
    size_t width;
};

// Takes one texel a pixel, setting the bits of alpha in each. As many pixels as there are columns.
void pick_run(const texel_row& row, std::span<const int32_t> columns, std::byte* to, uint32_t alpha);

// Shares of 0..1 are in 2^-15, which one instruction multiplies by and rounds; a pixel's lies in both halves of its
// word, since two channels are mixed at a time.
inline constexpr int share_bits = 15;
inline constexpr size_t block_pixels = 16; // rows that are filtered consist of whole blocks

// Mixes two texels a pixel, by the right one's share.
void filter_across(const texel_row& row, const int32_t* left, const int32_t* right, const uint32_t* shares,
                   std::byte* to, size_t blocks);

// Mixes two rows by the lower one's share, setting the bits of alpha.
void filter_down(const std::byte* upper, const std::byte* lower, uint32_t share, std::byte* to, size_t count,
                 uint32_t alpha);

} // namespace kalix::device::raster
