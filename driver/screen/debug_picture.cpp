#include "driver/screen/debug_picture.h"

#include "driver/state/framebuffer.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <kalix/svga3d_formats.h>

namespace kalix {
namespace {

using pixel = std::array<uint8_t, 4>; // blue, green, red, alpha
constexpr pixel magenta = {255, 0, 255, 255};

// Each part is cut before the sum, which may so be one less than a rounded one.
uint8_t over(uint8_t background, uint8_t color, float alpha)
{
    return static_cast<uint8_t>(static_cast<int>(static_cast<float>(background) * (1 - alpha)) +
                                static_cast<int>(static_cast<float>(color) * alpha));
}

void blend(pixel& at, bool opaque)
{
    if (at[3] == 255)
        return;
    if (!opaque) {
        const float alpha = static_cast<float>(at[3]) / 255.0f;
        for (size_t channel = 0; channel < 3; ++channel)
            at[channel] = over(magenta[channel], at[channel], alpha);
    }
    at[3] = 255;
}

// The most of count pixels of a side that the device copies: whole blocks, or all that there is.
uint32_t whole_blocks(uint64_t count, uint32_t side, uint32_t block)
{
    return static_cast<uint32_t>(count == side ? count : count - count % block);
}

} // namespace

debug_picture plan_debug_picture(const surface_record& surface)
{
    const svga_device& device = *_globals.svga_device;
    const surface_dimensions size = dimensions_of(surface);
    const svga3d_block block = svga3d_block_of(surface.format);
    debug_picture picture{std::min(size.width, device.width), std::min(size.height, device.height), 0, 0,
                          surface.format == SVGA3D_X8R8G8B8};
    if (block.bytes == 0)
        return picture;
    // Rows of the copy are as far apart as the screen's: a longer one would run into the next.
    const uint64_t in_a_row = uint64_t{device.pitch} / block.bytes * block.width;
    picture.box_width = whole_blocks(std::min<uint64_t>(picture.width, in_a_row), size.width, block.width);
    picture.box_height = whole_blocks(picture.height, size.height, block.height);
    if (block.width == 1)
        return picture;
    picture.width = static_cast<uint32_t>(svga3d_row_bytes(block, picture.box_width) / sizeof(pixel));
    picture.height = svga3d_block_rows(block, picture.box_height);
    return picture;
}

void paint_debug_picture(const debug_picture& picture)
{
    const svga_device& device = *_globals.svga_device;
    // In a mode of 16 bits the picture has fewer bytes than four a pixel.
    const size_t pixels = std::min<size_t>(device.visible_bytes, device.fb_bytes) / sizeof(pixel);
    size_t index = 0;
    for (uint32_t row = 0; row < device.height; ++row)
        for (uint32_t column = 0; column < device.width && index < pixels; ++column, ++index) {
            std::byte* const at = framebuffer_bytes().data() + index * sizeof(pixel);
            pixel value = magenta;
            if (row < picture.height && column < picture.width) {
                std::memcpy(value.data(), at, sizeof value);
                blend(value, picture.opaque);
            }
            std::memcpy(at, value.data(), sizeof value);
        }
}

} // namespace kalix
