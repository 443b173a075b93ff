#include "driver/objects/gmr.h"

#include "platform/files/shared_memory.h"
#include "svga/svga.h"

#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <span>

namespace kalix {
namespace {

constexpr uint32_t page_bytes = SVGA_PAGE_BYTES;
constexpr uint64_t no_address = ~uint64_t{0}; // on no page's boundary, so that the walk refuses it like any such
constexpr uint32_t pages_per_remap = 3968;    // keeps one remap command below 32 KiB

struct gmr_entry {
    uint32_t used;     // 1: the device may know the region
    dma_buffer* owner; // borrowed, until it is destroyed; none for the driver's own region
};
uint32_t maxGmrIds KALIX_GUARDED_BY(_globals.gmr_lock);
std::unique_ptr<gmr_entry[]> usedGmrs KALIX_GUARDED_BY(_globals.gmr_lock);

// The physical pages of a region, in its order.
struct page_list {
    std::unique_ptr<uint64_t[]> numbers;
    uint32_t count = 0;
    uint32_t section_breaks = 0; // pages that do not follow the one before
};

uint64_t physical_address(const std::byte* address)
{
    uint64_t physical = 0;
    return platform::mem_offset(address, &physical) == 0 ? physical : no_address;
}

// Notes one page of a region; false after a line when it cannot be part of one. With a page twice in a row the device
// would write one page of the buffer over the other.
bool append_page(page_list& pages, uint64_t physical)
{
    if (physical % page_bytes != 0) {
        slogf(log_code, log_error, "kalix: dma_create_gmr: could not jump to next physical page start for dma");
        return false;
    }
    const uint64_t number = physical / page_bytes;
    if (pages.count > 0) {
        const uint64_t previous = pages.numbers[pages.count - 1];
        if (number == previous) {
            slogf(log_code, log_error, "kalix: dma_create_gmr: repeating physical page");
            return false;
        }
        pages.section_breaks += number != previous + 1;
    }
    pages.numbers[pages.count++] = number;
    return true;
}

// Where a region in that memory starts: bytes behind address, 1 to 4096. Memory that begins on a page gives up its
// first one; clients add the offset that they are told, and rely on no other. None after a line.
std::optional<uint32_t> first_page_offset(const std::byte* address)
{
    const uint64_t physical = physical_address(address);
    if (physical == no_address) {
        slogf(log_code, log_error, "kalix: dma_create_gmr: could not get initial physical address");
        return std::nullopt;
    }
    return page_bytes - static_cast<uint32_t>(physical % page_bytes);
}

// Page by page, since memory that follows on in the process may lie anywhere. The list is as long as the memory, which
// is a page more than the region at least. Runs without a lock: the memory is its caller's.
std::optional<page_list> walk_pages(const std::byte* start, uint32_t size, uint32_t buffer_length)
{
    const uint64_t first = physical_address(start);
    if (first == no_address)
        return std::nullopt;
    if (first % page_bytes != 0) {
        slogf(log_code, log_error, "kalix: dma_create_gmr: couldn't find physically aligned page for dma");
        return std::nullopt;
    }
    page_list pages;
    pages.numbers.reset(new (std::nothrow) uint64_t[buffer_length / page_bytes + 1]);
    if (!pages.numbers) {
        slogf(log_code, log_error, "kalix: dma_create_gmr: couldn't allocate buffer for PPN list");
        return std::nullopt;
    }
    for (uint64_t offset = 0; offset < size; offset += page_bytes)
        if (!append_page(pages, physical_address(start + offset)))
            return std::nullopt;
    return pages;
}

// In one reservation, 4 MiB for the largest region: half a definition must never reach the device.
uint32_t stream_bytes(uint32_t pages)
{
    const uint32_t remaps = pages / pages_per_remap + (pages % pages_per_remap != 0);
    return static_cast<uint32_t>(sizeof(svga_cmd_define_gmr2) + sizeof(svga_cmd_remap_gmr2) * remaps +
                                 sizeof(uint64_t) * pages);
}

// Writes the region's definition and returns the byte behind it.
std::byte* write_definition(std::byte* out, uint32_t id, const page_list& pages)
{
    const auto put = [&out](const void* bytes, size_t count) {
        std::memcpy(out, bytes, count);
        out += count;
    };
    const svga_cmd_define_gmr2 define{SVGA_CMD_DEFINE_GMR2, id, pages.count};
    put(&define, sizeof define);
    for (uint32_t first = 0; first < pages.count; first += pages_per_remap) {
        const uint32_t count = std::min(pages.count - first, pages_per_remap);
        const svga_cmd_remap_gmr2 remap{SVGA_CMD_REMAP_GMR2, id, SVGA_REMAP_GMR2_PPN64, first, count};
        put(&remap, sizeof remap);
        put(&pages.numbers[first], count * sizeof(uint64_t));
    }
    return out;
}

// Describes the region to the device and waits until it knows it. False after a line.
bool define_region(uint32_t id, const page_list& pages)
{
    const uint32_t bytes = stream_bytes(pages.count);
    auto* const space = static_cast<std::byte*>(SVGA_FIFOReserve(bytes));
    if (!space) {
        slogf(log_code, log_error, "kalix: dma_create_gmr: GMR2 SVGA_FIFOReserve FAILED");
        return false;
    }
    if (write_definition(space, id, pages) != space + bytes) {
        SVGA_FIFOCommit(0);
        slogf(log_code, log_error, "kalix: dma_create_gmr: GMR2 ERROR");
        return false;
    }
    SVGA_FIFOCommitAll();
    SVGA_SyncToFence(SVGA_InsertFence()); // a client may name the region in its very next command
    return true;
}

bool has_gmr2()
{
    return _globals.svga_device->capabilities & SVGA_CAP_GMR2;
}

} // namespace

int dma_initialize()
{
    hold lock{_globals.gmr_lock};
    maxGmrIds = SVGA_ReadReg(SVGA_REG_GMR_MAX_IDS);
    usedGmrs.reset(new (std::nothrow) gmr_entry[maxGmrIds]{});
    if (!usedGmrs)
        return 1;
    // One fence each, some thousands: a region of an earlier run would reach pages that hold something else by now.
    for (uint32_t id = 0; id < maxGmrIds; ++id)
        removeGmr(id);
    return 0;
}

bool removeGmr(uint32_t gmr_id)
{
    if (has_gmr2()) {
        void* const space = SVGA_FIFOReserve(sizeof(svga_cmd_define_gmr2));
        if (!space) {
            slogf(log_code, log_error, "kalix: removeGmr: GMR2 SVGA_FIFOReserve FAILED");
            usedGmrs[gmr_id].owner = nullptr; // its record goes all the same
            return false;
        }
        const svga_cmd_define_gmr2 remove{SVGA_CMD_DEFINE_GMR2, gmr_id, 0};
        std::memcpy(space, &remove, sizeof remove);
        SVGA_FIFOCommitAll();
        SVGA_SyncToFence(SVGA_InsertFence()); // the caller releases the pages next
    } else {
        SVGA_WriteReg(SVGA_REG_GMR_ID, gmr_id);
        SVGA_WriteReg(SVGA_REG_GMR_DESCRIPTOR, 0);
    }
    usedGmrs[gmr_id] = {};
    return true;
}

int32_t getFreeGmrId()
{
    for (uint32_t id = 0; id < maxGmrIds; ++id)
        if (!usedGmrs[id].used)
            return static_cast<int32_t>(id);
    return -1;
}

dma_buffer* dma_get_by_gmrId(uint32_t gmr_id)
{
    hold lock{_globals.gmr_lock};
    return gmr_id < maxGmrIds ? usedGmrs[gmr_id].owner : nullptr;
}

int32_t dma_create_gmr(std::byte* address, uint32_t* offset, uint32_t size, uint32_t buffer_length, dma_buffer* owner)
{
    if (!offset)
        return -1;
    if (!has_gmr2()) {
        slogf(log_code, log_error, "kalix: dma_create_gmr ERROR: SVGA HW cannot support 64bit");
        return -1;
    }
    const std::optional<uint32_t> start = first_page_offset(address);
    if (!start)
        return -1;
    *offset = *start;
    const std::optional<page_list> pages = walk_pages(address + *start, size, buffer_length);
    if (!pages)
        return -1;
    hold lock{_globals.gmr_lock};
    const int32_t id = getFreeGmrId();
    if (id == -1) {
        slogf(log_code, log_error, "kalix: dma_create_gmr: no more gmrs available!");
        return -1;
    }
    slogf(log_code, log_information, "kalix: created GMR %d size: %d contig sections: %d", id, static_cast<int>(size),
          static_cast<int>(pages->section_breaks));
    if (!define_region(static_cast<uint32_t>(id), *pages))
        return -1;
    usedGmrs[static_cast<uint32_t>(id)] = {1, owner};
    return id;
}

} // namespace kalix
