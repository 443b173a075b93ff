// Levels of detail in lanes: which levels of a texture each lane takes, and the colour there.
//
// Neighbours mostly take the same one or two, so every level that some lane takes is looked up for all of them.
// The rules are sampler.cpp's. Built again for each instruction set.

#include "device/raster/lanes_texture-inl.h"

#include <hwy/highway.h>
#include <numbers>

#if defined(KALIX_LANES_LEVELS_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef KALIX_LANES_LEVELS_INL
#undef KALIX_LANES_LEVELS_INL
#else
#define KALIX_LANES_LEVELS_INL
#endif

HWY_BEFORE_NAMESPACE();
namespace kalix::device::raster {
namespace HWY_NAMESPACE {

// Base-2 logarithms of values above 0, by the operations of log2_of().
HWY_INLINE real_lanes log2_of(real_lanes value)
{
    constexpr uint64_t fraction_mask = (uint64_t{1} << 52) - 1;
    constexpr uint64_t one_half = uint64_t{1022} << 52;
    constexpr uint64_t as_integer = uint64_t{1075} << 52; // of a double, whose fraction then counts in ones
    const auto word = hn::BitCast(bits, value);
    // An exponent becomes a number without a conversion, which not every set has for 64 bits: as the lowest bits of
    // 2^52.
    const real_lanes biased = hn::BitCast(reals, hn::Or(hn::ShiftRight<52>(word), hn::Set(bits, as_integer)));
    real_lanes exponent = hn::Sub(biased, hn::Set(reals, 0x1p52 + 1022));
    const auto fraction = hn::And(word, hn::Set(bits, fraction_mask));
    real_lanes mantissa = hn::BitCast(reals, hn::Or(fraction, hn::Set(bits, one_half)));
    const real_lanes one_real = hn::Set(reals, 1);
    const auto low = hn::Lt(mantissa, hn::Set(reals, std::numbers::sqrt2 / 2));
    mantissa = hn::IfThenElse(low, hn::Add(mantissa, mantissa), mantissa);
    exponent = hn::IfThenElse(low, hn::Sub(exponent, one_real), exponent);
    const real_lanes t = hn::Div(hn::Sub(mantissa, one_real), hn::Add(mantissa, one_real));
    const real_lanes square = hn::Mul(t, t);
    real_lanes sum = hn::Zero(reals);
    for (int power = 21; power >= 1; power -= 2)
        sum = hn::Add(hn::Mul(sum, square), hn::Set(reals, 1.0 / power));
    const real_lanes natural = hn::Mul(hn::Add(t, t), sum);
    return hn::Add(exponent, hn::Div(natural, hn::Set(reals, std::numbers::ln2)));
}

// A lane's coordinates, and those of its neighbours to the right and below.
struct coordinate_steps {
    real_lanes s, t, right_s, right_t, below_s, below_t;
};

// A step's length in texels, squared: its logarithm is halved later, which saves the root.
HWY_INLINE real_lanes squared_step(const image_view& first, real_lanes ds, real_lanes dt)
{
    const real_lanes across = hn::Mul(ds, hn::Set(reals, first.width));
    const real_lanes down = hn::Mul(dt, hn::Set(reals, first.height));
    return hn::Add(hn::Mul(across, across), hn::Mul(down, down));
}

// 0 and less magnify. A step of no length has no logarithm: -1024 stands for it, as in sampler.cpp.
HWY_INLINE real_lanes detail_of(const sampler& from, const coordinate_steps& at)
{
    const image_view& first = from.image(0, 0);
    const real_lanes across = squared_step(first, hn::Sub(at.right_s, at.s), hn::Sub(at.right_t, at.t));
    const real_lanes down = squared_step(first, hn::Sub(at.below_s, at.s), hn::Sub(at.below_t, at.t));
    const real_lanes longer = hn::IfThenElse(hn::Gt(across, down), across, down);
    const real_lanes octaves = hn::Mul(hn::Set(reals, 0.5), log2_of(longer));
    const real_lanes level = hn::IfThenElse(hn::Gt(longer, hn::Zero(reals)), octaves, hn::Set(reals, -1024));
    return hn::Add(level, hn::Set(reals, from.bias));
}

HWY_INLINE colors chosen_from(word_mask first, const colors& a, const colors& b)
{
    const auto which = hn::RebindMask(floats, first);
    return {hn::IfThenElse(which, a.r, b.r), hn::IfThenElse(which, a.g, b.g), hn::IfThenElse(which, a.b, b.b),
            hn::IfThenElse(which, a.a, b.a)};
}

// The minified colours, each lane's from its own level; those of lanes that are not wanted are not used.
HWY_INLINE colors sampled_levels(const sampler& from, word_lanes level, word_mask wanted, const coordinate_steps& at)
{
    colors result = unpacked_bytes(hn::Zero(words));
    for (uint32_t each = from.first_level; each < from.level_count; ++each) {
        const word_mask here = hn::And(wanted, hn::Eq(level, hn::Set(words, each)));
        if (hn::AllFalse(words, here))
            continue;
        const texture_lanes texture{from, each};
        result = chosen_from(here, texture.filtered(from.minify, at.s, at.t), result);
    }
    return result;
}

// Lanes of doubles and of words have masks of their own kinds: a number carries the answer over.
HWY_INLINE word_mask above_zero(real_lanes v)
{
    const real_lanes answer = hn::IfThenElseZero(hn::Gt(v, hn::Zero(reals)), hn::Set(reals, 1));
    return hn::Ne(nearest_words(answer), hn::Zero(words));
}

// Channels of 0 to 255, of the lanes that are drawn.
HWY_NOINLINE colors sampled_with_detail(const sampler& from, const texture_lanes& first, const coordinate_steps& at,
                                        word_mask drawn)
{
    const real_lanes detail = detail_of(from, at);
    const real_lanes last = hn::Set(reals, from.level_count - 1);
    const real_lanes wanted = into(detail, hn::Set(reals, from.first_level), last);
    const word_lanes zero = hn::Zero(words);
    const word_mask minified = hn::And(drawn, above_zero(detail));
    colors result = unpacked_bytes(zero);
    // Looked up only when some lane magnifies.
    if (!hn::AllFalse(words, hn::AndNot(minified, drawn)))
        result = first.filtered(from.magnify, at.s, at.t);
    if (hn::AllFalse(words, minified))
        return result;
    if (from.between_levels == SVGA3D_TEX_FILTER_NONE)
        return chosen_from(minified, first.filtered(from.minify, at.s, at.t), result);
    if (from.between_levels == SVGA3D_TEX_FILTER_NEAREST) {
        // Halves up, as the general way: nearest_words() alone would take ties to even.
        const word_lanes level = nearest_words(hn::Floor(hn::Add(wanted, hn::Set(reals, 0.5))));
        return chosen_from(minified, sampled_levels(from, level, minified, at), result);
    }
    const real_lanes whole = hn::Floor(wanted);
    const word_lanes level = nearest_words(whole);
    const word_lanes next = hn::Min(hn::Add(level, hn::Set(words, 1)), nearest_words(last));
    const float_lanes share = hn::DemoteTo(floats, hn::Sub(wanted, whole));
    return chosen_from(minified,
                       mix(sampled_levels(from, level, minified, at), sampled_levels(from, next, minified, at), share),
                       result);
}

} // namespace HWY_NAMESPACE
} // namespace kalix::device::raster
HWY_AFTER_NAMESPACE();

#endif
