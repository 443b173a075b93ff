// The command ring, as the device reads it.
//
// The ring's bounds are the device's own: what the MIN and MAX words say later is not looked at, and a
// NEXT_CMD outside of them means that nothing was written. STOP is kept here and told to the other side after
// each command. Commands may begin at any byte and run across the ring's end. Used by the fetching thread.
#pragma once

#include "base/futex.h"
#include "svga/svga_regs.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace kalix::device {

class ring_reader {
public:
    // fifo holds the registers and the ring; it stays, and so do those who wait for its register STOP.
    ring_reader(std::span<uint32_t> fifo, sleepers& stop_waiters);

    // Bytes written and not yet read, as NEXT_CMD says now.
    uint32_t available() const;
    // Bytes from an offset behind STOP on; the caller keeps offset + bytes within what is available. Valid until
    // the next call: bytes that run across the ring's end are gathered.
    std::span<const std::byte> view(uint32_t offset, uint32_t bytes);
    // Moves STOP on and wakes whoever waits for it.
    void consume(uint32_t bytes);

private:
    std::span<const std::byte> memory() const { return std::as_bytes(fifo_); }

    std::span<uint32_t> fifo_;
    sleepers& stop_waiters_;
    uint32_t stop_ = SVGA_FIFO_RING_START;
    // As large as the ring, and without pages until they are used: reading a command never lacks memory.
    std::unique_ptr<std::byte[]> gathered_;
};

// In bytes from the start of FIFO memory; ring_end is the first one behind.
inline constexpr uint32_t ring_begin = SVGA_FIFO_RING_START;
inline constexpr uint32_t ring_bytes = SVGA_FIFO_RING_BYTES;
inline constexpr uint32_t ring_end = ring_begin + ring_bytes;

// Whether NEXT_CMD is an offset in the ring.
constexpr bool lies_in_ring(uint32_t next)
{
    return next >= ring_begin && next < ring_end;
}

} // namespace kalix::device
