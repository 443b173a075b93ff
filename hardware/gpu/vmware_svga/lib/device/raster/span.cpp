#include "hardware/gpu/vmware_svga/lib/device/raster/span.h"

#include "hardware/gpu/vmware_svga/lib/device/raster/channels.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/pictures.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/rows.h"

#include <algorithm>
#include <cstring>

namespace kalix::device::raster {
namespace {

bool spans_on = true;

bool has_words(const image_view& image)
{
    return image.format_number == SVGA3D_X8R8G8B8 || image.format_number == SVGA3D_A8R8G8B8;
}

bool is_simple_address(uint32_t mode)
{
    return mode == SVGA3D_TEX_ADDRESS_WRAP || mode == SVGA3D_TEX_ADDRESS_CLAMP || mode == SVGA3D_TEX_ADDRESS_EDGE;
}

floats linear_texel(const texture& from, double u, double v)
{
    const int64_t s = from.u.position(u) - one / 2;
    const int64_t t = from.v.position(v) - one / 2;
    const int64_t x = s >> fraction_bits;
    const int64_t y = t >> fraction_bits;
    constexpr float step = 1.0f / one;
    const float across = static_cast<float>(s & (one - 1)) * step;
    const float down = static_cast<float>(t & (one - 1)) * step;
    const size_t left = from.u.texel(x);
    const size_t right = from.u.texel(x + 1);
    const auto filtered = [&](const std::byte* row) {
        return mixed(unpacked(from.word(row, left)), unpacked(from.word(row, right)), across);
    };
    const floats upper = filtered(from.row(from.v.texel(y)));
    const floats lower = filtered(from.row(from.v.texel(y + 1)));
    return mixed(upper, lower, down);
}

uint32_t nearest_texel(const texture& from, double u, double v)
{
    return from.word(from.row(from.v.texel(from.v.position(v) >> fraction_bits)),
                     from.u.texel(from.u.position(u) >> fraction_bits));
}

// ---- The one stage ------------------------------------------------------------------------------------

factors factors_of(uint32_t operation, const std::array<uint32_t, 3>& arguments)
{
    factors found;
    // Notes an argument; false for one that is none of the two, or that is there already. The stage before the
    // first one is the diffuse colour.
    const auto add = [&found](uint32_t argument) {
        const bool diffuse = argument == SVGA3D_TA_DIFFUSE || argument == SVGA3D_TA_PREVIOUS;
        bool& factor = diffuse ? found.diffuse : found.texture;
        const bool fits = (diffuse || argument == SVGA3D_TA_TEXTURE) && !factor;
        factor = factor || fits;
        return fits;
    };
    if (operation == SVGA3D_TC_SELECTARG1)
        found.known = add(arguments[1]);
    else if (operation == SVGA3D_TC_SELECTARG2)
        found.known = add(arguments[2]);
    else if (operation == SVGA3D_TC_MODULATE)
        found.known = add(arguments[1]) && add(arguments[2]);
    return found;
}

stage_factors factors_of(const combiner_chain& chain)
{
    if (chain.count == 0)
        return {{false, true, true}, {false, true, true}};
    const combiner_stage& stage = chain.stages[0];
    const factors alpha = stage.alpha_operation == SVGA3D_TC_DISABLE
                              ? factors{false, true, true}
                              : factors_of(stage.alpha_operation, stage.alpha_arguments);
    return {factors_of(stage.color_operation, stage.color_arguments), alpha};
}

// How the two factors make the colour, resolved once a span: what each channel is multiplied by.
class joining {
public:
    explicit joining(const stage_factors& how)
        : texture_{selected(how.rgb.texture, how.alpha.texture)}, diffuse_{selected(how.rgb.diffuse, how.alpha.diffuse)}
    {
    }

    // A factor that a channel does not have is 1, and a product with it exact.
    floats operator()(floats texture, floats diffuse) const
    {
        return chosen(texture, texture_) * chosen(diffuse, diffuse_);
    }

private:
    static words selected(bool rgb, bool alpha)
    {
        const int32_t color = rgb ? -1 : 0;
        return words{color, color, color, alpha ? -1 : 0};
    }
    static floats chosen(floats value, words by)
    {
        return std::bit_cast<floats>((std::bit_cast<words>(value) & by) |
                                     (std::bit_cast<words>(all_channels(1)) & ~by));
    }

    words texture_, diffuse_;
};

// ---- Spans --------------------------------------------------------------------------------------------

enum class texturing { none, nearest, linear };

// The depth test along a row, with everything that it needs at hand: what a pixel's store might change is not
// read again for the next one.
class depth_row {
public:
    depth_row(const draw_setup& setup, const span& what)
        : layout_{setup.to.depth.layout}, compare_{setup.depth_compare}, writes_{setup.writes_depth},
          texel_{setup.tests_depth
                     ? setup.to.depth.view.texel(static_cast<uint32_t>(what.left), static_cast<uint32_t>(what.y))
                     : nullptr}
    {
    }

    // Whether the row's next pixel passes at that depth; it is written then. Without a test all do.
    bool next_passes(const window_planes& at, double right, double below)
    {
        if (!texel_)
            return true;
        const uint32_t word = load_word(layout_, texel_);
        const uint32_t here = quantized_depth(layout_, at.depth_at(right, below));
        const bool passed = passes(compare_, here, depth_of(layout_, word));
        if (passed && writes_)
            store_word(layout_, with_depth(layout_, word, here), texel_);
        texel_ += layout_.bytes;
        return passed;
    }

private:
    depth_layout layout_;
    uint32_t compare_;
    bool writes_;
    std::byte* texel_;
};

// The diffuse colour along a span: exact at its first pixel, and from there in steps of single precision.
class diffuse_walk {
public:
    explicit diffuse_walk(const span& what)
    {
        // The channels in the order of a pixel's bytes.
        const plane* const planes[] = {&channel(what, 2), &channel(what, 1), &channel(what, 0), &channel(what, 3)};
        const double right = what.at.right_of_origin(what.left);
        const double below = what.at.below_origin(what.y);
        for (int i = 0; i < 4; ++i) {
            start_[i] = static_cast<float>((*planes[i])(right, below));
            step_[i] = static_cast<float>(planes[i]->dx);
        }
    }
    // At a pixel so many behind the first; what the planes give is multiplied by w.
    floats operator()(float index, float w) const { return clamped01((start_ + step_ * index) * w); }

private:
    static const plane& channel(const span& what, uint32_t which)
    {
        return what.at.value_plane(varying_diffuse + which);
    }

    floats start_{}, step_{};
};

template <texturing sampling>
floats texel_of(const texture& from, double u, double v)
{
    if constexpr (sampling == texturing::linear)
        return linear_texel(from, u, v);
    return unpacked(nearest_texel(from, u, v));
}

template <texturing sampling, bool blends>
void draw_span(const draw_setup& setup, const span& what, share& of)
{
    if constexpr (sampling != texturing::none)
        if (draw_picture_row(setup, what, sampling == texturing::linear, blends)) {
            of.samples += static_cast<uint64_t>(what.right - what.left);
            return;
        }
    const interpolator& at = what.at;
    const diffuse_walk diffuse{what};
    const joining join{setup.factors};
    const texture from{setup.chain.stages[0].texture};
    const plane u = at.value_plane(varying_coordinates);
    const plane v = at.value_plane(varying_coordinates + 1);
    const window_planes window = at.window();
    const uint32_t hidden = setup.to.color.format_number == SVGA3D_X8R8G8B8 ? 0xFF000000u : 0;
    std::byte* out = setup.to.color.texel(static_cast<uint32_t>(what.left), static_cast<uint32_t>(what.y));
    depth_row depth{setup, what};
    const double below = window.below_origin(what.y);
    uint64_t drawn = 0;
    for (int64_t x = what.left; x < what.right; ++x, out += 4) {
        const double right = window.right_of_origin(x);
        if (!depth.next_passes(window, right, below))
            continue;
        ++drawn;
        const double w = window.w_at(right, below);
        floats result = diffuse(static_cast<float>(x - what.left), static_cast<float>(w));
        if constexpr (sampling != texturing::none)
            result = join(texel_of<sampling>(from, u(right, below) * w, v(right, below) * w), result);
        if constexpr (blends)
            result = over(result, unpacked(load_pixel(out) | hidden));
        const uint32_t word = packed(result);
        std::memcpy(out, &word, sizeof word);
    }
    of.samples += drawn;
}

bool blends_over(const output_state& output)
{
    const auto is_over = [](const blend_function& f) {
        return f.source == SVGA3D_BLENDOP_SRCALPHA && f.destination == SVGA3D_BLENDOP_INVSRCALPHA &&
               f.equation == SVGA3D_BLENDEQ_ADD;
    };
    return is_over(output.rgb) && is_over(output.alpha);
}

// One level, or none asked for; 32-bit texels; addresses that repeat or go on.
bool is_simple_texture(const combiner_stage& stage)
{
    const sampler& from = stage.texture;
    return from.shape == texture_shape::flat && !from.needs_detail() && has_words(from.image(0, 0)) &&
           is_simple_address(from.address_u) && is_simple_address(from.address_v) && !stage.projected &&
           stage.coordinates == 0;
}

template <bool blends>
span_function for_texturing(const combiner_chain& chain)
{
    if (chain.count == 0)
        return draw_span<texturing::none, blends>;
    return chain.stages[0].texture.magnify >= SVGA3D_TEX_FILTER_LINEAR ? draw_span<texturing::linear, blends>
                                                                       : draw_span<texturing::nearest, blends>;
}

} // namespace

void set_spans(bool on)
{
    spans_on = on;
}

span_function choose_span(draw_setup& setup)
{
    constexpr uint32_t whole_mask = 15;
    const bool plain = spans_on && setup.to.color && has_words(setup.to.color) && !setup.fog.enabled &&
                       !setup.adds_specular && !setup.tests_alpha && !setup.tests_stencil &&
                       setup.output.mask == whole_mask && setup.chain.count <= 1;
    if (!plain || (setup.output.blends && !blends_over(setup.output)))
        return nullptr;
    const stage_factors& how = setup.factors = factors_of(setup.chain);
    forget_pictures();
    if (!how.rgb.known || !how.alpha.known || (setup.chain.count == 1 && !is_simple_texture(setup.chain.stages[0])))
        return nullptr;
    return setup.output.blends ? for_texturing<true>(setup.chain) : for_texturing<false>(setup.chain);
}

} // namespace kalix::device::raster
