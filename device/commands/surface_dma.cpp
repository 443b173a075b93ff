// Transfers between guest memory and images.
//
// A transfer is planned whole before the first byte moves: each box must lie in its image, and the span from
// its first byte in guest memory to its last must be there. In guest memory a box's rows are pitch bytes
// apart; its slices lie as far apart as the rows of a whole slice of the image take.

#include "device/commands/commands.h"
#include "device/commands/named_image.h"
#include "device/commands/row_parts.h"
#include "device/state/boxes.h"

namespace kalix::device {
namespace {

struct transfer {
    svga3d_surface_dma command;
    image_view host;
    uint64_t pitch = 0;       // bytes from one row of blocks to the next, in guest memory
    uint64_t slice_pitch = 0; // bytes from one slice to the next
};

struct planned_box {
    std::byte* host; // its first block
    uint64_t guest;  // offset in the region
    block_rows shape;
};

// Adds count times bytes; false when that does not fit 64 bits. Guest offsets and pitches are the client's own words,
// and a sum that wrapped would pass the check of the region.
bool add(uint64_t& sum, uint64_t count, uint64_t bytes)
{
    uint64_t product = 0;
    return !__builtin_mul_overflow(count, bytes, &product) && !__builtin_add_overflow(sum, product, &sum);
}

// The offset of a box's first byte in guest memory; false when it does not fit 64 bits.
bool find_start(const transfer& in, const svga3d_copy_box& box, uint64_t& start)
{
    const format_info& format = *in.host.format;
    start = in.command.guest.pointer.offset;
    return add(start, box.srcz, in.slice_pitch) && add(start, box.srcy / format.block_height, in.pitch) &&
           add(start, box.srcx / format.block_width, format.block_bytes);
}

outcome plan_box(const device_state& device, const transfer& in, const svga3d_copy_box& box, planned_box& out)
{
    const format_info& format = *in.host.format;
    const svga3d_box host_box{box.x, box.y, box.z, box.w, box.h, box.d};
    if (!box_fits(in.host, host_box) || box.srcx % format.block_width != 0 || box.srcy % format.block_height != 0)
        return KALIX_REFUSED_OUTSIDE;
    // Touches nothing, so its place in guest memory needs no look.
    if (is_empty(host_box)) {
        out = {};
        return executed;
    }
    out = {block_at(in.host, box.x, box.y, box.z), 0, rows_of(in.host, host_box)};
    uint64_t bytes = out.shape.row_bytes;
    if (!find_start(in, box, out.guest) || !add(bytes, out.shape.rows - 1, in.pitch) ||
        !add(bytes, out.shape.slices - 1, in.slice_pitch))
        return KALIX_REFUSED_OUTSIDE;
    // From the first byte to the last, gaps between rows among them: one walk over the region instead of one a row.
    return device.guest.check(in.command.guest.pointer.gmr_id, out.guest, bytes);
}

// Copies a slice's rows first to last - 1; rows that follow each other without a gap on both sides as one.
void run_rows(const device_state& device, const transfer& in, const planned_box& slice, uint64_t first, uint64_t last)
{
    const uint32_t region = in.command.guest.pointer.gmr_id;
    const bool to_host = in.command.transfer == SVGA3D_WRITE_HOST_VRAM;
    const bool one_piece = in.pitch == slice.shape.row_bytes && in.host.row_bytes == slice.shape.row_bytes;
    const uint64_t step = one_piece ? last - first : 1;
    for (uint64_t row = first; row < last; row += step) {
        const std::span<std::byte> host{slice.host + row * in.host.row_bytes, step * slice.shape.row_bytes};
        const uint64_t guest = slice.guest + row * in.pitch;
        if (to_host)
            device.guest.copy_in(region, guest, host);
        else
            device.guest.copy_out(region, guest, host);
    }
}

// Whether rows may be copied in any order: those of an image always lie apart, those of guest memory only when
// the pitch keeps them so and no page is named twice.
bool rows_lie_apart(const device_state& device, const transfer& in, const planned_box& slice)
{
    const uint64_t bytes = in.pitch * (slice.shape.rows - 1) + slice.shape.row_bytes;
    return in.command.transfer == SVGA3D_WRITE_HOST_VRAM ||
           (in.pitch >= slice.shape.row_bytes &&
            device.guest.is_one_piece(in.command.guest.pointer.gmr_id, slice.guest, bytes));
}

void run_box(const device_state& device, const transfer& in, planned_box box)
{
    for (uint32_t z = 0; z < box.shape.slices; ++z) {
        for_row_parts(rows_lie_apart(device, in, box) ? device.workers : nullptr, box.shape.rows, box.shape.row_bytes,
                      [&](uint64_t first, uint64_t last) { run_rows(device, in, box, first, last); });
        box.host += in.host.slice_bytes;
        box.guest += in.slice_pitch;
    }
}

// What follows the boxes may be the suffix. The largest offset that it names needs no heed: the region is
// the bound, and the boxes are checked against it.
bool take_boxes(command_reader& body, std::vector<svga3d_copy_box>& boxes)
{
    const size_t behind = body.left() % sizeof(svga3d_copy_box);
    if (!body.take_list(boxes, body.left() / sizeof(svga3d_copy_box)))
        return false;
    svga3d_surface_dma_suffix suffix{};
    return behind == 0 || (behind == sizeof suffix && body.take(suffix) && suffix.suffix_size == sizeof suffix);
}

outcome begin(device_state& device, transfer& out)
{
    if (out.command.transfer != SVGA3D_WRITE_HOST_VRAM && out.command.transfer != SVGA3D_READ_HOST_VRAM)
        return KALIX_REFUSED_BAD_VALUE;
    if (const outcome missing = find_image(device.surfaces, out.command.host, out.host))
        return missing;
    const uint32_t given = out.command.guest.pitch;
    out.pitch = given != 0 ? given : out.host.row_bytes;
    // Two 32-bit numbers: the product fits.
    out.slice_pitch = out.pitch * blocks_in(out.host.height, out.host.format->block_height);
    // Whether the region exists at all, which is asked of a transfer without boxes, too.
    return device.guest.check(out.command.guest.pointer.gmr_id, 0, 0);
}

void run(device_state& device, const transfer& in, std::span<const planned_box> boxes)
{
    for (const planned_box& box : boxes) {
        run_box(device, in, box);
        device.counts.values.bytes_moved += box.shape.row_bytes * box.shape.rows * box.shape.slices;
    }
}

outcome surface_dma(device_state& device, command_reader body)
{
    transfer wanted;
    std::vector<svga3d_copy_box> boxes;
    if (!body.take(wanted.command) || !take_boxes(body, boxes))
        return KALIX_REFUSED_SHORT_COMMAND;
    if (const outcome refused = begin(device, wanted))
        return refused;
    std::vector<planned_box> plan(boxes.size());
    for (size_t i = 0; i < boxes.size(); ++i)
        if (const outcome refused = plan_box(device, wanted, boxes[i], plan[i]))
            return refused;
    const bool shows =
        wanted.command.guest.pointer.gmr_id == SVGA_GMR_FRAMEBUFFER && wanted.command.transfer == SVGA3D_READ_HOST_VRAM;
    if (!shows) {
        run(device, wanted, plan);
        return executed;
    }
    // The framebuffer is guest memory, and what is written there is seen.
    screen_change change{device.display};
    change.damaged();
    run(device, wanted, plan);
    return executed;
}

constexpr command_row rows[] = {
    {SVGA_3D_CMD_SURFACE_DMA, sizeof(svga3d_surface_dma), surface_dma},
};

} // namespace

std::span<const command_row> surface_transfers()
{
    return rows;
}

} // namespace kalix::device
