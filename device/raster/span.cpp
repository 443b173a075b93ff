// Which way a draw takes. It depends on the state, on a triangle's shape and on a row's own width, never on the machine
// or on the number of threads, since ways may differ by a level.

#include "device/raster/span.h"

#include "device/raster/lanes.h"
#include "device/raster/pictures.h"

#include <algorithm>

namespace kalix::device::raster {
namespace {

bool spans_on = true;

// The two formats that lanes and rows know: b, g, r and a or an unused byte, in a word.
bool has_words(const image_view& image)
{
    return image.format_number == SVGA3D_X8R8G8B8 || image.format_number == SVGA3D_A8R8G8B8;
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

// ---- Spans --------------------------------------------------------------------------------------------

// Moves the rows of a picture. Narrow ones go to the lanes, each by its own width: which rows come together depends on
// the number of threads, and must not show.
void draw_picture(const draw_setup& setup, const interpolator& at, std::span<const span> spans, share& of)
{
    constexpr int64_t worth_moving = 32; // pixels
    const auto is_wide = [](const span& s) { return s.right - s.left >= worth_moving; };
    const bool filters = setup.chain.stages[0].texture.magnify >= SVGA3D_TEX_FILTER_LINEAR;
    while (!spans.empty()) {
        const auto narrow = static_cast<size_t>(std::ranges::find_if(spans, is_wide) - spans.begin());
        if (narrow != 0)
            setup.draws_lanes(setup, at, spans.first(narrow), of);
        spans = spans.subspan(narrow);
        for (; !spans.empty() && is_wide(spans.front()); spans = spans.subspan(1)) {
            if (!draw_picture_row(setup, at, spans.front(), filters, setup.output.blends))
                return setup.draws_lanes(setup, at, spans, of);
            of.samples += static_cast<uint64_t>(spans.front().right - spans.front().left);
        }
    }
}

// Source alpha over what is there: the one blend function that plain draws have.
bool blends_over(const output_state& output)
{
    const auto is_over = [](const blend_function& f) {
        return f.source == SVGA3D_BLENDOP_SRCALPHA && f.destination == SVGA3D_BLENDOP_INVSRCALPHA &&
               f.equation == SVGA3D_BLENDEQ_ADD;
    };
    return is_over(output.rgb) && is_over(output.alpha);
}

// At most one texture, of one level, joined with the diffuse colour and blended by its alpha.
bool is_plain(const draw_setup& setup)
{
    const auto is_plain_texture = [](const sampler& from) {
        const bool one_level = from.between_levels == SVGA3D_TEX_FILTER_NONE || from.level_count == 1;
        return from.shape == texture_shape::flat && from.magnify == from.minify && one_level;
    };
    constexpr uint32_t whole_mask = 15;
    return setup.factors.known() && setup.chain.count <= 1 && !setup.fog.enabled && !setup.adds_specular &&
           !setup.tests_alpha && !setup.tests_stencil && setup.output.mask == whole_mask &&
           (!setup.output.blends || blends_over(setup.output)) &&
           (setup.chain.count == 0 || is_plain_texture(setup.chain.stages[0].texture));
}

bool repeats_or_goes_on(uint32_t address)
{
    return address == SVGA3D_TEX_ADDRESS_WRAP || address == SVGA3D_TEX_ADDRESS_CLAMP ||
           address == SVGA3D_TEX_ADDRESS_EDGE;
}

// A texture that is missing, or a flat one of 32-bit texels whose places fit 31 bits.
bool fits_lanes(const combiner_stage& stage)
{
    // Twice as many texels in 2^-16, for mirrored ones, still fit the lanes' 32-bit positions.
    constexpr uint32_t side_max = 1 << 13;
    const sampler& from = stage.texture;
    const image_view& image = from.image(0, 0);
    const auto fits = [](uint32_t address) {
        return repeats_or_goes_on(address) || address == SVGA3D_TEX_ADDRESS_MIRROR;
    };
    return from.shape == texture_shape::none ||
           (from.shape == texture_shape::flat && has_words(image) && image.width <= side_max &&
            image.height <= side_max && fits(from.address_u) && fits(from.address_v) && !stage.projected);
}

// Depth in whole bytes; stencil below the same depth. A stencil changes with the alpha test, too, where it fails.
bool tests_fit(const draw_setup& setup)
{
    const depth_layout& depth = setup.to.depth.layout;
    const depth_layout& stencil = setup.to.stencil.layout;
    if (setup.tests_depth && depth.depth_shift != 0 && depth.depth_shift != 8)
        return false;
    if (!setup.tests_stencil)
        return true;
    const bool same = !setup.tests_depth || setup.to.depth.view.bytes == setup.to.stencil.view.bytes;
    return stencil.bytes == 4 && stencil.stencil_bits == 8 && same && !setup.tests_alpha;
}

bool fits_lanes(const draw_setup& setup)
{
    constexpr uint32_t linear = 3;
    const bool fog_fits =
        !setup.fog.enabled || !setup.fog.per_pixel || (setup.fog.function == linear && setup.fog.place == 0);
    const std::span stages{setup.chain.stages.data(), setup.chain.count};
    return setup.to.color && has_words(setup.to.color) && fog_fits && tests_fit(setup) &&
           std::ranges::all_of(stages, [](const combiner_stage& stage) { return fits_lanes(stage); });
}

// Whether a triangle of the draw may be a picture whose rows can be moved.
bool may_move_rows(const draw_setup& setup)
{
    if (!setup.plain || setup.chain.count == 0 || setup.tests_depth)
        return false;
    const sampler& from = setup.chain.stages[0].texture;
    return repeats_or_goes_on(from.address_u) && repeats_or_goes_on(from.address_v);
}

} // namespace

void set_spans(bool on)
{
    spans_on = on;
}

spans_function choose_spans(draw_setup& setup)
{
    if (!spans_on || setup.feeds_back || !fits_lanes(setup))
        return nullptr;
    setup.factors = factors_of(setup.chain);
    setup.plain = is_plain(setup);
    setup.draws_lanes = lanes_for(setup);
    if (!may_move_rows(setup))
        return setup.draws_lanes;
    // Its textures may have been drawn to, transferred or given back since the draw before.
    forget_pictures();
    return draw_picture;
}

} // namespace kalix::device::raster
