// What lanes are made of: vectors of one number a pixel, their memory, and colours of them.
//
// A vector has as many lanes as a register takes doubles, eight at most; floats and words of as many lanes fill half of
// one, so that a pixel is the same lane in all of them. Memory is that of 32-bit or 16-bit texels, and nothing behind
// the pixels of a span is read or written: what follows a row's last one may be another thread's row, or no memory of
// the image. Built again for each instruction set.

#include "device/raster/numeric.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <hwy/highway.h>

#if defined(KALIX_LANES_BASIS_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef KALIX_LANES_BASIS_INL
#undef KALIX_LANES_BASIS_INL
#else
#define KALIX_LANES_BASIS_INL
#endif

HWY_BEFORE_NAMESPACE();
namespace kalix::device::raster {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

constexpr hn::CappedTag<double, 8> reals;
constexpr hn::Rebind<uint64_t, decltype(reals)> bits;
constexpr hn::Rebind<float, decltype(reals)> floats;
constexpr hn::Rebind<int32_t, decltype(reals)> ints;
constexpr hn::Rebind<uint32_t, decltype(reals)> words;
using real_lanes = hn::Vec<decltype(reals)>;
using float_lanes = hn::Vec<decltype(floats)>;
using int_lanes = hn::Vec<decltype(ints)>;
using word_lanes = hn::Vec<decltype(words)>;
using word_mask = hn::Mask<decltype(words)>;

constexpr size_t lane_count = hn::MaxLanes(reals);
constexpr double position_limit = 0x1p50; // 2^-16 texels; what nearest_words() can round

// ---- Memory: the first lanes of a vector, touching nothing behind them ----------------------------------

HWY_INLINE word_lanes load_words(const std::byte* from, size_t count)
{
    if (HWY_LIKELY(count == lane_count))
        return hn::LoadU(words, reinterpret_cast<const uint32_t*>(from));
// The library numbers better sets lower: from this one on, lanes can be left out of a load. The others copy.
#if HWY_TARGET <= HWY_AVX2
    return hn::MaskedLoad(hn::FirstN(words, count), words, reinterpret_cast<const uint32_t*>(from));
#else
    HWY_ALIGN uint32_t some[lane_count] = {};
    std::memcpy(some, from, count * sizeof(uint32_t));
    return hn::Load(words, some);
#endif
}

HWY_INLINE void store_words(word_lanes value, word_mask which, std::byte* to)
{
    hn::BlendedStore(value, which, words, reinterpret_cast<uint32_t*>(to));
}

HWY_INLINE word_lanes load_halves(const std::byte* from, size_t count)
{
    HWY_ALIGN uint32_t wide[lane_count] = {};
    for (size_t i = 0; i < count; ++i) {
        uint16_t half;
        std::memcpy(&half, from + 2 * i, sizeof half);
        wide[i] = half;
    }
    return hn::Load(words, wide);
}

HWY_INLINE void store_halves(word_lanes value, word_mask which, std::byte* to, size_t count)
{
    HWY_ALIGN uint32_t wide[lane_count];
    HWY_ALIGN uint32_t chosen[lane_count];
    hn::Store(value, words, wide);
    hn::Store(hn::VecFromMask(words, which), words, chosen);
    for (size_t i = 0; i < count; ++i) {
        const auto half = static_cast<uint16_t>(wide[i]);
        if (chosen[i])
            std::memcpy(to + 2 * i, &half, sizeof half);
    }
}

// All lanes or none: a question that is the same for the whole draw, as a mask.
HWY_INLINE word_mask when(bool all)
{
    return hn::Ne(hn::Set(words, all ? 1 : 0), hn::Zero(words));
}

// ---- Numbers ------------------------------------------------------------------------------------------

// The nearest integers, ties to even, modulo 2^32, of what lies within 2^51 to both sides.
HWY_INLINE word_lanes nearest_words(real_lanes v)
{
    return hn::TruncateTo(words, hn::BitCast(bits, hn::Add(v, hn::Set(reals, rounding_magic))));
}

// Into low..high; what is not a number becomes low. Comparisons and choices instead of minima, which give what is not a
// number differently with each set.
HWY_INLINE real_lanes into(real_lanes v, real_lanes low, real_lanes high)
{
    const real_lanes raised = hn::IfThenElse(hn::Gt(v, low), v, low);
    return hn::IfThenElse(hn::Lt(raised, high), raised, high);
}
HWY_INLINE float_lanes into01(float_lanes v)
{
    const float_lanes raised = hn::IfThenElse(hn::Gt(v, hn::Zero(floats)), v, hn::Zero(floats));
    const float_lanes one = hn::Set(floats, 1);
    return hn::IfThenElse(hn::Lt(raised, one), raised, one);
}

// ---- Colours ------------------------------------------------------------------------------------------

struct colors {
    float_lanes r, g, b, a;
};

HWY_INLINE float_lanes channel_of(word_lanes shifted)
{
    return hn::ConvertTo(floats, hn::BitCast(ints, hn::And(shifted, hn::Set(words, 255))));
}

// Channels of 0 to 255.
HWY_INLINE colors unpacked_bytes(word_lanes pixels)
{
    return {channel_of(hn::ShiftRight<16>(pixels)), channel_of(hn::ShiftRight<8>(pixels)), channel_of(pixels),
            channel_of(hn::ShiftRight<24>(pixels))};
}

HWY_INLINE colors scaled(const colors& c, float factor)
{
    const float_lanes by = hn::Set(floats, factor);
    return {hn::Mul(c.r, by), hn::Mul(c.g, by), hn::Mul(c.b, by), hn::Mul(c.a, by)};
}

HWY_INLINE float_lanes mix(float_lanes from, float_lanes to, float_lanes share)
{
    return hn::Add(from, hn::Mul(hn::Sub(to, from), share));
}
HWY_INLINE colors mix(const colors& from, const colors& to, float_lanes share)
{
    return {mix(from.r, to.r, share), mix(from.g, to.g, share), mix(from.b, to.b, share), mix(from.a, to.a, share)};
}

// Truncated after a half was added: the nearest, halves up, as the general way packs (state/format.cpp).
HWY_INLINE word_lanes byte_of(float_lanes channel)
{
    const float_lanes scaled_up = hn::Add(hn::Mul(channel, hn::Set(floats, 255)), hn::Set(floats, 0.5f));
    return hn::BitCast(words, hn::ConvertTo(ints, scaled_up));
}

// Channels of 0..1 as the nearest bytes.
HWY_INLINE word_lanes packed_pixels(const colors& c)
{
    return hn::Or(hn::Or(hn::ShiftLeft<16>(byte_of(c.r)), hn::ShiftLeft<8>(byte_of(c.g))),
                  hn::Or(byte_of(c.b), hn::ShiftLeft<24>(byte_of(c.a))));
}

} // namespace HWY_NAMESPACE
} // namespace kalix::device::raster
HWY_AFTER_NAMESPACE();

#endif
