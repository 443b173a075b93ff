// Copy first, make sense of it later: what lies between two looks at the sequence counter is copying alone, so that a
// frame is caught between two changes; every number is judged in the copy, where nobody changes it any more.

#include "tools/screen/screen_reader.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <kalix/rundir.h>
#include <stdexcept>
#include <utility>

namespace kalix::tools {
namespace {

constexpr uint32_t opaque = 0xFF000000u;

// Each channel's highest bits again in its lowest, so that the brightest stays the brightest.
uint32_t from_565(uint32_t pixel)
{
    const uint32_t red = pixel >> 11 & 31;
    const uint32_t green = pixel >> 5 & 63;
    const uint32_t blue = pixel & 31;
    return opaque | (red << 3 | red >> 2) << 16 | (green << 2 | green >> 4) << 8 | (blue << 3 | blue >> 2);
}

// A premultiplied pixel over an opaque one.
uint32_t over(uint32_t source, uint32_t under)
{
    const uint32_t rest = 255 - (source >> 24);
    uint32_t out = opaque;
    for (const unsigned shift : {0u, 8u, 16u}) {
        const uint32_t sum = (source >> shift & 255) + ((under >> shift & 255) * rest + 127) / 255;
        out |= std::min(sum, 255u) << shift;
    }
    return out;
}

void convert_row(const std::byte* from, uint32_t bits_per_pixel, uint32_t width, uint32_t* to)
{
    for (uint32_t x = 0; x < width; ++x)
        if (bits_per_pixel == 32) {
            uint32_t pixel;
            std::memcpy(&pixel, from + size_t{x} * 4, sizeof pixel);
            to[x] = pixel | opaque;
        } else {
            uint16_t pixel;
            std::memcpy(&pixel, from + size_t{x} * 2, sizeof pixel);
            to[x] = from_565(pixel);
        }
}

void draw_cursor(const kalix_screen_cursor& cursor, screen_frame& frame)
{
    if (!cursor.visible || cursor.width > KALIX_SCREEN_CURSOR_EXTENT || cursor.height > KALIX_SCREEN_CURSOR_EXTENT)
        return;
    // In 64 bits: positions and hotspots are any 32-bit numbers.
    const int64_t left = int64_t{cursor.x} - cursor.hotspot_x;
    const int64_t top = int64_t{cursor.y} - cursor.hotspot_y;
    for (uint32_t row = 0; row < cursor.height; ++row)
        for (uint32_t column = 0; column < cursor.width; ++column) {
            const int64_t x = left + column;
            const int64_t y = top + row;
            if (x < 0 || y < 0 || x >= frame.width || y >= frame.height)
                continue;
            uint32_t& at = frame.pixels[static_cast<size_t>(y) * frame.width + static_cast<size_t>(x)];
            at = over(cursor.pixels[size_t{row} * cursor.width + column], at);
        }
}

} // namespace

void off_teller::look(const screen_frame& frame)
{
    if (!frame.enabled && !told_)
        std::fprintf(stderr, "%s: display is off: kalixctl mode WxH\n", program_);
    told_ = !frame.enabled;
}

screen_reader::screen_reader(const std::string& directory)
    : file_{directory + "/" + kalix_screen_file, sizeof(kalix_screen)}
{
    if (header().magic != KALIX_SCREEN_MAGIC || header().version != KALIX_SCREEN_VERSION ||
        header().header_bytes < sizeof(kalix_screen))
        throw std::runtime_error{directory + "/" + kalix_screen_file + " is not a screen that this version reads"};
}

const kalix_screen& screen_reader::header() const
{
    return *reinterpret_cast<const kalix_screen*>(file_.bytes().data());
}

// Copies the header and the rows that it speaks of, as far as they lie in the file; what a change meanwhile
// makes of that is found out afterwards.
void screen_reader::copy(kalix_screen& state, std::vector<std::byte>& picture)
{
    std::memcpy(&state, &header(), sizeof state);
    picture.clear();
    if (state.framebuffer_offset + state.framebuffer_bytes > file_.bytes().size())
        file_.remap();
    const uint64_t bytes = uint64_t{state.pitch} * state.height;
    const uint64_t size = file_.bytes().size();
    if (state.framebuffer_offset > size || bytes > size - state.framebuffer_offset)
        return;
    const std::span rows = file_.bytes().subspan(state.framebuffer_offset, bytes);
    picture.assign(rows.begin(), rows.end());
}

bool screen_reader::read(screen_frame& frame, cursor_drawing cursor)
{
    if (!snapshot(header().sequence, [this] { copy(state_, picture_); }))
        return false;
    frame.server_pid = state_.server_pid;
    frame.enabled = state_.enabled != 0;
    frame.width = state_.width;
    frame.height = state_.height;
    frame.bits_per_pixel = state_.bits_per_pixel;
    frame.damage = state_.damage;
    frame.pixels.assign(size_t{frame.width} * frame.height, opaque);
    // A server of another mind, or a file cut short, shows black and not what happens to lie behind.
    const bool whole = picture_.size() == size_t{state_.pitch} * state_.height &&
                       uint64_t{state_.width} * state_.bits_per_pixel / 8 <= state_.pitch;
    if (!frame.enabled || !whole)
        return true;
    for (uint32_t y = 0; y < frame.height; ++y)
        convert_row(picture_.data() + size_t{y} * state_.pitch, frame.bits_per_pixel, frame.width,
                    &frame.pixels[size_t{y} * frame.width]);
    if (cursor == cursor_drawing::with)
        draw_cursor(state_.cursor, frame);
    return true;
}

bool screen_reader::changed()
{
    const std::atomic_ref<uint32_t> counter{const_cast<uint32_t&>(header().sequence)};
    // An odd number, a change under way, counts as one: read() waits for its end.
    const uint32_t now = counter.load(std::memory_order_acquire);
    return now != std::exchange(sequence_, now);
}

kalix_screen_statistics screen_reader::statistics() const
{
    kalix_screen_statistics copy{};
    snapshot(header().sequence, [&] { std::memcpy(&copy, &header().statistics, sizeof copy); });
    return copy;
}

} // namespace kalix::tools
