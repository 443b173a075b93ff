#include "hardware/gpu/vmware_svga/lib/device/raster/lanes.h"

#include "hardware/gpu/vmware_svga/lib/device/raster/rows.h"

#include <bit>

// What follows is built once for each instruction set.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "hardware/gpu/vmware_svga/lib/device/raster/lanes.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kalix::device::raster {
namespace HWY_NAMESPACE {
namespace {

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

// ---- Numbers ------------------------------------------------------------------------------------------

// The nearest integers, ties to even, modulo 2^32, of what lies within 2^51 to both sides.
HWY_INLINE word_lanes nearest_words(real_lanes v)
{
    return hn::TruncateTo(words, hn::BitCast(bits, hn::Add(v, hn::Set(reals, rounding_magic))));
}

// Into low..high; what is not a number becomes low.
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

// ---- Planes -------------------------------------------------------------------------------------------

// A value along a row: what it is in the column of the planes' origin, and its growth a pixel.
struct line {
    real_lanes at, dx;

    HWY_INLINE line(const plane& p, double below) : at{hn::Set(reals, p.at_row(below))}, dx{hn::Set(reals, p.dx)} {}
    HWY_INLINE real_lanes operator()(real_lanes right) const { return hn::Add(at, hn::Mul(dx, right)); }
};

// The diffuse colour along a span: exact at its first pixel, and from there in steps of single precision.
struct diffuse_line {
    colors start, step;

    HWY_INLINE diffuse_line(const interpolator& at, double right, double below)
        : start{first(at, 0, right, below), first(at, 1, right, below), first(at, 2, right, below),
                first(at, 3, right, below)},
          step{growth(at, 0), growth(at, 1), growth(at, 2), growth(at, 3)}
    {
    }
    HWY_INLINE colors operator()(float_lanes index) const
    {
        return {hn::Add(start.r, hn::Mul(step.r, index)), hn::Add(start.g, hn::Mul(step.g, index)),
                hn::Add(start.b, hn::Mul(step.b, index)), hn::Add(start.a, hn::Mul(step.a, index))};
    }

private:
    static HWY_INLINE float_lanes first(const interpolator& at, uint32_t channel, double right, double below)
    {
        return hn::Set(floats, static_cast<float>(at.value_plane(varying_diffuse + channel)(right, below)));
    }
    static HWY_INLINE float_lanes growth(const interpolator& at, uint32_t channel)
    {
        return hn::Set(floats, static_cast<float>(at.value_plane(varying_diffuse + channel).dx));
    }
};

// ---- Depth --------------------------------------------------------------------------------------------

struct depth_test {
    const depth_target& target;
    bool writes;
    word_mask less, equal, greater; // all lanes or none: what passes
    real_lanes bias, scale;

    HWY_INLINE depth_test(const draw_setup& setup, const interpolator& at)
        : target{setup.to.depth}, writes{setup.writes_depth}, less{when(passes(setup.depth_compare, 0, 1))},
          equal{when(passes(setup.depth_compare, 0, 0))}, greater{when(passes(setup.depth_compare, 1, 0))},
          bias{hn::Set(reals, at.depth_bias())}, scale{hn::Set(reals, depth_scale(setup.to.depth.layout))}
    {
    }

    static HWY_INLINE word_mask when(bool passing) { return hn::Ne(hn::Set(words, passing ? 1 : 0), hn::Zero(words)); }

    // Which lanes pass at those depths; they are written to the texels then.
    HWY_INLINE word_mask run(real_lanes depth, std::byte* texels, size_t count) const
    {
        const real_lanes inside = into(hn::Add(depth, bias), hn::Zero(reals), hn::Set(reals, 1));
        const word_lanes here = nearest_words(hn::Mul(inside, scale));
        const depth_layout& layout = target.layout;
        const bool wide = layout.bytes == 4;
        const word_lanes held = wide ? load_words(texels, count) : load_halves(texels, count);
        const bool shifts = layout.depth_shift != 0; // by 8, over the stencil's bits
        const word_lanes there = shifts ? hn::ShiftRight<8>(held) : held;
        const word_mask below = hn::And(hn::Lt(here, there), less);
        const word_mask same = hn::And(hn::Eq(here, there), equal);
        const word_mask above = hn::And(hn::Gt(here, there), greater);
        const word_mask passed = hn::And(hn::Or(hn::Or(below, same), above), hn::FirstN(words, count));
        if (!writes)
            return passed;
        const word_lanes kept = hn::And(held, hn::Set(words, 255));
        const word_lanes written = shifts ? hn::Or(hn::ShiftLeft<8>(here), kept) : here;
        if (wide)
            store_words(written, passed, texels);
        else
            store_halves(written, passed, texels, count);
        return passed;
    }
};

// ---- Textures -----------------------------------------------------------------------------------------

// One direction of a texture, and what lies beyond its side.
struct texture_axis {
    real_lanes scale, low, high;
    int_lanes last, mask;
    double span;       // 2^-16 texels across
    bool wraps, folds; // repeats; repeats a side that is no power of two

    HWY_INLINE texture_axis(uint32_t side, uint32_t mode)
        : last{hn::Set(ints, static_cast<int32_t>(side) - 1)}, mask{hn::Set(ints, static_cast<int32_t>(side) - 1)},
          span{static_cast<double>(side) * one}, wraps{mode == SVGA3D_TEX_ADDRESS_WRAP}, folds{
                                                                                             wraps &&
                                                                                             !std::has_single_bit(side)}
    {
        const double reach = wraps ? position_limit : span + one;
        scale = hn::Set(reals, span);
        low = hn::Set(reals, wraps ? -reach : -static_cast<double>(one));
        high = hn::Set(reals, reach);
    }

    // Coordinates of 0..1 across the side, in 2^-16 texels.
    HWY_INLINE int_lanes position(real_lanes coordinate) const
    {
        real_lanes at = into(hn::Mul(coordinate, scale), low, high);
        if (folds)
            at = folded(at);
        return hn::BitCast(ints, nearest_words(at));
    }

    // A texel's column or row, at most one beyond the side where it was folded.
    HWY_INLINE int_lanes texel(int_lanes at) const
    {
        if (wraps && !folds)
            return hn::And(at, mask);
        if (folds) {
            at = hn::IfThenElse(hn::Lt(at, hn::Zero(ints)), last, at);
            at = hn::IfThenElse(hn::Gt(at, last), hn::Zero(ints), at);
        }
        return hn::Min(hn::Max(at, hn::Zero(ints)), last);
    }

private:
    // Into the side, which the coordinate may lie many times beyond.
    HWY_INLINE real_lanes folded(real_lanes at) const
    {
        const real_lanes magic = hn::Set(reals, rounding_magic);
        const real_lanes whole = hn::Sub(hn::Add(at, magic), magic);
        const real_lanes times = hn::Floor(hn::Mul(whole, hn::Set(reals, 1 / span)));
        const real_lanes side = hn::Set(reals, span);
        real_lanes rest = hn::Sub(whole, hn::Mul(times, side));
        rest = hn::IfThenElse(hn::Lt(rest, hn::Zero(reals)), hn::Add(rest, side), rest);
        return hn::IfThenElse(hn::Ge(rest, side), hn::Sub(rest, side), rest);
    }
};

struct texture_lanes {
    const image_view& image;
    const uint32_t* texels;
    int_lanes row_bytes;
    word_lanes opaque; // of a format without alpha, what its fourth byte reads as
    texture_axis u, v;

    explicit HWY_INLINE texture_lanes(const sampler& from)
        : image{from.image(0, 0)}, texels{reinterpret_cast<const uint32_t*>(image.bytes)},
          row_bytes{hn::Set(ints, static_cast<int32_t>(image.row_bytes))},
          opaque{hn::Set(words, image.format_number == SVGA3D_X8R8G8B8 ? 0xFF000000u : 0)},
          u{image.width, from.address_u}, v{image.height, from.address_v}
    {
    }

    // Asks for a texel's memory, roughly where it is; beyond the first copy of the texture nothing is asked for.
    HWY_INLINE void fetch(double s, double t) const
    {
        if (s >= 0 && s < 1 && t >= 0 && t < 1)
            __builtin_prefetch(image.bytes + static_cast<size_t>(t * image.height) * image.row_bytes +
                               static_cast<size_t>(s * image.width) * 4);
    }

    HWY_INLINE word_lanes at(int_lanes column, int_lanes row) const
    {
        const int_lanes offset = hn::Add(hn::Mul(row, row_bytes), hn::ShiftLeft<2>(column));
        return hn::Or(hn::GatherOffset(words, texels, offset), opaque);
    }

    HWY_INLINE colors nearest(real_lanes s, real_lanes t) const
    {
        const int_lanes column = u.texel(hn::ShiftRight<fraction_bits>(u.position(s)));
        const int_lanes row = v.texel(hn::ShiftRight<fraction_bits>(v.position(t)));
        return scaled(unpacked_bytes(at(column, row)), 1 / 255.0f);
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
        return scaled(mix(above, below, share_of(down)), 1 / 255.0f);
    }

private:
    static HWY_INLINE float_lanes share_of(int_lanes position)
    {
        const int_lanes fraction = hn::And(position, hn::Set(ints, one - 1));
        return hn::Mul(hn::ConvertTo(floats, fraction), hn::Set(floats, 1.0f / one));
    }
};

// ---- Triangles ----------------------------------------------------------------------------------------

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
    const float_lanes rest = hn::Sub(hn::Set(floats, 1), source.a);
    const auto channel = [&](float_lanes above, float_lanes below)
                             HWY_ATTR { return hn::Add(hn::Mul(above, source.a), hn::Mul(below, rest)); };
    return {channel(source.r, under.r), channel(source.g, under.g), channel(source.b, under.b),
            channel(source.a, under.a)};
}

// A row's values, and what all rows of the triangle share.
template <sampling how>
class painter {
public:
    HWY_INLINE painter(const draw_setup& setup, const interpolator& at)
        : setup_{setup}, at_{at}, depth_{setup, at}, texture_{setup.chain.stages[0].texture},
          hidden_{hn::Set(words, setup.to.color.format_number == SVGA3D_X8R8G8B8 ? 0xFF000000u : 0)}
    {
    }

    // Asks for a row's memory before its turn: the next row lies a whole pitch away, where no machine looks by itself.
    HWY_INLINE void fetch(const span& what) const
    {
        constexpr int64_t line_pixels = 16, ahead = 16 * line_pixels;
        const auto y = static_cast<uint32_t>(what.y);
        for (int64_t x = what.left; x < HWY_MIN(what.right, what.left + ahead); x += line_pixels) {
            __builtin_prefetch(setup_.to.color.texel(static_cast<uint32_t>(x), y), 1);
            if (setup_.tests_depth)
                __builtin_prefetch(setup_.to.depth.view.texel(static_cast<uint32_t>(x), y), 1);
        }
        if constexpr (how != sampling::none) {
            const double below = at_.below_origin(what.y);
            fetch_texel(at_.right_of_origin(what.left), below);
            fetch_texel(at_.right_of_origin(what.right - 1), below);
        }
    }

    // Returns the pixels drawn.
    HWY_INLINE uint64_t draw(const span& what) const
    {
        const double below = at_.below_origin(what.y);
        const double left = at_.right_of_origin(what.left);
        const row_lines lines{at_, left, below};
        const auto x = static_cast<uint32_t>(what.left);
        const auto y = static_cast<uint32_t>(what.y);
        std::byte* color = setup_.to.color.texel(x, y);
        const uint32_t depth_bytes = setup_.tests_depth ? setup_.to.depth.layout.bytes : 0;
        std::byte* depth = setup_.tests_depth ? setup_.to.depth.view.texel(x, y) : nullptr;
        const auto pixels = static_cast<size_t>(what.right - what.left);
        uint64_t drawn = 0;
        for (size_t i = 0; i < pixels; i += lane_count) {
            const size_t count = HWY_MIN(lane_count, pixels - i);
            const real_lanes right = hn::Iota(reals, left + static_cast<double>(i));
            word_mask which = hn::FirstN(words, count);
            if (setup_.tests_depth)
                which = depth_.run(lines.depth(right), depth, count);
            if (HWY_LIKELY(!hn::AllFalse(words, which))) {
                put(lines, right, hn::Iota(floats, static_cast<float>(i)), which, color, count);
                drawn += hn::CountTrue(words, which);
            }
            color += lane_count * 4;
            depth += lane_count * depth_bytes;
        }
        return drawn;
    }

private:
    HWY_INLINE void fetch_texel(double right, double below) const
    {
        const double w = at_.w_at(right, below);
        texture_.fetch(at_.value_plane(varying_coordinates)(right, below) * w,
                       at_.value_plane(varying_coordinates + 1)(right, below) * w);
    }

    struct row_lines {
        line depth, inverse_w, u, v;
        diffuse_line diffuse;

        // Without a texture the draw walks no coordinates.
        static constexpr uint32_t s_plane = how == sampling::none ? uint32_t{varying_diffuse} : varying_coordinates;
        static constexpr uint32_t t_plane = how == sampling::none ? uint32_t{varying_diffuse} : varying_coordinates + 1;

        HWY_INLINE row_lines(const interpolator& at, double left, double below)
            : depth{at.depth_plane(), below}, inverse_w{at.inverse_w_plane(), below}, u{at.value_plane(s_plane), below},
              v{at.value_plane(t_plane), below}, diffuse{at, left, below}
        {
        }
    };

    HWY_INLINE void put(const row_lines& lines, real_lanes right, float_lanes index, word_mask which, std::byte* color,
                        size_t count) const
    {
        real_lanes w = hn::Set(reals, 1);
        colors result = lines.diffuse(index);
        if (!at_.is_affine()) {
            w = hn::Div(w, lines.inverse_w(right));
            const float_lanes single = hn::DemoteTo(floats, w);
            result = {hn::Mul(result.r, single), hn::Mul(result.g, single), hn::Mul(result.b, single),
                      hn::Mul(result.a, single)};
        }
        result = {into01(result.r), into01(result.g), into01(result.b), into01(result.a)};
        if constexpr (how != sampling::none) {
            const real_lanes s = hn::Mul(lines.u(right), w);
            const real_lanes t = hn::Mul(lines.v(right), w);
            result = joined(setup_.factors, how == sampling::linear ? texture_.linear(s, t) : texture_.nearest(s, t),
                            result);
        }
        if (setup_.output.blends) {
            const word_lanes under = hn::Or(load_words(color, count), hidden_);
            result = over(result, scaled(unpacked_bytes(under), 1 / 255.0f));
        }
        store_words(packed_pixels(result), which, color);
    }

    const draw_setup& setup_;
    const interpolator& at_;
    depth_test depth_;
    texture_lanes texture_;
    word_lanes hidden_; // what the target's fourth byte reads as when its format has no alpha
};

template <sampling how>
void draw_spans(const draw_setup& setup, const interpolator& at, std::span<const span> spans, share& of)
{
    const painter<how> paint{setup, at};
    constexpr size_t ahead = 3; // rows: as long as memory takes to answer
    for (size_t i = 0; i < HWY_MIN(ahead, spans.size()); ++i)
        paint.fetch(spans[i]);
    for (size_t i = 0; i < spans.size(); ++i) {
        if (i + ahead < spans.size())
            paint.fetch(spans[i + ahead]);
        of.samples += paint.draw(spans[i]);
    }
}

spans_function chosen(const draw_setup& setup)
{
    if (setup.chain.count == 0)
        return draw_spans<sampling::none>;
    return setup.chain.stages[0].texture.magnify >= SVGA3D_TEX_FILTER_LINEAR ? draw_spans<sampling::linear>
                                                                             : draw_spans<sampling::nearest>;
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace kalix::device::raster
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kalix::device::raster {
HWY_EXPORT(chosen);

spans_function lanes_for(const draw_setup& setup)
{
    return HWY_DYNAMIC_DISPATCH(chosen)(setup);
}
} // namespace kalix::device::raster
#endif
