// The cursor: its definition, its place, and the copy that brings it back.
//
// A definition is a command in the ring; a place is words of the FIFO's registers, which the device looks at when it is
// rung. Extents are a client's and are held to 256 a side before any product of them is made.

#include "guest/guest.h"

#include <cstring>

namespace kalix::guest {
namespace {

bool extent_fits(const svga_alpha_cursor& header)
{
    return header.width <= SVGA_CURSOR_EXTENT_MAX && header.height <= SVGA_CURSOR_EXTENT_MAX;
}

uint32_t image_bytes(const svga_alpha_cursor& header)
{
    return header.width * header.height * 4; // at most 256 KiB, once the extent fits
}

// Reserves the definition, all but its image; null when there is no space.
std::byte* begin_definition(const svga_alpha_cursor& header)
{
    constexpr uint32_t id = SVGA_CMD_DEFINE_ALPHA_CURSOR;
    const auto bytes = static_cast<uint32_t>(sizeof id + sizeof header + image_bytes(header));
    auto* const space = static_cast<std::byte*>(SVGA_FIFOReserve(bytes));
    if (!space)
        return nullptr;
    std::memcpy(space, &id, sizeof id);
    std::memcpy(space + sizeof id, &header, sizeof header);
    return space + sizeof id + sizeof header;
}

} // namespace
} // namespace kalix::guest

using namespace kalix::guest;

int SVGA_BeginDefineAlphaCursor(const svga_alpha_cursor* header, void** image)
{
    *image = nullptr;
    if (!extent_fits(*header)) {
        current()->bus->count_refused_cursor();
        return -1;
    }
    *image = begin_definition(*header);
    return *image ? 0 : -1;
}

void SVGA_MoveCursor(uint32_t visible, uint32_t x, uint32_t y, uint32_t screen_id)
{
    const std::span<uint32_t> fifo = current()->bus->fifo();
    kalix::fifo_store(fifo, SVGA_FIFO_CURSOR_ON, visible);
    kalix::fifo_store(fifo, SVGA_FIFO_CURSOR_X, x);
    kalix::fifo_store(fifo, SVGA_FIFO_CURSOR_Y, y);
    kalix::fifo_store(fifo, SVGA_FIFO_CURSOR_SCREEN_ID, screen_id);
    // Last: the device takes a place over when it finds the count raised.
    kalix::fifo_store(fifo, SVGA_FIFO_CURSOR_COUNT, kalix::fifo_load(fifo, SVGA_FIFO_CURSOR_COUNT) + 1);
    current()->bus->ring_doorbell();
}

void NEBO_SVGA_PreserveCursor(const void* image, const svga_alpha_cursor* header)
{
    if (!extent_fits(*header))
        return;
    kept_cursor& kept = current()->cursor;
    kept.is_kept = true;
    kept.header = *header;
    // An image of no pixels may come as no address.
    if (const uint32_t bytes = image_bytes(*header))
        std::memcpy(kept.image.get(), image, bytes);
}

void NEBO_SVGA_RestoreCursor()
{
    const kept_cursor& kept = current()->cursor;
    std::byte* const space = kept.is_kept ? begin_definition(kept.header) : nullptr;
    if (!space)
        return;
    std::memcpy(space, kept.image.get(), image_bytes(kept.header));
    SVGA_FIFOCommitAll();
}
