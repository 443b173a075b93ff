#include "driver/screen/software_pass.h"

#include "driver/objects/overlay.h"
#include "driver/screen/scaling.h"
#include "driver/screen/zoom.h"
#include "driver/state/framebuffer.h"

#include <algorithm>
#include <cstring>

namespace kalix {
namespace {

// Reached by no server, as start-up refuses software mode, and held to the same bounds as the rest.
constexpr uint64_t pixel_bytes = 4;
constexpr uint64_t largest_side = 1u << 30; // the square of four-byte pixels still fits in 64 bits

struct mode {
    uint32_t width, height; // pixels
    uint32_t stride;        // bytes from pixel to pixel, as the overlays' places count them
};

mode current_mode()
{
    const svga_device& device = *_globals.svga_device;
    return {device.mode_width, device.mode_height, device.bits_per_pixel / 8};
}

// The frame of the client's renderer and what lies behind it; nothing when it would leave the framebuffer.
std::span<std::byte> software_frame(const mode& of)
{
    const uint64_t side = std::max(of.width, of.height);
    const uint64_t bytes = uint64_t{of.width} * of.height * pixel_bytes;
    if (side >= largest_side)
        return {};
    const std::span<std::byte> rest = framebuffer_from(side * side * pixel_bytes);
    return bytes <= rest.size() ? rest : rest.first(0);
}

// In unsigned words, as the wire has them, and 64 bits for the sums; edges that meet count as touching.
bool touches(const overlay_record& overlay, const present_rectangle& rectangle)
{
    const uint64_t x = static_cast<uint32_t>(overlay.x);
    const uint64_t y = static_cast<uint32_t>(overlay.y);
    const uint64_t left = static_cast<uint32_t>(rectangle.x);
    const uint64_t top = static_cast<uint32_t>(rectangle.y);
    return x <= left + static_cast<uint32_t>(rectangle.width) && y <= top + static_cast<uint32_t>(rectangle.height) &&
           x + overlay.width >= left && y + overlay.height >= top;
}

// Not left of or above the screen, and not further beyond it than the next power of two, as clients know it; what lies
// beyond the screen is cut.
bool is_placed(const overlay_record& overlay, const mode& on)
{
    return overlay.x >= 0 && overlay.y >= 0 &&
           uint64_t{static_cast<uint32_t>(overlay.x)} + overlay.width <= next_pow2(on.width) &&
           uint64_t{static_cast<uint32_t>(overlay.y)} + overlay.height <= next_pow2(on.height);
}

void copy_overlay(const overlay_record& overlay, const mode& on, std::span<std::byte> frame)
{
    const std::byte* from = overlay.pixels[shown_buffer(overlay)];
    const auto x = static_cast<uint32_t>(overlay.x);
    const auto y = static_cast<uint32_t>(overlay.y);
    if (!from || x >= on.width || y >= on.height)
        return;
    const uint32_t rows = std::min(overlay.height, on.height - y);
    const uint64_t row_bytes = std::min(overlay.width, on.width - x) * pixel_bytes;
    const uint64_t pitch = uint64_t{on.stride} * on.width;
    const uint64_t start = y * pitch + uint64_t{x} * on.stride;
    if (!rows_fit(frame.size(), start, rows, static_cast<uint32_t>(pitch), row_bytes))
        return;
    // The buffer may lie in the frame itself.
    for (uint64_t row = 0; row < rows; ++row, from += overlay.width * pixel_bytes)
        std::memmove(frame.data() + start + row * pitch, from, row_bytes);
}

// Fills the visible picture, which lies wholly before the frame, from it.
void scale_down(const mode& of, std::span<std::byte> frame)
{
    const svga_device& device = *_globals.svga_device;
    const std::span<std::byte> picture = framebuffer_bytes().first(framebuffer_bytes().size() - frame.size());
    // Exactly the factors that the zoom's setter snaps to; any other has no kernel and copies nothing.
    if (device.zoom == 1.0f)
        std::memcpy(picture.data(), frame.data(), uint64_t{of.width} * of.height * pixel_bytes);
    else
        scale(device.zoom, {of.width, of.height, frame, picture, device.pitch});
}

} // namespace

uint32_t next_pow2(uint32_t v)
{
    --v;
    for (unsigned shift = 1; shift < 32; shift *= 2)
        v |= v >> shift;
    return v + 1;
}

void software_draw_overlays(const present_rectangle& rectangle)
{
    const mode on = current_mode();
    const std::span<std::byte> frame = software_frame(on);
    for_each_overlay([&](const overlay_record& overlay) {
        if (overlay.visible && touches(overlay, rectangle) && is_placed(overlay, on))
            copy_overlay(overlay, on, frame);
    });
}

int postprocess_software_present(const present_rectangle& rectangle)
{
    if (rectangle.width == 0 || rectangle.height == 0)
        return 0;
    const mode of = current_mode();
    const std::span<std::byte> frame = software_frame(of);
    if (frame.empty())
        return 0;
    software_draw_overlays(rectangle);
    scale_down(of, frame);
    SVGA_Update(0, 0, zoomed_unsigned(of.width), zoomed_unsigned(of.height));
    return 0;
}

} // namespace kalix
