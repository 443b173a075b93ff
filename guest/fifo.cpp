// The ring's writer, and the fences.
//
// The driver's side alone moves NEXT_CMD, the device alone STOP. Storing NEXT_CMD hands over what lies before it, with
// release order (fifo_store), so a command's bytes are all there when the device sees them. One thread writes at a
// time, as svga.h asks; waiting for a fence needs no turn.

#include "guest/guest.h"

#include <algorithm>
#include <cstring>

namespace kalix::guest {
namespace {

struct ring {
    uint32_t min, max, next, stop; // byte offsets in FIFO memory
};

ring ring_of(std::span<uint32_t> fifo)
{
    return {fifo_load(fifo, SVGA_FIFO_MIN), fifo_load(fifo, SVGA_FIFO_MAX), fifo_load(fifo, SVGA_FIFO_NEXT_CMD),
            fifo_load(fifo, SVGA_FIFO_STOP)};
}

std::byte* at(std::span<uint32_t> fifo, uint32_t offset)
{
    return reinterpret_cast<std::byte*>(fifo.data()) + offset;
}

// Bytes that may be written: one stays free, since equal offsets mean empty.
uint32_t free_bytes(const ring& r)
{
    const uint32_t used = r.next >= r.stop ? r.next - r.stop : (r.max - r.min) - (r.stop - r.next);
    return (r.max - r.min) - used - 1;
}

// Whether a command may be written in place: in one piece, and where its words are aligned (what clients
// commit need not be whole words).
bool fits_in_place(const ring& r, uint32_t bytes)
{
    return bytes <= r.max - r.next && r.next % sizeof(uint32_t) == 0;
}

// Ends for every reservation: the largest is half of the ring, and the device takes what is committed. Its answer for
// one STOP stays true while nobody else writes, since the device only gives space back.
ring wait_for_space(guest_state& guest, uint32_t bytes)
{
    const std::span<uint32_t> fifo = guest.bus->fifo();
    for (;;) {
        const ring r = ring_of(fifo);
        if (free_bytes(r) >= bytes)
            return r;
        guest.bus->ring_doorbell();
        guest.bus->wait_for_stop_change(r.stop);
    }
}

void* reserve(guest_state& guest, uint32_t bytes)
{
    fifo_writer& writer = guest.writer;
    if (bytes > SVGA_FIFO_RESERVATION_MAX)
        return nullptr;
    const std::span<uint32_t> fifo = guest.bus->fifo();
    // Something to point at, for callers that write nothing; it opens no reservation and waits for no space.
    if (bytes == 0)
        return at(fifo, fifo_load(fifo, SVGA_FIFO_NEXT_CMD));
    const ring r = wait_for_space(guest, bytes);
    // One that wraps, or begins between words, is written elsewhere and copied when it is committed: callers see one
    // piece of memory, aligned for their records.
    writer.bounced = !fits_in_place(r, bytes);
    writer.reserved = bytes;
    fifo_store(fifo, SVGA_FIFO_RESERVED, bytes);
    if (!writer.bounced)
        return at(fifo, r.next);
    return writer.bounce.get();
}

// Copies the bounced bytes to where they belong: up to the ring's end, and from its start. By bytes, whatever alignment
// the ring has come to.
void copy_bounced(const fifo_writer& writer, std::span<uint32_t> fifo, const ring& r, uint32_t bytes)
{
    const uint32_t first = std::min(bytes, r.max - r.next);
    std::memcpy(at(fifo, r.next), writer.bounce.get(), first);
    std::memcpy(at(fifo, r.min), writer.bounce.get() + first, bytes - first);
}

void commit(guest_state& guest, uint32_t bytes)
{
    fifo_writer& writer = guest.writer;
    const std::span<uint32_t> fifo = guest.bus->fifo();
    // What was not reserved may lie where the device still reads.
    bytes = std::min(bytes, writer.reserved);
    writer.reserved = 0;
    fifo_store(fifo, SVGA_FIFO_RESERVED, 0);
    // Given up: NEXT_CMD has not moved, so the device never sees what was written.
    if (bytes == 0)
        return;
    const ring r = ring_of(fifo);
    if (writer.bounced)
        copy_bounced(writer, fifo, r, bytes);
    // Reaching the end exactly is the start as well: NEXT_CMD is always an offset inside.
    const uint32_t to_end = r.max - r.next;
    fifo_store(fifo, SVGA_FIFO_NEXT_CMD, bytes < to_end ? r.next + bytes : r.min + (bytes - to_end));
    guest.bus->ring_doorbell();
}

uint32_t insert_fence(guest_state& guest)
{
    std::atomic<uint32_t>& last = guest.writer.last_fence;
    const uint32_t wrapped = last.load(std::memory_order_relaxed) + 1;
    // 0 stands for no fence and is left out when numbers wrap.
    const svga_cmd_fence fence{SVGA_CMD_FENCE, wrapped + (wrapped == 0)};
    std::memcpy(reserve(guest, sizeof fence), &fence, sizeof fence);
    // Told before the fence is committed, so that whoever learns its number finds it handed out and waits for it.
    last.store(fence.seqno, std::memory_order_release);
    commit(guest, sizeof fence);
    return fence.seqno;
}

// A number that was never handed out would never pass, so it counts as passed.
void sync_to_fence(guest_state& guest, uint32_t seqno)
{
    const std::span<uint32_t> fifo = guest.bus->fifo();
    const uint32_t last = guest.writer.last_fence.load(std::memory_order_acquire);
    if (seqno == 0 || last == 0 || is_later(seqno, last))
        return;
    for (;;) {
        // Numbers are compared by their distance, which wraps: one almost 2^31 fences old could come to look later than
        // what passes meanwhile. The last one known at the start ends that wait, too.
        const uint32_t passed = fifo_load(fifo, SVGA_FIFO_FENCE);
        if (!is_later(seqno, passed) || !is_later(last, passed))
            return;
        guest.bus->ring_doorbell();
        guest.bus->wait_for_fence_change(passed);
    }
}

} // namespace

void run_empty(guest_state& guest)
{
    const std::span<uint32_t> fifo = guest.bus->fifo();
    // Fixed for the length of the wait: whoever asks for it is the one that may write.
    const uint32_t end = fifo_load(fifo, SVGA_FIFO_NEXT_CMD);
    for (uint32_t stop; (stop = fifo_load(fifo, SVGA_FIFO_STOP)) != end;) {
        guest.bus->ring_doorbell();
        guest.bus->wait_for_stop_change(stop);
    }
}

} // namespace kalix::guest

using namespace kalix::guest;

void* SVGA_FIFOReserve(uint32_t bytes)
{
    return reserve(*current(), bytes);
}

void SVGA_FIFOCommit(uint32_t bytes)
{
    commit(*current(), bytes);
}

void SVGA_FIFOCommitAll()
{
    commit(*current(), current()->writer.reserved);
}

uint32_t SVGA_InsertFence()
{
    return insert_fence(*current());
}

void SVGA_SyncToFence(uint32_t seqno)
{
    sync_to_fence(*current(), seqno);
}
