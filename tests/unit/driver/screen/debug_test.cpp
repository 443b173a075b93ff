// Debug requests, and the software pass: what they do to the framebuffer, and never beyond it.

#include "tests/unit/driver/screen/frames.h"

#include "driver/screen/debug.h"
#include "driver/screen/present.h"
#include "driver/screen/software_pass.h"

namespace kalix::test {
namespace {

using debug_test = driver_test;

TEST_F(debug_test, SurfacesAreListedByTens)
{
    for (int i = 0; i < 12; ++i)
        define_surface(1, 0, 4, 4 + static_cast<uint32_t>(i));
    define_surface(2, 515); // in the bucket of sid 3, behind it
    const auto list = [this](int32_t first) { return ask(3, KALIX_DEBUG_LIST_SIDS, list_sids_req{first, 9, {}}); };
    const auto sids = [&](int32_t first) {
        stream out;
        for (const sid_entry& entry : list(first).entries)
            out.push_back(entry.sid);
        return out;
    };
    const stream head{1, 2, 3, 515, 4, 5, 6, 7, 8, 9};
    EXPECT_EQ(sids(0), head);
    EXPECT_EQ(sids(INT32_MIN), head);
    EXPECT_EQ(sids(10), (stream{10, 11, 12, 0, 0, 0, 0, 0, 0, 0}));
    for (const int32_t behind : {13, INT32_MAX})
        EXPECT_EQ(sids(behind), stream(10));
    EXPECT_EQ(list(0).entries[3].pids[0], 1002u);
    EXPECT_EQ(list(0).entries[9].height, 4u + 8);
    EXPECT_EQ(list(0).more, 1u);
    EXPECT_EQ(list(3).more, 0u); // exactly ten
}

TEST_F(debug_test, HoldersAreCounted)
{
    const uint32_t sid = surface(1, 6, 5, 3);
    for (const uint32_t client : {2u, 3u, 3u})
        request(client, KALIX_SURFACE_REFERENCE, words({sid}));
    const auto info = record_of<sid_info_req>(request(4, KALIX_DEBUG_SID_INFO, words({sid})).data);
    EXPECT_EQ(stream(info.pids, info.pids + 4), (stream{1001, 1002, 1003, 0}));
    EXPECT_EQ(info.ref_count, 4u);
    EXPECT_EQ((std::array{info.width, info.height, info.depth, info.flags, info.format}),
              (std::array{6u, 5u, 1u, 0x20u, 3u}));
    const auto list = ask(4, KALIX_DEBUG_LIST_SIDS, list_sids_req{}).entries[0];
    EXPECT_EQ(list.pids[1], 1002u);
    EXPECT_EQ(list.more, 1u);
}

TEST_F(debug_test, UnknownSurfacesAreNamed)
{
    for (const auto& [command, name] : {std::pair{KALIX_DEBUG_SHOW_SID, "vmw_debug_show_sid"},
                                        {KALIX_DEBUG_SID_INFO, "vmw_debug_get_sid_info"},
                                        {KALIX_DEBUG_DUMP_SID, "vmw_debug_dump_sid_msg"},
                                        {KALIX_DEBUG_FILL_SID, "vmw_debug_fill_sid_msg"}}) {
        expect_refused(request(1, command, words({77, 0, 0, 0, 0})), -22,
                       {std::string{"2 kalix: "} + name + ": surface with sid 77 is unknown!"});
    }
    _globals.settings.strict = true;
    here().own_uid = 5; // client 1 is user 0
    for (const int32_t command : {1000, 1001, 1002, 1003, 1004, 1005})
        EXPECT_EQ(request(1, command, bytes(536)).value, -22);
    EXPECT_EQ(request(40, KALIX_DEBUG_RESET, {}).value, 0); // user 5
    disconnect(40);
}

TEST_F(debug_test, DumpsTakeRowsOutOfTheFramebuffer)
{
    const uint32_t sid = surface(1, 100, 8, 2);
    const uint32_t deep = surface(1, 100, 2049, 2); // rows past the framebuffer's end
    for (size_t i = 0; i < here().framebuffer.size(); ++i)
        here().framebuffer[i] = static_cast<uint8_t>(i * 7 + i / 256);
    const uint32_t end = 1u << 20;
    const std::tuple<uint32_t, uint32_t, uint32_t, int32_t, uint32_t, int32_t> rows[] = {
        {sid, 0, 16, 512, 31, 0},     {sid, 0, 16, 512, 32, -22},         {sid, 4096, 7, -512, 9, 0},
        {sid, 4095, 7, -512, 9, -22}, {sid, end - 8, 8, 1, 1, 0},         {sid, end - 8, 8, 1, 2, -22},
        {sid, end, 1, 0, 1, -22},     {sid, ~0u, 1, 0, 1, -22},           {sid, 0, 1, INT32_MAX, 3, -22},
        {sid, end, 0, 9, ~0u, 0},     {sid, 0, 0x10000, 0, 0x10000, -22}, {deep, 0, 1, 1, 1, -22},
        {sid, 9, 511, 1, 1, 0},       {sid, 5, 1, INT32_MIN, 2, -22}};
    for (const auto& [of, offset, row_bytes, stride, count, status] : rows) {
        dump_sid_req req{of, offset, row_bytes, stride, count, 0, {}};
        std::ranges::fill(req.data, uint8_t{0xEE});
        const answer got = request(2, KALIX_DEBUG_DUMP_SID, bytes_of(req));
        ASSERT_EQ(got.value, status) << offset << " " << row_bytes << " " << stride;
        const auto back = record_of<dump_sid_req>(got.data);
        for (size_t i = 0; i < 512; ++i) {
            const size_t pitch = std::max(row_bytes, 1u);
            const bool inside = status == 0 && i < uint64_t{row_bytes} * count;
            const int64_t at =
                int64_t{offset} + static_cast<int64_t>(i / pitch) * stride + static_cast<int64_t>(i % pitch);
            ASSERT_EQ(back.data[i], inside ? here().framebuffer[static_cast<size_t>(at)] : 0xEE);
        }
        EXPECT_EQ(got.sent, status == 0 ? frame_words{}.transfer(0, 512, sid, 2, 0, 0, 100, 8).out : stream{});
    }
    EXPECT_TRUE(take_lines().empty());
    // The pass's own buffers, once there are some.
    const auto dump = [this](uint32_t own) {
        return request(2, KALIX_DEBUG_DUMP_SID, bytes_of(dump_sid_req{own, 0, 1, 1, 1, 0, {}})).value;
    };
    EXPECT_EQ(dump(32749), -22);
    request(1, KALIX_PRESENT, bytes_of(present_req{sid, 0, 0, 100, 8}));
    EXPECT_EQ(dump(32749), 0);
    EXPECT_EQ(dump(32750), 0);
    EXPECT_EQ(dump(32747), -22);
}

TEST_F(debug_test, FillsPaintFramebufferAndSurface)
{
    const uint32_t sid = surface(1, 5, 3, 1);
    const uint32_t other = surface(1, 5, 3, 3);
    const uint32_t large = surface(1, 1024, 257, 2); // a megabyte and a row
    const uint32_t flat = surface(1, 5, 0, 2);
    here().framebuffer.assign(1 << 20, 0);
    const auto fill = [this](uint32_t of, uint32_t pixel) {
        return request(2, KALIX_DEBUG_FILL_SID, words({of, pixel}));
    };
    const answer filled = fill(sid, 0x11223344);
    EXPECT_EQ(filled.value, 0);
    EXPECT_EQ(filled.said, lines{"5 kalix: vmw_debug_fill_sid_msg: done fill on sid " + std::to_string(sid)});
    EXPECT_EQ(filled.sent, frame_words{}.transfer(0, 20, sid, 1, 0, 0, 5, 3).out);
    EXPECT_EQ(std::count(here().framebuffer.begin(), here().framebuffer.end(), 0x22), 15);
    EXPECT_EQ(here().framebuffer[59], 0x11);
    EXPECT_EQ(here().framebuffer[60], 0);
    EXPECT_EQ(here().register_writes.back().first, 21u); // the FIFO ran empty first
    expect_refused(fill(other, 1), -22, {"2 kalix: vmw_debug_fill_sid_msg: unsupported surface format 3 for fill"});
    expect_refused(fill(large, 1), -22, {});
    expect_refused(fill(flat, 1), -22, {});
    here().waited.clear();
    clear_screen(1, 2, 3, 4);
    EXPECT_EQ(here().framebuffer[64 * 48 * 4 - 1], 4);
    EXPECT_EQ(here().framebuffer[64 * 48 * 4], 0);
    EXPECT_EQ(here().waited.size(), 2u);
    EXPECT_EQ(take_calls(), lines{"update 0 0 64 48"});
}

// ---- The software pass against a reference that divides, and keeps rows and columns by their numbers ----

using pixels = std::vector<uint8_t>; // the whole framebuffer

// One grey value: neighbours' blues, each weighed and divided on its own, their sum divided once more.
uint8_t grey(uint32_t kernel, uint32_t output, const uint8_t* c, const uint8_t* a)
{
    const uint32_t k = kernel - 1;
    const uint32_t near = 4 * (output == 0 ? 0 : k); // bytes
    const uint32_t far = 4 * (output == 0 ? 1 : k - 1);
    const bool between = kernel == 4 && output == 1;
    const uint32_t sum = between ? 2 * c[4] / 3 + 2 * c[8] / 3 + 2 * a[4] / 9 + 2 * a[8] / 9
                                 : c[near] + c[far] / k + a[near] / k + a[far] / (k * k);
    return static_cast<uint8_t>(k * k * sum / (kernel * kernel));
}

// kernel: source pixels of a group; outputs: pixels kept of it.
void reference(pixels& memory, uint32_t w, uint32_t h, uint32_t pitch, uint32_t kernel, uint32_t outputs)
{
    const size_t start = size_t{std::max(w, h)} * std::max(w, h) * 4;
    pixels before = memory;
    for (int i = 0; i < 12; ++i) // behind the end lies the last pixel, thrice
        before.push_back(before[before.size() - 4]);
    const auto kept = [&](uint32_t row) {
        if (outputs == 1 && kernel == 3)
            return row % 3 == 2;
        return row % kernel != kernel - 1;
    };
    // The strip begins where the walk stands once it has reached the 48th row from below.
    bool strip = h <= 48;
    uint32_t out_row = 0;
    for (uint32_t row = 0; row < h; ++row) {
        if (!kept(row))
            continue;
        uint8_t* out = &memory[size_t{out_row++} * pitch];
        for (uint32_t column = 0; column < w; column += kernel)
            for (uint32_t i = 0; i < outputs; ++i, out += 4) {
                const uint8_t* const c = &before[start + (size_t{row} * w + column) * 4];
                const uint8_t* const a = row == 0 ? c : c - size_t{w} * 4;
                for (uint32_t byte = 0; byte < 3; ++byte)
                    out[byte] = strip && !(kernel == 3 && outputs == 1) ? grey(kernel, i, c, a) : c[i * 4 + byte];
            }
        strip = strip || row + 1 >= h - 48;
    }
}

class software_test : public driver_test {
protected:
    // The frame of a mode ends where the framebuffer does, or a megabyte's end lies behind it.
    void mode(uint32_t w, uint32_t h, float zoom, bool to_the_end = false)
    {
        const size_t side = std::max(w, h);
        const size_t end = to_the_end ? (side * side + w * h) * 4 : 1 << 20;
        if (here().framebuffer.size() != end)
            here().framebuffer = std::vector<uint8_t>(end);
        here().device.framebuffer = here().framebuffer.data();
        here().device.fb_bytes = static_cast<uint32_t>(end);
        here().device.zoom = zoom;
        SVGA_SetMode(w, h, 32, 1);
        std::mt19937 random{test_seed()};
        for (uint8_t& byte : here().framebuffer)
            byte = static_cast<uint8_t>(random());
        _globals.software_mode = 1;
        take_calls();
    }
    void TearDown() override
    {
        _globals.software_mode = 0;
        driver_test::TearDown();
    }
};

TEST_F(software_test, KernelsAgreeWithTheReference)
{
    const std::tuple<float, uint32_t, uint32_t> kernels[] = {
        {0x1.55553ep-2f, 3, 1}, {0.5f, 2, 1}, {0x1.55553ep-1f, 3, 2}, {0.75f, 4, 3}};
    for (const auto& [w, h] :
         {std::pair{64u, 48u}, {96u, 120u}, {61u, 97u}, {7u, 49u}, {5u, 3u}, {120u, 51u}, {48u, 50u}})
        for (int i = 0; i < 8; ++i) {
            const auto& [zoom, group, outputs] = kernels[i / 2];
            mode(w, h, zoom, i % 2 != 0);
            pixels wanted = here().framebuffer;
            reference(wanted, w, h, here().device.pitch, group, outputs);
            EXPECT_EQ(present(nullptr, 0, 0, 5, 5), 0);
            ASSERT_TRUE(here().framebuffer == wanted) << w << "x" << h << " " << zoom << " seed " << test_seed();
            const svga_device& device = here().device;
            EXPECT_EQ(take_calls(),
                      lines{"update 0 0 " + std::to_string(device.width) + " " + std::to_string(device.height)});
        }
}

TEST_F(software_test, UnscaledFramesAreCopiedAndOthersOnlyAnnounced)
{
    mode(64, 48, 1, true);
    const pixels before = here().framebuffer;
    present(nullptr, 1, 2, 3, 4);
    EXPECT_TRUE(std::equal(before.begin() + 64 * 64 * 4, before.begin() + 64 * 64 * 4 + 64 * 48 * 4,
                           here().framebuffer.begin()));
    EXPECT_EQ(take_calls(), lines{"update 0 0 64 48"});
    EXPECT_EQ(_globals.last_present_rect.width, 3);
    EXPECT_EQ(request(1, KALIX_PRESENT, bytes_of(present_req{999, 0, 0, 1, 1})).value, 0); // no surface is asked for
    EXPECT_EQ(request(1, KALIX_OOB_PRESENT, words({999})).value, 0);
    EXPECT_EQ(take_calls().size(), 2u);
    for (const auto& [w, h] : {std::pair{0, 9}, {9, 0}})
        present(nullptr, 0, 0, w, h);
    EXPECT_TRUE(take_calls().empty());
    mode(64, 48, 0.6f);
    const pixels untouched = here().framebuffer;
    present(nullptr, 0, 0, 5, 5);
    EXPECT_TRUE(here().framebuffer == untouched);
    EXPECT_EQ(take_calls(), lines{"update 0 0 38 28"});
    mode(500, 100, 0.5f); // its frame would end 200,000 bytes behind a megabyte
    const pixels whole = here().framebuffer;
    present(nullptr, 0, 0, 5, 5);
    EXPECT_TRUE(here().framebuffer == whole && take_calls().empty());
    EXPECT_EQ(next_pow2(0), 0u);
    EXPECT_EQ(next_pow2(1), 1u);
    EXPECT_EQ(next_pow2(65), 128u);
    EXPECT_EQ(next_pow2(0x80000000), 0x80000000u);
}

TEST_F(software_test, OverlaysAreCopiedWhereTheyFit)
{
    const uint32_t w = 100;
    const uint32_t h = 60;
    const uint64_t frame = uint64_t{w} * w * 4;
    const uint64_t pixels_at = 600'000;
    const std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, bool> rows[] = {
        {0, 0, 8, 8, true},    {~0u, 0, 8, 8, false}, {0, ~0u, 8, 8, false},  {96, 0, 8, 8, true},
        {99, 58, 8, 6, true},  {99, 59, 29, 5, true}, {99, 59, 30, 5, false}, {0, 57, 4, 8, false},
        {100, 0, 8, 8, false}, {0, 60, 8, 4, false},  {5, 5, 0, 8, false}};
    for (const auto& [x, y, width, height, drawn] : rows) {
        mode(w, h, 1);
        overlay_define_req req{0, 0, width, height, 2, 0, 0, 0, 0, SVGA_FRAMEBUFFER_BASE + pixels_at};
        req.x = static_cast<int32_t>(x);
        req.y = static_cast<int32_t>(y);
        const uint32_t id = ask(1, KALIX_OVERLAY_DEFINE, req).id;
        pixels wanted = here().framebuffer;
        for (uint32_t i = 0; drawn && i < height && i + y < h; ++i)
            for (uint32_t c = 0; c < width && c + x < w; ++c)
                std::memcpy(&wanted[frame + ((i + y) * w + c + x) * 4], &wanted[pixels_at + (i * width + c) * 4], 4);
        software_draw_overlays({0, 0, 100, 60});
        EXPECT_TRUE(here().framebuffer == wanted) << x << " " << y << " " << width;
        request(1, KALIX_OVERLAY_VISIBLE, words({id, 0}));
        mode(w, h, 1);
        const pixels before = here().framebuffer;
        software_draw_overlays({0, 0, 100, 60}); // hidden
        request(1, KALIX_OVERLAY_VISIBLE, words({id, 1}));
        software_draw_overlays({200, 0, 10, 10}); // not touched
        software_draw_overlays({0, 200, 10, 10});
        EXPECT_TRUE(here().framebuffer == before);
        request(1, KALIX_OVERLAY_DESTROY, words({id}));
    }
}

} // namespace
} // namespace kalix::test
