// Regions and DMA buffers: the words that describe them, and what a failure leaves behind.

#include "tests/unit/driver/support.h"

#include "hardware/gpu/vmware_svga/gpu/kalix/dma.h"

#include <memory>

namespace kalix::test {
namespace {

constexpr uint64_t page = 4096;

// What describes a region of those pages, worked out plainly.
std::vector<uint32_t> definition(uint32_t id, const std::vector<uint64_t>& pages)
{
    std::vector<uint32_t> out{41, id, static_cast<uint32_t>(pages.size())};
    for (size_t first = 0; first < pages.size(); first += 3968) {
        const size_t count = std::min<size_t>(3968, pages.size() - first);
        out.insert(out.end(), {42, id, 2, static_cast<uint32_t>(first), static_cast<uint32_t>(count)});
        for (size_t i = first; i < first + count; ++i) {
            out.push_back(static_cast<uint32_t>(pages[i]));
            out.push_back(static_cast<uint32_t>(pages[i] >> 32));
        }
    }
    return out;
}

struct region_row {
    const char* name;
    uint32_t size;
    uint64_t start;                             // physical address of the block
    std::function<uint64_t(uint64_t)> physical; // of a byte, by its offset in the block
    uint32_t offset;
    std::string breaks;
};

TEST_F(driver_test, RegionsAreDescribedPageByPage)
{
    const auto straight = [](uint64_t start) { return [start](uint64_t offset) { return start + offset; }; };
    const region_row rows[] = {
        {"one page", 100, 0, straight(0x123000), 4096, "0"},
        {"unaligned", 2 * page, 0, straight(0x123010), 4096 - 0x10, "0"},
        {"nothing", 0, 0, straight(0x123000), 4096, "0"},
        {"one remap", 3968 * page, 0, straight(0x7000000000), 4096, "0"},
        {"two remaps", 3969 * page, 0, straight(0x7000000000), 4096, "0"},
        {"three runs", 6 * page, 0,
         [](uint64_t offset) {
             const uint64_t run = (offset / page - 1) / 2;
             return 0x100000 + offset + run % 2 * 0x80000;
         },
         4096, "2"},
    };
    for (const region_row& row : rows) {
        SCOPED_TRACE(row.name);
        const uint32_t length = row.size + 2 * page;
        const std::unique_ptr<std::byte[]> block{new std::byte[length]};
        here().physical = [&](const void* at) {
            return row.physical(static_cast<uint64_t>(static_cast<const std::byte*>(at) - block.get()));
        };
        uint32_t offset = 0;
        const int32_t id = dma_create_gmr(block.get(), &offset, row.size, length, nullptr);
        ASSERT_EQ(id, 1); // 0 is the driver's own
        EXPECT_EQ(offset, row.offset);
        std::vector<uint64_t> pages;
        for (uint64_t at = 0; at < row.size; at += page)
            pages.push_back(row.physical(offset + at) / page);
        EXPECT_EQ(take_stream(), definition(1, pages));
        EXPECT_EQ(here().waited.size(), 1u);
        EXPECT_EQ(take_lines(), std::vector<std::string>{"5 kalix: created GMR 1 size: " + std::to_string(row.size) +
                                                         " contig sections: " + row.breaks});
        hold lock{_globals.gmr_lock};
        removeGmr(1);
        EXPECT_EQ(take_stream(), (std::vector<uint32_t>{41, 1, 0}));
        here().waited.clear();
    }
}

struct refusal_row {
    const char* name;
    std::function<uint64_t(uint64_t)> physical;
    const char* line; // null: none
};

TEST_F(driver_test, RegionsThatCannotBeAreRefusedWithoutATrace)
{
    const refusal_row rows[] = {
        {"no first address", [](uint64_t) { return ~uint64_t{0}; },
         "2 kalix: dma_create_gmr: could not get initial physical address"},
        {"no start", [](uint64_t at) { return at == 0 ? 0x1000 : ~uint64_t{0}; }, nullptr},
        {"not aligned", [](uint64_t at) { return at == 0 ? 0x1000 : 0x2001; },
         "2 kalix: dma_create_gmr: couldn't find physically aligned page for dma"},
        {"a page missing", [](uint64_t at) { return at < 3 * page ? 0x1000 + at : ~uint64_t{0}; },
         "2 kalix: dma_create_gmr: could not jump to next physical page start for dma"},
        {"a page twice", [](uint64_t at) { return at < 3 * page ? 0x1000 + at : 0x3000; },
         "2 kalix: dma_create_gmr: repeating physical page"},
    };
    std::vector<std::byte> block(6 * page);
    uint32_t offset = 0;
    for (const refusal_row& row : rows) {
        SCOPED_TRACE(row.name);
        here().physical = [&](const void* at) {
            return row.physical(static_cast<uint64_t>(static_cast<const std::byte*>(at) - block.data()));
        };
        EXPECT_EQ(dma_create_gmr(block.data(), &offset, 4 * page, 6 * page, nullptr), -1);
        EXPECT_EQ(take_lines(), row.line ? std::vector<std::string>{row.line} : std::vector<std::string>{});
    }
    here().physical = nullptr;
    EXPECT_EQ(dma_create_gmr(block.data(), nullptr, page, 6 * page, nullptr), -1);
    fail_allocation(1);
    EXPECT_EQ(dma_create_gmr(block.data(), &offset, page, 6 * page, nullptr), -1);
    here().reservations_left = 0;
    EXPECT_EQ(dma_create_gmr(block.data(), &offset, page, 6 * page, nullptr), -1);
    const std::vector<std::string> lines = take_lines();
    EXPECT_EQ(lines.front(), "2 kalix: dma_create_gmr: couldn't allocate buffer for PPN list");
    EXPECT_EQ(lines.back(), "2 kalix: dma_create_gmr: GMR2 SVGA_FIFOReserve FAILED");
    EXPECT_TRUE(take_stream().empty());
}

TEST_F(driver_test, DmaBuffersComeGoAndRunOut)
{
    const auto alloc = [this](uint32_t client, uint32_t size) {
        return request(client, KALIX_DMABUF_ALLOC, words({size, 7, 7, 7, 7, 7}));
    };
    const dmabuf_alloc_req first = record_of<dmabuf_alloc_req>(alloc(1, 5000).data);
    EXPECT_EQ(first.handle, 1u);
    EXPECT_EQ(first.gmr_id, 1u);
    EXPECT_EQ(first.gmr_offset, 0u);
    EXPECT_EQ(first.handle_echo, 1u);
    EXPECT_EQ(here().objects["/svga_dma_1"].size(), 5000u + page);
    EXPECT_EQ((reinterpret_cast<uintptr_t>(here().objects["/svga_dma_1"].data()) + first.data_offset) % page, 0u);
    take_lines();
    EXPECT_EQ(request(2, KALIX_DMABUF_UNREF, words({1})).value, -22);
    EXPECT_EQ(take_lines(), std::vector<std::string>{"2 kalix: vmw_dmabuf_unref_ioctl: dma with sid 1 is unknown!"});
    for (uint32_t id = 2; id <= 4; ++id)
        EXPECT_EQ(record_of<dmabuf_alloc_req>(alloc(2, 1).data).gmr_id, id);
    take_lines();
    EXPECT_EQ(alloc(1, 1).value, -12); // the fake device has five regions
    EXPECT_EQ(take_lines(),
              (std::vector<std::string>{"2 kalix: dma_create_gmr: no more gmrs available!",
                                        "2 kalix: vmw_dmabuf_alloc_ioctl: could not create dma object!"}));
    EXPECT_EQ(request(1, KALIX_DMABUF_UNREF, words({1})).value, 0);
    EXPECT_THAT(here().unlinked, testing::Contains("/svga_dma_1"));
    const dmabuf_alloc_req again = record_of<dmabuf_alloc_req>(alloc(1, 1).data);
    EXPECT_EQ(again.handle, 1u);
    EXPECT_EQ(again.gmr_id, 1u);
}

TEST_F(driver_test, DmaSizesNearTheLimitsAreRefused)
{
    for (const uint32_t size : {0x7FFFF000u, 0x80000000u, 0xFFFFF000u, 0xFFFFFFFFu}) {
        take_lines();
        const answer got = request(1, KALIX_DMABUF_ALLOC, words({size, 7, 7, 7, 7, 7}));
        EXPECT_EQ(got.value, -12);
        EXPECT_EQ(words_of(got.data), (std::vector<uint32_t>{0, 0, 0, 7, 7, 7}));
        EXPECT_EQ(take_lines(), (std::vector<std::string>{
                                    "2 kalix: dma_create: failed to set size of new shared object for dma, errno=22",
                                    "2 kalix: vmw_dmabuf_alloc_ioctl: could not create dma object!"}));
    }
    EXPECT_TRUE(here().open_objects.empty());
}

} // namespace
} // namespace kalix::test
