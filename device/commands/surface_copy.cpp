// Copies between images of formats with blocks of one size, byte by byte: no texel is decoded, so that any two such
// formats will do. All boxes are checked before the first one moves.

#include "device/commands/commands.h"
#include "device/commands/named_image.h"
#include "device/commands/row_parts.h"
#include "device/state/boxes.h"

#include <algorithm>
#include <cstring>

namespace kalix::device {
namespace {

bool have_blocks_alike(const format_info& a, const format_info& b)
{
    return a.block_bytes == b.block_bytes && a.block_width == b.block_width && a.block_height == b.block_height;
}

svga3d_box source_of(const svga3d_copy_box& box)
{
    return {box.srcx, box.srcy, box.srcz, box.w, box.h, box.d};
}

svga3d_box destination_of(const svga3d_copy_box& box)
{
    return {box.x, box.y, box.z, box.w, box.h, box.d};
}

// Inside one image, rows go in the order in which none is overwritten before it has been read: both boxes
// have the same strides, so the later one in memory is written from its end.
void copy_inside(const image_view& image, const std::byte* source, std::byte* destination, const block_rows& shape)
{
    const bool backward = destination > source;
    for (uint32_t i = 0; i < shape.slices; ++i) {
        const uint32_t z = backward ? shape.slices - 1 - i : i;
        for (uint32_t j = 0; j < shape.rows; ++j) {
            const uint32_t row = backward ? shape.rows - 1 - j : j;
            const uint64_t at = z * image.slice_bytes + uint64_t{row} * image.row_bytes;
            std::memmove(destination + at, source + at, shape.row_bytes);
        }
    }
}

void copy_box(const image_view& from, const image_view& to, const svga3d_copy_box& box, raster::worker_pool* workers)
{
    if (is_empty(destination_of(box)))
        return;
    const block_rows shape = rows_of(to, destination_of(box));
    const std::byte* const source = block_at(from, box.srcx, box.srcy, box.srcz);
    std::byte* const destination = block_at(to, box.x, box.y, box.z);
    // Two images share no memory, so only one image with itself can overlap.
    if (from.bytes == to.bytes)
        return copy_inside(to, source, destination, shape);
    for (uint32_t z = 0; z < shape.slices; ++z)
        copy_rows(workers, {source + z * from.slice_bytes, from.row_bytes},
                  {destination + z * to.slice_bytes, to.row_bytes}, shape.rows, shape.row_bytes);
}

outcome surface_copy(device_state& device, command_reader body)
{
    svga3d_surface_copy command;
    std::vector<svga3d_copy_box> boxes;
    if (!body.take(command) || !body.take_rest(boxes))
        return KALIX_REFUSED_SHORT_COMMAND;
    image_view from;
    image_view to;
    if (const outcome missing = find_image(device.surfaces, command.source, from))
        return missing;
    if (const outcome missing = find_image(device.surfaces, command.destination, to))
        return missing;
    if (!have_blocks_alike(*from.format, *to.format))
        return KALIX_REFUSED_NOT_SUPPORTED;
    const auto fits = [&](const svga3d_copy_box& box) {
        return box_fits(from, source_of(box)) && box_fits(to, destination_of(box));
    };
    if (!std::ranges::all_of(boxes, fits))
        return KALIX_REFUSED_OUTSIDE;
    for (const svga3d_copy_box& box : boxes)
        copy_box(from, to, box, device.workers);
    return executed;
}

constexpr command_row rows[] = {
    {SVGA_3D_CMD_SURFACE_COPY, sizeof(svga3d_surface_copy), surface_copy},
};

} // namespace

std::span<const command_row> surface_copies()
{
    return rows;
}

} // namespace kalix::device
