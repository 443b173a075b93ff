// Surfaces, their ids, sharing, and readback into memory of their clients.

#include "tests/unit/driver/support.h"

#include "driver/objects/overlay.h"

#include <kalix/svga3d_types.h>

namespace kalix::test {
namespace {

constexpr char in_use[] = "2 kalix: vmw_surface_define_ioctl: requesting surface sid (%d) already in use!";

std::string in_use_line(int32_t sid)
{
    char line[160];
    std::snprintf(line, sizeof line, in_use, sid);
    return line;
}

TEST_F(driver_test, DefiningSendsTheSizesAsTheyCame)
{
    surface_define_req req{0x20, 2, {2, 0, 0, 0, 0, 1}, 12 + 52 + 4, 0, 9, 0, 0};
    const bytes list = words({0, 8, 4, 1, 99, 4, 2, 1, 99, 7, 7}); // the third entry is cut short
    const answer got = request(1, KALIX_SURFACE_DEFINE, bytes_of(req), list);
    EXPECT_EQ(got.value, 0);
    EXPECT_EQ(words_of(got.data), (std::vector<uint32_t>{1, 2}));
    EXPECT_EQ(take_stream(),
              (std::vector<uint32_t>{1040, 72, 1, 0x20, 2, 2, 0, 0, 0, 0, 1, 8, 4, 1, 4, 2, 1, 7, 7, 0}));
    req.sizes_offset_high = ~0u; // nothing there: all sizes are zero
    EXPECT_EQ(request(1, KALIX_SURFACE_DEFINE, bytes_of(req), list).value, 0);
    EXPECT_EQ(take_stream().back(), 0u);
}

TEST_F(driver_test, MipCountsAreBounded)
{
    surface_define_req req{0, 2, {24, 24, 24, 24, 24, 24}, 64, 0, 0, 0, 0};
    EXPECT_EQ(request(1, KALIX_SURFACE_DEFINE, bytes_of(req)).value, 0);
    req.mip_levels[3] = 25;
    EXPECT_EQ(request(1, KALIX_SURFACE_DEFINE, bytes_of(req)).value, -22);
    req.mip_levels[0] = req.mip_levels[1] = 0x80000000; // a sum that wraps
    EXPECT_EQ(request(1, KALIX_SURFACE_DEFINE, bytes_of(req)).value, -22);
    EXPECT_EQ(define_surface(1), 2); // refused ones gave their sid back
}

TEST_F(driver_test, BrokenMipmapsLeaveTheTopLevelOfTextures)
{
    _globals.mipmap_dma_failed = 1;
    struct level_row {
        uint32_t flags, format, levels;
    };
    for (const level_row& row : {level_row{0x20, 2, 1}, {0x20, 1, 1}, {0x20, 3, 10}, {0, 2, 10}}) {
        const surface_define_req req{row.flags, row.format, {10, 0, 0, 0, 0, 0}, 64, 0, 0, 0, 0};
        take_stream();
        EXPECT_EQ(request(1, KALIX_SURFACE_DEFINE, bytes_of(req)).value, 0);
        EXPECT_EQ(take_stream()[5], row.levels);
    }
}

TEST_F(driver_test, SidsStayApart)
{
    for (const uint32_t reserved : {32747u, 32748u, 32751u, 0xFFFFFFFFu}) {
        EXPECT_EQ(define_surface(1, reserved), -22);
        EXPECT_EQ(take_lines(), std::vector<std::string>{in_use_line(static_cast<int32_t>(reserved))});
    }
    EXPECT_EQ(define_surface(1, 1), 1); // a client's choice inside the pool's range
    EXPECT_EQ(define_surface(2), 2);    // is not handed out
    EXPECT_EQ(define_surface(2, 1), -22);
    const uint32_t asked = record_of<uint32_t>(request(3, KALIX_ALLOC_SID, words({0, 0})).data);
    EXPECT_EQ(asked, 3u);
    EXPECT_EQ(define_surface(2, 3), -22); // is client 3's until it goes
    EXPECT_EQ(define_surface(3, 3), 3);
    request(3, KALIX_SURFACE_DESTROY, words({3}));
    EXPECT_EQ(define_surface(2), 4); // still client 3's
    EXPECT_EQ(define_surface(3, 3), 3);
    // Surface 3 outlives the client that chose its sid; the pool passes over it.
    EXPECT_EQ(request(2, KALIX_SURFACE_REFERENCE, words({3})).value, 0);
    disconnect(3);
    EXPECT_EQ(define_surface(2), 5);
    EXPECT_EQ(define_surface(2, 3), -22);
    EXPECT_EQ(request(2, KALIX_SURFACE_DESTROY, words({3})).value, 0);
    EXPECT_EQ(define_surface(2), 3); // and gets it back when it dies
}

// Clients that choose, ask, share, drop and go at random: no two live surfaces ever share a sid, and at the
// end the pool is whole.
TEST_F(driver_test, SidsSurviveRandomClients)
{
    std::mt19937 random{test_seed()};
    std::map<std::pair<uint32_t, uint32_t>, int> held; // by client and sid
    for (int step = 0; step < 3000; ++step) {
        SCOPED_TRACE(testing::Message() << "seed " << test_seed() << ", step " << step);
        const uint32_t client = 1 + below(random, 4);
        const uint32_t sid = 1 + below(random, 9);
        const bool live = resource_get_global(RESOURCE_SURFACE, sid);
        switch (below(random, 7)) {
        case 0: {
            const int32_t made = define_surface(client);
            ASSERT_GT(made, 0);
            for (uint32_t other = 1; other <= 4; ++other)
                ASSERT_EQ(held[std::pair(other, static_cast<uint32_t>(made))], 0);
            held[std::pair(client, static_cast<uint32_t>(made))] = 1;
            break;
        }
        case 1: {
            const int32_t made = define_surface(client, sid);
            ASSERT_TRUE(made == -22 || (made == static_cast<int32_t>(sid) && !live));
            if (made > 0)
                held[std::pair(client, sid)] = 1;
            break;
        }
        case 2:
            if (step % 5 == 0)
                request(client, KALIX_ALLOC_SID, words({0, 0}));
            break;
        case 3:
            if (request(client, KALIX_SURFACE_REFERENCE, words({sid})).value == 0)
                ++held[std::pair(client, sid)];
            break;
        case 4:
            if (below(random, 4) == 0) {
                disconnect(client);
                for (auto& [key, count] : held)
                    count = key.first == client ? 0 : count;
            }
            break;
        default:
            if (request(client, KALIX_SURFACE_DESTROY, words({sid})).value == 0)
                --held[std::pair(client, sid)];
        }
    }
    for (uint32_t client = 1; client <= 4; ++client)
        disconnect(client);
    EXPECT_EQ(_globals.surface_ids.usecount, 1u) << test_seed(); // the driver's own
}

TEST_F(driver_test, SidsBehindThePoolAreNotRetained)
{
    const auto retained = [] { return client_get({1001, 0, 1, 0})->retained_sids->count; };
    for (const auto& [sid, count] :
         {std::pair{driver_surface_id_last + 1, 0}, {0xFFFFFFFEu, 0}, {driver_surface_id_first - 1, 1}}) {
        ASSERT_EQ(static_cast<uint32_t>(define_surface(1, sid)), sid);
        EXPECT_EQ(retained(), count) << sid;
        EXPECT_EQ(define_surface(2, sid), -22);
    }
}

TEST_F(driver_test, SharedSurfacesAndTheirReferences)
{
    define_surface(1);                   // makes the client
    for (int nth = 2; nth <= 7; ++nth) { // one that was not registered was never there
        fail_allocation(nth);
        const int32_t sid = define_surface(1, 0, 8, 8, 2, 1);
        fail_allocation(0);
        EXPECT_EQ(_globals.shared_sid, sid > 0 ? static_cast<uint32_t>(sid) : 0) << nth;
        _globals.shared_sid = 0;
    }
    disconnect(1);
    EXPECT_EQ(define_surface(1, 0, 8, 8, 2, 1), 1);
    EXPECT_EQ(define_surface(1, 0, 8, 8, 1, 1), 2);
    EXPECT_EQ(_globals.shared_sid, 1u);
    const answer got = request(2, KALIX_SURFACE_REFERENCE, bytes_of(surface_reference_req{1, 9, {9}, {5, 6}}));
    EXPECT_EQ(words_of(got.data), (std::vector<uint32_t>{0x20, 2, 1, 0, 0, 0, 0, 0, 5, 6, 0, 0, 0, 0}));
    EXPECT_EQ(_globals.shared_sid_client, client_get({1002, 0, 2, 0}));
    EXPECT_EQ(request(2, KALIX_SURFACE_REFERENCE, words({0})).value, -2);
    disconnect(3);
    EXPECT_NE(_globals.shared_sid_client, nullptr);
    disconnect(2);
    EXPECT_EQ(_globals.shared_sid_client, nullptr);
    _globals.settings.strict = true;
    EXPECT_EQ(request(8, KALIX_SURFACE_REFERENCE, words({1})).value, -2); // client 8 is another user
    EXPECT_EQ(request(3, KALIX_SURFACE_REFERENCE, words({1})).value, 0);
    here().own_uid = 1;
    EXPECT_EQ(request(8, KALIX_SURFACE_REFERENCE, words({1})).value, 0);
}

// ---- Who may name a surface ---------------------------------------------------------------------------------

struct naming_row {
    const char* name;
    std::function<bool(uint32_t client)> ask;
    const char *by_default, *strict; // 1: may; its definer, another client of that user, another user, the server's
};

TEST_F(driver_test, EveryRequestThatNamesASurfaceAsksTheSame)
{
    constexpr uint32_t clients[] = {1, 2, 8, 16}; // a client's user is an eighth of its number
    here().own_uid = 2;
    uint32_t sid = 0;
    const auto asks = [this](int32_t command, const auto& payload) {
        return [this, command, payload](uint32_t client) { return request(client, command, payload()).value == 0; };
    };
    const auto just = [&sid] { return words({sid, 1}); };
    const auto executes = [this](uint32_t client, const bytes& commands) {
        command_buffer(client, 200 + client, commands);
        return execute(client, 200 + client, static_cast<uint32_t>(commands.size())).value == 0;
    };
    const auto overlay_takes = [this](uint32_t client, uint32_t sid0, uint32_t sid1) {
        const overlay_define_req req{0, 0, 8, 8, 1, 0, sid0, sid1, 0, 0};
        const uint32_t id = record_of<overlay_define_req>(request(client, KALIX_OVERLAY_DEFINE, bytes_of(req)).data).id;
        const auto& made = *static_cast<overlay_record*>(resource_get_global(RESOURCE_OVERLAY, id));
        const bool taken = made.surface[0] || made.surface[1];
        request(client, KALIX_OVERLAY_DESTROY, words({id}));
        return taken;
    };
    const naming_row rows[] = {
        {"destroy", asks(KALIX_SURFACE_DESTROY, just), "1000", "1000"},
        {"reference", asks(KALIX_SURFACE_REFERENCE, just), "1111", "1101"},
        {"command",
         [&](uint32_t client) {
             return executes(client, words({1058, 4, sid}));
         },
         "1000", "1000"},
        {"dma",
         [&](uint32_t client) {
             const auto own =
                 record_of<dmabuf_alloc_req>(request(client, KALIX_DMABUF_ALLOC, words({100, 0, 0, 0, 0})).data);
             const bool done = executes(client, words({1044, 28, own.gmr_id, 0, 0, sid, 0, 0, 1}));
             request(client, KALIX_DMABUF_UNREF, words({own.handle}));
             return done;
         },
         "1111", "1000"},
        {"present",
         asks(KALIX_PRESENT,
              [&] {
                  return bytes_of(present_req{sid, 0, 0, 4, 4});
              }),
         "1000", "1000"},
        {"present to an address",
         asks(KALIX_PRESENT_PHYS,
              [&] {
                  return bytes_of(present_phys_req{sid, 0, 0, 4, 4, 0, SVGA_FRAMEBUFFER_BASE});
              }),
         "1000", "1000"},
        {"readback",
         asks(KALIX_READBACK,
              [&] {
                  return bytes_of(readback_req{sid, 0, 0, 4, 4, 16, 0, 0, 0, 0, 0, {}});
              }),
         "1111", "1101"},
        {"overlay", [&](uint32_t client) { return overlay_takes(client, sid, 0); }, "1111", "1101"},
        {"overlay's second", [&](uint32_t client) { return overlay_takes(client, 0, sid); }, "1111", "1101"},
        {"show", asks(KALIX_DEBUG_SHOW_SID, just), "1111", "0001"},
        {"info", asks(KALIX_DEBUG_SID_INFO, just), "1111", "0001"},
        {"list",
         [&](uint32_t client) {
             const answer got = request(client, KALIX_DEBUG_LIST_SIDS, bytes_of(list_sids_req{}));
             return record_of<list_sids_req>(got.data).entries[0].sid == sid;
         },
         "1111", "0001"},
        {"dump",
         asks(KALIX_DEBUG_DUMP_SID,
              [&] {
                  return bytes_of(dump_sid_req{sid, 0, 1, 1, 1, 0, {}});
              }),
         "1111", "0001"},
        {"fill", asks(KALIX_DEBUG_FILL_SID, just), "1111", "0001"},
    };
    for (const naming_row& row : rows)
        for (const bool strict : {false, true})
            for (size_t i = 0; i < std::size(clients); ++i) {
                sid = static_cast<uint32_t>(define_surface(clients[0]));
                _globals.settings.strict = strict;
                EXPECT_EQ(row.ask(clients[i]), (strict ? row.strict : row.by_default)[i] == '1')
                    << row.name << (strict ? ", strict, " : ", ") << clients[i];
                _globals.settings.strict = false;
                _globals.debug_show_sid = 0;
                for (const uint32_t holder : {clients[0], clients[i]})
                    while (request(holder, KALIX_SURFACE_DESTROY, words({sid})).value == 0) {
                    }
            }
    disconnect(16);
}

// ---- Readback -------------------------------------------------------------------------------------------

constexpr uint32_t width = 6, height = 4;

struct readback_row {
    const char* name;
    uint32_t x, y, w, h, pitch;
    int32_t status;
    bool invalid_rect;
};

class ReadbackTest : public driver_test {
protected:
    // A device that writes ascending bytes, as many as it was asked for.
    void SetUp() override
    {
        driver_test::SetUp();
        here().on_wait = [] {
            const std::vector<uint32_t> sent = words_of(here().stream);
            if (sent.size() < 18 || sent[sent.size() - 18] != SVGA_3D_CMD_SURFACE_DMA)
                return;
            const uint32_t pitch = sent[sent.size() - 14];
            const uint32_t rows = sent[sent.size() - 5];
            for (size_t i = 0; i < size_t{pitch} * rows; ++i)
                _globals.dirty_gmr_base[i] = static_cast<std::byte>(i + 1);
        };
    }

    int32_t read(const readback_row& row, uint32_t sid, bool shared_memory, uint64_t place, uint32_t size)
    {
        readback_req req{sid, row.x, row.y, row.w, row.h, row.pitch, 5, size, 0, place, shared_memory, {}};
        return request(1, KALIX_READBACK, bytes_of(req)).value;
    }
};

TEST_F(ReadbackTest, CopiesRowsToWhereTheyBelong)
{
    ASSERT_EQ(define_surface(1, 0, width, height), 1);
    bytes& object = here().objects["/vm_svga:1001:5"];
    object.assign(width * height * 4, std::byte{0});
    take_stream();
    const readback_row rows[] = {
        {"whole", 0, 0, 6, 4, 24, 0, false},
        {"part", 2, 1, 3, 2, 24, 0, false},
        {"nothing", 6, 4, 0, 0, 24, 0, false},
        {"pitch", 0, 0, 6, 4, 28, -22, false},
        {"too wide", 3, 0, 4, 1, 24, -22, true},
        {"too low", 0, 3, 1, 2, 24, -22, true},
        {"wrapping", 1, 0, 0xFFFFFFFF, 1, 24, -22, true},
    };
    bool first = true;
    for (const readback_row& row : rows) {
        SCOPED_TRACE(row.name);
        std::ranges::fill(object, std::byte{0});
        take_lines();
        EXPECT_EQ(read(row, 1, true, 0, static_cast<uint32_t>(object.size())), row.status);
        std::vector<std::string> lines;
        if (first)
            lines.emplace_back("2 kalix: shm_name: [/vm_svga:1001:5]");
        if (row.invalid_rect)
            lines.push_back("2 kalix: nebo_readback_surface: invalid readback rect x:" + std::to_string(row.x) +
                            " y:" + std::to_string(row.y) + " w:" + std::to_string(static_cast<int>(row.w)) +
                            " h:" + std::to_string(row.h) + " surface dim w:6 h:4");
        EXPECT_EQ(take_lines(), lines);
        first = false;
        bytes expected(object.size());
        uint8_t next = 1;
        for (uint32_t y = row.y; row.status == 0 && y < row.y + row.h; ++y)
            for (uint32_t x = row.x * 4; x < (row.x + row.w) * 4; ++x)
                expected[y * row.pitch + x] = std::byte{next++};
        EXPECT_EQ(object, expected);
    }
    const std::vector<uint32_t> dma = take_stream();
    EXPECT_EQ(std::vector(dma.begin(), dma.begin() + 18),
              (std::vector<uint32_t>{1044, 64, 0, 0, 24, 1, 0, 0, 2, 0, 0, 0, 6, 4, 1, 0, 0, 0}));
    EXPECT_EQ(request(1, KALIX_SURFACE_DESTROY, words({1})).value, 0);
    EXPECT_THAT(here().unlinked, testing::ElementsAre("/vm_svga:1001:5"));
}

TEST_F(ReadbackTest, ARefusedTransferShowsNothingOfTheOneBefore)
{
    ASSERT_EQ(define_surface(1, 0, width, height), 1);
    ASSERT_EQ(define_surface(1, 0, width, height), 2);
    EXPECT_EQ(read({"", 0, 0, 6, 4, 24, 0, false}, 1, false, 0, 0), 0);
    EXPECT_EQ(here().framebuffer[95], 96);
    here().on_wait = nullptr;
    EXPECT_EQ(read({"", 0, 0, 6, 3, 24, 0, false}, 2, false, 0, 0), 0);
    EXPECT_EQ(std::count(here().framebuffer.begin(), here().framebuffer.begin() + 96, 0), 72);
}

TEST_F(ReadbackTest, StaysInsideItsDestination)
{
    ASSERT_EQ(define_surface(1, 0, width, height, 1), 1);
    const readback_row whole{"", 0, 0, 6, 4, 24, 0, false};
    const uint64_t end = here().framebuffer.size();
    EXPECT_EQ(read(whole, 1, false, end - 96, 0), 0);
    EXPECT_EQ(here().framebuffer[end - 1], 255); // X8R8G8B8 is made opaque
    EXPECT_EQ(here().framebuffer[end - 2], 95);
    EXPECT_EQ(read(whole, 1, false, end - 95, 0), -22);
    EXPECT_EQ(read(whole, 1, false, ~uint64_t{0}, 0), -22);
    here().objects["/vm_svga:1001:5"].resize(95);
    EXPECT_EQ(read(whole, 1, true, 0, 95), -22);
    EXPECT_EQ(read(whole, 9, true, 0, 95), -22);
    EXPECT_EQ(take_lines().back(), "2 kalix: nebo_readback_surface: surface 9 is unknown");
    ASSERT_EQ(define_surface(1, 0, 3000, 1), 2);
    EXPECT_EQ(read({"", 2000, 0, 49, 1, 12000, 0, false}, 2, false, 0, 0), -22);
    ASSERT_EQ(define_surface(1, 0, 2048, 2048, 41), 3); // 32 MiB, twice the dirty GMR
    EXPECT_EQ(read({"", 0, 0, 2048, 2048, 16384, 0, false}, 3, false, 0, 0), -22);
}

TEST_F(ReadbackTest, HasNoDestinationWithoutAnObject)
{
    ASSERT_EQ(define_surface(1, 0, width, height), 1);
    const readback_row whole{"", 0, 0, 6, 4, 24, 0, false};
    const std::string unresolved =
        "2 kalix: nebo_readback_surface: could not resolve destination address for surface readback";
    const std::string name = "2 kalix: shm_name: [/vm_svga:1001:5]";
    for (int i = 0; i < 2; ++i) { // a failed open is tried again
        EXPECT_EQ(read(whole, 1, true, 0, 96), -12);
        EXPECT_EQ(take_lines(), (std::vector{name, unresolved}));
    }
    here().objects["/vm_svga:1001:5"].resize(96);
    here().refuse_map = true;
    EXPECT_EQ(read(whole, 1, true, 0, 96), -12);
    here().refuse_map = false;
    EXPECT_TRUE(here().open_objects.empty());
    EXPECT_EQ(read(whole, 1, true, 0, 96), 0); // so is a failed mapping
}

// The surface outlives the connection that opened its destination, and the name has a new meaning by then.
TEST_F(ReadbackTest, ANameThatMeansAnotherObjectByNowStays)
{
    const std::string name = "/vm_svga:1001:5";
    for (const bool replaced : {false, true}) {
        const int32_t sid = define_surface(1, 0, width, height);
        ASSERT_EQ(request(2, KALIX_SURFACE_REFERENCE, words({static_cast<uint32_t>(sid)})).value, 0);
        here().objects[name].resize(96);
        EXPECT_EQ(read({"", 0, 0, 6, 4, 24, 0, false}, static_cast<uint32_t>(sid), true, 0, 96), 0);
        disconnect(1);
        EXPECT_EQ(_globals.shares.taken[1], 1u); // charged as long as it is held
        if (replaced)
            replace_object(name);
        here().unlinked.clear();
        disconnect(2);
        EXPECT_EQ(here().unlinked.empty(), replaced);
    }
}

TEST(Formats, BytesPerPixel)
{
    struct format_row {
        uint32_t format, bytes;
    };
    for (const format_row& row : {format_row{0, 0},
                                  {1, 4},
                                  {3, 2},
                                  {11, 1},
                                  {15, 0},
                                  {19, 0},
                                  {23, 3},
                                  {24, 2},
                                  {25, 4},
                                  {35, 2},
                                  {36, 4},
                                  {37, 0},
                                  {41, 8},
                                  {43, 4},
                                  {44, 0},
                                  {~0u, 0}})
        EXPECT_EQ(format_to_bpp(row.format), row.bytes) << row.format;
}

} // namespace
} // namespace kalix::test
