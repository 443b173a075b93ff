#include "hardware/gpu/vmware_svga/lib/device/raster/pictures.h"

#include "hardware/gpu/vmware_svga/lib/device/raster/rows.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

namespace kalix::device::raster {
namespace {

// Where the pixels of a row lie in a texture, worked out once for all rows of a picture along the axes.
//
// Kept by the thread from span to span; another picture, another place or another width works them out anew.
class columns {
public:
    // Positions, 2^-16 texel, by column of the target; null when rows differ or a span is too short to be worth it.
    static const int64_t* of(const draw_setup& setup, const span& what, const axis& across)
    {
        thread_local columns kept;
        const plane& u = what.at.value_plane(varying_coordinates);
        const pixel_rect& area = setup.to.area;
        constexpr int64_t share = 8; // of the target's width
        if (u.dy != 0 || (what.right - what.left) * share < area.right - area.left)
            return nullptr;
        const columns asked{u.at, u.dx, what.at.right_of_origin(0), across.scale(), area.left, area.right};
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
std::optional<const std::byte*> texel_run(const texture& from, const span& what)
{
    const plane& u = what.at.value_plane(varying_coordinates);
    const plane& v = what.at.value_plane(varying_coordinates + 1);
    if (!what.at.is_affine() || v.dx != 0)
        return std::nullopt;
    const double below = what.at.below_origin(what.y);
    const auto position = [&](int64_t x) { return from.u.position(u(what.at.right_of_origin(x), below)); };
    const int64_t first = position(what.left);
    const int64_t last = position(what.right - 1);
    const int64_t steps = what.right - 1 - what.left;
    const int64_t column = first >> fraction_bits;
    if (last - first != steps << fraction_bits || column < 0 || column + steps >= from.image.width)
        return std::nullopt;
    return from.row(from.v.texel(from.v.position(v(0, below)) >> fraction_bits)) + column * 4;
}

// Texels as they are, with their own alpha or an opaque one, on coordinates that are linear over the window.
void copy_texels(const draw_setup& setup, const span& what, bool own_alpha)
{
    const texture from{setup.chain.stages[0].texture};
    const plane& u = what.at.value_plane(varying_coordinates);
    const plane& v = what.at.value_plane(varying_coordinates + 1);
    const uint32_t alpha = own_alpha ? from.opaque : 0xFF000000u;
    std::byte* out = setup.to.color.texel(static_cast<uint32_t>(what.left), static_cast<uint32_t>(what.y));
    constexpr int64_t worth_looking = 8; // pixels
    const bool may_run = what.right - what.left >= worth_looking;
    if (const std::optional<const std::byte*> run = may_run ? texel_run(from, what) : std::nullopt) {
        copy_run(*run, out, static_cast<size_t>(what.right - what.left), alpha);
        return;
    }
    const double below = what.at.below_origin(what.y);
    const bool level = v.dx == 0; // one texel row for the whole span
    const std::byte* row = from.row(from.v.texel(from.v.position(v(0, below)) >> fraction_bits));
    if (const int64_t* const at = level ? columns::of(setup, what, from.u) : nullptr) {
        for (int64_t x = what.left; x < what.right; ++x, out += 4) {
            const uint32_t word = load_pixel(row + from.u.texel(at[x] >> fraction_bits) * 4) | alpha;
            std::memcpy(out, &word, sizeof word);
        }
        return;
    }
    for (int64_t x = what.left; x < what.right; ++x, out += 4) {
        const double right = what.at.right_of_origin(x);
        if (!level)
            row = from.row(from.v.texel(from.v.position(v(right, below)) >> fraction_bits));
        const uint32_t word = from.word(row, from.u.texel(from.u.position(u(right, below)) >> fraction_bits)) | alpha;
        std::memcpy(out, &word, sizeof word);
    }
}

// Draws a span of one texel row, filtered down once and then across. False when it has more rows, repeats the
// texture, or skips so many texels that the row would be mixed for nothing.
bool draw_filtered(const draw_setup& setup, const span& what, const texture& from, uint32_t alpha)
{
    const plane& u = what.at.value_plane(varying_coordinates);
    const plane& v = what.at.value_plane(varying_coordinates + 1);
    const double below = what.at.below_origin(what.y);
    const auto position = [&](int64_t x) { return from.u.position(u(what.at.right_of_origin(x), below)) - one / 2; };
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
    const int64_t* const kept = columns::of(setup, what, from.u);
    for (int64_t x = what.left; x < what.right; ++x, out += 4) {
        const int64_t at = kept ? kept[x] - one / 2 : position(x);
        const uint32_t word = row.pixel(at >> fraction_bits, at & (one - 1)) | alpha;
        std::memcpy(out, &word, sizeof word);
    }
    return true;
}

// Blends a span of texels that follow each other one a pixel. False when they do not.
bool blend_texels(const draw_setup& setup, const span& what, const texture& from, uint32_t alpha)
{
    const std::optional<const std::byte*> run = texel_run(from, what);
    const uint32_t hidden = setup.to.color.format_number == SVGA3D_X8R8G8B8 ? 0xFF000000u : 0;
    if (run)
        blend_run(*run, setup.to.color.texel(static_cast<uint32_t>(what.left), static_cast<uint32_t>(what.y)),
                  static_cast<size_t>(what.right - what.left), alpha, hidden);
    return run.has_value();
}

// Whether the diffuse colour is white and opaque all over: a product with it changes nothing.
bool is_white(const interpolator& at)
{
    for (uint32_t i = 0; i < 4; ++i) {
        const plane& channel = at.value_plane(varying_diffuse + i);
        if (!channel.is_constant() || static_cast<float>(channel.at) != 1)
            return false;
    }
    return true;
}

// Whether a span's pixels are its texels.
bool is_copy(const draw_setup& setup, const interpolator& at)
{
    const bool white = is_white(at);
    const auto is_texel = [white](const factors& f) { return f.texture && (!f.diffuse || white); };
    return at.is_affine() && !setup.tests_depth && is_texel(setup.factors.rgb) &&
           (is_texel(setup.factors.alpha) || white);
}

} // namespace

bool draw_picture_row(const draw_setup& setup, const span& what, bool filters, bool blends)
{
    if ((filters && blends) || !is_copy(setup, what.at))
        return false;
    const texture from{setup.chain.stages[0].texture};
    const bool own_alpha = setup.factors.alpha.texture;
    const uint32_t alpha = own_alpha ? from.opaque : 0xFF000000u;
    if (filters)
        return draw_filtered(setup, what, from, alpha);
    if (blends)
        return blend_texels(setup, what, from, alpha);
    copy_texels(setup, what, own_alpha);
    return true;
}

} // namespace kalix::device::raster
