// Shading: the colours of a row's lanes, from the planes of a triangle to the target's pixels.
//
// Plain shading is one texture or none, joined with the diffuse colour and blended by its alpha at most. Full shading
// has all texture stages, specular, fog, the alpha test, every blend function and the colour mask. Coordinates, w and
// fog's depth are in double precision, so that texels are the general way's; colours are single from a span's first
// pixel on. Which pixels come together must not show, so a colour depends on its place in the span and not in the
// vector. Built again for each instruction set.

#include "device/raster/interpolator.h"
#include "device/raster/lanes_levels-inl.h"
#include "device/raster/lanes_stages-inl.h"

#include <hwy/highway.h>

#if defined(KALIX_LANES_SHADING_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef KALIX_LANES_SHADING_INL
#undef KALIX_LANES_SHADING_INL
#else
#define KALIX_LANES_SHADING_INL
#endif

HWY_BEFORE_NAMESPACE();
namespace kalix::device::raster {
namespace HWY_NAMESPACE {

// ---- Along a row --------------------------------------------------------------------------------------

// A value along a row: what it is in the column of the planes' origin, and its growth a pixel.
struct line {
    real_lanes at, dx;

    HWY_INLINE line() : at{hn::Zero(reals)}, dx{hn::Zero(reals)} {}
    HWY_INLINE line(const plane& p, double below) : at{hn::Set(reals, p.at_row(below))}, dx{hn::Set(reals, p.dx)} {}
    HWY_INLINE real_lanes operator()(real_lanes right) const { return hn::Add(at, hn::Mul(dx, right)); }
};

// A colour along a span: exact at its first pixel, and from there in steps of single precision.
struct color_line {
    colors start, step;

    HWY_INLINE color_line(const interpolator& at, uint32_t which, double right, double below)
        : start{first(at, which, right, below), first(at, which + 1, right, below), first(at, which + 2, right, below),
                first(at, which + 3, right, below)},
          step{growth(at, which), growth(at, which + 1), growth(at, which + 2), growth(at, which + 3)}
    {
    }
    // So many pixels behind the first, multiplied by w, in 0..1.
    HWY_INLINE colors operator()(float_lanes index, float_lanes w) const
    {
        return into01(colors{hn::Mul(hn::Add(start.r, hn::Mul(step.r, index)), w),
                             hn::Mul(hn::Add(start.g, hn::Mul(step.g, index)), w),
                             hn::Mul(hn::Add(start.b, hn::Mul(step.b, index)), w),
                             hn::Mul(hn::Add(start.a, hn::Mul(step.a, index)), w)});
    }

private:
    static HWY_INLINE float_lanes first(const interpolator& at, uint32_t which, double right, double below)
    {
        return hn::Set(floats, static_cast<float>(at.value_plane(which)(right, below)));
    }
    static HWY_INLINE float_lanes growth(const interpolator& at, uint32_t which)
    {
        return hn::Set(floats, static_cast<float>(at.value_plane(which).dx));
    }
};

// What a value's plane gives is multiplied by.
struct w_line {
    line inverse;
    bool affine;

    HWY_INLINE w_line(const interpolator& at, double below)
        : inverse{at.inverse_w_plane(), below}, affine{at.is_affine()}
    {
    }
    HWY_INLINE real_lanes operator()(real_lanes right) const
    {
        const real_lanes one = hn::Set(reals, 1);
        return affine ? one : hn::Div(one, inverse(right));
    }
};

struct coordinate_lines {
    line s, t;

    HWY_INLINE coordinate_lines() = default;
    HWY_INLINE coordinate_lines(const interpolator& at, uint32_t stage, double below)
        : s{at.value_plane(varying_coordinates + 4 * stage), below}, t{at.value_plane(varying_coordinates + 4 * stage +
                                                                                      1),
                                                                       below}
    {
    }
};

// What the target's fourth byte reads as when its format has no alpha.
HWY_INLINE uint32_t hidden_alpha(const image_view& target)
{
    return target.format_number == SVGA3D_X8R8G8B8 ? 0xFF000000u : 0;
}

HWY_INLINE colors read_pixels(const std::byte* from, size_t count, uint32_t hidden)
{
    return scaled(unpacked_bytes(hn::Or(load_words(from, count), hn::Set(words, hidden))), 1 / 255.0f);
}

// Asks for the memory of the texel at a place, before its row's turn.
HWY_INLINE void fetch_texel(const interpolator& at, uint32_t stage, const texture_lanes& from, double right,
                            double below)
{
    const double w = at.w_at(right, below);
    from.fetch(at.value_plane(varying_coordinates + 4 * stage)(right, below) * w,
               at.value_plane(varying_coordinates + 4 * stage + 1)(right, below) * w);
}

// ---- Plain shading ------------------------------------------------------------------------------------

enum class sampling { none, nearest, linear };

// How the texture and the diffuse colour make the stage's result.
HWY_INLINE float_lanes joined(const factors& how, float_lanes texture, float_lanes diffuse)
{
    if (how.texture && how.diffuse)
        return hn::Mul(texture, diffuse);
    return how.texture ? texture : diffuse;
}
HWY_INLINE colors joined(const stage_factors& how, const colors& texture, const colors& diffuse)
{
    return {joined(how.rgb, texture.r, diffuse.r), joined(how.rgb, texture.g, diffuse.g),
            joined(how.rgb, texture.b, diffuse.b), joined(how.alpha, texture.a, diffuse.a)};
}

// Blended by the source's alpha over what lies there.
HWY_INLINE colors over(const colors& source, const colors& under)
{
    const float_lanes rest = one_minus(source.a);
    return {hn::Add(hn::Mul(source.r, source.a), hn::Mul(under.r, rest)),
            hn::Add(hn::Mul(source.g, source.a), hn::Mul(under.g, rest)),
            hn::Add(hn::Mul(source.b, source.a), hn::Mul(under.b, rest)),
            hn::Add(hn::Mul(source.a, source.a), hn::Mul(under.a, rest))};
}

template <sampling how>
struct plain_shading {
    static constexpr bool has_stencil = false;
    const draw_setup& setup;
    const interpolator& at;
    texture_lanes texture;
    uint32_t hidden;

    HWY_INLINE plain_shading(const draw_setup& of, const interpolator& over)
        : setup{of}, at{over}, hidden{hidden_alpha(of.to.color)}
    {
        if constexpr (how != sampling::none)
            texture = texture_lanes{of.chain.stages[0].texture};
    }

    HWY_INLINE void fetch(double right, double below) const
    {
        if constexpr (how != sampling::none)
            fetch_texel(at, 0, texture, right, below);
    }

    struct row {
        const plain_shading& in;
        w_line w;
        color_line diffuse;
        coordinate_lines coordinates;

        HWY_INLINE row(const plain_shading& of, double left, double below)
            : in{of}, w{of.at, below}, diffuse{of.at, varying_diffuse, left, below}
        {
            if constexpr (how != sampling::none)
                coordinates = {of.at, 0, below};
        }

        // Draws the chosen ones of the first lanes; which those were.
        HWY_INLINE word_mask put(real_lanes right, float_lanes index, word_mask which, std::byte* color,
                                 size_t count) const
        {
            const real_lanes by = w(right);
            colors result = diffuse(index, hn::DemoteTo(floats, by));
            if constexpr (how != sampling::none) {
                const real_lanes s = hn::Mul(coordinates.s(right), by);
                const real_lanes t = hn::Mul(coordinates.t(right), by);
                const colors texel =
                    scaled(how == sampling::linear ? in.texture.linear(s, t) : in.texture.nearest(s, t), 1 / 255.0f);
                result = joined(in.setup.factors, texel, result);
            }
            if (in.setup.output.blends)
                result = over(result, read_pixels(color, count, in.hidden));
            store_words(packed_pixels(result), which, color);
            return which;
        }
    };
};

// ---- Full shading -------------------------------------------------------------------------------------

struct full_shading {
    static constexpr bool has_stencil = true;
    const draw_setup& setup;
    const interpolator& at;
    texture_lanes textures[SVGA3D_TEXTURE_STAGES]; // of the stages in use
    uint32_t hidden, mask;

    HWY_INLINE full_shading(const draw_setup& of, const interpolator& over)
        : setup{of}, at{over}, hidden{hidden_alpha(of.to.color)}, mask{mask_bits(of.output.mask)}
    {
        for (uint32_t stage = 0; stage < of.chain.count; ++stage)
            if (of.chain.stages[stage].texture.shape != texture_shape::none)
                textures[stage] = texture_lanes{of.chain.stages[stage].texture};
    }

    HWY_INLINE void fetch(double right, double below) const
    {
        for (uint32_t stage = 0; stage < setup.chain.count; ++stage)
            if (setup.chain.stages[stage].texture.shape != texture_shape::none)
                fetch_texel(at, stage, textures[stage], right, below);
    }

    struct row {
        const full_shading& in;
        w_line w, next_w; // of this row, and of the one below
        color_line diffuse, specular;
        line fog;
        coordinate_lines coordinates[SVGA3D_TEXTURE_STAGES], next_coordinates[SVGA3D_TEXTURE_STAGES];

        HWY_INLINE row(const full_shading& of, double left, double below)
            : in{of}, w{of.at, below}, next_w{of.at, below + 1}, diffuse{of.at, varying_diffuse, left, below},
              specular{of.at, varying_specular, left, below}
        {
            const combiner_chain& chain = of.setup.chain;
            if (of.setup.fog.enabled)
                fog = {of.at.value_plane(varying_fog), below};
            for (uint32_t stage = 0; stage < chain.count; ++stage) {
                coordinates[stage] = {of.at, stage, below};
                if (chain.stages[stage].texture.needs_detail())
                    next_coordinates[stage] = {of.at, stage, below + 1};
            }
        }

        // Draws the chosen ones of the first lanes that pass the alpha test; which those were.
        HWY_INLINE word_mask put(real_lanes right, float_lanes index, word_mask which, std::byte* color,
                                 size_t count) const
        {
            const draw_setup& draw = in.setup;
            colors result = shaded(right, index, which);
            if (draw.tests_alpha)
                which = hn::And(which, passing(result.a));
            if (draw.output.blends)
                result = blended(draw.output, result, read_pixels(color, count, in.hidden));
            word_lanes pixels = packed_pixels(result);
            if (in.mask != ~0u) {
                const word_lanes written = hn::Set(words, in.mask);
                pixels = hn::Or(hn::And(pixels, written), hn::AndNot(written, load_words(color, count)));
            }
            store_words(pixels, which, color);
            return which;
        }

    private:
        // The fragments' colours, before what lies in the target has a say.
        HWY_INLINE colors shaded(real_lanes right, float_lanes index, word_mask which) const
        {
            const draw_setup& draw = in.setup;
            const real_lanes by = w(right);
            const float_lanes single = hn::DemoteTo(floats, by);
            stage_inputs inputs;
            inputs.constant = everywhere(draw.chain.constant);
            inputs.previous = inputs.diffuse = diffuse(index, single);
            inputs.specular = specular(index, single);
            for (uint32_t stage = 0; stage < draw.chain.count; ++stage) {
                inputs.texture = sampled(stage, right, by, which);
                inputs.previous = combined(draw.chain.stages[stage], inputs);
            }
            colors result = inputs.previous;
            if (draw.adds_specular)
                result = {into01(hn::Add(result.r, inputs.specular.r)), into01(hn::Add(result.g, inputs.specular.g)),
                          into01(hn::Add(result.b, inputs.specular.b)), result.a};
            if (draw.fog.enabled)
                result = fogged(result, everywhere(draw.fog.value), fog_share(hn::Mul(fog(right), by)));
            return result;
        }

        HWY_INLINE colors sampled(uint32_t stage, real_lanes right, real_lanes by, word_mask which) const
        {
            const sampler& from = in.setup.chain.stages[stage].texture;
            if (from.shape == texture_shape::none)
                return everywhere({0, 0, 0, 1});
            const texture_lanes& texture = in.textures[stage];
            const coordinate_lines& here = coordinates[stage];
            const real_lanes s = hn::Mul(here.s(right), by);
            const real_lanes t = hn::Mul(here.t(right), by);
            const colors bytes = from.needs_detail()
                                     ? sampled_with_detail(from, texture, steps_at(stage, right, s, t), which)
                                     : texture.filtered(from.magnify, s, t);
            colors texel = scaled(bytes, 1 / 255.0f);
            texel.a = hn::Div(bytes.a, hn::Set(floats, 255)); // exact: alpha tests are for equality, too
            return texel;
        }

        // The neighbours' coordinates, each divided by its own w: a step is measured where it leads.
        HWY_INLINE coordinate_steps steps_at(uint32_t stage, real_lanes right, real_lanes s, real_lanes t) const
        {
            const real_lanes beside = hn::Add(right, hn::Set(reals, 1));
            const real_lanes right_w = w(beside);
            const real_lanes below_w = next_w(right);
            const coordinate_lines& here = coordinates[stage];
            const coordinate_lines& below = next_coordinates[stage];
            return {s,
                    t,
                    hn::Mul(here.s(beside), right_w),
                    hn::Mul(here.t(beside), right_w),
                    hn::Mul(below.s(right), below_w),
                    hn::Mul(below.t(right), below_w)};
        }

        // Of a factor from the vertices, or of a depth under a linear function.
        HWY_INLINE float_lanes fog_share(real_lanes value) const
        {
            const fog_state& how = in.setup.fog;
            if (how.per_pixel)
                value = hn::Div(hn::Sub(hn::Set(reals, how.end), value), hn::Set(reals, how.end - how.start));
            return hn::DemoteTo(floats, into(value, hn::Zero(reals), hn::Set(reals, 1)));
        }

        HWY_INLINE word_mask passing(float_lanes alpha) const
        {
            const auto reference = hn::Set(floats, in.setup.alpha_reference);
            const uint32_t compare = in.setup.alpha_compare;
            // As comparison in lanes_tests-inl.h: what the function lets pass is asked by three numbers, once.
            const word_mask less = hn::RebindMask(words, hn::Lt(alpha, reference));
            const word_mask equal = hn::RebindMask(words, hn::Eq(alpha, reference));
            const word_mask greater = hn::RebindMask(words, hn::Gt(alpha, reference));
            return hn::Or(
                hn::Or(hn::And(less, when(passes(compare, 0, 1))), hn::And(equal, when(passes(compare, 0, 0)))),
                hn::And(greater, when(passes(compare, 1, 0))));
        }
    };
};

} // namespace HWY_NAMESPACE
} // namespace kalix::device::raster
HWY_AFTER_NAMESPACE();

#endif
