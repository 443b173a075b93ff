// What becomes of colours in lanes: texture stages, fog, blending, the mask.
//
// The rules are combiner.cpp's and blend.cpp's, a channel at a time, with the same defaults for numbers that the
// interface does not have. What the state chooses is a branch, since it is the same for all lanes and for the whole
// draw. Built again for each instruction set.

#include "device/raster/blend.h"
#include "device/raster/combiner.h"
#include "device/raster/lanes_basis-inl.h"

#include <hwy/highway.h>

#if defined(KALIX_LANES_STAGES_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef KALIX_LANES_STAGES_INL
#undef KALIX_LANES_STAGES_INL
#else
#define KALIX_LANES_STAGES_INL
#endif

HWY_BEFORE_NAMESPACE();
namespace kalix::device::raster {
namespace HWY_NAMESPACE {

HWY_INLINE float_lanes one_minus(float_lanes v)
{
    return hn::Sub(hn::Set(floats, 1), v);
}

HWY_INLINE colors everywhere(const color& c)
{
    return {hn::Set(floats, c.r), hn::Set(floats, c.g), hn::Set(floats, c.b), hn::Set(floats, c.a)};
}

HWY_INLINE colors into01(const colors& c)
{
    return {into01(c.r), into01(c.g), into01(c.b), into01(c.a)};
}

// ---- Texture stages -----------------------------------------------------------------------------------

struct stage_inputs {
    colors constant, previous, diffuse, texture, specular;

    // One that the interface does not have is the stage before.
    HWY_INLINE const colors& argument(uint32_t which) const
    {
        switch (which) {
        case SVGA3D_TA_CONSTANT:
            return constant;
        case SVGA3D_TA_DIFFUSE:
            return diffuse;
        case SVGA3D_TA_TEXTURE:
            return texture;
        case SVGA3D_TA_SPECULAR:
            return specular;
        default:
            return previous;
        }
    }
};

// One channel of a stage's arguments, and the alphas that operations take.
struct stage_channel {
    float_lanes a0, a1, a2, a1_alpha;
};

HWY_INLINE float_lanes blended_by(const stage_channel& c, float_lanes factor)
{
    return hn::Add(hn::Mul(c.a1, factor), hn::Mul(c.a2, one_minus(factor)));
}

HWY_INLINE float_lanes scaled_sum(const stage_channel& c, float by)
{
    const float_lanes sum = hn::Sub(hn::Add(c.a1, c.a2), hn::Set(floats, 0.5f));
    return hn::Mul(sum, hn::Set(floats, by));
}

// A channel under an operation other than the dot product, before it is clamped.
HWY_INLINE float_lanes operated(uint32_t operation, const stage_channel& c, const stage_inputs& in)
{
    switch (operation) {
    case SVGA3D_TC_SELECTARG1:
        return c.a1;
    case SVGA3D_TC_SELECTARG2:
        return c.a2;
    case SVGA3D_TC_MODULATE:
        return hn::Mul(c.a1, c.a2);
    case SVGA3D_TC_ADD:
        return hn::Add(c.a1, c.a2);
    case SVGA3D_TC_ADDSIGNED:
        return scaled_sum(c, 1);
    case SVGA3D_TC_SUBTRACT:
        return hn::Sub(c.a1, c.a2);
    case SVGA3D_TC_BLENDTEXTUREALPHA:
        return blended_by(c, in.texture.a);
    case SVGA3D_TC_BLENDDIFFUSEALPHA:
        return blended_by(c, in.diffuse.a);
    case SVGA3D_TC_BLENDCURRENTALPHA:
        return blended_by(c, in.previous.a);
    case SVGA3D_TC_BLENDFACTORALPHA:
        return blended_by(c, in.constant.a);
    case SVGA3D_TC_MODULATE2X:
        return hn::Mul(hn::Mul(c.a1, c.a2), hn::Set(floats, 2));
    case SVGA3D_TC_MODULATE4X:
        return hn::Mul(hn::Mul(c.a1, c.a2), hn::Set(floats, 4));
    case SVGA3D_TC_BLENDTEXTUREALPHAPM:
        return hn::Add(c.a1, hn::Mul(c.a2, one_minus(in.texture.a)));
    case SVGA3D_TC_ADDSIGNED2X:
        return scaled_sum(c, 2);
    case SVGA3D_TC_ADDSMOOTH:
        return hn::Sub(hn::Add(c.a1, c.a2), hn::Mul(c.a1, c.a2));
    case SVGA3D_TC_MODULATEALPHA_ADDCOLOR:
        return hn::Add(c.a1, hn::Mul(c.a2, c.a1_alpha));
    case SVGA3D_TC_MODULATECOLOR_ADDALPHA:
        return hn::Add(hn::Mul(c.a1, c.a2), c.a1_alpha);
    case SVGA3D_TC_MODULATEINVALPHA_ADDCOLOR:
        return hn::Add(c.a1, hn::Mul(c.a2, one_minus(c.a1_alpha)));
    case SVGA3D_TC_MODULATEINVCOLOR_ADDALPHA:
        return hn::Add(hn::Mul(one_minus(c.a1), c.a2), c.a1_alpha);
    case SVGA3D_TC_MULTIPLYADD:
        return hn::Add(c.a0, hn::Mul(c.a1, c.a2));
    default: // SVGA3D_TC_LERP, the last that is announced
        return hn::Add(hn::Mul(c.a0, c.a1), hn::Mul(one_minus(c.a0), c.a2));
    }
}

HWY_INLINE float_lanes dot_product(const colors& a, const colors& b)
{
    const float_lanes half = hn::Set(floats, 0.5f);
    const float_lanes r = hn::Mul(hn::Sub(a.r, half), hn::Sub(b.r, half));
    const float_lanes g = hn::Mul(hn::Sub(a.g, half), hn::Sub(b.g, half));
    const float_lanes b_product = hn::Mul(hn::Sub(a.b, half), hn::Sub(b.b, half));
    return into01(hn::Mul(hn::Add(hn::Add(r, g), b_product), hn::Set(floats, 4)));
}

HWY_INLINE float_lanes stage_alpha(const combiner_stage& stage, const stage_inputs& in)
{
    const auto& which = stage.alpha_arguments;
    const colors& a1 = in.argument(which[1]);
    const colors& a2 = in.argument(which[2]);
    if (stage.alpha_operation == SVGA3D_TC_DISABLE)
        return in.previous.a;
    if (stage.alpha_operation == SVGA3D_TC_DOTPRODUCT3)
        return dot_product(a1, a2);
    return into01(operated(stage.alpha_operation, {in.argument(which[0]).a, a1.a, a2.a, a1.a}, in));
}

// One stage's result, clamped to 0..1.
HWY_NOINLINE colors combined(const combiner_stage& stage, const stage_inputs& in)
{
    const auto& which = stage.color_arguments;
    const colors& a0 = in.argument(which[0]);
    const colors& a1 = in.argument(which[1]);
    const colors& a2 = in.argument(which[2]);
    if (stage.color_operation == SVGA3D_TC_DOTPRODUCT3) {
        const float_lanes product = dot_product(a1, a2); // fills all four channels
        return {product, product, product, product};
    }
    const uint32_t operation = stage.color_operation;
    return {into01(operated(operation, {a0.r, a1.r, a2.r, a1.a}, in)),
            into01(operated(operation, {a0.g, a1.g, a2.g, a1.a}, in)),
            into01(operated(operation, {a0.b, a1.b, a2.b, a1.a}, in)), stage_alpha(stage, in)};
}

// ---- Fog ----------------------------------------------------------------------------------------------

// A share of 1 is no fog; alpha stays.
HWY_INLINE colors fogged(const colors& c, const colors& fog, float_lanes share)
{
    const float_lanes rest = one_minus(share);
    return {hn::Add(hn::Mul(c.r, share), hn::Mul(fog.r, rest)), hn::Add(hn::Mul(c.g, share), hn::Mul(fog.g, rest)),
            hn::Add(hn::Mul(c.b, share), hn::Mul(fog.b, rest)), c.a};
}

// ---- Blending -----------------------------------------------------------------------------------------

// What a blend factor's number stands for; one that the interface does not have is 0.
HWY_INLINE colors factor_of(uint32_t which, const colors& source, const colors& under, const colors& constant)
{
    const auto all = [](float_lanes v) HWY_ATTR { return colors{v, v, v, v}; };
    const auto inverse = [](const colors& c) HWY_ATTR {
        return colors{one_minus(c.r), one_minus(c.g), one_minus(c.b), one_minus(c.a)};
    };
    switch (which) {
    case SVGA3D_BLENDOP_ONE:
        return all(hn::Set(floats, 1));
    case SVGA3D_BLENDOP_SRCCOLOR:
        return source;
    case SVGA3D_BLENDOP_INVSRCCOLOR:
        return inverse(source);
    case SVGA3D_BLENDOP_SRCALPHA:
        return all(source.a);
    case SVGA3D_BLENDOP_INVSRCALPHA:
        return all(one_minus(source.a));
    case SVGA3D_BLENDOP_DESTALPHA:
        return all(under.a);
    case SVGA3D_BLENDOP_INVDESTALPHA:
        return all(one_minus(under.a));
    case SVGA3D_BLENDOP_DESTCOLOR:
        return under;
    case SVGA3D_BLENDOP_INVDESTCOLOR:
        return inverse(under);
    case SVGA3D_BLENDOP_SRCALPHASAT: {
        const float_lanes least = hn::Min(source.a, one_minus(under.a));
        return {least, least, least, hn::Set(floats, 1)};
    }
    case SVGA3D_BLENDOP_BLENDFACTOR:
        return constant;
    case SVGA3D_BLENDOP_INVBLENDFACTOR:
        return inverse(constant);
    default:
        return all(hn::Zero(floats));
    }
}

// Minimum and maximum ignore the factors; an unknown equation adds.
HWY_INLINE float_lanes equated(uint32_t equation, float_lanes source, float_lanes source_factor, float_lanes under,
                               float_lanes under_factor)
{
    const float_lanes above = hn::Mul(source, source_factor);
    const float_lanes below = hn::Mul(under, under_factor);
    switch (equation) {
    case SVGA3D_BLENDEQ_SUBTRACT:
        return hn::Sub(above, below);
    case SVGA3D_BLENDEQ_REVSUBTRACT:
        return hn::Sub(below, above);
    case SVGA3D_BLENDEQ_MINIMUM:
        return hn::Min(source, under);
    case SVGA3D_BLENDEQ_MAXIMUM:
        return hn::Max(source, under);
    default:
        return hn::Add(above, below);
    }
}

// Blended, and clamped to 0..1.
HWY_NOINLINE colors blended(const output_state& how, const colors& source, const colors& under)
{
    const colors constant = everywhere(how.factor);
    const colors s = factor_of(how.rgb.source, source, under, constant);
    const colors d = factor_of(how.rgb.destination, source, under, constant);
    const float_lanes sa = factor_of(how.alpha.source, source, under, constant).a;
    const float_lanes da = factor_of(how.alpha.destination, source, under, constant).a;
    return into01(colors{equated(how.rgb.equation, source.r, s.r, under.r, d.r),
                         equated(how.rgb.equation, source.g, s.g, under.g, d.g),
                         equated(how.rgb.equation, source.b, s.b, under.b, d.b),
                         equated(how.alpha.equation, source.a, sa, under.a, da)});
}

// Which bits of a pixel a colour mask lets through.
HWY_INLINE uint32_t mask_bits(uint32_t mask)
{
    return (mask & 1 ? 0xFF0000u : 0) | (mask & 2 ? 0xFF00u : 0) | (mask & 4 ? 0xFFu : 0) |
           (mask & 8 ? 0xFF000000u : 0);
}

} // namespace HWY_NAMESPACE
} // namespace kalix::device::raster
HWY_AFTER_NAMESPACE();

#endif
