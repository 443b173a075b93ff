// Depth and stencil tests in lanes: which pass, and what is written.
//
// The rules are fragment.cpp's and depth_stencil.cpp's, for the layouts that span.cpp lets through: depth alone in 16,
// 24 or 32 bits, at bit 0 or at bit 8 of its word, and stencil in the 8 bits below. Built again for each instruction
// set.

#include "device/raster/interpolator.h"
#include "device/raster/lanes_basis-inl.h"

#include <hwy/highway.h>

#if defined(KALIX_LANES_TESTS_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef KALIX_LANES_TESTS_INL
#undef KALIX_LANES_TESTS_INL
#else
#define KALIX_LANES_TESTS_INL
#endif

HWY_BEFORE_NAMESPACE();
namespace kalix::device::raster {
namespace HWY_NAMESPACE {

// An svga3d_compare, asked once what it lets pass: every compare function is a choice of less, equal and greater.
struct comparison {
    word_mask less, equal, greater; // all lanes or none

    explicit HWY_INLINE comparison(uint32_t compare)
        : less{when(passes(compare, 0, 1))}, equal{when(passes(compare, 0, 0))}, greater{when(passes(compare, 1, 0))}
    {
    }
    HWY_INLINE word_mask operator()(word_lanes left, word_lanes right) const
    {
        const word_mask below = hn::And(hn::Lt(left, right), less);
        const word_mask same = hn::And(hn::Eq(left, right), equal);
        const word_mask above = hn::And(hn::Gt(left, right), greater);
        return hn::Or(hn::Or(below, same), above);
    }
};

struct depth_test {
    const depth_target& target;
    bool writes;
    comparison compare;
    real_lanes bias, scale;

    HWY_INLINE depth_test(const draw_setup& setup, const interpolator& at)
        : target{setup.to.depth}, writes{setup.writes_depth}, compare{setup.depth_compare},
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
        // By the operations of quantized_depth(), so that depths are the same words whatever way a draw takes.
        const word_lanes here = nearest_words(hn::Mul(inside, scale));
        const depth_layout& layout = target.layout;
        const bool wide = layout.bytes == 4;
        const word_lanes held = wide ? load_words(texels, count) : load_halves(texels, count);
        const bool shifts = layout.depth_shift != 0; // by 8, over the stencil's bits
        const word_lanes there = shifts ? hn::ShiftRight<8>(held) : held;
        const word_mask passed = hn::And(compare(here, there), hn::FirstN(words, count));
        // The bits below the depth stay: stencil, or what means nothing.
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

// Of words with 8 bits of stencil below the depth.
struct stencil_test {
    static constexpr uint32_t bits_mask = 255;
    const stencil_function& function;
    comparison compare;
    uint32_t reference, mask, write_mask;

    HWY_INLINE stencil_test(const draw_setup& setup, bool back_face)
        : function{back_face ? setup.back : setup.front}, compare{function.compare}, reference{setup.stencil_reference},
          mask{setup.stencil_mask}, write_mask{setup.stencil_write_mask & bits_mask}
    {
    }

    HWY_INLINE word_mask passed(word_lanes held) const
    {
        return compare(hn::Set(words, reference & mask), hn::And(held, hn::Set(words, mask & bits_mask)));
    }

    // The words with their stencil after the tests; depth_passed counts where the stencil has.
    HWY_INLINE word_lanes after(word_lanes held, word_mask stencil_passed, word_mask depth_passed) const
    {
        const word_lanes before = hn::And(held, hn::Set(words, bits_mask));
        const word_lanes drawn =
            hn::IfThenElse(depth_passed, operated(function.pass, before), operated(function.depth_fail, before));
        const word_lanes result = hn::IfThenElse(stencil_passed, drawn, operated(function.fail, before));
        const word_lanes written = hn::Set(words, write_mask);
        return hn::Or(hn::AndNot(written, held), hn::And(written, result));
    }

private:
    HWY_INLINE word_lanes operated(uint32_t operation, word_lanes value) const
    {
        const word_lanes one_word = hn::Set(words, 1);
        const word_lanes largest = hn::Set(words, bits_mask);
        switch (operation) {
        case SVGA3D_STENCILOP_ZERO:
            return hn::Zero(words);
        case SVGA3D_STENCILOP_REPLACE:
            return hn::Set(words, reference & bits_mask);
        case SVGA3D_STENCILOP_INCRSAT:
            return hn::Min(hn::Add(value, one_word), largest);
        case SVGA3D_STENCILOP_DECRSAT:
            return hn::Sub(hn::Max(value, one_word), one_word);
        case SVGA3D_STENCILOP_INVERT:
            return hn::AndNot(value, largest);
        case SVGA3D_STENCILOP_INCR:
            return hn::And(hn::Add(value, one_word), largest);
        case SVGA3D_STENCILOP_DECR:
            return hn::And(hn::Sub(value, one_word), largest);
        default:
            return value;
        }
    }
};

} // namespace HWY_NAMESPACE
} // namespace kalix::device::raster
HWY_AFTER_NAMESPACE();

#endif
