// Presents: the words that reach the device, what is uploaded and waited for, and what is refused.

#include "tests/unit/driver/screen/frames.h"
#include "tests/unit/driver/support.h"

#include "driver/objects/overlay.h"
#include "driver/screen/present.h"

#include <kalix/status.h>
#include <kalix/svga3d_types.h>
#include <limits>

namespace kalix::test {
namespace {

class present_test : public driver_test {
protected:
    static constexpr uint32_t me = 1;

    answer show(uint32_t sid, int32_t width = 64, int32_t height = 48, int32_t x = 0, int32_t y = 0,
                uint32_t client = me)
    {
        return request(client, KALIX_PRESENT, bytes_of(present_req{sid, x, y, width, height}));
    }

    uint32_t screen_surface(uint32_t client = me)
    {
        const auto sid = static_cast<uint32_t>(define_surface(client, 0, 64, 48, 1));
        take_stream();
        return sid;
    }

    uint32_t overlay(int32_t x, int32_t y, uint32_t sid0, uint32_t sid1 = 0, uint32_t buffers = 1, uint32_t client = me)
    {
        const answer got = request(client, KALIX_OVERLAY_DEFINE,
                                   bytes_of(overlay_define_req{x, y, 8, 8, buffers, 0, sid0, sid1, 0, 0}));
        EXPECT_EQ(got.value, 0);
        return record_of<overlay_define_req>(got.data).id;
    }

    // The quad last staged at an offset of the dirty GMR: x, y of its second and fourth corner, u, v of the third.
    std::vector<float> staged(uint32_t offset)
    {
        struct vertex {
            int16_t x, y;
            float u, v;
            uint32_t color;
        } corners[4];
        std::memcpy(corners, _globals.dirty_gmr_base + offset, sizeof corners);
        EXPECT_EQ(corners[0].color, 0xFFFFFFFFu);
        return {static_cast<float>(corners[0].x),
                static_cast<float>(corners[0].y),
                static_cast<float>(corners[2].x),
                static_cast<float>(corners[2].y),
                corners[2].u,
                corners[2].v};
    }

    const kalix_status& status() { return *reinterpret_cast<const kalix_status*>(here().status.data()); }

    static uint32_t region() { return _globals.dirty_gmr_id; }
};

TEST_F(present_test, FirstFrameMakesTheObjectsAndLaterOnesOnlyDraw)
{
    const uint32_t sid = screen_surface();
    EXPECT_EQ(show(sid).value, 0);
    frame_words first{64, 48};
    first.objects(64, 48).setup(sid).upload(region(), 0, 0).draw(0).finish().present(0, 0, 64, 48);
    EXPECT_EQ(take_stream(), first.out);
    EXPECT_EQ(here().waited.size(), 1u);
    EXPECT_EQ(staged(0), (std::vector<float>{0, 0, 63, 47, 1, 1}));
    EXPECT_EQ(status().frame.uploaded_bytes, 72u);

    here().waited.clear();
    frame_words again{64, 48};
    again.setup(sid).draw(0).finish().present(0, 0, 64, 48);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(show(sid).value, 0);
        EXPECT_EQ(take_stream(), again.out);
    }
    EXPECT_TRUE(here().waited.empty());
    EXPECT_EQ(status().frame.waited, 0u);
    EXPECT_EQ(status().frame.number, 4u);

    // A part of the surface is another quad; its place is presented, but not looked at.
    EXPECT_EQ(show(sid, 32, 12, 5, -7).value, 0);
    frame_words part{64, 48};
    part.setup(sid).upload(region(), 0, 0).draw(0).finish().present(5, -7, 32, 12);
    EXPECT_EQ(take_stream(), part.out);
    EXPECT_EQ(staged(0), (std::vector<float>{0, 0, 63, 47, 0.5f, 0.25f}));
}

TEST_F(present_test, OverlaysOfAllClientsFollowInTheTablesOrder)
{
    const uint32_t sid = screen_surface();
    const auto theirs = static_cast<uint32_t>(define_surface(2, 0, 10, 6, 2));
    const auto turned = static_cast<uint32_t>(define_surface(2, 0, 48, 20, 2)); // as wide as the mode is high
    const uint32_t hidden = overlay(1, 2, sid);
    overlay(3, 4, theirs, sid, 2, 2); // shows its second buffer
    overlay(-5, 9, turned, 0, 1, 2);
    overlay(0, 0, theirs, 0, 2, 2); // its second buffer has no surface
    request(me, KALIX_OVERLAY_VISIBLE, words({hidden, 0}));
    take_stream();
    EXPECT_EQ(show(sid).value, 0);
    frame_words wanted{64, 48};
    wanted.objects(64, 48).setup(sid).upload(region(), 0, 0).draw(0);
    wanted.overlay(sid, false).upload(region(), 1, 72).draw(1);
    wanted.overlay(turned, true).upload(region(), 1, 144).draw(1);
    EXPECT_EQ(take_stream(), wanted.finish().present(0, 0, 64, 48).out);
    EXPECT_EQ(staged(72), (std::vector<float>{3, 4, 67, 52, 1, 1}));
    EXPECT_EQ(staged(144), (std::vector<float>{-5, 9, 43, 29, 1, 1}));
    ASSERT_EQ(status().frame.overlay_count, 2u);
    EXPECT_EQ(status().frame.overlays[0].owner_pid, 1002u);
    EXPECT_EQ(status().frame.overlays[0].shown_buffer, 1u);
    EXPECT_EQ(status().frame.overlays[1].turned, 1u);

    // Two that share the one drawable object upload each time; one alone does not.
    here().waited.clear();
    show(sid);
    EXPECT_EQ(here().waited.size(), 1u);
    disconnect(2);
    request(me, KALIX_OVERLAY_VISIBLE, words({hidden, 7}));
    show(sid);
    take_stream();
    here().waited.clear();
    show(sid);
    frame_words still{64, 48};
    still.setup(sid).draw(0).overlay(sid, false).draw(1).finish().present(0, 0, 64, 48);
    EXPECT_EQ(take_stream(), still.out);
    EXPECT_TRUE(here().waited.empty());
}

TEST_F(present_test, ZoomShrinksPlacesAndFiltersLinearly)
{
    const uint32_t sid = screen_surface();
    const auto small = static_cast<uint32_t>(define_surface(me, 0, 11, 7, 2));
    overlay(-3, 5, small);
    here().device.zoom = 0.5f;
    here().device.width = 32;
    here().device.height = 24;
    take_stream();
    EXPECT_EQ(show(sid).value, 0);
    frame_words wanted{32, 24, 0.5f};
    wanted.objects(64, 48).setup(sid).upload(region(), 0, 0).draw(0);
    wanted.overlay(small, false).upload(region(), 1, 72).draw(1);
    EXPECT_EQ(take_stream(), wanted.finish().present(0, 0, 32, 24).out);
    EXPECT_EQ(staged(72), (std::vector<float>{-1, 2, 4, 5, 1, 1})); // truncated toward zero, all four
    // A zoom that is no number makes every product 0 and breaks nothing.
    here().device.zoom = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(show(sid).value, 0);
    EXPECT_EQ(take_stream().back(), 0u);
    EXPECT_EQ(staged(0)[0], 0);
}

TEST_F(present_test, TargetsGrowWithTheScreenAlone)
{
    const auto small = static_cast<uint32_t>(define_surface(me, 0, 16, 100, 1));
    take_stream();
    EXPECT_EQ(show(small).value, 0);
    frame_words wanted{64, 48};
    wanted.objects(16, 100);
    for (const auto& [sid, flags, format] : {std::array{32747u, 32u, 1u}, {32748u, 0u, 8u}})
        wanted.command(1041, {sid}).define(sid, flags, format, 64, 100);
    wanted.setup(small).upload(region(), 0, 0).draw(0).finish().present(0, 0, 64, 48);
    EXPECT_EQ(take_stream(), wanted.out);
    // A larger surface changes nothing; a larger mode does, once.
    const auto large = static_cast<uint32_t>(define_surface(me, 0, 500, 500, 1));
    take_stream();
    show(large);
    EXPECT_EQ(take_stream()[0], 1050u);
    SVGA_SetMode(80, 60, 32, 1);
    show(large);
    EXPECT_EQ(take_stream()[0], 1041u);
    show(large);
    EXPECT_EQ(take_stream()[0], 1050u);
}

TEST_F(present_test, HugeFirstSurfaceIsCutToTheLargestMode)
{
    const auto huge = static_cast<uint32_t>(define_surface(me, 0, 0xFFFFFFFF, 9000, 1));
    take_stream();
    show(huge);
    frame_words wanted{64, 48};
    wanted.objects(8192, 8192);
    const stream got = take_stream();
    EXPECT_TRUE(std::equal(wanted.out.begin(), wanted.out.end(), got.begin()));
}

// Wherever FIFO space or memory ends, the present says so, shows nothing, and the next one is whole.
TEST_F(present_test, EveryShortageIsSurvived)
{
    const uint32_t sid = screen_surface();
    overlay(2, 2, sid);
    int failures = 0;
    for (int left = 0;; ++left) {
        const present_rectangle before = _globals.last_present_rect;
        here().reservations_left = left;
        const int32_t got = show(sid, 10 + left, 20).value;
        here().reservations_left = -1;
        const stream sent = take_stream();
        if (got == 0)
            break;
        ++failures;
        EXPECT_EQ(got, -22);
        EXPECT_EQ(before.width, _globals.last_present_rect.width);
        for (size_t at = 0; at < sent.size(); at += 2 + sent[at + 1] / 4)
            EXPECT_NE(sent[at], 1058u);
    }
    EXPECT_GT(failures, 20);
    for (int nth = 1; nth <= 3; ++nth) {
        fail_allocation(nth, true);
        show(sid);
        fail_allocation(0);
        take_stream();
        EXPECT_EQ(show(sid, 10 + nth, 20).value, 0);
        EXPECT_EQ(staged(0)[4], static_cast<float>(10 + nth) / 64);
    }
}

TEST_F(present_test, ObjectsThatCannotBeMadeAreMadeLater)
{
    const uint32_t sid = screen_surface();
    for (int nth = 1; nth <= 12; ++nth) { // six of them; the request itself allocates too
        fail_allocation(nth);
        show(sid);
        fail_allocation(0);
    }
    EXPECT_EQ(_globals.postprocess_ready, 1u);
    take_stream();
    EXPECT_EQ(show(sid).value, 0);
    frame_words wanted{64, 48};
    EXPECT_EQ(take_stream(), wanted.setup(sid).draw(0).finish().present(0, 0, 64, 48).out);
}

TEST_F(present_test, OtherTechniquesBlitAndCopy)
{
    const uint32_t sid = screen_surface();
    auto* const surface = static_cast<surface_record*>(resource_get_global(RESOURCE_SURFACE, sid));
    here().device.zoom = 0.75f;
    EXPECT_EQ(present_with(present_technique::blit, surface, {3, 5, 30, -20}), 0);
    frame_words blit{64, 48};
    blit.command(1069, {sid, 0, 0, 3, 5, 33, static_cast<uint32_t>(-15), ~0u, 2, 3, 24, static_cast<uint32_t>(-12)});
    EXPECT_EQ(take_stream(), blit.out);
    EXPECT_EQ(present_with(present_technique::dma, surface, {3, 5, 30, 20}), 0);
    frame_words copy{64, 48};
    copy.command(1044, {0xFFFFFFFE, 0, 256, sid, 0, 0, 2, 3, 5, 0, 30, 20, 1, 3, 5, 0});
    EXPECT_EQ(take_stream(), copy.out);
    EXPECT_EQ(take_calls(), std::vector<std::string>{"update 3 5 30 20"});
    EXPECT_EQ(_globals.last_present_sid, sid);
    _globals.debug_copy_sid = 77;
    present_with(present_technique::dma, surface, {0, 0, 1, 1});
    frame_words first{64, 48};
    first.command(1042, {77, 0, 0, sid, 0, 0, 0, 0, 0, 400, 400, 1, 0, 0, 0});
    EXPECT_EQ(stream(take_stream()).size(), first.out.size() + copy.out.size());
}

TEST_F(present_test, RefusalsSayWhy)
{
    const auto flat = static_cast<uint32_t>(define_surface(me, 0, 8, 0, 1));
    surface_define_req none{0, 1, {0, 0, 0, 0, 0, 0}, 64, 0, 0, 0, 0};
    const auto bare = record_of<uint32_t>(request(me, KALIX_SURFACE_DEFINE, bytes_of(none)).data);
    const uint32_t theirs = screen_surface(2);
    const auto line = [](uint32_t sid, const char* rest) {
        return std::vector<std::string>{"2 kalix: nebo_present_ioctl: surface " + std::to_string(sid) + rest};
    };
    for (const uint32_t sid : {flat, bare}) {
        EXPECT_EQ(show(sid).value, -22);
        EXPECT_EQ(take_lines(), line(sid, " has missing or invalid dimensions"));
    }
    for (const uint32_t sid : {theirs, 999u}) {
        EXPECT_EQ(show(sid).value, -22);
        EXPECT_EQ(take_lines(), line(sid, " is unknown"));
    }
    EXPECT_TRUE(take_stream().empty());
    struct short_row {
        int32_t command;
        size_t bytes;
        int32_t status;
    };
    for (const short_row& row : {short_row{KALIX_PRESENT, 19, -22},
                                 {KALIX_PRESENT_PHYS, 31, -22},
                                 {KALIX_OOB_PRESENT, 3, -22},
                                 {KALIX_OVERLAY_DEFINE, 47, -22},
                                 {KALIX_OVERLAY_DESTROY, 3, -22},
                                 {KALIX_OVERLAY_VISIBLE, 7, -22},
                                 {KALIX_PRESENT, 0, -22}}) {
        EXPECT_EQ(request(me, row.command, bytes(row.bytes)).value, row.status) << row.command;
        EXPECT_TRUE(take_lines().empty());
    }
}

TEST_F(present_test, OutOfBandFlipsAndShowsAgain)
{
    const auto oob = [this](uint32_t id) { return request(me, KALIX_OOB_PRESENT, words({id})).value; };
    const uint32_t sid = screen_surface();
    const uint32_t other = screen_surface();
    const uint32_t two = overlay(1, 1, sid, other, 2);
    const uint32_t one = overlay(1, 1, sid, other, 1);
    const auto& record = *static_cast<overlay_record*>(resource_get_global(RESOURCE_OVERLAY, two));
    EXPECT_EQ(oob(two), 1); // nothing was presented yet; it flips all the same
    EXPECT_EQ(record.surface[1]->id, sid);
    show(sid, 40, 30);
    take_stream();
    EXPECT_EQ(oob(one), 0);
    const stream sent = take_stream();
    EXPECT_EQ(stream(sent.end() - 4, sent.end()), (stream{40, 30, 0, 0}));
    EXPECT_EQ(record.surface[1]->id, sid); // the other one flipped nothing
    EXPECT_EQ(oob(two), 0);
    EXPECT_EQ(record.surface[1]->id, other);
    EXPECT_EQ(oob(9), -22);
    EXPECT_EQ(take_lines(), std::vector<std::string>{"2 kalix: nebo_oob_present: overlay 9 is unknown"});
    request(me, KALIX_SURFACE_DESTROY, words({sid}));
    EXPECT_EQ(oob(two), 1);
}

TEST_F(present_test, PhysicalAddressesStayInsideTheFramebuffer)
{
    const auto sid = static_cast<uint32_t>(define_surface(me, 0, 16, 8, 2));
    take_stream();
    const uint64_t end = SVGA_FRAMEBUFFER_BASE + (1u << 20); // of the fake device's framebuffer
    struct row {
        uint64_t address;
        uint32_t x, y, w, h;
        int32_t status;
    };
    const row rows[] = {{SVGA_FRAMEBUFFER_BASE, 0, 0, 16, 8, 0},
                        {end - 16 * 8 * 4, 0, 0, 16, 8, 0},
                        {end - 16 * 8 * 4 + 1, 0, 0, 16, 8, -22},
                        {end - 64, 12, 0, 4, 1, 0},
                        {end - 64, 12, 1, 4, 1, -22},
                        {SVGA_FRAMEBUFFER_BASE - 1, 0, 0, 1, 1, -22},
                        {0, 0, 0, 1, 1, -22},
                        {0x80000000, 0, 0, 1, 1, -22},
                        {SVGA_FRAMEBUFFER_BASE, ~0u, ~0u, ~0u, ~0u, -22},
                        {SVGA_FRAMEBUFFER_BASE, 0, 0, 16, ~0u, -22}};
    for (const row& each : rows) {
        here().waited.clear();
        const present_phys_req req{sid, each.x, each.y, each.w, each.h, 0, each.address};
        EXPECT_EQ(request(me, KALIX_PRESENT_PHYS, bytes_of(req)).value, each.status) << each.address << " " << each.x;
        frame_words wanted{64, 48};
        if (each.status == 0)
            wanted.command(1044, {0xFFFFFFFE, static_cast<uint32_t>(each.address - SVGA_FRAMEBUFFER_BASE), 0, sid, 0, 0,
                                  2, each.x, each.y, 0, each.w, each.h, 1, each.x, each.y, 0});
        EXPECT_EQ(take_stream(), wanted.out);
        EXPECT_EQ(here().waited.size(), each.status == 0 ? 1u : 0u);
    }
    take_lines();
    request(me, KALIX_PRESENT_PHYS, bytes_of(present_phys_req{sid, 0, 0, 1, 1, 0, 0x80000001}));
    request(me, KALIX_PRESENT_PHYS, bytes_of(present_phys_req{99, 0, 0, 1, 1, 0, 0}));
    EXPECT_EQ(take_lines(), (std::vector<std::string>{
                                "2 kalix: nebo_present_to_phys_addr_ioctl: address 0x80000001 is above 0x80000000",
                                "2 kalix: nebo_present_to_phys_addr_ioctl: surface 99 is unknown"}));
}

// The debug picture against its rule, in both depths, with surfaces smaller and larger than the screen.
TEST_F(present_test, DebugPicturesBlendOverMagentaWithinTheScreen)
{
    std::mt19937 random{test_seed()};
    for (const uint32_t depth : {32u, 16u})
        for (const uint32_t format : {1u, 2u})
            for (const uint32_t side : {20u, 200u}) {
                SVGA_SetMode(64, 48, depth, 1);
                std::vector<uint8_t>& memory = here().framebuffer;
                std::vector<uint8_t> wanted;
                here().on_wait = [&] { // the device's copy, once
                    if (!wanted.empty())
                        return;
                    for (uint8_t& byte : memory)
                        byte = static_cast<uint8_t>(random());
                    for (size_t i = 3; i < 4096; i += 8)
                        memory[i] = 255;
                    wanted = memory;
                };
                const auto sid = static_cast<uint32_t>(define_surface(me, 0, side, side, format));
                request(me, KALIX_DEBUG_SHOW_SID, words({sid}));
                const uint32_t pixels = 64 * 48 * depth / 32;
                for (uint32_t i = 0; i < pixels; ++i) {
                    uint8_t* const at = &wanted[i * 4];
                    const bool covered = i / 64 < side && i % 64 < side;
                    const float a = static_cast<float>(at[3]) / 255.0f;
                    for (int c = 0; c < 3 && covered && at[3] != 255 && format == 2; ++c)
                        at[c] = static_cast<uint8_t>(static_cast<int>((c == 1 ? 0.0f : 255.0f) * (1 - a)) +
                                                     static_cast<int>(static_cast<float>(at[c]) * a));
                    if (!covered)
                        at[0] = at[2] = 255, at[1] = 0;
                    at[3] = 255;
                }
                EXPECT_TRUE(memory == wanted) << depth << " " << format << " " << side;
                here().on_wait = nullptr;
                request(me, KALIX_SURFACE_DESTROY, words({sid}));
            }
}

TEST_F(present_test, DebugPicturesCopyWholeBlocks)
{
    struct row {
        uint32_t format, width, height, screen_width, screen_height;
        std::array<uint32_t, 2> box, covered; // pixels of the surface, of the screen
    };
    for (const row& each : {row{2, 200, 200, 62, 45, {62, 45}, {62, 45}},
                            {15, 200, 200, 62, 45, {60, 44}, {30, 11}},
                            {15, 61, 43, 62, 45, {61, 43}, {32, 11}}, // to its edges
                            {17, 200, 200, 62, 45, {60, 44}, {60, 11}},
                            {17, 5, 5, 5, 5, {4, 5}, {4, 2}}, // two blocks are longer than a row of the screen
                            {15, 9, 9, 3, 3, {0, 0}, {0, 0}},
                            {42, 200, 10, 61, 45, {60, 10}, {30, 10}}}) {
        SVGA_SetMode(each.screen_width, each.screen_height, 32, 1);
        std::ranges::fill(here().framebuffer, uint8_t{255});
        const auto sid = static_cast<uint32_t>(define_surface(me, 0, each.width, each.height, each.format));
        take_stream();
        request(me, KALIX_DEBUG_SHOW_SID, words({sid}));
        frame_words wanted{0, 0};
        wanted.command(
            1044, {0xFFFFFFFE, 0, each.screen_width * 4, sid, 0, 0, 2, 0, 0, 0, each.box[0], each.box[1], 1, 0, 0, 0});
        EXPECT_EQ(take_stream(), wanted.out);
        for (uint32_t i = 0; i < each.screen_width * each.screen_height; ++i)
            ASSERT_EQ(here().framebuffer[i * 4 + 1],
                      i / each.screen_width < each.covered[1] && i % each.screen_width < each.covered[0] ? 255 : 0)
                << each.format << " " << i;
        request(me, KALIX_SURFACE_DESTROY, words({sid}));
    }
}

TEST_F(present_test, ASidThatIsAnothersNowIsNotShownAgainUnderStrictSettings)
{
    request(me, KALIX_SET_MODE, words({64, 48, 32}));
    for (const bool strict : {false, true}) {
        _globals.settings.strict = strict;
        define_surface(me, 77, 64, 48, 1);
        show(77);
        request(me, KALIX_SURFACE_DESTROY, words({77}));
        ASSERT_EQ(define_surface(8, 77, 64, 48, 1), 77); // of another user
        take_stream();
        request(me, KALIX_SET_MODE, words({64, 48, 32}));
        EXPECT_EQ(take_stream().empty(), strict);
        disconnect(8);
    }
}

TEST_F(present_test, DebugDisplayReplacesPresents)
{
    const uint32_t sid = screen_surface();
    const uint32_t theirs = screen_surface(2);
    show(sid, 30, 20);
    request(me, KALIX_DEBUG_SHOW_SID, words({theirs}));
    take_stream();
    take_calls();
    EXPECT_EQ(show(sid).value, 0); // it does not hold the surface shown
    EXPECT_TRUE(take_stream().empty());
    EXPECT_EQ(show(999, 64, 48, 0, 0, 2).value, 0);
    EXPECT_EQ(take_calls(), std::vector<std::string>{"update 0 0 64 48"});
    EXPECT_EQ(status().frame.debug, 1u);
    take_stream();
    request(me, KALIX_DEBUG_RESET, {});
    const stream again = take_stream();
    EXPECT_EQ(stream(again.end() - 4, again.end()), (stream{30, 20, 0, 0}));
    EXPECT_EQ(_globals.debug_show_sid, 0u);
    request(me, KALIX_SURFACE_DESTROY, words({sid}));
    take_stream();
    request(me, KALIX_DEBUG_RESET, {});
    EXPECT_TRUE(take_stream().empty());
}

} // namespace
} // namespace kalix::test
