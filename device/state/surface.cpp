// Surfaces' records, the places of their images, and their memory.

#include "device/state/surface.h"

#include <cstdlib>
#include <numeric>
#include <optional>

namespace kalix::device {
namespace {

constexpr uint32_t levels_max = 144; // of all faces

// count / unit, rounded up.
constexpr uint32_t blocks_of(uint32_t count, uint32_t unit)
{
    return count / unit + (count % unit != 0);
}

// Lays an image out behind what the surface has so far; none when a size is 0 or its bytes do not fit. Sizes are a
// client's, so each product is asked for by a quotient before it is worked out.
std::optional<image> lay_out(const format_info& format, const svga3d_size& size, uint64_t offset, uint64_t limit)
{
    if (size.width == 0 || size.height == 0 || size.depth == 0)
        return std::nullopt;
    const uint64_t row_bytes = uint64_t{blocks_of(size.width, format.block_width)} * format.block_bytes;
    const uint64_t rows = blocks_of(size.height, format.block_height);
    if (row_bytes > UINT32_MAX || row_bytes > limit / rows)
        return std::nullopt;
    const uint64_t slice_bytes = row_bytes * rows;
    if (slice_bytes > limit / size.depth || slice_bytes * size.depth > limit - offset)
        return std::nullopt;
    return image{size.width, size.height, size.depth, static_cast<uint32_t>(row_bytes), slice_bytes, offset};
}

} // namespace

bool surface_store::define(const svga3d_surface_define& definition, std::span<const svga3d_size> sizes)
{
    const format_info& format = format_of(definition.format);
    const uint64_t levels =
        std::accumulate(std::begin(definition.mip_levels), std::end(definition.mip_levels), uint64_t{0});
    if (format.kind == format_kind::none || levels == 0 || levels > levels_max || levels != sizes.size())
        return false;
    surface made;
    made.sid = definition.sid;
    made.flags = definition.flags;
    made.format = definition.format;
    std::copy(std::begin(definition.mip_levels), std::end(definition.mip_levels), made.mip_levels.begin());
    for (const svga3d_size& size : sizes) {
        const std::optional<image> laid = lay_out(format, size, made.bytes, memory_limit_);
        if (!laid)
            return false;
        made.images.push_back(*laid);
        made.bytes += laid->slice_bytes * laid->depth;
    }
    surface& place = surfaces_[definition.sid]; // what can lack memory comes before anything changes
    // The old contents go with the old record: a surface that is defined anew begins zeroed.
    if (place.memory)
        memory_used_ -= place.bytes;
    place = std::move(made);
    return true;
}

bool surface_store::destroy(uint32_t sid)
{
    const auto found = surfaces_.find(sid);
    if (found == surfaces_.end())
        return false;
    if (found->second.memory)
        memory_used_ -= found->second.bytes;
    surfaces_.erase(found);
    return true;
}

surface* surface_store::find(uint32_t sid)
{
    const auto found = surfaces_.find(sid);
    return found == surfaces_.end() ? nullptr : &found->second;
}

image_view surface_store::view(const svga3d_image& name)
{
    surface* const found = find(name.sid);
    return found ? view(*found, name.face, name.mipmap) : image_view{};
}

image_view surface_store::view(surface& of, uint32_t face, uint32_t level)
{
    // Memory is given to the whole surface, whichever of its images is asked for first.
    if (face >= of.mip_levels.size() || level >= of.mip_levels[face] || !give_memory(of))
        return {};
    const auto first =
        std::accumulate(of.mip_levels.begin(), of.mip_levels.begin() + static_cast<std::ptrdiff_t>(face), size_t{0});
    const image& named = of.images[first + level];
    return {.format = &format_of(of.format),
            .format_number = of.format,
            .width = named.width,
            .height = named.height,
            .depth = named.depth,
            .row_bytes = named.row_bytes,
            .slice_bytes = named.slice_bytes,
            .bytes = of.memory.get() + named.offset};
}

bool surface_store::give_memory(surface& to)
{
    if (to.memory)
        return true;
    // What is used never passes the limit, so the difference is none below 0.
    if (to.bytes > memory_limit_ - memory_used_)
        return false;
    // Zeroed without being touched, so that a large surface costs what is used of it.
    to.memory = {static_cast<std::byte*>(std::calloc(1, to.bytes)), std::free};
    if (!to.memory)
        return false;
    memory_used_ += to.bytes;
    return true;
}

} // namespace kalix::device
