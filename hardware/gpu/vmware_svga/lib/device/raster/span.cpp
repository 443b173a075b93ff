#include "hardware/gpu/vmware_svga/lib/device/raster/span.h"

#include "hardware/gpu/vmware_svga/lib/device/raster/lanes.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/rows.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

namespace kalix::device::raster {
namespace {

bool spans_on = true;

bool has_words(const image_view& image)
{
    return image.format_number == SVGA3D_X8R8G8B8 || image.format_number == SVGA3D_A8R8G8B8;
}

struct texture {
    const image_view& image;
    axis u, v;
    uint32_t opaque; // of a format without alpha, what its fourth byte reads as

    explicit texture(const sampler& from)
        : image{from.image(0, 0)}, u{image.width, from.address_u}, v{image.height, from.address_v},
          opaque{image.format_number == SVGA3D_X8R8G8B8 ? 0xFF000000u : 0}
    {
    }
    const std::byte* row(size_t y) const { return image.bytes + y * image.row_bytes; }
    uint32_t word(const std::byte* at_row, size_t x) const { return load_pixel(at_row + x * 4) | opaque; }
};

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

// Where the pixels of a row lie in a texture, worked out once for all rows of a picture along the axes.
//
// Kept by the thread from span to span; another picture, another place or another width works them out anew.
class columns {
public:
    // Positions, 2^-16 texel, by column of the target; null when rows differ or a span is too short to be worth it.
    static const int64_t* of(const draw_setup& setup, const interpolator& at, const span& what, const axis& across)
    {
        thread_local columns kept;
        const plane& u = at.value_plane(varying_coordinates);
        const pixel_rect& area = setup.to.area;
        constexpr int64_t share = 8; // of the target's width
        if (u.dy != 0 || (what.right - what.left) * share < area.right - area.left)
            return nullptr;
        const columns asked{u.at, u.dx, at.right_of_origin(0), across.scale(), area.left, area.right};
        if (!kept.is_like(asked))
            kept.fill(asked, across);
        return kept.positions_.data() - area.left;
    }

private:
    columns() = default;
    columns(double at, double dx, double origin, double scale, int64_t left, int64_t right)
        : at_{at}, dx_{dx}, origin_{origin}, scale_{scale}, left_{left}, right_{right}
    {
    }

    bool is_like(const columns& other) const
    {
        return at_ == other.at_ && dx_ == other.dx_ && origin_ == other.origin_ && scale_ == other.scale_ &&
               left_ == other.left_ && right_ == other.right_;
    }

    void fill(const columns& asked, const axis& across)
    {
        std::vector<int64_t> room = std::move(positions_);
        *this = asked;
        positions_ = std::move(room);
        positions_.resize(static_cast<size_t>(right_ - left_));
        for (int64_t x = left_; x < right_; ++x)
            positions_[static_cast<size_t>(x - left_)] =
                across.position(at_ + dx_ * (static_cast<double>(x) + origin_));
    }

    double at_ = 0, dx_ = 0, origin_ = 0, scale_ = 0;
    int64_t left_ = 0, right_ = 0;
    std::vector<int64_t> positions_;
};

// Where a span's texels begin when they follow each other one a pixel, all of one row; none otherwise.
//
// Coordinates are linear along the span, and so are the positions that they are rounded to: when the last lies
// exactly as many texels behind the first as there are pixels between them, so does every one.
std::optional<const std::byte*> texel_run(const texture& from, const interpolator& at, const span& what)
{
    const plane& u = at.value_plane(varying_coordinates);
    const plane& v = at.value_plane(varying_coordinates + 1);
    if (!at.is_affine() || v.dx != 0)
        return std::nullopt;
    const double below = at.below_origin(what.y);
    const auto position = [&](int64_t x) { return from.u.position(u(at.right_of_origin(x), below)); };
    const int64_t first = position(what.left);
    const int64_t last = position(what.right - 1);
    const int64_t steps = what.right - 1 - what.left;
    const int64_t column = first >> fraction_bits;
    if (last - first != steps << fraction_bits || column < 0 || column + steps >= from.image.width)
        return std::nullopt;
    return from.row(from.v.texel(from.v.position(v(0, below)) >> fraction_bits)) + column * 4;
}

// Texels as they are, with their own alpha or an opaque one, on coordinates that are linear over the window.
void copy_texels(const draw_setup& setup, const interpolator& at, const span& what, const texture& from, uint32_t alpha)
{
    const plane& u = at.value_plane(varying_coordinates);
    const plane& v = at.value_plane(varying_coordinates + 1);
    std::byte* out = setup.to.color.texel(static_cast<uint32_t>(what.left), static_cast<uint32_t>(what.y));
    constexpr int64_t worth_looking = 8; // pixels
    const bool may_run = what.right - what.left >= worth_looking;
    if (const std::optional<const std::byte*> run = may_run ? texel_run(from, at, what) : std::nullopt) {
        copy_run(*run, out, static_cast<size_t>(what.right - what.left), alpha);
        return;
    }
    const double below = at.below_origin(what.y);
    const bool level = v.dx == 0; // one texel row for the whole span
    const std::byte* row = from.row(from.v.texel(from.v.position(v(0, below)) >> fraction_bits));
    if (const int64_t* const places = level ? columns::of(setup, at, what, from.u) : nullptr) {
        for (int64_t x = what.left; x < what.right; ++x, out += 4) {
            const uint32_t word = load_pixel(row + from.u.texel(places[x] >> fraction_bits) * 4) | alpha;
            std::memcpy(out, &word, sizeof word);
        }
        return;
    }
    for (int64_t x = what.left; x < what.right; ++x, out += 4) {
        const double right = at.right_of_origin(x);
        if (!level)
            row = from.row(from.v.texel(from.v.position(v(right, below)) >> fraction_bits));
        const uint32_t word = from.word(row, from.u.texel(from.u.position(u(right, below)) >> fraction_bits)) | alpha;
        std::memcpy(out, &word, sizeof word);
    }
}

// Draws a span of one texel row, filtered down once and then across. False when it has more rows, repeats the
// texture, or skips so many texels that the row would be mixed for nothing.
bool draw_filtered(const draw_setup& setup, const interpolator& at, const span& what, const texture& from,
                   uint32_t alpha)
{
    const plane& u = at.value_plane(varying_coordinates);
    const plane& v = at.value_plane(varying_coordinates + 1);
    const double below = at.below_origin(what.y);
    const auto position = [&](int64_t x) { return from.u.position(u(at.right_of_origin(x), below)) - one / 2; };
    const auto [low, high] = std::minmax({position(what.left), position(what.right - 1)});
    const int64_t first = low >> fraction_bits;
    const int64_t last = (high >> fraction_bits) + 1;
    const int64_t width = from.image.width;
    const int64_t useful = 4 * (what.right - what.left);
    if (v.dx != 0 || last - first > useful || first < (from.u.wraps() ? 0 : -2) ||
        last > width - (from.u.wraps() ? 1 : -2))
        return false;
    const filtered_row row{from.image, from.v, v(0, below), first, last};
    std::byte* out = setup.to.color.texel(static_cast<uint32_t>(what.left), static_cast<uint32_t>(what.y));
    const int64_t* const kept = columns::of(setup, at, what, from.u);
    for (int64_t x = what.left; x < what.right; ++x, out += 4) {
        const int64_t place = kept ? kept[x] - one / 2 : position(x);
        const uint32_t word = row.pixel(place >> fraction_bits, place & (one - 1)) | alpha;
        std::memcpy(out, &word, sizeof word);
    }
    return true;
}

// Blends a span of texels that follow each other one a pixel. False when they do not.
bool blend_texels(const draw_setup& setup, const interpolator& at, const span& what, const texture& from,
                  uint32_t alpha)
{
    const std::optional<const std::byte*> run = texel_run(from, at, what);
    const uint32_t hidden = setup.to.color.format_number == SVGA3D_X8R8G8B8 ? 0xFF000000u : 0;
    if (run)
        blend_run(*run, setup.to.color.texel(static_cast<uint32_t>(what.left), static_cast<uint32_t>(what.y)),
                  static_cast<size_t>(what.right - what.left), alpha, hidden);
    return run.has_value();
}

// White and opaque all over: a product with it changes nothing.
bool is_white(const interpolator& at)
{
    for (uint32_t channel = 0; channel < 4; ++channel) {
        const plane& value = at.value_plane(varying_diffuse + channel);
        if (!value.is_constant() || value.at != 1)
            return false;
    }
    return true;
}

// Whether a triangle's pixels are its texels, rows of the texture along rows of the target.
bool is_picture(const draw_setup& setup, const interpolator& at)
{
    const auto [rgb, alpha] = setup.factors;
    if (!rgb.texture || !at.is_affine() || at.value_plane(varying_coordinates).dy != 0 ||
        at.value_plane(varying_coordinates + 1).dx != 0)
        return false;
    return is_white(at) || (!rgb.diffuse && alpha.texture && !alpha.diffuse);
}

// Draws a span of a picture in the ways that move whole rows. False when there is none.
bool draw_picture(const draw_setup& setup, const interpolator& at, const span& what)
{
    const texture from{setup.chain.stages[0].texture};
    const uint32_t alpha = setup.factors.alpha.texture ? from.opaque : 0xFF000000u;
    const bool linear = setup.chain.stages[0].texture.magnify >= SVGA3D_TEX_FILTER_LINEAR;
    if (linear)
        return !setup.output.blends && draw_filtered(setup, at, what, from, alpha);
    if (setup.output.blends)
        return blend_texels(setup, at, what, from, alpha);
    copy_texels(setup, at, what, from, alpha);
    return true;
}

void draw_spans(const draw_setup& setup, const interpolator& at, std::span<const span> spans, share& of)
{
    constexpr int64_t worth_moving = 32; // pixels
    const bool wide = std::ranges::any_of(spans, [](const span& s) { return s.right - s.left >= worth_moving; });
    if (!wide || !is_picture(setup, at))
        return setup.draws_lanes(setup, at, spans, of);
    for (const span& each : spans)
        if (each.right - each.left >= worth_moving && draw_picture(setup, at, each))
            of.samples += static_cast<uint64_t>(each.right - each.left);
        else
            setup.draws_lanes(setup, at, {&each, 1}, of);
}

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
    const bool fog_fits = !setup.fog.enabled || !setup.fog.per_pixel || setup.fog.function == linear;
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
    if (!spans_on || !fits_lanes(setup))
        return nullptr;
    setup.factors = factors_of(setup.chain);
    setup.plain =
        is_plain(setup) && (setup.chain.count == 0 || setup.chain.stages[0].texture.shape == texture_shape::flat);
    setup.draws_lanes = lanes_for(setup);
    return may_move_rows(setup) ? draw_spans : setup.draws_lanes;
}

} // namespace kalix::device::raster
