// Presents: the words that reach the device, what is uploaded and waited for, and what is refused.

#include "tests/unit/driver/screen/frames.h"

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

    // The same, and the words of a frame that is shown.
    stream shown(uint32_t sid, int32_t width = 64, int32_t height = 48, int32_t x = 0, int32_t y = 0)
    {
        const answer got = show(sid, width, height, x, y);
        EXPECT_EQ(got.value, 0);
        return got.sent;
    }

    uint32_t screen_surface(uint32_t client = me) { return surface(client, 64, 48, 1); }

    uint32_t overlay(int32_t x, int32_t y, uint32_t sid0, uint32_t sid1 = 0, uint32_t buffers = 1, uint32_t client = me)
    {
        return ask(client, KALIX_OVERLAY_DEFINE, overlay_define_req{x, y, 8, 8, buffers, 0, sid0, sid1, 0, 0}).id;
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
        const vertex& from = corners[0];
        const vertex& to = corners[2];
        return {from.x * 1.0f, from.y * 1.0f, to.x * 1.0f, to.y * 1.0f, to.u, to.v};
    }

    const kalix_status& status() { return *reinterpret_cast<const kalix_status*>(here().status.data()); }

    static uint32_t region() { return _globals.dirty_gmr_id; }
};

TEST_F(present_test, FirstFrameMakesTheObjectsAndLaterOnesOnlyDraw)
{
    const uint32_t sid = screen_surface();
    const stream first = frame_words{}.objects(64, 48).setup(sid).upload(region(), 0, 0).draw(0).finish().present().out;
    EXPECT_EQ(shown(sid), first);
    EXPECT_EQ(here().waited.size(), 1u);
    EXPECT_EQ(staged(0), (std::vector<float>{0, 0, 63, 47, 1, 1}));
    EXPECT_EQ(status().frame.uploaded_bytes, 72u);

    here().waited.clear();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(shown(sid), frame_words{}.setup(sid).draw(0).finish().present().out);
    EXPECT_TRUE(here().waited.empty());
    EXPECT_EQ(status().frame.waited, 0u);
    EXPECT_EQ(status().frame.number, 4u);

    // A part of the surface is another quad; its place is presented, but not looked at.
    frame_words part;
    part.setup(sid).upload(region(), 0, 0).draw(0).finish().present(5, -7, 32, 12);
    EXPECT_EQ(shown(sid, 32, 12, 5, -7), part.out);
    EXPECT_EQ(staged(0), (std::vector<float>{0, 0, 63, 47, 0.5f, 0.25f}));
}

TEST_F(present_test, OverlaysOfAllClientsFollowInTheTablesOrder)
{
    const uint32_t sid = screen_surface();
    const uint32_t theirs = surface(2, 10, 6, 2);
    const uint32_t turned = surface(2, 48, 20, 2); // as wide as the mode is high
    const uint32_t hidden = overlay(1, 2, sid);
    overlay(3, 4, theirs, sid, 2, 2); // shows its second buffer
    overlay(-5, 9, turned, 0, 1, 2);
    overlay(0, 0, theirs, 0, 2, 2); // its second buffer has no surface
    request(me, KALIX_OVERLAY_VISIBLE, words({hidden, 0}));
    frame_words wanted;
    wanted.objects(64, 48).setup(sid).upload(region(), 0, 0).draw(0);
    wanted.overlay(sid, false).upload(region(), 1, 72).draw(1);
    wanted.overlay(turned, true).upload(region(), 1, 144).draw(1);
    EXPECT_EQ(shown(sid), wanted.finish().present().out);
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
    here().waited.clear();
    frame_words still;
    EXPECT_EQ(shown(sid), still.setup(sid).draw(0).overlay(sid, false).draw(1).finish().present().out);
    EXPECT_TRUE(here().waited.empty());
}

TEST_F(present_test, ZoomShrinksPlacesAndFiltersLinearly)
{
    const uint32_t sid = screen_surface();
    const uint32_t small = surface(me, 11, 7, 2);
    overlay(-3, 5, small);
    here().device.zoom = 0.5f;
    here().device.width = 32;
    here().device.height = 24;
    frame_words wanted{32, 24, 0.5f};
    wanted.objects(64, 48).setup(sid).upload(region(), 0, 0).draw(0);
    wanted.overlay(small, false).upload(region(), 1, 72).draw(1);
    EXPECT_EQ(shown(sid, 64, 48, 10, -7), wanted.finish().present(5, -3, 32, 24).out);
    EXPECT_EQ(staged(72), (std::vector<float>{-1, 2, 4, 5, 1, 1})); // truncated toward zero, all four
    // A zoom that is no number makes every product 0 and breaks nothing.
    here().device.zoom = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(shown(sid).back(), 0u);
    EXPECT_EQ(staged(0)[0], 0);
}

TEST_F(present_test, TargetsGrowWithTheScreenAlone)
{
    const uint32_t small = surface(me, 16, 100, 1);
    frame_words wanted;
    wanted.objects(16, 100);
    for (const auto& [sid, flags, format] : {std::array{32747u, 32u, 1u}, {32748u, 0u, 8u}})
        wanted.command(1041, {sid}).define(sid, flags, format, 64, 100);
    wanted.setup(small).upload(region(), 0, 0).draw(0).finish().present();
    EXPECT_EQ(shown(small), wanted.out);
    // A larger surface changes nothing; a larger mode does, once.
    const uint32_t large = surface(me, 500, 500, 1);
    EXPECT_EQ(shown(large)[0], 1050u);
    SVGA_SetMode(80, 60, 32, 1);
    EXPECT_EQ(shown(large)[0], 1041u);
    EXPECT_EQ(shown(large)[0], 1050u);
}

TEST_F(present_test, HugeFirstSurfaceIsCutToTheLargestMode)
{
    const uint32_t huge = surface(me, 0xFFFFFFFF, 9000, 1);
    const stream wanted = frame_words{}.objects(8192, 8192).out;
    stream got = show(huge).sent;
    got.resize(wanted.size());
    EXPECT_EQ(got, wanted);
}

// Wherever FIFO space or memory ends, the present says so, shows nothing, and the next one is whole.
TEST_F(present_test, EveryShortageIsSurvived)
{
    const uint32_t sid = screen_surface();
    overlay(2, 2, sid);
    int failures = 0;
    for (int left = 0;; ++left) {
        const present_rectangle before = _globals.last_present_rect;
        const answer got = with_reservations(left, [&] { return show(sid, 10 + left, 20); });
        if (got.value == 0)
            break;
        ++failures;
        EXPECT_EQ(got.value, -22);
        EXPECT_EQ(before.width, _globals.last_present_rect.width);
        for (size_t at = 0; at < got.sent.size(); at += 2 + got.sent[at + 1] / 4)
            EXPECT_NE(got.sent[at], 1058u);
    }
    EXPECT_GT(failures, 20);
    const auto showing = [&] { return show(sid); };
    for (int nth = 1; nth <= 3; ++nth) {
        failing(nth, showing, true);
        EXPECT_EQ(show(sid, 10 + nth, 20).value, 0);
        EXPECT_EQ(staged(0)[4], static_cast<float>(10 + nth) / 64);
    }
}

TEST_F(present_test, ObjectsThatCannotBeMadeAreMadeLater)
{
    const uint32_t sid = screen_surface();
    for (int nth = 1; nth <= 12; ++nth) // six of them; the request itself allocates too
        failing(nth, [&] { return show(sid); });
    EXPECT_EQ(_globals.postprocess_ready, 1u);
    EXPECT_EQ(shown(sid), frame_words{}.setup(sid).draw(0).finish().present().out);
}

TEST_F(present_test, OtherTechniquesBlitAndCopy)
{
    const uint32_t sid = screen_surface();
    auto* const surface = static_cast<surface_record*>(resource_get_global(RESOURCE_SURFACE, sid));
    here().device.zoom = 0.75f;
    take_stream();
    EXPECT_EQ(present_with(present_technique::blit, surface, {3, 5, 30, -20}), 0);
    EXPECT_EQ(take_stream(), command(1069, {sid, 0, 0, 3, 5, 33, static_cast<uint32_t>(-15), ~0u, 2, 3, 24,
                                            static_cast<uint32_t>(-12)}));
    EXPECT_EQ(present_with(present_technique::dma, surface, {3, 5, 30, 20}), 0);
    EXPECT_EQ(take_stream(), frame_words{}.transfer(0, 256, sid, 2, 3, 5, 30, 20).out);
    EXPECT_EQ(take_calls(), lines{"update 3 5 30 20"});
    EXPECT_EQ(_globals.last_present_sid, sid);
    _globals.debug_copy_sid = 77;
    present_with(present_technique::dma, surface, {0, 0, 1, 1});
    frame_words first;
    first.command(1042, {77, 0, 0, sid, 0, 0, 0, 0, 0, 400, 400, 1, 0, 0, 0}).transfer(0, 256, sid, 2, 0, 0, 1, 1);
    EXPECT_EQ(take_stream(), first.out);
}

TEST_F(present_test, RefusalsSayWhy)
{
    const uint32_t flat = surface(me, 8, 0, 1);
    const uint32_t bare = ask(me, KALIX_SURFACE_DEFINE, surface_define_req{0, 1, {}, 64, 0, 0, 0, 0}).flags; // its sid
    const uint32_t theirs = screen_surface(2);
    const std::string shapeless = " has missing or invalid dimensions";
    const std::string unknown = " is unknown";
    for (const auto& [sid, reason] :
         {std::pair{flat, shapeless}, {bare, shapeless}, {theirs, unknown}, {999u, unknown}})
        expect_refused(show(sid), -22, {"2 kalix: nebo_present_ioctl: surface " + std::to_string(sid) + reason});
}

TEST_F(present_test, OutOfBandFlipsAndShowsAgain)
{
    const auto oob = [this](uint32_t id) { return request(me, KALIX_OOB_PRESENT, words({id})); };
    const uint32_t sid = screen_surface();
    const uint32_t other = screen_surface();
    const uint32_t two = overlay(1, 1, sid, other, 2);
    const uint32_t one = overlay(1, 1, sid, other, 1);
    const auto& record = *static_cast<overlay_record*>(resource_get_global(RESOURCE_OVERLAY, two));
    EXPECT_EQ(oob(two).value, 1); // nothing was presented yet; it flips all the same
    EXPECT_EQ(record.surface[1]->id, sid);
    show(sid, 40, 30);
    EXPECT_EQ(tail_of(oob(one).sent, 4), (stream{40, 30, 0, 0}));
    EXPECT_EQ(record.surface[1]->id, sid); // the other one flipped nothing
    EXPECT_EQ(oob(two).value, 0);
    EXPECT_EQ(record.surface[1]->id, other);
    expect_refused(oob(9), -22, {"2 kalix: nebo_oob_present: overlay 9 is unknown"});
    destroy_surface(me, sid);
    EXPECT_EQ(oob(two).value, 1);
}

TEST_F(present_test, PhysicalAddressesStayInsideTheFramebuffer)
{
    const uint32_t sid = surface(me, 16, 8, 2);
    const uint64_t end = SVGA_FRAMEBUFFER_BASE + (1u << 20); // of the fake device's framebuffer
    const std::tuple<uint64_t, uint32_t, uint32_t, uint32_t, uint32_t, int32_t> rows[] = {
        {SVGA_FRAMEBUFFER_BASE, 0, 0, 16, 8, 0},
        {end - 16 * 8 * 4, 0, 0, 16, 8, 0},
        {end - 16 * 8 * 4 + 1, 0, 0, 16, 8, -22},
        {end - 64, 12, 0, 4, 1, 0},
        {end - 64, 12, 1, 4, 1, -22},
        {SVGA_FRAMEBUFFER_BASE - 1, 0, 0, 1, 1, -22},
        {0, 0, 0, 1, 1, -22},
        {0x80000000, 0, 0, 1, 1, -22},
        {SVGA_FRAMEBUFFER_BASE, ~0u, ~0u, ~0u, ~0u, -22},
        {SVGA_FRAMEBUFFER_BASE, 0, 0, 16, ~0u, -22}};
    for (const auto& [address, x, y, w, h, status] : rows) {
        here().waited.clear();
        const present_phys_req req{sid, x, y, w, h, 0, address};
        const answer got = request(me, KALIX_PRESENT_PHYS, bytes_of(req));
        EXPECT_EQ(got.value, status) << address << " " << x;
        frame_words wanted;
        if (status == 0)
            wanted.transfer(static_cast<uint32_t>(address - SVGA_FRAMEBUFFER_BASE), 0, sid, 2, x, y, w, h);
        EXPECT_EQ(got.sent, wanted.out);
        EXPECT_TRUE(got.said.empty());
        EXPECT_EQ(here().waited.size(), status == 0 ? 1u : 0u);
    }
    expect_refused(request(me, KALIX_PRESENT_PHYS, bytes_of(present_phys_req{sid, 0, 0, 1, 1, 0, 0x80000001})), -22,
                   {"2 kalix: nebo_present_to_phys_addr_ioctl: address 0x80000001 is above 0x80000000"});
    expect_refused(request(me, KALIX_PRESENT_PHYS, bytes_of(present_phys_req{99, 0, 0, 1, 1, 0, 0})), -22,
                   {"2 kalix: nebo_present_to_phys_addr_ioctl: surface 99 is unknown"});
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
                const uint32_t sid = surface(me, side, side, format);
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
                destroy_surface(me, sid);
            }
}

TEST_F(present_test, DebugPicturesCopyWholeBlocks)
{
    using pair = std::array<uint32_t, 2>; // pixels of the surface's box, of what it covers of the screen
    const std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, pair, pair> rows[] = {
        {2, 200, 200, 62, 45, {62, 45}, {62, 45}},
        {15, 200, 200, 62, 45, {60, 44}, {30, 11}},
        {15, 61, 43, 62, 45, {61, 43}, {32, 11}}, // to its edges
        {17, 200, 200, 62, 45, {60, 44}, {60, 11}},
        {17, 5, 5, 5, 5, {4, 5}, {4, 2}}, // two blocks are longer than a row of the screen
        {15, 9, 9, 3, 3, {0, 0}, {0, 0}},
        {42, 200, 10, 61, 45, {60, 10}, {30, 10}}};
    for (const auto& [format, width, height, screen_width, screen_height, box, covered] : rows) {
        SVGA_SetMode(screen_width, screen_height, 32, 1);
        std::ranges::fill(here().framebuffer, uint8_t{255});
        const uint32_t sid = surface(me, width, height, format);
        EXPECT_EQ(request(me, KALIX_DEBUG_SHOW_SID, words({sid})).sent,
                  frame_words{}.transfer(0, screen_width * 4, sid, 2, 0, 0, box[0], box[1]).out);
        for (uint32_t i = 0; i < screen_width * screen_height; ++i)
            ASSERT_EQ(here().framebuffer[i * 4 + 1],
                      i / screen_width < covered[1] && i % screen_width < covered[0] ? 255 : 0)
                << format << " " << i;
        destroy_surface(me, sid);
    }
}

TEST_F(present_test, ASidThatIsAnothersNowIsNotShownAgainUnderStrictSettings)
{
    request(me, KALIX_SET_MODE, words({64, 48, 32}));
    for (const bool strict : {false, true}) {
        _globals.settings.strict = strict;
        define_surface(me, 77, 64, 48, 1);
        show(77);
        destroy_surface(me, 77);
        ASSERT_EQ(define_surface(8, 77, 64, 48, 1), 77); // of another user
        EXPECT_EQ(request(me, KALIX_SET_MODE, words({64, 48, 32})).sent.empty(), strict);
        disconnect(8);
    }
}

TEST_F(present_test, DebugDisplayReplacesPresents)
{
    const uint32_t sid = screen_surface();
    const uint32_t theirs = screen_surface(2);
    show(sid, 30, 20);
    request(me, KALIX_DEBUG_SHOW_SID, words({theirs}));
    take_calls();
    EXPECT_TRUE(shown(sid).empty()); // it does not hold the surface shown
    EXPECT_EQ(show(999, 64, 48, 0, 0, 2).value, 0);
    EXPECT_EQ(take_calls(), lines{"update 0 0 64 48"});
    EXPECT_EQ(status().frame.debug, 1u);
    EXPECT_EQ(tail_of(request(me, KALIX_DEBUG_RESET, {}).sent, 4), (stream{30, 20, 0, 0}));
    EXPECT_EQ(_globals.debug_show_sid, 0u);
    destroy_surface(me, sid);
    EXPECT_TRUE(request(me, KALIX_DEBUG_RESET, {}).sent.empty());
}

} // namespace
} // namespace kalix::test
