// Which rows are pictures, and what a thread keeps of them (pictures.h); rows.h moves the texels.

#include "device/raster/pictures.h"

#include "device/raster/rows.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <new>
#include <optional>
#include <utility>
#include <vector>

namespace kalix::device::raster {
namespace {

std::atomic<uint64_t> draws = 0; // begun in this process

constexpr auto block = static_cast<int64_t>(block_pixels);

constexpr int64_t rounded_down(int64_t x)
{
    return x - x % block;
}
constexpr int64_t rounded_up(int64_t x)
{
    return rounded_down(x + block - 1);
}

// Where the pixels of a row lie in a texture: the same for all rows of a picture, worked out as far as spans
// reach, in whole blocks of pixels.
class columns {
public:
    // Begins anew when it is another picture's; true when it is.
    bool begin(const interpolator& at, const axis& across, bool filters)
    {
        const plane& u = at.value_plane(varying_coordinates);
        // All that a column's place depends on. Both triangles of a rectangle have the same, if their planes come to
        // the same bits; where they do not, the second one begins anew.
        const key asked{u.at, u.dx, at.right_of_origin(0), across.scale(), across.wraps(), filters};
        if (asked == key_)
            return false;
        key_ = asked;
        begin_ = end_ = 0;
        return true;
    }

    // Works out what is missing of pixels left to right - 1.
    // Vectors are as long as the widest picture's right edge: places are found by a pixel's own column.
    void reach(const axis& across, int64_t left, int64_t right)
    {
        left = rounded_down(left);
        right = rounded_up(right);
        if (begin_ == end_)
            start(across, left);
        if (static_cast<size_t>(right) > first_.size())
            for (auto* const each : {&first_, &second_})
                each->resize(static_cast<size_t>(right));
        shares_.resize(first_.size());
        for (; begin_ > left; --begin_)
            note(across, begin_ - 1);
        for (; end_ < right; ++end_)
            note(across, end_);
    }

    // The texel of a pixel, or the left one of two, when all pixels so far have whole texels that follow each
    // other; negative when they do not.
    int64_t run_from(int64_t x) const { return follows_ ? (anchor_ >> fraction_bits) + x - anchor_x_ : -1; }

    std::span<const int32_t> texels(int64_t left, int64_t right) const
    {
        return std::span{first_}.subspan(static_cast<size_t>(left), static_cast<size_t>(right - left));
    }
    const int32_t* first(int64_t x) const { return first_.data() + x; }
    const int32_t* second(int64_t x) const { return second_.data() + x; }
    const uint32_t* shares(int64_t x) const { return shares_.data() + x; }

private:
    struct key {
        double at = 0, dx = 0, origin = 0, scale = 0;
        bool wraps = false, filters = false;
        bool operator==(const key&) const = default;
    };

    // By the operations of a plane without growth downward, so that texels are the general way's. Filtering looks half
    // a texel back: the left one of two is the one whose centre is not beyond.
    int64_t position(const axis& across, int64_t x) const
    {
        const int64_t at = across.position(key_.at + key_.dx * (static_cast<double>(x) + key_.origin));
        return key_.filters ? at - one / 2 : at;
    }

    void start(const axis& across, int64_t x)
    {
        begin_ = end_ = anchor_x_ = x;
        anchor_ = position(across, x);
        follows_ = !key_.filters || anchor_ % one == 0;
    }

    void note(const axis& across, int64_t x)
    {
        const int64_t at = position(across, x);
        const int64_t texel = at >> fraction_bits;
        const auto index = static_cast<size_t>(x);
        const auto share = static_cast<uint32_t>(at & (one - 1)) >> (fraction_bits - share_bits);
        // Noted for all columns so far: one that is off by a part of a texel makes the row one to be picked or
        // filtered.
        follows_ = follows_ && at == anchor_ + (x - anchor_x_) * one;
        first_[index] = static_cast<int32_t>(across.texel(texel));
        second_[index] = static_cast<int32_t>(across.texel(texel + 1));
        shares_[index] = share | share << 16;
    }

    key key_;
    int64_t begin_ = 0, end_ = 0; // the pixels that are worked out; none when equal
    int64_t anchor_ = 0, anchor_x_ = 0;
    bool follows_ = false;
    std::vector<int32_t> first_, second_; // texels by pixel
    std::vector<uint32_t> shares_;        // of the second, as rows.h has them
};

// Rows of a texture filtered across, as wide as the picture: each serves all target rows that lie near it.
class filtered_rows {
public:
    void forget() { rows_ = {}; }

    // The two rows, from pixel left to right - 1, in whole blocks; the second may be the first.
    std::pair<const std::byte*, const std::byte*> both(const texel_row& upper, const texel_row& lower,
                                                       const columns& at, int64_t left, int64_t right)
    {
        // Which of the two places is the upper row's: the one that has it, or the one that does not have the lower row.
        const bool second = rows_[1].from == upper.texels || rows_[0].from == lower.texels;
        const std::byte* const first = filtered(second, upper, at, left, right);
        const bool same = upper.texels == lower.texels;
        return {first, same ? first : filtered(!second, lower, at, left, right)};
    }

private:
    struct kept {
        const std::byte* from = nullptr; // null: nothing
        int64_t begin = 0, end = 0;      // pixels
    };

    const std::byte* filtered(size_t which, const texel_row& row, const columns& at, int64_t left, int64_t right)
    {
        left = rounded_down(left);
        right = rounded_up(right);
        kept& in = rows_[which];
        std::vector<std::byte>& out = pixels_[which];
        if (out.size() < static_cast<size_t>(right) * 4)
            out.resize(static_cast<size_t>(right) * 4);
        // What is kept is one run of pixels; one that does not touch it begins anew.
        if (in.from != row.texels || right < in.begin || left > in.end)
            in = {row.texels, left, left};
        const auto filter = [&](int64_t from, int64_t to) {
            if (from < to)
                filter_across(row, at.first(from), at.second(from), at.shares(from), out.data() + from * 4,
                              static_cast<size_t>((to - from) / block));
        };
        filter(left, in.begin);
        filter(in.end, right);
        in.begin = std::min(in.begin, left);
        in.end = std::max(in.end, right);
        return out.data() + left * 4;
    }

    std::array<kept, 2> rows_;
    std::array<std::vector<std::byte>, 2> pixels_;
};

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

bool needs_white(const stage_factors& how)
{
    return how.rgb.diffuse || how.alpha.diffuse;
}

// Whether a span's pixels are texels of one row, at columns that all rows share.
bool is_picture(const draw_setup& setup, const interpolator& at)
{
    // Affine, u without growth downward and v without growth to the right: every row takes texels of one row, and all
    // rows take the same columns.
    return at.is_affine() && !setup.tests_depth && setup.factors.rgb.texture && !setup.feeds_back &&
           at.value_plane(varying_coordinates).dy == 0 && at.value_plane(varying_coordinates + 1).dx == 0 &&
           (!needs_white(setup.factors) || is_white(at));
}

// What a thread keeps from row to row of a draw: its one texture, and what it does with it.
struct picture {
    texture from;
    // Where the stage's alpha is not the texture's it is the vertices', and of a picture that is 1 (is_white()).
    uint32_t alpha;  // bits to be set in texels
    uint32_t hidden; // in what lies under them
    image_view to;
    bool filters, blends;

    picture(const draw_setup& setup, bool is_filtered, bool is_blended)
        : from{setup.chain.stages[0].texture}, alpha{setup.factors.alpha.texture ? from.opaque : 0xFF000000u},
          hidden{setup.to.color.format_number == SVGA3D_X8R8G8B8 ? 0xFF000000u : 0}, to{setup.to.color},
          filters{is_filtered}, blends{is_blended}
    {
    }

    texel_row row(int64_t y) const { return {from.row(from.v.texel(y)), from.image.width}; }

    // Draws texels that follow each other.
    void move(const std::byte* texels, std::byte* pixels, size_t count) const
    {
        if (blends)
            blend_run(texels, pixels, count, alpha, hidden);
        else
            copy_run(texels, pixels, count, alpha);
    }
};

class picture_drawer {
public:
    void begin(const draw_setup& setup, bool filters, bool blends)
    {
        // The pool's hand-over of the work orders this read behind forget_pictures().
        const uint64_t draw = draws.load(std::memory_order_relaxed);
        if (what_ && draw == draw_)
            return;
        what_.emplace(setup, filters, blends);
        draw_ = draw;
        filtered_.forget();
    }

    void draw(const interpolator& at, const span& where)
    {
        columns& across = columns_[what_->filters];
        const axis& u = what_->from.u;
        if (across.begin(at, u, what_->filters))
            filtered_.forget();
        across.reach(u, where.left, where.right);
        const double below = at.below_origin(where.y);
        const int64_t centre = what_->from.v.position(at.value_plane(varying_coordinates + 1)(0, below));
        const int64_t down = what_->filters ? centre - one / 2 : centre;
        const bool between = what_->filters && (down & (one - 1)) != 0;
        const int64_t count = where.right - where.left;
        const int64_t run = across.run_from(where.left);
        std::byte* const to = what_->to.texel(static_cast<uint32_t>(where.left), static_cast<uint32_t>(where.y));
        if (run >= 0 && run + count <= int64_t{what_->from.image.width} && !between)
            what_->move(what_->row(down >> fraction_bits).texels + run * 4, to, static_cast<size_t>(count));
        else if (what_->filters)
            filter(where, down, to);
        else
            pick(what_->row(down >> fraction_bits), across.texels(where.left, where.right), to);
    }

private:
    void pick(const texel_row& row, std::span<const int32_t> texels, std::byte* to)
    {
        if (!what_->blends)
            return pick_run(row, texels, to, what_->alpha);
        picked_.resize(std::max(picked_.size(), texels.size() * 4));
        pick_run(row, texels, picked_.data(), what_->alpha);
        what_->move(picked_.data(), to, texels.size());
    }

    void filter(const span& where, int64_t down, std::byte* to)
    {
        const int64_t y = down >> fraction_bits;
        const auto [upper, lower] =
            filtered_.both(what_->row(y), what_->row(y + 1), columns_[1], where.left, where.right);
        const int64_t skipped = (where.left - rounded_down(where.left)) * 4;
        const auto share = static_cast<uint32_t>(down & (one - 1)) >> (fraction_bits - share_bits);
        filter_down(upper + skipped, lower + skipped, share, to, static_cast<size_t>(where.right - where.left),
                    what_->alpha);
    }

    uint64_t draw_ = 0;
    std::optional<picture> what_;
    columns columns_[2]; // unfiltered and filtered
    filtered_rows filtered_;
    std::vector<std::byte> picked_; // a row of texels to be blended
};

picture_drawer& own_drawer()
{
    thread_local picture_drawer only;
    return only;
}

} // namespace

bool draw_picture_row(const draw_setup& setup, const interpolator& at, const span& what, bool filters, bool blends)
{
    // Rounded between filter and blend, a pixel could lie two levels away.
    if ((filters && blends) || !is_picture(setup, at))
        return false;
    picture_drawer& drawer = own_drawer();
    try {
        drawer.begin(setup, filters, blends);
        drawer.draw(at, what);
        return true;
    } catch (const std::bad_alloc&) {
        drawer = {}; // some of it may have grown and some not
        return false;
    }
}

void prepare_pictures()
{
    own_drawer();
}

void forget_pictures()
{
    draws.fetch_add(1, std::memory_order_relaxed);
}

} // namespace kalix::device::raster
