// Copies between images of formats with blocks of one size, byte by byte.

#include "hardware/gpu/vmware_svga/lib/device/boxes.h"
#include "hardware/gpu/vmware_svga/lib/device/commands.h"
#include "hardware/gpu/vmware_svga/lib/device/named_image.h"

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
void copy_box(const image_view& from, const image_view& to, const svga3d_copy_box& box)
{
    if (is_empty(destination_of(box)))
        return;
    const block_rows shape = rows_of(to, destination_of(box));
    const std::byte* const source = block_at(from, box.srcx, box.srcy, box.srcz);
    std::byte* const destination = block_at(to, box.x, box.y, box.z);
    const bool backward = from.bytes == to.bytes && destination > source;
    for (uint32_t i = 0; i < shape.slices; ++i) {
        const uint32_t z = backward ? shape.slices - 1 - i : i;
        for (uint32_t j = 0; j < shape.rows; ++j) {
            const uint32_t row = backward ? shape.rows - 1 - j : j;
            std::memmove(destination + z * to.slice_bytes + uint64_t{row} * to.row_bytes,
                         source + z * from.slice_bytes + uint64_t{row} * from.row_bytes, shape.row_bytes);
        }
    }
}

} // namespace

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
        copy_box(from, to, box);
    return executed;
}

} // namespace kalix::device
