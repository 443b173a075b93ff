#include "hardware/gpu/vmware_svga/lib/device/raster/lanes.h"

// What follows is built once for each instruction set.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "hardware/gpu/vmware_svga/lib/device/raster/lanes.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "hardware/gpu/vmware_svga/lib/device/raster/lanes_shading-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kalix::device::raster {
namespace HWY_NAMESPACE {
namespace {

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

    struct result {
        word_mask passed;
        word_lanes written; // what the texels are where they are drawn
    };

    // Which of the first lanes pass at those depths.
    HWY_INLINE result run(real_lanes depth, const std::byte* texels, size_t count) const
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
        const word_lanes kept = hn::And(held, hn::Set(words, 255));
        return {passed, shifts ? hn::Or(hn::ShiftLeft<8>(here), kept) : here};
    }

    HWY_INLINE void write(word_lanes written, word_mask which, std::byte* texels, size_t count) const
    {
        if (!writes)
            return;
        if (target.layout.bytes == 4)
            store_words(written, which, texels);
        else
            store_halves(written, which, texels, count);
    }
};

// Draws a triangle's rows: their depths here, their colours by the shading.
template <typename shading>
class painter {
public:
    HWY_INLINE painter(const draw_setup& setup, const interpolator& at)
        : setup_{setup}, at_{at}, depth_{setup, at}, shading_{setup, at}
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
        const double below = at_.below_origin(what.y);
        shading_.fetch(at_.right_of_origin(what.left), below);
        shading_.fetch(at_.right_of_origin(what.right - 1), below);
    }

    // Returns the pixels drawn.
    HWY_INLINE uint64_t draw(const span& what) const
    {
        const double below = at_.below_origin(what.y);
        const double left = at_.right_of_origin(what.left);
        const line depth_line{at_.depth_plane(), below};
        const typename shading::row row{shading_, left, below};
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
            typename depth_test::result tested{hn::FirstN(words, count), hn::Undefined(words)};
            if (setup_.tests_depth)
                tested = depth_.run(depth_line(right), depth, count);
            if (HWY_LIKELY(!hn::AllFalse(words, tested.passed))) {
                const float_lanes index = hn::Iota(floats, static_cast<float>(i));
                const word_mask put = row.put(right, index, tested.passed, color, count);
                if (setup_.tests_depth)
                    depth_.write(tested.written, put, depth, count);
                drawn += hn::CountTrue(words, put);
            }
            color += lane_count * 4;
            depth += lane_count * depth_bytes;
        }
        return drawn;
    }

private:
    const draw_setup& setup_;
    const interpolator& at_;
    depth_test depth_;
    shading shading_;
};

template <typename shading>
void draw_spans(const draw_setup& setup, const interpolator& at, std::span<const span> spans, share& of)
{
    const painter<shading> paint{setup, at};
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
    if (!setup.plain)
        return draw_spans<full_shading>;
    if (setup.chain.count == 0)
        return draw_spans<plain_shading<sampling::none>>;
    return setup.chain.stages[0].texture.magnify >= SVGA3D_TEX_FILTER_LINEAR
               ? draw_spans<plain_shading<sampling::linear>>
               : draw_spans<plain_shading<sampling::nearest>>;
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
