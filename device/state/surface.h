// Surfaces: what is defined, and the memory of each.
//
// The store owns every surface by its id. A surface's memory is allocated, zeroed, at its first use
// and counts against one bound for all surfaces; a surface that cannot get its memory behaves like one
// that is not there. Used by the device's fetching thread alone, and by drawing threads while it waits
// for them.
//
// An image (one face, level) is linear: rows of blocks, row_bytes apart, slices slice_bytes apart. A
// BUFFER is an image of one row whose width is its size in bytes.
#pragma once

#include "device/state/format.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <kalix/svga3d_types.h>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

namespace kalix::device {

struct image {
    uint32_t width = 0, height = 0, depth = 0; // texels
    uint32_t row_bytes = 0;                    // from one row of blocks to the next
    uint64_t slice_bytes = 0;                  // from one slice to the next
    uint64_t offset = 0;                       // in the surface's memory
};

struct surface {
    uint32_t sid = 0, flags = 0, format = 0;
    std::array<uint32_t, SVGA3D_FACES> mip_levels{};
    std::vector<image> images; // face by face, level by level
    uint64_t bytes = 0;        // of all images
    std::unique_ptr<std::byte[], void (*)(void*)> memory{nullptr, nullptr};
};

// An image together with its memory, ready to be read and drawn to.
struct image_view {
    const format_info* format = nullptr;
    uint32_t format_number = 0;
    uint32_t width = 0, height = 0, depth = 0;
    uint32_t row_bytes = 0;
    uint64_t slice_bytes = 0;
    std::byte* bytes = nullptr; // null: no such image

    explicit operator bool() const { return bytes != nullptr; }
    // Address of a texel of an uncompressed image; the caller keeps x, y, z inside.
    std::byte* texel(uint32_t x, uint32_t y, uint32_t z = 0) const
    {
        return bytes + z * slice_bytes + uint64_t{y} * row_bytes + uint64_t{x} * format->block_bytes;
    }
    uint64_t byte_size() const { return slice_bytes * depth; }
};

class surface_store {
public:
    explicit surface_store(uint64_t memory_limit) : memory_limit_{memory_limit} {}

    // Defines a surface, replacing one of that id. False, and nothing changed, for a format that is none,
    // a size of 0, more than 144 levels, or a surface that could never fit the memory.
    bool define(const svga3d_surface_define& definition, std::span<const svga3d_size> sizes);
    // False when there is none. Views and pointers of a surface end with it, and with its being defined anew; those of
    // others stay good.
    bool destroy(uint32_t sid);
    // Null when there is none; does not give it memory.
    surface* find(uint32_t sid);
    size_t count() const { return surfaces_.size(); }
    uint64_t memory_used() const { return memory_used_; }

    // The image that an id names, with its memory; false in a condition when there is none.
    image_view view(const svga3d_image& name);
    image_view view(surface& of, uint32_t face, uint32_t level);

private:
    bool give_memory(surface& to);

    uint64_t memory_limit_; // bytes
    uint64_t memory_used_ = 0;
    std::unordered_map<uint32_t, surface> surfaces_;
};

} // namespace kalix::device
