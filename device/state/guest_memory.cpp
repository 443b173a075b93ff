// Regions as runs of pages, and the walks over them.

#include "device/state/guest_memory.h"

#include "svga/svga_regs.h"

#include <algorithm>
#include <cstring>

namespace kalix::device {
namespace {

constexpr uint64_t page_bytes = SVGA_PAGE_BYTES;

} // namespace

// A page whose address would not fit is none; any other number is believed, since the driver alone names pages.
std::byte* page_in_own_memory(uint64_t page)
{
    return page > UINTPTR_MAX / page_bytes ? nullptr : reinterpret_cast<std::byte*>(page * page_bytes);
}

outcome guest_memory::define(uint32_t id, uint32_t pages)
{
    if (id >= SVGA_GMR_IDS)
        return KALIX_REFUSED_BAD_VALUE;
    const auto old = regions_.find(id);
    const uint64_t others = pages_in_use_ - (old == regions_.end() ? 0 : old->second.pages);
    if (pages > regions_pages_max - others)
        return KALIX_REFUSED_NO_MEMORY;
    if (pages == 0)
        regions_.erase(id);
    else
        regions_.insert_or_assign(id, region{pages, {{0, pages, nullptr}}});
    pages_in_use_ = others + pages; // last: there may be no memory for the region
    return executed;
}

// Adds a run behind the others, as part of the last one when it continues it.
void guest_memory::append(std::vector<run>& to, const run& more)
{
    if (!to.empty()) {
        run& last = to.back();
        // Pages that nobody has named yet continue each other as well.
        const bool continues = last.address ? more.address == last.address + last.pages * page_bytes : !more.address;
        if (continues) {
            last.pages += more.pages;
            return;
        }
    }
    to.push_back(more);
}

// Adds what of a run lies in the pages from begin to end.
void guest_memory::append_cut(std::vector<run>& to, const run& from, uint64_t begin, uint64_t end)
{
    const uint64_t first = std::max(from.first, begin);
    const uint64_t last = std::min(from.first + from.pages, end);
    if (first < last)
        append(to, {first, last - first, from.address ? from.address + (first - from.first) * page_bytes : nullptr});
}

outcome guest_memory::remap(uint32_t id, uint32_t first, std::span<const uint64_t> pages)
{
    const auto found = regions_.find(id);
    if (found == regions_.end())
        return KALIX_REFUSED_NO_REGION;
    region& in = found->second;
    if (first > in.pages || pages.size() > in.pages - first)
        return KALIX_REFUSED_OUTSIDE;
    // Put together beside the old ones: a page that is none, or no memory, leaves the region as it was.
    std::vector<run> runs;
    for (const run& each : in.runs)
        append_cut(runs, each, 0, first);
    for (uint64_t i = 0; i < pages.size(); ++i) {
        std::byte* const address = page_address_(pages[i]);
        if (!address)
            return KALIX_REFUSED_BAD_VALUE;
        append(runs, {first + i, 1, address});
    }
    for (const run& each : in.runs)
        append_cut(runs, each, first + pages.size(), in.pages);
    in.runs = std::move(runs);
    return executed;
}

// The longest piece of consecutive addresses at an offset, at most so many bytes; empty when nothing is there.
std::span<std::byte> guest_memory::piece(uint32_t id, uint64_t offset, uint64_t bytes) const
{
    if (id == SVGA_GMR_FRAMEBUFFER) {
        if (offset >= framebuffer_.size())
            return {};
        return framebuffer_.subspan(offset, std::min(bytes, framebuffer_.size() - offset));
    }
    const auto found = regions_.find(id);
    const uint64_t page = offset / page_bytes;
    if (found == regions_.end() || page >= found->second.pages)
        return {};
    const std::vector<run>& runs = found->second.runs;
    // There is one: a region has a page at least, and its runs begin with page 0.
    const run& at = *std::prev(std::ranges::upper_bound(runs, page, {}, &run::first));
    if (!at.address)
        return {};
    const uint64_t skipped = offset - at.first * page_bytes;
    return {at.address + skipped, std::min(bytes, at.pages * page_bytes - skipped)};
}

outcome guest_memory::check(uint32_t id, uint64_t offset, uint64_t bytes) const
{
    if (id != SVGA_GMR_FRAMEBUFFER && !regions_.contains(id))
        return KALIX_REFUSED_NO_REGION;
    // Offsets cannot wrap here: each piece lies inside a region or the framebuffer, far below 2^64.
    while (bytes != 0) {
        const std::span<std::byte> here = piece(id, offset, bytes);
        if (here.empty())
            return KALIX_REFUSED_OUTSIDE;
        offset += here.size();
        bytes -= here.size();
    }
    return executed;
}

void guest_memory::copy_in(uint32_t id, uint64_t offset, std::span<std::byte> to) const
{
    while (!to.empty()) {
        const std::span<std::byte> here = piece(id, offset, to.size());
        if (here.empty())
            return;
        std::memcpy(to.data(), here.data(), here.size());
        offset += here.size();
        to = to.subspan(here.size());
    }
}

void guest_memory::copy_out(uint32_t id, uint64_t offset, std::span<const std::byte> from) const
{
    while (!from.empty()) {
        const std::span<std::byte> here = piece(id, offset, from.size());
        if (here.empty())
            return;
        std::memcpy(here.data(), from.data(), here.size());
        offset += here.size();
        from = from.subspan(here.size());
    }
}

} // namespace kalix::device
