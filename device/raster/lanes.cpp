// Rows of spans in lanes: depth and stencil here, colours by the shading that the draw's state chose.
//
// The vector library includes this file once for each instruction set (the build names it), each time with its own
// HWY_NAMESPACE; the headers "-inl.h" are made for that, by guards that are turned with every set. At the end, once,
// the function for the machine that runs is chosen.

#include "device/raster/lanes.h"

// What follows is built once for each instruction set.
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "device/raster/lanes_shading-inl.h"
#include "device/raster/lanes_tests-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kalix::device::raster {
namespace HWY_NAMESPACE {
namespace {

// Draws a triangle's rows: their depths here, their colours by the shading.
template <typename shading>
class lane_painter {
public:
    HWY_INLINE lane_painter(const draw_setup& setup, const interpolator& at)
        : setup_{setup}, at_{at}, depth_{setup, at}, stencil_{setup, at.is_back_face()}, shading_{setup, at},
          tests_{setup.tests_depth || setup.tests_stencil}, tested_{setup.tests_depth ? setup.to.depth.view
                                                                                      : setup.to.stencil.view}
    {
    }

    // Asks for a row's memory before its turn: the next row lies a whole pitch away, where no machine looks by itself.
    HWY_INLINE void fetch(const span& what) const
    {
        // A cache line of 64 bytes has 16 pixels; the first lines of a row are enough, since within a row memory comes
        // by itself.
        constexpr int64_t line_pixels = 16, ahead = 16 * line_pixels;
        const auto y = static_cast<uint32_t>(what.y);
        for (int64_t x = what.left; x < HWY_MIN(what.right, what.left + ahead); x += line_pixels) {
            __builtin_prefetch(setup_.to.color.texel(static_cast<uint32_t>(x), y), 1);
            if (tests_)
                __builtin_prefetch(tested_.texel(static_cast<uint32_t>(x), y), 1);
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
        const uint32_t tested_bytes = tests_ ? tested_.format->block_bytes : 0;
        std::byte* tested_texels = tests_ ? tested_.texel(x, y) : nullptr;
        const auto pixels = static_cast<size_t>(what.right - what.left);
        uint64_t drawn = 0;
        for (size_t i = 0; i < pixels; i += lane_count) {
            // The last lanes of a span may be fewer: masks keep what is read, tested and counted to these.
            const size_t count = HWY_MIN(lane_count, pixels - i);
            // Exact, as each pixel's own distance from the first corner is: both are whole steps of 1/256 pixel.
            const real_lanes right = hn::Iota(reals, left + static_cast<double>(i));
            depth_test::result tested{hn::FirstN(words, count), hn::Zero(words)};
            if (setup_.tests_depth)
                tested = depth_.run(depth_line(right), tested_texels, count);
            if (shading::has_stencil && setup_.tests_stencil)
                tested.passed = stencilled(tested, tested_texels, count);
            if (HWY_LIKELY(!hn::AllFalse(words, tested.passed))) {
                const float_lanes index = hn::Iota(floats, static_cast<float>(i));
                const word_mask put = row.put(right, index, tested.passed, color, count);
                // Written last, since the alpha test, a part of putting, has a say. With a stencil there is no alpha
                // test in lanes, and both have been written as one word.
                if (setup_.tests_depth && !setup_.tests_stencil)
                    depth_.write(tested.written, put, tested_texels, count);
                drawn += hn::CountTrue(words, put);
            }
            color += lane_count * 4;
            tested_texels += lane_count * tested_bytes;
        }
        return drawn;
    }

private:
    // Which lanes pass the stencil test and, as found before, the depth test; both are written to the texels.
    HWY_INLINE word_mask stencilled(const depth_test::result& depth, std::byte* texels, size_t count) const
    {
        const word_lanes held = load_words(texels, count);
        const word_mask passed = stencil_.passed(held);
        const word_mask both = hn::And(passed, depth.passed);
        const bool writes_depth = setup_.tests_depth && setup_.writes_depth;
        const word_lanes word = writes_depth ? hn::IfThenElse(both, depth.written, held) : held;
        store_words(stencil_.after(word, passed, depth.passed), hn::FirstN(words, count), texels);
        return both;
    }

    const draw_setup& setup_;
    const interpolator& at_;
    depth_test depth_;
    stencil_test stencil_;
    shading shading_;
    bool tests_;
    const image_view& tested_; // what holds depth and stencil: one image, when both are tested
};

template <typename shading>
void draw_spans(const draw_setup& setup, const interpolator& at, std::span<const span> spans, share& of)
{
    const lane_painter<shading> paint{setup, at};
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
