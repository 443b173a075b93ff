// Combiner operations, by the bits that announce them.

#include "tests/unit/device/raster/announced.h"

#include <functional>

namespace kalix::device::test {
namespace {

struct term { // one channel of the arguments, and what else a formula may ask
    double a0, a1, a2, alpha1;
    double dot;                        // of the first two, centred
    const std::array<rgba, 6>& inputs; // by argument's number

    double alpha(uint32_t argument) const { return inputs[argument][3]; }
    double blend(uint32_t argument) const { return a1 * alpha(argument) + a2 * (1 - alpha(argument)); }
};

const std::map<uint32_t, std::function<double(const term&)>> formulas = {
    {2, [](const term& t) { return t.a1; }},
    {3, [](const term& t) { return t.a2; }},
    {4, [](const term& t) { return t.a1 * t.a2; }},
    {5, [](const term& t) { return t.a1 + t.a2; }},
    {6, [](const term& t) { return t.a1 + t.a2 - 0.5; }},
    {7, [](const term& t) { return t.a1 - t.a2; }},
    {8, [](const term& t) { return t.blend(SVGA3D_TA_TEXTURE); }},
    {9, [](const term& t) { return t.blend(SVGA3D_TA_DIFFUSE); }},
    {10, [](const term& t) { return t.blend(SVGA3D_TA_PREVIOUS); }},
    {11, [](const term& t) { return t.blend(SVGA3D_TA_CONSTANT); }},
    {12, [](const term& t) { return t.a1 * t.a2 * 2; }},
    {13, [](const term& t) { return t.a1 * t.a2 * 4; }},
    {15, [](const term& t) { return 4 * t.dot; }},
    {16, [](const term& t) { return t.a1 + t.a2 * (1 - t.alpha(SVGA3D_TA_TEXTURE)); }},
    {17, [](const term& t) { return (t.a1 + t.a2 - 0.5) * 2; }},
    {18, [](const term& t) { return t.a1 + t.a2 - t.a1 * t.a2; }},
    {20, [](const term& t) { return t.a1 + t.alpha1 * t.a2; }},
    {21, [](const term& t) { return t.a1 * t.a2 + t.alpha1; }},
    {22, [](const term& t) { return t.a1 + (1 - t.alpha1) * t.a2; }},
    {23, [](const term& t) { return (1 - t.a1) * t.a2 + t.alpha1; }},
    {25, [](const term& t) { return t.a0 + t.a1 * t.a2; }},
    {26, [](const term& t) { return t.a0 * t.a1 + (1 - t.a0) * t.a2; }},
};

class CombinerTest : public announced_scene {
protected:
    // Constant, previous, diffuse, texture and specular: by argument's number, from 1 on.
    std::array<uint32_t, 6> words_{};
    std::array<rgba, 6> inputs_{};

    // The first stage makes the specular colour the previous one; the second is tried.
    void choose_inputs()
    {
        for (uint32_t& each : words_)
            each = random_();
        words_[SVGA3D_TA_PREVIOUS] = words_[SVGA3D_TA_SPECULAR];
        std::ranges::transform(words_, inputs_.begin(), unpacked);
        make_targets(4, 4);
        set(SVGA3D_RS_TEXTUREFACTOR, words_[SVGA3D_TA_CONSTANT]);
        texture(1, 1, {words_[SVGA3D_TA_TEXTURE]}, SVGA3D_TEX_FILTER_NEAREST);
        stage(1, SVGA3D_TS_BIND_TEXTURE, texture_sid);
        for (const uint32_t name : {SVGA3D_TS_COLORARG1, SVGA3D_TS_ALPHAARG1})
            stage(0, name, SVGA3D_TA_SPECULAR);
    }

    draw_result drawn()
    {
        const auto at = [this](float x, float y) {
            return corner{x, y, 0.5f, 1, words_[SVGA3D_TA_DIFFUSE], words_[SVGA3D_TA_SPECULAR], 0.5f, 0.5f};
        };
        return draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, {at(0, 0), at(4, 0), at(4, 4), at(0, 4)});
    }

    dice random_;

    term term_of(const std::array<uint32_t, 3>& arguments, size_t which) const
    {
        const rgba &zeroth = inputs_[arguments[0]], &first = inputs_[arguments[1]], &second = inputs_[arguments[2]];
        double dot = 0;
        for (size_t i = 0; i < 3; ++i)
            dot += (first[i] - 0.5) * (second[i] - 0.5);
        return {zeroth[which], first[which], second[which], first[3], dot, inputs_};
    }
};

TEST_F(CombinerTest, OperationsFollowTheirFormulas)
{
    const auto argument = [this] { return 1 + random_.below(5); };
    for (const auto& [which, formula] : formulas) {
        ASSERT_TRUE(value(31) >> which & 1) << which;
        for (int round = 0; round < 40; ++round) {
            SCOPED_TRACE(testing::Message() << "operation " << which << ", " << round);
            choose_inputs();
            const std::array<uint32_t, 3> rgb = {argument(), argument(), argument()};
            const std::array<uint32_t, 3> alpha = {argument(), argument(), argument()};
            stage(1, SVGA3D_TS_COLOROP, which);
            stage(1, SVGA3D_TS_ALPHAOP, which);
            for (uint32_t i = 0; i < 3; ++i) {
                constexpr uint32_t color_names[] = {SVGA3D_TS_COLORARG0, SVGA3D_TS_COLORARG1, SVGA3D_TS_COLORARG2};
                constexpr uint32_t alpha_names[] = {SVGA3D_TS_ALPHAARG0, SVGA3D_TS_ALPHAARG1, SVGA3D_TS_ALPHAARG2};
                stage(1, color_names[i], rgb[i]);
                stage(1, alpha_names[i], alpha[i]);
            }
            ASSERT_EQ(drawn(), draw_result::done);
            // The dot product fills all four channels.
            const auto& of_alpha = which == SVGA3D_TC_DOTPRODUCT3 ? rgb : alpha;
            expect_color(pixel(1, 1),
                         {formula(term_of(rgb, 0)), formula(term_of(rgb, 1)), formula(term_of(rgb, 2)),
                          formula(term_of(of_alpha, 3))},
                         1.01);
        }
    }
}

TEST_F(CombinerTest, WhatIsNotAnnouncedIsRefused)
{
    constexpr uint32_t disable = SVGA3D_TC_DISABLE;
    ASSERT_TRUE(value(31) >> disable & 1);
    for (uint32_t which = 0; which <= 32; ++which)
        for (const uint32_t name : {SVGA3D_TS_COLOROP, SVGA3D_TS_ALPHAOP}) {
            choose_inputs();
            stage(1, SVGA3D_TS_COLOROP, SVGA3D_TC_SELECTARG1);
            stage(1, SVGA3D_TS_ALPHAOP, SVGA3D_TC_SELECTARG1);
            stage(1, name, which);
            const bool known = which < 32 && value(31) >> which & 1;
            EXPECT_EQ(known, which == disable || formulas.contains(which)) << which;
            EXPECT_EQ(drawn(), known ? draw_result::done : draw_result::not_supported) << which;
            // A disabled colour ends the chain; a disabled alpha stays as it was.
            const uint32_t texture = words_[SVGA3D_TA_TEXTURE], previous = words_[SVGA3D_TA_PREVIOUS];
            const uint32_t disabled =
                name == SVGA3D_TS_COLOROP ? previous : (texture & 0xFFFFFF) | (previous & 0xFF000000);
            if (!known || which == disable) {
                EXPECT_EQ(pixel(1, 1), known ? disabled : 0);
            }
        }
}

} // namespace
} // namespace kalix::device::test
