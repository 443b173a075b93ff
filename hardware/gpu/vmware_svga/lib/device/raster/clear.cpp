// CLEAR: fills what lies inside its rectangles, the viewport and the scissor rectangle.

#include "hardware/gpu/vmware_svga/lib/device/raster/targets.h"

#include <array>
#include <cstring>

namespace kalix::device {
namespace raster {
namespace {

color color_of(uint32_t argb)
{
    const auto channel = [argb](int shift) { return static_cast<float>(argb >> shift & 255) / 255.0f; };
    return {channel(16), channel(8), channel(0), channel(24)};
}

// Repeats one texel over a rectangle: writes the first row, then copies it.
void fill(const image_view& view, const pixel_rect& area, const std::byte* texel)
{
    const auto x = static_cast<uint32_t>(area.left);
    const auto top = static_cast<uint32_t>(area.top);
    const size_t bytes = view.format->block_bytes;
    const size_t row_bytes = static_cast<size_t>(area.right - area.left) * bytes;
    std::byte* const first = view.texel(x, top);
    for (size_t at = 0; at < row_bytes; at += bytes)
        std::memcpy(first + at, texel, bytes);
    for (auto y = top + 1; y < static_cast<uint32_t>(area.bottom); ++y)
        std::memcpy(view.texel(x, y), first, row_bytes);
}

void clear_color(const image_view& view, const pixel_rect& area, uint32_t argb)
{
    std::array<std::byte, 16> texel{};
    view.format->encode(color_of(argb), texel.data());
    fill(view, area, texel.data());
}

// Replaces depth, stencil or both, keeping the other part of each word.
void clear_words(const depth_target& target, const pixel_rect& area, bool depth, bool stencil, const svga3d_clear& how)
{
    const uint32_t value = quantized_depth(target.layout, static_cast<double>(how.depth));
    if (depth && target.layout.stencil_bits == 0) { // nothing to keep
        std::array<std::byte, 16> texel{};
        store_word(target.layout, with_depth(target.layout, 0, value), texel.data());
        return fill(target.view, area, texel.data());
    }
    for (auto y = static_cast<uint32_t>(area.top); y < static_cast<uint32_t>(area.bottom); ++y)
        for (auto x = static_cast<uint32_t>(area.left); x < static_cast<uint32_t>(area.right); ++x) {
            std::byte* const texel = target.view.texel(x, y);
            uint32_t word = load_word(target.layout, texel);
            if (depth)
                word = with_depth(target.layout, word, value);
            if (stencil)
                word = with_stencil(target.layout, word, how.stencil);
            store_word(target.layout, word, texel);
        }
}

void clear_rect(const targets& to, const pixel_rect& area, const svga3d_clear& how)
{
    if (area.is_empty())
        return;
    if (how.flags & SVGA3D_CLEAR_COLOR && to.color)
        clear_color(to.color, area, how.color);
    if (how.flags & SVGA3D_CLEAR_DEPTH && to.depth.view)
        clear_words(to.depth, area, true, false, how);
    if (how.flags & SVGA3D_CLEAR_STENCIL && to.stencil.view)
        clear_words(to.stencil, area, false, true, how);
}

} // namespace
} // namespace raster

draw_result clear_targets(context& of, surface_store& surfaces, const svga3d_clear& how,
                          std::span<const svga3d_rect> rects)
{
    const raster::targets to = raster::targets_of(of, surfaces);
    if (!to.any())
        return draw_result::no_target;
    for (const svga3d_rect& rect : rects)
        raster::clear_rect(to, raster::intersection(to.area, raster::pixels_of(rect)), how);
    return draw_result::done;
}

} // namespace kalix::device
