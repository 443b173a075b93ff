// Scaled copies between images, from format to format.
//
// The sampling rule is sampling.h's. Both ways read inside the source box alone, also where linear filtering looks at a
// neighbour: what lies around the box does not show. Filtering is in single precision, and rounded once, by the
// destination's format.

#include "device/commands/commands.h"
#include "device/commands/named_image.h"
#include "device/state/boxes.h"
#include "device/state/sampling.h"

#include <cstring>

namespace kalix::device {
namespace {

// The source, as seen from its box's corner.
struct source_box {
    image_view image;
    svga3d_box box;

    const std::byte* at(uint32_t x, uint32_t y, uint32_t z) const
    {
        return image.texel(box.x + x, box.y + y, box.z + z);
    }
};

color mix(const color& a, const color& b, float weight)
{
    const auto one = [weight](float from, float to) { return from * (1 - weight) + to * weight; };
    // A weight of 0 takes the first as it is, whatever the second is: infinity times 0 is not a number.
    if (weight == 0)
        return a;
    return {one(a.r, b.r), one(a.g, b.g), one(a.b, b.b), one(a.a, b.a)};
}

color filtered(const source_box& from, const linear_sample& x, const linear_sample& y, const linear_sample& z)
{
    const auto decode = from.image.format->decode;
    const auto row = [&](uint32_t at_y, uint32_t at_z) {
        return mix(decode(from.at(x.first, at_y, at_z)), decode(from.at(x.second, at_y, at_z)), x.weight);
    };
    const auto slice = [&](uint32_t at_z) { return mix(row(y.first, at_z), row(y.second, at_z), y.weight); };
    return mix(slice(z.first), slice(z.second), z.weight);
}

// Calls write(destination address, x, y, z), coordinates counted from the box's corner.
template <typename function>
void for_each_texel(const image_view& to, const svga3d_box& box, function&& write)
{
    for (uint32_t z = 0; z < box.d; ++z)
        for (uint32_t y = 0; y < box.h; ++y)
            for (uint32_t x = 0; x < box.w; ++x)
                write(to.texel(box.x + x, box.y + y, box.z + z), x, y, z);
}

void stretch_linear(const source_box& from, const image_view& to, const svga3d_box& box)
{
    for_each_texel(to, box, [&](std::byte* texel, uint32_t x, uint32_t y, uint32_t z) {
        to.format->encode(filtered(from, linear_sample_of(x, from.box.w, box.w), linear_sample_of(y, from.box.h, box.h),
                                   linear_sample_of(z, from.box.d, box.d)),
                          texel);
    });
}

// Texels of one format move as they are.
void stretch_point(const source_box& from, const image_view& to, const svga3d_box& box)
{
    const bool alike = from.image.format_number == to.format_number;
    for_each_texel(to, box, [&](std::byte* texel, uint32_t x, uint32_t y, uint32_t z) {
        const std::byte* const source =
            from.at(nearest_sample(x, from.box.w, box.w), nearest_sample(y, from.box.h, box.h),
                    nearest_sample(z, from.box.d, box.d));
        if (alike)
            std::memcpy(texel, source, to.format->block_bytes);
        else
            to.format->encode(from.image.format->decode(source), texel);
    });
}

// Texels that move as they are need no colours, but a block of several has no texel to move.
bool can_stretch(const image_view& from, const image_view& to, uint32_t mode)
{
    if (mode == SVGA3D_STRETCH_BLT_POINT && from.format_number == to.format_number)
        return from.format->block_width == 1 && from.format->block_height == 1;
    return from.format->decode && to.format->encode;
}

// A copy of the source box, for a destination in the same image: the source is read first.
source_box copy_of(const source_box& from, std::vector<std::byte>& memory)
{
    const block_rows shape = rows_of(from.image, from.box);
    memory.resize(shape.row_bytes * shape.rows * shape.slices);
    std::byte* next = memory.data();
    for (uint32_t z = 0; z < shape.slices; ++z)
        for (uint32_t y = 0; y < shape.rows; ++y, next += shape.row_bytes)
            std::memcpy(next, from.at(0, y, z), shape.row_bytes);
    image_view image = from.image;
    image.row_bytes = static_cast<uint32_t>(shape.row_bytes);
    image.slice_bytes = shape.row_bytes * shape.rows;
    image.bytes = memory.data();
    return {image, {0, 0, 0, from.box.w, from.box.h, from.box.d}};
}

bool is_too_large(const svga3d_box& box)
{
    return box.w > scaled_extent_max || box.h > scaled_extent_max || box.d > scaled_extent_max;
}

outcome check(const svga3d_surface_stretchblt& command, const image_view& from, const image_view& to)
{
    if (command.mode > SVGA3D_STRETCH_BLT_LINEAR)
        return KALIX_REFUSED_BAD_VALUE;
    if (!can_stretch(from, to, command.mode))
        return KALIX_REFUSED_NOT_SUPPORTED;
    if (!box_fits(from, command.source_box) || !box_fits(to, command.destination_box))
        return KALIX_REFUSED_OUTSIDE;
    if (is_too_large(command.source_box) || is_too_large(command.destination_box))
        return KALIX_REFUSED_NOT_SUPPORTED;
    return executed;
}

outcome surface_stretchblt(device_state& device, command_reader body)
{
    svga3d_surface_stretchblt command;
    if (!body.take(command))
        return KALIX_REFUSED_SHORT_COMMAND;
    source_box from{{}, command.source_box};
    image_view to;
    if (const outcome missing = find_image(device.surfaces, command.source, from.image))
        return missing;
    if (const outcome missing = find_image(device.surfaces, command.destination, to))
        return missing;
    if (const outcome refused = check(command, from.image, to))
        return refused;
    if (is_empty(command.source_box) || is_empty(command.destination_box))
        return executed;
    std::vector<std::byte> memory;
    if (from.image.bytes == to.bytes)
        from = copy_of(from, memory);
    const auto stretch = command.mode == SVGA3D_STRETCH_BLT_LINEAR ? stretch_linear : stretch_point;
    stretch(from, to, command.destination_box);
    return executed;
}

constexpr command_row rows[] = {
    {SVGA_3D_CMD_SURFACE_STRETCHBLT, sizeof(svga3d_surface_stretchblt), surface_stretchblt},
};

} // namespace

std::span<const command_row> surface_stretches()
{
    return rows;
}

} // namespace kalix::device
