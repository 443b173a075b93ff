// The ring's arithmetic: offsets that begin again at the ring's start, and bytes that lie across its end.

#include "device/commands/ring.h"

#include "svga/bus.h"

#include <algorithm>
#include <cstring>

namespace kalix::device {
namespace {

// An offset moved on by less than the ring's size, so that it wraps once at most.
constexpr uint32_t wrapped(uint32_t offset, uint32_t bytes)
{
    const uint32_t to_end = ring_end - offset;
    return bytes < to_end ? offset + bytes : ring_begin + (bytes - to_end);
}
static_assert(wrapped(ring_begin, 4) == ring_begin + 4 && wrapped(ring_end - 4, 4) == ring_begin);

} // namespace

ring_reader::ring_reader(std::span<uint32_t> fifo, sleepers& stop_waiters)
    : fifo_{fifo}, stop_waiters_{stop_waiters}, gathered_{std::make_unique_for_overwrite<std::byte[]>(ring_bytes)}
{
}

uint32_t ring_reader::available() const
{
    const uint32_t next = fifo_load(fifo_, SVGA_FIFO_NEXT_CMD);
    if (!lies_in_ring(next))
        return 0;
    // Equal offsets are an empty ring, never a full one: the writer keeps a byte free.
    return next >= stop_ ? next - stop_ : ring_bytes - (stop_ - next);
}

std::span<const std::byte> ring_reader::view(uint32_t offset, uint32_t bytes)
{
    const uint32_t at = wrapped(stop_, offset);
    const uint32_t in_one_piece = std::min(bytes, ring_end - at);
    if (in_one_piece == bytes)
        return memory().subspan(at, bytes);
    std::memcpy(gathered_.get(), memory().data() + at, in_one_piece);
    std::memcpy(gathered_.get() + in_one_piece, memory().data() + ring_begin, bytes - in_one_piece);
    return {gathered_.get(), bytes};
}

void ring_reader::consume(uint32_t bytes)
{
    // What is stored gives these bytes back: the writer may overwrite them at once, so nothing may look at them again.
    stop_ = wrapped(stop_, bytes);
    stop_waiters_.store(fifo_[SVGA_FIFO_STOP], stop_);
}

} // namespace kalix::device
