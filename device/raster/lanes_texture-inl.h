// Textures of 32-bit texels, looked up for each lane.
//
// The rules are sampler.cpp's, for flat textures of at most 2^13 texels a side (span.cpp), so that positions in 2^-16
// texels and offsets in bytes fit 32-bit lanes. Channels are 0 to 255 until a shading scales them. Built again for each
// instruction set.

#include "device/raster/lanes_basis-inl.h"
#include "device/raster/rows.h"
#include "device/raster/sampler.h"

#include <bit>
#include <hwy/highway.h>

#if defined(KALIX_LANES_TEXTURE_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef KALIX_LANES_TEXTURE_INL
#undef KALIX_LANES_TEXTURE_INL
#else
#define KALIX_LANES_TEXTURE_INL
#endif

HWY_BEFORE_NAMESPACE();
namespace kalix::device::raster {
namespace HWY_NAMESPACE {

// ---- Textures -----------------------------------------------------------------------------------------

// One direction of a texture, and what lies beyond its side: it repeats, mirrored or not, or its edge goes on.
struct texture_axis {
    real_lanes scale, low, high;
    int_lanes last, mask;
    double period; // 2^-16 texels until it repeats
    bool wraps;    // repeats
    bool folds;    // after a number of texels that is no power of two
    bool mirrors;  // every second time

    HWY_INLINE texture_axis() = default;
    HWY_INLINE texture_axis(uint32_t side, uint32_t mode)
        : last{hn::Set(ints, static_cast<int32_t>(side) - 1)}, mirrors{mode == SVGA3D_TEX_ADDRESS_MIRROR}
    {
        const uint32_t texels = mirrors ? 2 * side : side;
        wraps = mirrors || mode == SVGA3D_TEX_ADDRESS_WRAP;
        folds = wraps && !std::has_single_bit(side);
        mask = hn::Set(ints, static_cast<int32_t>(texels) - 1);
        // Without a repetition a position is kept to one texel beyond either side, where the edge's colour is all there
        // is. With one, powers of two repeat by the low bits alone, and other sides are folded before they become
        // integers.
        period = static_cast<double>(texels) * one;
        scale = hn::Set(reals, static_cast<double>(side) * one);
        low = hn::Set(reals, wraps ? -position_limit : -static_cast<double>(one));
        high = hn::Set(reals, wraps ? position_limit : period + one);
    }

    // Coordinates of 0..1 across the side, in 2^-16 texels.
    HWY_INLINE int_lanes position(real_lanes coordinate) const
    {
        real_lanes at = into(hn::Mul(coordinate, scale), low, high);
        if (folds)
            at = folded(at);
        return hn::BitCast(ints, nearest_words(at));
    }

    // A texel's column or row; of a position that was folded, at most one beyond the period.
    HWY_INLINE int_lanes texel(int_lanes at) const
    {
        if (wraps && !folds)
            at = hn::And(at, mask);
        if (folds) {
            at = hn::IfThenElse(hn::Lt(at, hn::Zero(ints)), mask, at);
            at = hn::IfThenElse(hn::Gt(at, mask), hn::Zero(ints), at);
        }
        // A period is the side and the side once more, backward: a texel's place is the smaller of those from both
        // ends.
        if (mirrors)
            at = hn::Min(at, hn::Sub(mask, at));
        return hn::Min(hn::Max(at, hn::Zero(ints)), last);
    }

private:
    // Into the period, which the coordinate may lie many times beyond.
    HWY_INLINE real_lanes folded(real_lanes at) const
    {
        const real_lanes magic = hn::Set(reals, rounding_magic);
        const real_lanes whole = hn::Sub(hn::Add(at, magic), magic);
        // The product may be a period off at its edges, since 1 / period is rounded; both are put right below.
        const real_lanes times = hn::Floor(hn::Mul(whole, hn::Set(reals, 1 / period)));
        const real_lanes once = hn::Set(reals, period);
        real_lanes rest = hn::Sub(whole, hn::Mul(times, once));
        rest = hn::IfThenElse(hn::Lt(rest, hn::Zero(reals)), hn::Add(rest, once), rest);
        return hn::IfThenElse(hn::Ge(rest, once), hn::Sub(rest, once), rest);
    }
};

struct texture_lanes {
    const image_view* image = nullptr;
    const uint32_t* texels = nullptr;
    int_lanes row_bytes;
    word_lanes opaque; // of a format without alpha, what its fourth byte reads as
    texture_axis u, v;

    HWY_INLINE texture_lanes() = default;
    explicit HWY_INLINE texture_lanes(const sampler& from) : texture_lanes{from, from.first_level} {}
    HWY_INLINE texture_lanes(const sampler& from, uint32_t level)
        : image{&from.image(0, level)}, texels{reinterpret_cast<const uint32_t*>(image->bytes)},
          row_bytes{hn::Set(ints, static_cast<int32_t>(image->row_bytes))},
          opaque{hn::Set(words, image->format_number == SVGA3D_X8R8G8B8 ? 0xFF000000u : 0)},
          u{image->width, from.address_u}, v{image->height, from.address_v}
    {
    }

    // Asks for a texel's memory, roughly where it is; beyond the first copy of the texture nothing is asked for.
    HWY_INLINE void fetch(double s, double t) const
    {
        if (s >= 0 && s < 1 && t >= 0 && t < 1)
            __builtin_prefetch(image->bytes + static_cast<size_t>(t * image->height) * image->row_bytes +
                               static_cast<size_t>(s * image->width) * 4);
    }

    HWY_INLINE word_lanes at(int_lanes column, int_lanes row) const
    {
        // All lanes look up, also those that draw nothing: their columns and rows have been held to the texture.
        const int_lanes offset = hn::Add(hn::Mul(row, row_bytes), hn::ShiftLeft<2>(column));
        return hn::Or(hn::GatherOffset(words, texels, offset), opaque);
    }

    // Channels of 0 to 255.
    HWY_INLINE colors nearest(real_lanes s, real_lanes t) const
    {
        const int_lanes column = u.texel(hn::ShiftRight<fraction_bits>(u.position(s)));
        const int_lanes row = v.texel(hn::ShiftRight<fraction_bits>(v.position(t)));
        return unpacked_bytes(at(column, row));
    }

    HWY_INLINE colors linear(real_lanes s, real_lanes t) const
    {
        const int_lanes half = hn::Set(ints, one / 2);
        const int_lanes across = hn::Sub(u.position(s), half);
        const int_lanes down = hn::Sub(v.position(t), half);
        const int_lanes x = hn::ShiftRight<fraction_bits>(across);
        const int_lanes y = hn::ShiftRight<fraction_bits>(down);
        const int_lanes next = hn::Set(ints, 1);
        const int_lanes left = u.texel(x), right = u.texel(hn::Add(x, next));
        const int_lanes upper = v.texel(y), lower = v.texel(hn::Add(y, next));
        const float_lanes right_share = share_of(across);
        const colors above = mix(unpacked_bytes(at(left, upper)), unpacked_bytes(at(right, upper)), right_share);
        const colors below = mix(unpacked_bytes(at(left, lower)), unpacked_bytes(at(right, lower)), right_share);
        return mix(above, below, share_of(down));
    }

    HWY_NOINLINE colors filtered(uint32_t filter, real_lanes s, real_lanes t) const
    {
        return filter >= SVGA3D_TEX_FILTER_LINEAR ? linear(s, t) : nearest(s, t);
    }

private:
    static HWY_INLINE float_lanes share_of(int_lanes position)
    {
        const int_lanes fraction = hn::And(position, hn::Set(ints, one - 1));
        return hn::Mul(hn::ConvertTo(floats, fraction), hn::Set(floats, 1.0f / one));
    }
};

} // namespace HWY_NAMESPACE
} // namespace kalix::device::raster
HWY_AFTER_NAMESPACE();

#endif
