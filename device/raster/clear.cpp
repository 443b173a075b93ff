// CLEAR: fills what lies inside its rectangles, the viewport and the scissor rectangle.
//
// A value is encoded once and its bytes repeated. The colour mask does not hold; of a word that has depth and stencil
// the part that is not cleared stays. Threads take their own bands of rows, as they do in draws.

#include "device/raster/rows.h"
#include "device/raster/share.h"
#include "device/raster/targets.h"
#include "device/raster/workers.h"

#include <array>
#include <cstring>
#include <vector>

namespace kalix::device {
namespace raster {
namespace {

color color_of(uint32_t argb)
{
    const auto channel = [argb](int shift) { return static_cast<float>(argb >> shift & 255) / 255.0f; };
    return {channel(16), channel(8), channel(0), channel(24)};
}

// What becomes of an image's texels: all of them this one, but for the bits of a word that are kept.
struct filling {
    image_view view;
    std::array<std::byte, 16> texel{}; // the largest texel: four floats
    uint32_t kept = 0;                 // none in a texel of more than four bytes
};

// Depth or stencil alone of a texel of two bytes (Z_D15S1), of which rows.h knows nothing.
void replace_short_bits(const filling& how, std::byte* row, size_t count)
{
    uint16_t word = 0;
    std::memcpy(&word, how.texel.data(), sizeof word);
    for (std::byte* at = row; at < row + count * sizeof word; at += sizeof word) {
        uint16_t old = 0;
        std::memcpy(&old, at, sizeof old);
        const auto result = static_cast<uint16_t>((old & how.kept) | (word & ~how.kept));
        std::memcpy(at, &result, sizeof result);
    }
}

void fill_row(const filling& how, std::byte* row, size_t count)
{
    const size_t bytes = how.view.format->block_bytes;
    if (bytes == 4 && how.kept != 0)
        replace_bits(row, count, load_pixel(how.texel.data()), how.kept);
    else if (bytes == 4)
        fill_run(row, count, load_pixel(how.texel.data()));
    else if (how.kept != 0)
        replace_short_bits(how, row, count);
    else
        for (size_t i = 0; i < count; ++i)
            std::memcpy(row + i * bytes, how.texel.data(), bytes);
}

// Fills the share's rows of an area. Where nothing is kept, rows of odd texels repeat the one above.
void fill(const filling& how, const pixel_rect& area, const share& of)
{
    const auto count = static_cast<size_t>(area.right - area.left);
    const size_t bytes = how.view.format->block_bytes;
    const std::byte* above = nullptr;
    for (int64_t y = of.first_from(area.top); y < area.bottom; y = of.first_from(y + 1)) {
        std::byte* const row = how.view.texel(static_cast<uint32_t>(area.left), static_cast<uint32_t>(y));
        if (above && bytes != 4 && how.kept == 0)
            std::memcpy(row, above, count * bytes);
        else
            fill_row(how, row, count);
        above = row;
    }
}

filling color_filling(const image_view& view, uint32_t argb)
{
    filling made{view};
    view.format->encode(color_of(argb), made.texel.data());
    return made;
}

// Depth, stencil or both, keeping the other part of each word.
filling word_filling(const depth_target& target, bool depth, bool stencil, const svga3d_clear& how)
{
    const depth_layout& layout = target.layout;
    uint32_t word = 0;
    uint32_t replaced = 0;
    if (depth) {
        word = with_depth(layout, word, quantized_depth(layout, static_cast<double>(how.depth)));
        // A word without stencil is replaced whole, the bits that mean nothing among them: a plain fill reads nothing.
        replaced = layout.stencil_bits == 0 ? ~0u : with_depth(layout, 0, bit_mask(layout.depth_bits));
    }
    if (stencil) {
        word = with_stencil(layout, word, how.stencil);
        replaced |= bit_mask(layout.stencil_bits);
    }
    filling made{target.view};
    made.kept = ~replaced & bit_mask(layout.bytes * 8);
    store_word(layout, word, made.texel.data());
    return made;
}

// One for each image: depth and stencil of one image are written together.
std::vector<filling> fillings_of(const targets& to, const svga3d_clear& how)
{
    std::vector<filling> found;
    if (how.flags & SVGA3D_CLEAR_COLOR && to.color)
        found.push_back(color_filling(to.color, how.color));
    const bool depth = how.flags & SVGA3D_CLEAR_DEPTH && to.depth.view;
    const bool stencil = how.flags & SVGA3D_CLEAR_STENCIL && to.stencil.view;
    const bool together = depth && stencil && to.depth.view.bytes == to.stencil.view.bytes;
    if (depth)
        found.push_back(word_filling(to.depth, true, together, how));
    if (stencil && !together)
        found.push_back(word_filling(to.stencil, false, true, how));
    return found;
}

} // namespace
} // namespace raster

draw_result clear_targets(context& of, surface_store& surfaces, const svga3d_clear& how,
                          std::span<const svga3d_rect> rects, raster::worker_pool* workers)
{
    constexpr int64_t worth_sharing = 65536; // pixels; below that a wake-up costs more than it saves
    const raster::targets to = raster::targets_of(of, surfaces);
    if (!to.any())
        return draw_result::no_target;
    const std::vector<raster::filling> fillings = raster::fillings_of(to, how);
    std::vector<raster::pixel_rect> areas;
    int64_t pixels = 0;
    for (const svga3d_rect& rect : rects) {
        const raster::pixel_rect area = raster::intersection(to.area, raster::pixels_of(rect));
        if (area.is_empty())
            continue;
        areas.push_back(area);
        pixels += (area.right - area.left) * (area.bottom - area.top);
    }
    const auto fill = [&](const raster::share& mine) {
        for (const raster::pixel_rect& area : areas)
            for (const raster::filling& each : fillings)
                raster::fill(each, area, mine);
    };
    if (workers && pixels >= worth_sharing)
        workers->run([&](uint32_t index) { fill({index, workers->count(), 0}); });
    else
        fill({});
    return draw_result::done;
}

} // namespace kalix::device
