// Guest memory: the regions that the driver's side has described, and the framebuffer.
//
// A region is a row of pages, kept as runs of consecutive addresses, so that a buffer that lies in one
// piece costs one run whatever its size. Every access to guest memory goes through copy_in and copy_out,
// which walk the runs; nothing outside the region that a pointer names is touched. All regions together
// are bounded in pages, and so the records that describe them. Used under the device's execution lock.
//
// The pages are the client's: they may change while they are copied, so what is decided by them is decided on
// copies. That they stay mapped while a region names them is the driver's affair.
#pragma once

#include "device/state/outcome.h"

#include <cstddef>
#include <cstdint>
#include <kalix/svga3d_types.h>
#include <span>
#include <unordered_map>
#include <vector>

namespace kalix::device {

inline constexpr uint32_t regions_pages_max = 1u << 24; // of all regions: 64 GiB

// Where a page of guest memory lies; null: there is no such page.
using page_address_function = std::byte* (*)(uint64_t page);

// Guest memory is this process's own address space.
std::byte* page_in_own_memory(uint64_t page);

class guest_memory {
public:
    explicit guest_memory(std::span<std::byte> framebuffer, page_address_function page_address = page_in_own_memory)
        : framebuffer_{framebuffer}, page_address_{page_address}
    {
    }

    // Defines a region whose pages are yet to be named, replacing one of that id; 0 pages: removes it, which
    // is no refusal when there is none.
    outcome define(uint32_t id, uint32_t pages);
    // Names the pages of a region from first on; refused, and nothing changed, when they are more than it has or one of
    // them is no page.
    outcome remap(uint32_t id, uint32_t first, std::span<const uint64_t> pages);

    // Whether all bytes from this offset on are there: the region exists, ends no earlier and has its pages.
    outcome check(uint32_t id, uint64_t offset, uint64_t bytes) const;
    // Copies from / to guest memory; what check has not passed is left alone from the first gap on.
    void copy_in(uint32_t id, uint64_t offset, std::span<std::byte> to) const;
    void copy_out(uint32_t id, uint64_t offset, std::span<const std::byte> from) const;

    // Whether so many bytes from this offset on have consecutive addresses: none of them lies twice in memory.
    bool is_one_piece(uint32_t id, uint64_t offset, uint64_t bytes) const
    {
        return piece(id, offset, bytes).size() == bytes;
    }

    size_t count() const { return regions_.size(); }

private:
    struct run {
        uint64_t first; // page of the region
        uint64_t pages;
        std::byte* address; // null: not named yet
    };
    struct region {
        uint64_t pages = 0;
        std::vector<run> runs; // in order, without gaps, from page 0 to the region's end
    };

    static void append(std::vector<run>& to, const run& more);
    static void append_cut(std::vector<run>& to, const run& from, uint64_t begin, uint64_t end);
    std::span<std::byte> piece(uint32_t id, uint64_t offset, uint64_t bytes) const;

    std::span<std::byte> framebuffer_;
    page_address_function page_address_;
    uint64_t pages_in_use_ = 0;
    std::unordered_map<uint32_t, region> regions_;
};

} // namespace kalix::device
