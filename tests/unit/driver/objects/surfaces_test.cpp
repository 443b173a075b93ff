// Surfaces, their ids, sharing, and readback into memory of their clients.

#include "tests/unit/driver/support.h"

#include "driver/objects/overlay.h"

#include <kalix/svga3d_types.h>

namespace kalix::test {
namespace {

TEST_F(driver_test, DefiningSendsTheSizesAsTheyCame)
{
    surface_define_req req{0x20, 2, {2, 0, 0, 0, 0, 1}, 12 + 52 + 4, 0, 9, 0, 0};
    const bytes list = words({0, 8, 4, 1, 99, 4, 2, 1, 99, 7, 7}); // the third entry is cut short
    const answer got = request(1, KALIX_SURFACE_DEFINE, bytes_of(req), list);
    EXPECT_EQ(got.value, 0);
    EXPECT_EQ(words_of(got.data), (stream{1, 2}));
    EXPECT_EQ(got.sent, (stream{1040, 72, 1, 0x20, 2, 2, 0, 0, 0, 0, 1, 8, 4, 1, 4, 2, 1, 7, 7, 0}));
    req.sizes_offset_high = ~0u; // nothing there: all sizes are zero
    EXPECT_EQ(request(1, KALIX_SURFACE_DEFINE, bytes_of(req), list).sent.back(), 0u);
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
    for (const auto& [flags, format, levels] :
         {std::array{0x20u, 2u, 1u}, {0x20u, 1u, 1u}, {0x20u, 3u, 10u}, {0u, 2u, 10u}}) {
        const surface_define_req req{flags, format, {10}, 64, 0, 0, 0, 0};
        EXPECT_EQ(request(1, KALIX_SURFACE_DEFINE, bytes_of(req)).sent.at(5), levels);
    }
}

TEST_F(driver_test, SidsStayApart)
{
    for (const uint32_t reserved : {32747u, 32748u, 32751u, 0xFFFFFFFFu}) {
        EXPECT_EQ(define_surface(1, reserved), -22);
        EXPECT_EQ(take_lines(), lines{"2 kalix: vmw_surface_define_ioctl: requesting surface sid (" +
                                      std::to_string(static_cast<int32_t>(reserved)) + ") already in use!"});
    }
    EXPECT_EQ(define_surface(1, 1), 1); // a client's choice inside the pool's range
    EXPECT_EQ(define_surface(2), 2);    // is not handed out
    EXPECT_EQ(define_surface(2, 1), -22);
    const uint32_t asked = record_of<uint32_t>(request(3, KALIX_ALLOC_SID, words({0, 0})).data);
    EXPECT_EQ(asked, 3u);
    EXPECT_EQ(define_surface(2, 3), -22); // is client 3's until it goes
    EXPECT_EQ(define_surface(3, 3), 3);
    destroy_surface(3, 3);
    EXPECT_EQ(define_surface(2), 4); // still client 3's
    EXPECT_EQ(define_surface(3, 3), 3);
    // Surface 3 outlives the client that chose its sid; the pool passes over it.
    EXPECT_EQ(request(2, KALIX_SURFACE_REFERENCE, words({3})).value, 0);
    disconnect(3);
    EXPECT_EQ(define_surface(2), 5);
    EXPECT_EQ(define_surface(2, 3), -22);
    EXPECT_EQ(destroy_surface(2, 3), 0);
    EXPECT_EQ(define_surface(2), 3); // and gets it back when it dies
}

// Clients that choose, ask, share, drop and go at random: no two live surfaces ever share a sid, and at the
// end the pool is whole.
TEST_F(driver_test, SidsSurviveRandomClients)
{
    std::mt19937 random{test_seed()};
    std::map<uint32_t, int> held[5]; // by client, by sid
    for (int step = 0; step < 3000; ++step) {
        SCOPED_TRACE(testing::Message() << "seed " << test_seed() << ", step " << step);
        const uint32_t client = 1 + below(random, 4);
        const uint32_t sid = 1 + below(random, 9);
        switch (below(random, 7)) {
        case 0:
        case 1: {
            const uint32_t wanted = below(random, 2) * sid; // 0: the driver's choice
            const int32_t made = define_surface(client, wanted);
            if (made == -22 && wanted != 0)
                break;
            ASSERT_TRUE(wanted == 0 ? made > 0 : made == static_cast<int32_t>(wanted));
            for (auto& of_client : held)
                ASSERT_EQ(of_client[static_cast<uint32_t>(made)], 0);
            held[client][static_cast<uint32_t>(made)] = 1;
            break;
        }
        case 2:
            if (step % 5 == 0)
                request(client, KALIX_ALLOC_SID, words({0, 0}));
            break;
        case 3:
            if (request(client, KALIX_SURFACE_REFERENCE, words({sid})).value == 0)
                ++held[client][sid];
            break;
        case 4:
            if (below(random, 4) == 0) {
                disconnect(client);
                held[client].clear();
            }
            break;
        default:
            if (destroy_surface(client, sid) == 0)
                --held[client][sid];
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
        const int32_t sid = failing(nth, [&] { return define_surface(1, 0, 8, 8, 2, 1); });
        EXPECT_EQ(_globals.shared_sid, sid > 0 ? static_cast<uint32_t>(sid) : 0) << nth;
        _globals.shared_sid = 0;
    }
    disconnect(1);
    EXPECT_EQ(define_surface(1, 0, 8, 8, 2, 1), 1);
    EXPECT_EQ(define_surface(1, 0, 8, 8, 1, 1), 2);
    EXPECT_EQ(_globals.shared_sid, 1u);
    const answer got = request(2, KALIX_SURFACE_REFERENCE, bytes_of(surface_reference_req{1, 9, {9}, {5, 6}}));
    EXPECT_EQ(words_of(got.data), (stream{0x20, 2, 1, 0, 0, 0, 0, 0, 5, 6, 0, 0, 0, 0}));
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
    // A request whose record begins with the sid.
    const auto asks = [&](int32_t command, const auto& req) {
        return [&sid, this, command, payload = bytes_of(req)](uint32_t client) mutable {
            std::memcpy(payload.data(), &sid, sizeof sid);
            return request(client, command, payload).value == 0;
        };
    };
    const auto executes = [this](uint32_t client, const stream& commands) {
        command_buffer(client, 200 + client, words(commands));
        return execute(client, 200 + client, static_cast<uint32_t>(commands.size() * 4)).value == 0;
    };
    const auto overlay_takes = [this](uint32_t client, uint32_t sid0, uint32_t sid1) {
        const uint32_t id =
            ask(client, KALIX_OVERLAY_DEFINE, overlay_define_req{0, 0, 8, 8, 1, 0, sid0, sid1, 0, 0}).id;
        const auto& made = *static_cast<overlay_record*>(resource_get_global(RESOURCE_OVERLAY, id));
        const bool taken = made.surface[0] || made.surface[1];
        request(client, KALIX_OVERLAY_DESTROY, words({id}));
        return taken;
    };
    const auto sends_dma = [&](uint32_t client) {
        const auto own = ask(client, KALIX_DMABUF_ALLOC, dmabuf_alloc_req{100, 0, 0, 0, 0});
        const bool done = executes(client, command(1044, {own.gmr_id, 0, 0, sid, 0, 0, 1}));
        request(client, KALIX_DMABUF_UNREF, words({own.handle}));
        return done;
    };
    const auto lists = [&](uint32_t client) {
        return ask(client, KALIX_DEBUG_LIST_SIDS, list_sids_req{}).entries[0].sid == sid;
    };
    const naming_row rows[] = {
        {"destroy", asks(KALIX_SURFACE_DESTROY, sid), "1000", "1000"},
        {"reference", asks(KALIX_SURFACE_REFERENCE, sid), "1111", "1101"},
        {"command", [&](uint32_t client) { return executes(client, command(1058, {sid})); }, "1000", "1000"},
        {"dma", sends_dma, "1111", "1000"},
        {"present", asks(KALIX_PRESENT, present_req{0, 0, 0, 4, 4}), "1000", "1000"},
        {"present to an address", asks(KALIX_PRESENT_PHYS, present_phys_req{0, 0, 0, 4, 4, 0, SVGA_FRAMEBUFFER_BASE}),
         "1000", "1000"},
        {"readback", asks(KALIX_READBACK, readback_req{0, 0, 0, 4, 4, 16, 0, 0, 0, 0, 0, {}}), "1111", "1101"},
        {"overlay", [&](uint32_t client) { return overlay_takes(client, sid, 0); }, "1111", "1101"},
        {"overlay's second", [&](uint32_t client) { return overlay_takes(client, 0, sid); }, "1111", "1101"},
        {"show", asks(KALIX_DEBUG_SHOW_SID, sid), "1111", "0001"},
        {"info", asks(KALIX_DEBUG_SID_INFO, sid), "1111", "0001"},
        {"list", lists, "1111", "0001"},
        {"dump", asks(KALIX_DEBUG_DUMP_SID, dump_sid_req{0, 0, 1, 1, 1, 0, {}}), "1111", "0001"},
        {"fill", asks(KALIX_DEBUG_FILL_SID, fill_sid_req{}), "1111", "0001"},
    };
    for (const naming_row& row : rows)
        for (const bool strict : {false, true})
            for (size_t i = 0; i < std::size(clients); ++i) {
                sid = surface(clients[0]);
                _globals.settings.strict = strict;
                EXPECT_EQ(row.ask(clients[i]), (strict ? row.strict : row.by_default)[i] == '1')
                    << row.name << (strict ? ", strict, " : ", ") << clients[i];
                _globals.settings.strict = false;
                _globals.debug_show_sid = 0;
                for (const uint32_t holder : {clients[0], clients[i]})
                    while (destroy_surface(holder, sid) == 0) {
                    }
            }
    disconnect(16);
}

// ---- Readback -------------------------------------------------------------------------------------------

constexpr uint32_t width = 6, height = 4;

struct part { // of a surface, to rows that many bytes apart
    uint32_t x = 0, y = 0, w = width, h = height, pitch = width * 4;
};

class ReadbackTest : public driver_test {
protected:
    // A device that writes ascending bytes, as many as it was asked for.
    void SetUp() override
    {
        driver_test::SetUp();
        here().on_wait = [] {
            const stream sent = words_of(here().stream);
            if (sent.size() < 18 || sent[sent.size() - 18] != SVGA_3D_CMD_SURFACE_DMA)
                return;
            const uint32_t pitch = sent[sent.size() - 14];
            const uint32_t rows = sent[sent.size() - 5];
            for (size_t i = 0; i < size_t{pitch} * rows; ++i)
                _globals.dirty_gmr_base[i] = static_cast<std::byte>(i + 1);
        };
    }

    int32_t read(uint32_t sid, const part& of, uint64_t place, bool shared_memory = false, uint32_t size = 0)
    {
        readback_req req{sid, of.x, of.y, of.w, of.h, of.pitch, 5, size, 0, place, shared_memory, {}};
        return request(1, KALIX_READBACK, bytes_of(req)).value;
    }
    // To the shared object of that many bytes.
    int32_t read_to_object(uint32_t sid, uint32_t size = width * height * 4, const part& of = {})
    {
        return read(sid, of, 0, true, size);
    }
    static constexpr char object_name[] = "/vm_svga:1001:5";
    static constexpr char opening[] = "2 kalix: shm_name: [/vm_svga:1001:5]";
};

TEST_F(ReadbackTest, CopiesRowsToWhereTheyBelong)
{
    ASSERT_EQ(define_surface(1, 0, width, height), 1);
    bytes& object = here().objects[object_name];
    object.assign(width * height * 4, std::byte{0});
    take_stream();
    EXPECT_EQ(read_to_object(1), 0);
    EXPECT_EQ(take_lines(), lines{opening}); // once
    const std::tuple<const char*, part, int32_t, bool> rows[] = {
        {"whole", {}, 0, false},
        {"part", {2, 1, 3, 2}, 0, false},
        {"nothing", {6, 4, 0, 0}, 0, false},
        {"pitch", {0, 0, 6, 4, 28}, -22, false},
        {"too wide", {3, 0, 4, 1}, -22, true},
        {"too low", {0, 3, 1, 2}, -22, true},
        {"wrapping", {1, 0, 0xFFFFFFFF, 1}, -22, true},
    };
    for (const auto& [name, of, status, invalid] : rows) {
        SCOPED_TRACE(name);
        std::ranges::fill(object, std::byte{0});
        EXPECT_EQ(read_to_object(1, width * height * 4, of), status);
        const std::string line = "2 kalix: nebo_readback_surface: invalid readback rect x:" + std::to_string(of.x) +
                                 " y:" + std::to_string(of.y) + " w:" + std::to_string(static_cast<int>(of.w)) +
                                 " h:" + std::to_string(of.h) + " surface dim w:6 h:4";
        EXPECT_EQ(take_lines(), invalid ? lines{line} : lines{});
        bytes expected(object.size());
        uint8_t next = 1;
        for (uint32_t y = of.y; status == 0 && y < of.y + of.h; ++y)
            for (uint32_t x = of.x * 4; x < (of.x + of.w) * 4; ++x)
                expected[y * of.pitch + x] = std::byte{next++};
        EXPECT_EQ(object, expected);
    }
    const stream dma = take_stream();
    EXPECT_EQ(stream(dma.begin(), dma.begin() + 18),
              (stream{1044, 64, 0, 0, 24, 1, 0, 0, 2, 0, 0, 0, 6, 4, 1, 0, 0, 0}));
    EXPECT_EQ(destroy_surface(1, 1), 0);
    EXPECT_THAT(here().unlinked, testing::ElementsAre(object_name));
}

TEST_F(ReadbackTest, ARefusedTransferShowsNothingOfTheOneBefore)
{
    ASSERT_EQ(define_surface(1, 0, width, height), 1);
    ASSERT_EQ(define_surface(1, 0, width, height), 2);
    EXPECT_EQ(read(1, {}, 0), 0);
    EXPECT_EQ(here().framebuffer[95], 96);
    here().on_wait = nullptr;
    EXPECT_EQ(read(2, {0, 0, 6, 3}, 0), 0);
    EXPECT_EQ(std::count(here().framebuffer.begin(), here().framebuffer.begin() + 96, 0), 72);
}

TEST_F(ReadbackTest, StaysInsideItsDestination)
{
    ASSERT_EQ(define_surface(1, 0, width, height, 1), 1);
    const uint64_t end = here().framebuffer.size();
    EXPECT_EQ(read(1, {}, end - 96), 0);
    EXPECT_EQ(here().framebuffer[end - 1], 255); // X8R8G8B8 is made opaque
    EXPECT_EQ(here().framebuffer[end - 2], 95);
    EXPECT_EQ(read(1, {}, end - 95), -22);
    EXPECT_EQ(read(1, {}, ~uint64_t{0}), -22);
    here().objects[object_name].resize(95);
    EXPECT_EQ(read_to_object(1, 95), -22);
    EXPECT_TRUE(here().open_objects.empty()); // a refused request has not spent the surface's one place
    EXPECT_EQ(_globals.shares.taken[1], 0u);
    EXPECT_EQ(read_to_object(9, 95), -22);
    EXPECT_EQ(take_lines().back(), "2 kalix: nebo_readback_surface: surface 9 is unknown");
    ASSERT_EQ(define_surface(1, 0, 3000, 1), 2);
    EXPECT_EQ(read(2, {2000, 0, 49, 1, 12000}, 0), -22);
    ASSERT_EQ(define_surface(1, 0, 2048, 2048, 41), 3); // 32 MiB, twice the dirty GMR
    here().objects[object_name].resize(32 << 20);
    EXPECT_EQ(read_to_object(3, 32 << 20, {0, 0, 2048, 2048, 16384}), -22);
    here().objects[object_name].resize(96);
    EXPECT_EQ(read_to_object(1), 0);
    EXPECT_EQ(read_to_object(1, 96, {3, 0, 4, 1}), -22);
    EXPECT_EQ(here().open_objects.size(), 1u); // one that was spent stays
}

TEST_F(ReadbackTest, HasNoDestinationWithoutAnObject)
{
    ASSERT_EQ(define_surface(1, 0, width, height), 1);
    const std::string unresolved =
        "2 kalix: nebo_readback_surface: could not resolve destination address for surface readback";
    for (int i = 0; i < 2; ++i) { // a failed open is tried again
        EXPECT_EQ(read_to_object(1), -12);
        EXPECT_EQ(take_lines(), (lines{opening, unresolved}));
    }
    here().objects[object_name].resize(96);
    here().refuse_map = true;
    EXPECT_EQ(read_to_object(1), -12);
    here().refuse_map = false;
    EXPECT_TRUE(here().open_objects.empty());
    EXPECT_EQ(read_to_object(1), 0); // so is a failed mapping
}

// The surface outlives the connection that opened its destination, and the name has a new meaning by then.
TEST_F(ReadbackTest, ANameThatMeansAnotherObjectByNowStays)
{
    for (const bool replaced : {false, true}) {
        const uint32_t sid = surface(1, width, height);
        ASSERT_EQ(request(2, KALIX_SURFACE_REFERENCE, words({sid})).value, 0);
        here().objects[object_name].resize(96);
        EXPECT_EQ(read_to_object(sid), 0);
        disconnect(1);
        EXPECT_EQ(_globals.shares.taken[1], 1u); // charged as long as it is held
        if (replaced)
            replace_object(object_name);
        here().unlinked.clear();
        disconnect(2);
        EXPECT_EQ(here().unlinked.empty(), replaced);
    }
}

TEST(Formats, BytesPerPixel)
{
    for (const auto& [bytes, formats] : {std::pair{0u, stream{0, 15, 19, 37, 44, ~0u}},
                                         {1u, {11}},
                                         {2u, {3, 24, 35}},
                                         {3u, {23}},
                                         {4u, {1, 25, 36, 43}},
                                         {8u, {41}}})
        for (const uint32_t format : formats)
            EXPECT_EQ(format_to_bpp(format), bytes) << format;
}

} // namespace
} // namespace kalix::test
