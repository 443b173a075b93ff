// Regions and DMA buffers: the words that describe them, and what a failure leaves behind.

#include "tests/unit/driver/support.h"

#include "driver/objects/dma.h"
#include "driver/objects/gmr.h"
#include "driver/objects/shares.h"

#include <memory>

namespace kalix::test {
namespace {

constexpr uint64_t page = 4096;
constexpr uint64_t nowhere = ~uint64_t{0};

// What describes a region of those pages, worked out plainly.
stream definition(uint32_t id, const std::vector<uint64_t>& pages)
{
    stream out{41, id, static_cast<uint32_t>(pages.size())};
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
    std::function<uint64_t(uint64_t)> physical; // of a byte, by its offset in the block
    uint32_t offset;                            // 0: there can be no region
    std::string line;                           // or the sections behind the first
};

TEST_F(driver_test, RegionsAreDescribedPageByPageOrRefusedWithoutATrace)
{
    const auto straight = [](uint64_t start) { return [start](uint64_t offset) { return start + offset; }; };
    const region_row rows[] = {
        {"one page", 100, straight(0x123000), 4096, "0"},
        {"unaligned", 2 * page, straight(0x123010), 4096 - 0x10, "0"},
        {"nothing", 0, straight(0x123000), 4096, "0"},
        {"one remap", 3968 * page, straight(0x7000000000), 4096, "0"},
        {"two remaps", 3969 * page, straight(0x7000000000), 4096, "0"},
        {"three runs", 6 * page,
         [](uint64_t offset) {
             const uint64_t run = (offset / page - 1) / 2;
             return 0x100000 + offset + run % 2 * 0x80000;
         },
         4096, "2"},
        {"no first address", 4 * page, [](uint64_t) { return nowhere; }, 0, "could not get initial physical address"},
        {"no start", 4 * page, [](uint64_t at) { return at == 0 ? 0x1000 : nowhere; }, 0, ""},
        {"not aligned", 4 * page, [](uint64_t at) { return at == 0 ? 0x1000 : 0x2001; }, 0,
         "couldn't find physically aligned page for dma"},
        {"a page missing", 4 * page, [](uint64_t at) { return at < 3 * page ? 0x1000 + at : nowhere; }, 0,
         "could not jump to next physical page start for dma"},
        {"a page twice", 4 * page, [](uint64_t at) { return at < 3 * page ? 0x1000 + at : 0x3000; }, 0,
         "repeating physical page"},
    };
    for (const region_row& row : rows) {
        SCOPED_TRACE(row.name);
        const uint32_t length = row.size + 2 * page;
        const std::unique_ptr<std::byte[]> block{new std::byte[length]};
        here().physical = [&](const void* at) {
            return row.physical(static_cast<uint64_t>(static_cast<const std::byte*>(at) - block.get()));
        };
        here().waited.clear();
        uint32_t offset = 0;
        const int32_t id = dma_create_gmr(block.get(), &offset, row.size, length, nullptr);
        if (row.offset == 0) {
            EXPECT_EQ(id, -1);
            EXPECT_EQ(take_lines(), row.line.empty() ? lines{} : lines{"2 kalix: dma_create_gmr: " + row.line});
            EXPECT_TRUE(take_stream().empty());
            continue;
        }
        ASSERT_EQ(id, 1); // 0 is the driver's own
        EXPECT_EQ(offset, row.offset);
        std::vector<uint64_t> pages;
        for (uint64_t at = 0; at < row.size; at += page)
            pages.push_back(row.physical(offset + at) / page);
        EXPECT_EQ(take_stream(), definition(1, pages));
        EXPECT_EQ(here().waited.size(), 1u);
        EXPECT_EQ(take_lines(),
                  lines{"5 kalix: created GMR 1 size: " + std::to_string(row.size) + " contig sections: " + row.line});
        hold lock{_globals.gmr_lock};
        removeGmr(1);
        EXPECT_EQ(take_stream(), (stream{41, 1, 0}));
    }
    here().physical = nullptr;
    std::vector<std::byte> block(6 * page);
    uint32_t offset = 0;
    EXPECT_EQ(dma_create_gmr(block.data(), nullptr, page, 6 * page, nullptr), -1);
    const auto create = [&] { return dma_create_gmr(block.data(), &offset, page, 6 * page, nullptr); };
    EXPECT_EQ(failing(1, create), -1);
    EXPECT_EQ(with_reservations(0, create), -1);
    const lines said = take_lines();
    EXPECT_EQ(said.front(), "2 kalix: dma_create_gmr: couldn't allocate buffer for PPN list");
    EXPECT_EQ(said.back(), "2 kalix: dma_create_gmr: GMR2 SVGA_FIFOReserve FAILED");
    EXPECT_TRUE(take_stream().empty());
}

TEST_F(driver_test, DmaBuffersComeGoAndRunOut)
{
    const auto alloc = [this](uint32_t client, uint32_t size) {
        return ask(client, KALIX_DMABUF_ALLOC, dmabuf_alloc_req{uint64_t{7} << 32 | size, 7, 7, 7, 7});
    };
    const dmabuf_alloc_req first = alloc(1, 5000);
    EXPECT_EQ((std::array{first.handle, first.gmr_id, first.gmr_offset, first.handle_echo}),
              (std::array{1u, 1u, 0u, 1u}));
    EXPECT_EQ(here().objects["/svga_dma_1"].size(), 5000u + page);
    EXPECT_EQ((reinterpret_cast<uintptr_t>(here().objects["/svga_dma_1"].data()) + first.data_offset) % page, 0u);
    expect_refused(request(9, KALIX_DMABUF_UNREF, words({1})), -22,
                   {"2 kalix: vmw_dmabuf_unref_ioctl: dma with sid 1 is unknown!"});
    for (uint32_t id = 2; id <= 4; ++id)
        EXPECT_EQ(alloc(9, 1).gmr_id, id);
    EXPECT_EQ(here().owners["/svga_dma_1"], 0u);
    EXPECT_EQ(here().owners["/svga_dma_2"], 1u);                    // the user who asked
    expect_refused(request(1, KALIX_DMABUF_ALLOC, words({1})), -12, // the fake device has five regions
                   {"2 kalix: dma_create_gmr: no more gmrs available!",
                    "2 kalix: vmw_dmabuf_alloc_ioctl: could not create dma object!"});
    EXPECT_EQ(request(1, KALIX_DMABUF_UNREF, words({1})).value, 0);
    EXPECT_THAT(here().unlinked, testing::Contains("/svga_dma_1"));
    const dmabuf_alloc_req again = alloc(1, 1);
    EXPECT_EQ(again.handle, 1u);
    EXPECT_EQ(again.gmr_id, 1u);
}

TEST_F(driver_test, DmaSizesNearTheLimitsAreRefused)
{
    for (const uint32_t size : {0x7FFFF000u, 0x80000000u, 0xFFFFF000u, 0xFFFFFFFFu}) {
        const answer got = request(1, KALIX_DMABUF_ALLOC, words({size, 7, 7, 7, 7, 7}));
        EXPECT_EQ(got.value, -12);
        EXPECT_EQ(words_of(got.data), (stream{0, 0, 0, 7, 7, 7}));
        EXPECT_EQ(got.said, (lines{"2 kalix: dma_create: failed to set size of new shared object for dma, errno=22",
                                   "2 kalix: vmw_dmabuf_alloc_ioctl: could not create dma object!"}));
    }
    EXPECT_TRUE(here().open_objects.empty());
}

TEST_F(driver_test, PagesThatTheDeviceKeepsStayMapped)
{
    request(1, KALIX_DMABUF_ALLOC, words({100}));
    ASSERT_TRUE(dma_get_by_gmrId(1));
    EXPECT_EQ(with_reservations(0, [&] { return request(1, KALIX_DMABUF_UNREF, words({1})).value; }), 0);
    EXPECT_EQ(dma_get_by_gmrId(1), nullptr); // the record has gone
    EXPECT_EQ(std::exchange(here().mappings, 0), 1);
    EXPECT_TRUE(here().open_objects.empty());
    EXPECT_EQ(record_of<dmabuf_alloc_req>(request(1, KALIX_DMABUF_ALLOC, words({100})).data).gmr_id, 2u);
    EXPECT_EQ(_globals.shares.taken[2], 2u);
    share_give_back(share_kind::dma_buffer, _globals.shares.first);
}

// ---- What one client or user may hold ---------------------------------------------------------------------

TEST_F(driver_test, NobodyTakesWhatIsKeptForOthers)
{
    const auto take_command_buffer = [this](uint32_t client, uint32_t nth) {
        command_buffer(client, 1000 + nth, {});
        return execute(client, 1000 + nth, 0);
    };
    const auto take_destination = [this](uint32_t client, uint32_t nth) {
        const std::string name = "/vm_svga:" + std::to_string(1000 + client) + ":" + std::to_string(nth);
        here().objects[name].resize(64);
        here().owners[name] = client / 8;
        const readback_req req{surface(client), 0, 0, 4, 4, 16, nth, 64, 0, 0, 1, {}};
        return request(client, KALIX_READBACK, bytes_of(req));
    };
    const auto take_dma_buffer = [this](uint32_t client, uint32_t) {
        return request(client, KALIX_DMABUF_ALLOC, words({100}));
    };
    here().regions = 12;
    ASSERT_EQ(dma_initialize(), 0);
    const std::tuple<uint32_t, int32_t, std::string> steps[] = {
        // client, of eight of a user; status; bound
        {1, 0, ""},
        {1, 0, ""},
        {1, -12, "process 1001 refused: no more than 2 * for one client"},
        {2, 0, ""},
        {2, 0, ""},
        {3, -12, "process 1003 of user 0 refused: no more than 4 * for one user"},
        {8, 0, ""},
        {8, 0, ""},
        {9, -12, "process 1009 of user 1 refused: the last 2 * are for users who hold none"},
        {16, 0, ""},
        {17, -12, "process 1017 of user 2 refused: the last 2 * are for users who hold none"},
        {24, 0, ""},
        {32, -12, "process 1032 of user 4 refused: the last 2 * are for users who hold none"},
    };
    using taker = std::function<answer(uint32_t client, uint32_t nth)>;
    for (const auto& [what, take] : {std::pair<const char*, taker>{"command buffers", take_command_buffer},
                                     {"readback destinations", take_destination},
                                     {"DMA buffers", take_dma_buffer}}) {
        SCOPED_TRACE(what);
        here().own_uid = 99;
        shares_init(8 * share_kinds);
        uint32_t nth = 0;
        for (auto [client, status, line] : steps) {
            const answer got = take(client, ++nth);
            EXPECT_EQ(got.value, status) << nth;
            if (status != 0) {
                EXPECT_EQ(got.said, lines{"2 kalix: " + line.replace(line.find('*'), 1, what)});
            }
        }
        disconnect(1); // what they held is there again
        disconnect(2);
        EXPECT_EQ(take(9, ++nth).value, 0);
        for (const auto& each : steps)
            disconnect(std::get<0>(each));
        disconnect(9);
        here().own_uid = 0; // the server's own user is held to what is kept back alone
        for (const uint32_t client : {1u, 1u, 2u, 2u, 3u, 3u})
            EXPECT_EQ(take(client, ++nth).value, 0) << nth;
        EXPECT_EQ(take(4, ++nth).value, -12);
        for (uint32_t client = 1; client <= 4; ++client)
            disconnect(client);
        EXPECT_EQ(_globals.shares.first, nullptr);
    }
}

} // namespace
} // namespace kalix::test
