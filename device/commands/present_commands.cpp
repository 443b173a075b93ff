// What puts surfaces on the screen.
//
// Pixels of the screen's own layout move row by row as they are, an unused fourth byte with them; others are
// decoded and encoded. What lies outside the screen is cut off.

#include "device/commands/commands.h"
#include "device/commands/named_image.h"
#include "device/commands/row_parts.h"
#include "device/state/boxes.h"
#include "device/state/sampling.h"

#include <algorithm>
#include <cstring>

namespace kalix::device {
namespace {

// In 64 bits, so that sums of a command's 32-bit numbers fit, whatever it says. Rectangles of the screen and of images
// are both areas; to_source_x and to_source_y below lead from a pixel to its texel.
struct area {
    int64_t left, top, right, bottom; // pixels; empty when right <= left or bottom <= top

    bool is_empty() const { return right <= left || bottom <= top; }
    uint32_t width() const { return static_cast<uint32_t>(right - left); }
    uint32_t height() const { return static_cast<uint32_t>(bottom - top); }
};

area common(const area& a, const area& b)
{
    return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right), std::min(a.bottom, b.bottom)};
}

area area_of(const mode& shown)
{
    return {0, 0, shown.width, shown.height};
}

area area_of(const image_view& image)
{
    return {0, 0, image.width, image.height};
}

area area_of(const svga3d_signed_rect& rect)
{
    return {rect.left, rect.top, rect.right, rect.bottom};
}

area moved(const area& a, int64_t x, int64_t y)
{
    return {a.left + x, a.top + y, a.right + x, a.bottom + y};
}

// Whether a format's texels are the screen's pixels.
bool is_shown_as_it_is(uint32_t format, const mode& shown)
{
    return format == shown.format() || (format == SVGA3D_A8R8G8B8 && shown.format() == SVGA3D_X8R8G8B8);
}

bool can_show(const image_view& image, const mode& shown)
{
    return is_shown_as_it_is(image.format_number, shown) || image.format->decode;
}

// Converts or copies one texel to a pixel; which of the two is found once a command. Texels that are copied have as
// many bytes as a pixel.
class pixel_writer {
public:
    pixel_writer(const image_view& from, const mode& shown)
        : decode_{is_shown_as_it_is(from.format_number, shown) ? nullptr : from.format->decode},
          encode_{format_of(shown.format()).encode}, bytes_{shown.bytes_per_pixel()}
    {
    }
    bool copies() const { return !decode_; }
    void write(const std::byte* texel, std::byte* pixel) const
    {
        if (decode_)
            encode_(decode_(texel), pixel);
        else
            std::memcpy(pixel, texel, bytes_);
    }

private:
    color (*decode_)(const std::byte*);
    void (*encode_)(const color&, std::byte*);
    uint32_t bytes_;
};

void convert_rows(const pixel_writer& writer, const image_view& from, const screen& on, const area& where,
                  int64_t to_source_x, int64_t to_source_y)
{
    const uint32_t bytes = on.shown().bytes_per_pixel();
    for (int64_t y = where.top; y < where.bottom; ++y) {
        const std::byte* texel =
            from.texel(static_cast<uint32_t>(where.left + to_source_x), static_cast<uint32_t>(y + to_source_y));
        std::byte* pixel = on.pixel(static_cast<uint32_t>(where.left), static_cast<uint32_t>(y));
        for (uint32_t x = 0; x < where.width(); ++x, texel += from.format->block_bytes, pixel += bytes)
            writer.write(texel, pixel);
    }
}

void show_rows(device_state& device, const image_view& from, const area& where, int64_t to_source_x,
               int64_t to_source_y)
{
    const screen& on = device.display;
    const pixel_writer writer{from, on.shown()};
    const uint64_t row_bytes = uint64_t{where.width()} * on.shown().bytes_per_pixel();
    if (writer.copies())
        return copy_rows(
            device.workers,
            {from.texel(static_cast<uint32_t>(where.left + to_source_x),
                        static_cast<uint32_t>(where.top + to_source_y)),
             from.row_bytes},
            {on.pixel(static_cast<uint32_t>(where.left), static_cast<uint32_t>(where.top)), on.shown().pitch()},
            where.height(), row_bytes);
    for_row_parts(device.workers, where.height(), row_bytes, [&](uint64_t first, uint64_t last) {
        const area part{where.left, where.top + static_cast<int64_t>(first), where.right,
                        where.top + static_cast<int64_t>(last)};
        convert_rows(writer, from, on, part, to_source_x, to_source_y);
    });
}

void show_rect(device_state& device, const image_view& from, const svga3d_copy_rect& rect)
{
    const area wanted{rect.x, rect.y, int64_t{rect.x} + rect.w, int64_t{rect.y} + rect.h};
    const int64_t to_source_x = int64_t{rect.srcx} - rect.x;
    const int64_t to_source_y = int64_t{rect.srcy} - rect.y;
    const area on_screen = common(wanted, area_of(device.display.shown()));
    // Both cuts in screen pixels: what lies outside of either the screen or the surface is not drawn.
    const area where = common(on_screen, moved(area_of(from), -to_source_x, -to_source_y));
    if (!where.is_empty())
        show_rows(device, from, where, to_source_x, to_source_y);
}

// A blit that plan_blit() has found possible: the source lies in the image, and no side is negative.
struct blit {
    image_view from;
    area source, destination;
};

void blit_area(screen& on, const blit& what, const area& where)
{
    if (where.is_empty())
        return;
    const pixel_writer writer{what.from, on.shown()};
    const uint32_t bytes = on.shown().bytes_per_pixel();
    const auto source_left = static_cast<uint32_t>(what.source.left);
    const auto source_top = static_cast<uint32_t>(what.source.top);
    for (int64_t y = where.top; y < where.bottom; ++y) {
        // Counted from the destination's own corner, which may lie far outside: cutting must not move what is seen.
        const auto row = static_cast<uint32_t>(y - what.destination.top);
        const uint32_t source_y = source_top + nearest_sample(row, what.source.height(), what.destination.height());
        std::byte* pixel = on.pixel(static_cast<uint32_t>(where.left), static_cast<uint32_t>(y));
        for (int64_t x = where.left; x < where.right; ++x, pixel += bytes) {
            const auto column = static_cast<uint32_t>(x - what.destination.left);
            const uint32_t source_x =
                source_left + nearest_sample(column, what.source.width(), what.destination.width());
            writer.write(what.from.texel(source_x, source_y), pixel);
        }
    }
}

// There is one screen, and all ones means the one that is there.
bool is_the_screen(uint32_t id)
{
    return id == 0 || id == SVGA_ID_INVALID;
}

bool contains(const area& outer, const area& inner)
{
    return inner.left >= outer.left && inner.top >= outer.top && inner.right <= outer.right &&
           inner.bottom <= outer.bottom;
}

bool is_inverted(const area& a)
{
    return a.right < a.left || a.bottom < a.top;
}

outcome plan_blit(device_state& device, const svga3d_blit_to_screen& command, blit& out)
{
    if (const outcome missing = find_image(device.surfaces, command.source, out.from))
        return missing;
    out.source = area_of(command.source_rect);
    out.destination = area_of(command.destination_rect);
    if (!is_the_screen(command.screen_id) || is_inverted(out.source) || is_inverted(out.destination))
        return KALIX_REFUSED_BAD_VALUE;
    if (!contains(area_of(out.from), out.source))
        return KALIX_REFUSED_OUTSIDE;
    if (!can_show(out.from, device.display.shown()))
        return KALIX_REFUSED_NOT_SUPPORTED;
    return executed;
}

outcome present(device_state& device, command_reader body)
{
    svga3d_present command;
    std::vector<svga3d_copy_rect> rects;
    if (!body.take(command) || !body.take_rest(rects))
        return KALIX_REFUSED_SHORT_COMMAND;
    image_view from;
    if (const outcome missing = find_image(device.surfaces, {command.sid, 0, 0}, from))
        return missing;
    if (!can_show(from, device.display.shown()))
        return KALIX_REFUSED_NOT_SUPPORTED;
    screen_change change{device.display};
    change.damaged();
    // In the command's order: rectangles may lie on each other.
    for (const svga3d_copy_rect& rect : rects)
        show_rect(device, from, rect);
    ++device.counts.values.frames;
    return executed;
}

// Without clip rectangles the whole destination is drawn; they are in screen pixels.
outcome blit_to_screen(device_state& device, command_reader body)
{
    svga3d_blit_to_screen command;
    std::vector<svga3d_signed_rect> clips;
    if (!body.take(command) || !body.take_rest(clips))
        return KALIX_REFUSED_SHORT_COMMAND;
    blit wanted{};
    if (const outcome refused = plan_blit(device, command, wanted))
        return refused;
    if (wanted.source.is_empty() || wanted.destination.is_empty())
        return executed;
    const area visible = common(wanted.destination, area_of(device.display.shown()));
    screen_change change{device.display};
    change.damaged();
    if (clips.empty())
        blit_area(device.display, wanted, visible);
    for (const svga3d_signed_rect& clip : clips)
        blit_area(device.display, wanted, common(visible, area_of(clip)));
    ++device.counts.values.frames;
    return executed;
}

// Presents go to the framebuffer itself, so it holds already what is asked for.
outcome present_readback(device_state&, command_reader body)
{
    std::vector<svga3d_rect> rects;
    return body.take_rest(rects) ? executed : outcome{KALIX_REFUSED_SHORT_COMMAND};
}

constexpr command_row rows[] = {
    {SVGA_3D_CMD_PRESENT, sizeof(svga3d_present), present},
    {SVGA_3D_CMD_PRESENT_READBACK, 0, present_readback},
    {SVGA_3D_CMD_BLIT_SURFACE_TO_SCREEN, sizeof(svga3d_blit_to_screen), blit_to_screen},
};

} // namespace

std::span<const command_row> present_commands()
{
    return rows;
}

} // namespace kalix::device
