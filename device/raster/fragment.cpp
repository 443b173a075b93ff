// One pixel in the general way. Values that vary come in double precision and are clamped here, pixel by pixel; colours
// are single from then on.

#include "device/raster/fragment.h"

#include "device/raster/numeric.h"

#include <cmath>

namespace kalix::device::raster {
namespace {

color color_from(const varyings& values, uint32_t at)
{
    const auto channel = [&](uint32_t i) { return static_cast<float>(clamp01(values[at + i])); };
    return {channel(0), channel(1), channel(2), channel(3)};
}

direction coordinates_of(const combiner_stage& stage, const varyings& values)
{
    const uint32_t at = varying_coordinates + 4 * stage.coordinates;
    // Divided at the pixel, not at the vertices: a quotient is not linear over a primitive. Over 0 it is infinite or no
    // number, which to_integer() gives a texel.
    const double divisor = stage.projected ? values[at + stage.divisor] : 1;
    return stage.projected ? direction{values[at] / divisor, values[at + 1] / divisor, values[at + 2] / divisor}
                           : direction{values[at], values[at + 1], values[at + 2]};
}

color sampled(const combiner_stage& stage, const fragment& what)
{
    const texture_point here = locate(stage.texture, coordinates_of(stage, *what.values));
    double detail = 0;
    if (what.right && stage.texture.needs_detail()) {
        const auto beside = [&](const varyings& values) {
            // On the pixel's own face, even where the neighbour looks at another one: steps are measured there.
            return locate_on(stage.texture, here.face, coordinates_of(stage, values));
        };
        detail = detail_of(stage.texture, here, beside(*what.right), beside(*what.below));
    }
    return sample(stage.texture, here, detail);
}

color textured(const draw_setup& setup, const fragment& what)
{
    const color diffuse = color_from(*what.values, varying_diffuse);
    // What comes before the first stage is the diffuse colour, which is the result as well when no stage is on.
    combiner_inputs inputs{setup.chain.constant, diffuse, diffuse, {}, color_from(*what.values, varying_specular)};
    for (uint32_t i = 0; i < setup.chain.count; ++i) {
        const combiner_stage& stage = setup.chain.stages[i];
        inputs.texture = sampled(stage, what);
        inputs.previous = combine(stage, inputs);
    }
    color result = inputs.previous;
    if (setup.adds_specular)
        result = {clamp01(result.r + inputs.specular.r), clamp01(result.g + inputs.specular.g),
                  clamp01(result.b + inputs.specular.b), result.a};
    return result;
}

// Range fog needs the pixel's own place, since a distance is no plane over the window; the other kinds have their
// factor or their depth from the vertices.
double fog_share(const fog_state& fog, const varyings& values)
{
    if (!fog.per_pixel)
        return clamp01(values[varying_fog]);
    const double* const place = values.data() + fog.place;
    return fog_factor(fog, fog.place != 0 ? distance_to(place[0], place[1], place[2]) : values[varying_fog]);
}

color fogged(const fog_state& fog, const color& c, const varyings& values)
{
    const auto f = static_cast<float>(fog_share(fog, values));
    return {c.r * f + fog.value.r * (1 - f), c.g * f + fog.value.g * (1 - f), c.b * f + fog.value.b * (1 - f), c.a};
}

// Stencil and depth tests, with what they write; whether the fragment goes on.
class tests {
public:
    tests(const draw_setup& setup, const fragment& what)
        : setup_{setup}, function_{what.back_face ? setup.back : setup.front}, what_{what}
    {
    }

    bool run() const
    {
        if (setup_.tests_stencil && !stencil_passes()) {
            write_stencil(function_.fail);
            return false;
        }
        const bool depth_passes = !setup_.tests_depth || depth_test();
        if (setup_.tests_stencil)
            write_stencil(depth_passes ? function_.pass : function_.depth_fail);
        return depth_passes;
    }

private:
    const draw_setup& setup_;
    const stencil_function& function_;
    const fragment& what_;

    bool stencil_passes() const
    {
        const depth_target& target = setup_.to.stencil;
        const uint32_t word = load_word(target.layout, target.view.texel(what_.x, what_.y));
        return passes(function_.compare, setup_.stencil_reference & setup_.stencil_mask,
                      stencil_of(target.layout, word) & setup_.stencil_mask);
    }

    void write_stencil(uint32_t operation) const
    {
        const depth_target& target = setup_.to.stencil;
        std::byte* const texel = target.view.texel(what_.x, what_.y);
        // Loaded anew: a depth test may just have written the other part of the same word.
        const uint32_t word = load_word(target.layout, texel);
        const uint32_t before = stencil_of(target.layout, word);
        const uint32_t after = stencil_result(operation, before, setup_.stencil_reference, target.layout.stencil_bits);
        const uint32_t mask = setup_.stencil_write_mask;
        store_word(target.layout, with_stencil(target.layout, word, (before & ~mask) | (after & mask)), texel);
    }

    bool depth_test() const
    {
        const depth_target& target = setup_.to.depth;
        std::byte* const texel = target.view.texel(what_.x, what_.y);
        const uint32_t word = load_word(target.layout, texel);
        const uint32_t depth = quantized_depth(target.layout, what_.depth);
        if (!passes(setup_.depth_compare, depth, depth_of(target.layout, word)))
            return false;
        if (setup_.writes_depth)
            store_word(target.layout, with_depth(target.layout, word, depth), texel);
        return true;
    }
};

} // namespace

double distance_to(double x, double y, double z)
{
    return std::sqrt(x * x + y * y + z * z);
}

double fog_factor(const fog_state& fog, double depth)
{
    switch (fog.function) {
    case 1:
        return clamp01(exp_of(-fog.density * depth));
    case 2:
        return clamp01(exp_of(-(fog.density * depth) * (fog.density * depth)));
    case 3:
        return clamp01((fog.end - depth) / (fog.end - fog.start)); // no fog or all of it where both are the same
    default:
        return 1;
    }
}

void draw_fragment(const draw_setup& setup, const fragment& what, share& of)
{
    color result = textured(setup, what);
    if (setup.fog.enabled)
        result = fogged(setup.fog, result, *what.values);
    if (setup.tests_alpha && !passes(setup.alpha_compare, result.a, setup.alpha_reference))
        return;
    // Samples count what passes both tests, whether there is a colour target or not.
    if (!tests{setup, what}.run())
        return;
    ++of.samples;
    if (setup.to.color)
        write_color(setup.output, setup.to.color, result, setup.to.color.texel(what.x, what.y));
}

} // namespace kalix::device::raster
