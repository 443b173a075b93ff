// Overlays, mode, cursor and zoom, the self-test, and the published configuration.

#include "tests/unit/driver/screen/frames.h"
#include "tests/unit/driver/support.h"

#include "driver/config.h"
#include "driver/message_loop.h"
#include "driver/objects/overlay.h"
#include "driver/screen/capability_probe.h"
#include "driver/screen/display.h"
#include "driver/screen/matrix.h"

#include <cmath>
#include <kalix/status.h>
#include <limits>

namespace kalix::test {
namespace {

using lines = std::vector<std::string>;
using display_test = driver_test;

overlay_define_req overlay_of(uint32_t buffers, uint64_t address0 = 0, uint64_t address1 = 0)
{
    return {0, 0, 8, 4, buffers, 0, 0, 0, address0, address1};
}

TEST_F(display_test, OverlaysAreBoundedAndPlaced)
{
    const uint64_t base = SVGA_FRAMEBUFFER_BASE;
    const uint64_t end = base + (1u << 20);
    struct row {
        uint32_t buffers;
        uint64_t address0, address1;
        int32_t status;
    };
    const row rows[] = {{0, 0, 0, 22},         {3, 0, 0, 22},           {1, base, 0, 0},      {1, end - 128, 0, 0},
                        {1, end - 127, 0, 22}, {1, end, 0, 22},         {1, base - 1, 0, 22}, {1, base, 1, 0},
                        {2, base, 1, 22},      {2, base, end - 128, 0}, {2, base, ~0ull, 22}};
    for (const row& each : rows) {
        const answer got =
            request(1, KALIX_OVERLAY_DEFINE, bytes_of(overlay_of(each.buffers, each.address0, each.address1)));
        EXPECT_EQ(got.value, each.status) << each.buffers << " " << each.address0 << " " << each.address1;
        if (got.value != 0)
            continue;
        EXPECT_EQ(record_of<overlay_define_req>(got.data).id, 1u);
        EXPECT_EQ(request(1, KALIX_OVERLAY_DESTROY, words({1})).value, 0);
    }
    overlay_define_req huge = overlay_of(1, base);
    huge.width = huge.height = ~0u;
    EXPECT_EQ(request(1, KALIX_OVERLAY_DEFINE, bytes_of(huge)).value, 22);
}

TEST_F(display_test, EightOverlaysExist)
{
    for (uint32_t id = 1; id <= 8; ++id)
        EXPECT_EQ(
            record_of<overlay_define_req>(request(1 + id % 2, KALIX_OVERLAY_DEFINE, bytes_of(overlay_of(1))).data).id,
            id);
    EXPECT_EQ(request(1, KALIX_OVERLAY_DEFINE, bytes_of(overlay_of(1))).value, 22);
    take_lines();
    EXPECT_EQ(request(1, KALIX_OVERLAY_DESTROY, words({3})).value, -22); // client 2's
    EXPECT_EQ(request(1, KALIX_OVERLAY_VISIBLE, words({3, 1})).value, -22);
    EXPECT_EQ(take_lines(), (lines{"2 kalix: nebo_overlay_destroy: overlay 3 is unknown",
                                   "2 kalix: nebo_overlay_visible: overlay 3 is unknown"}));
    const answer gone = request(2, KALIX_OVERLAY_DESTROY, words({3}));
    EXPECT_EQ(words_of(gone.data), stream{3});
    EXPECT_EQ(record_of<overlay_define_req>(request(1, KALIX_OVERLAY_DEFINE, bytes_of(overlay_of(1))).data).id, 3u);
    disconnect(1);
    disconnect(2);
    for (int nth = 1; nth < 8; ++nth) { // wherever memory ends, nothing is left behind
        fail_allocation(nth);
        const int32_t status = request(3, KALIX_OVERLAY_DEFINE, bytes_of(overlay_of(1))).value;
        fail_allocation(0);
        if (status == 0)
            request(3, KALIX_OVERLAY_DESTROY, words({1}));
    }
    EXPECT_EQ(_globals.overlay_ids.usecount, 0u);
}

TEST_F(display_test, OverlaysForgetSurfacesThatGo)
{
    const auto depth = static_cast<uint32_t>(define_surface(1, 0, 4, 4, 8)); // a format of no picture
    const auto color = static_cast<uint32_t>(define_surface(2, 0, 4, 4, 2));
    for (const auto& [sid0, sid1] : {std::pair{depth, color}, {color, depth}, {depth, depth}}) {
        overlay_define_req req = overlay_of(1);
        req.sid0 = sid0;
        req.sid1 = sid1;
        request(3, KALIX_OVERLAY_DEFINE, bytes_of(req));
    }
    here().reservations_left = 0; // also when the device cannot be told
    request(1, KALIX_SURFACE_DESTROY, words({depth}));
    here().reservations_left = -1;
    disconnect(2);
    for (uint32_t id = 1; id <= 3; ++id)
        for (const surface_record* slot :
             static_cast<overlay_record*>(resource_get_global(RESOURCE_OVERLAY, id))->surface)
            EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(overlay_get_by_surface(nullptr), nullptr);
}

TEST_F(display_test, FirstModeTestsTheDeviceOnce)
{
    here().on_wait = [] { // the device's answer: what was written comes back
        std::memcpy(_globals.dirty_gmr_base + 128, _globals.dirty_gmr_base, 128);
    };
    EXPECT_EQ(request(1, KALIX_SET_MODE, words({640, 480, 32})).value, 0);
    const uint32_t region = _globals.dirty_gmr_id;
    frame_words wanted{0, 0};
    wanted.command(1040, {32751, 32, 2,  8, 0,  0,  0, 0, 0, 184, 184, 1, 92, 92, 1, 46, 46,
                          1,     23, 23, 1, 11, 11, 1, 5, 5, 1,   2,   2, 1,  1,  1, 1});
    wanted.command(1044, {region, 0, 736, 32751, 0, 0, 1, 0, 0, 0, 32, 1, 1, 0, 0, 0});
    wanted.command(1044, {region, 128, 736, 32751, 0, 0, 2, 0, 0, 0, 32, 1, 1, 0, 0, 0});
    wanted.command(1041, {32751});
    EXPECT_EQ(take_stream(), wanted.out);
    EXPECT_EQ(take_lines(), lines{"2 kalix: gpu cap test: mipmap dma... passed"});
    EXPECT_EQ(_globals.mipmap_dma_failed, 0u);
    request(1, KALIX_SET_MODE, words({0, 0xFFFFFFFF, 17}));
    EXPECT_TRUE(take_stream().empty());
    EXPECT_EQ(take_calls(), (lines{"mode 640 480 32 1", "mode 0 4294967295 17 1"}));
}

TEST_F(display_test, SelfTestNamesTheStepThatFailed)
{
    struct row {
        int reservations;
        const char* step;
    };
    for (const row& each : {row{0, "create_surface"}, {2, "dma_read"}, {-1, "dma_read"}, {3, "destroy_surface"}}) {
        reset_self_test();
        here().reservations_left = each.reservations;
        here().on_wait = [&] {
            const std::byte* const back = _globals.dirty_gmr_base + 128;
            EXPECT_EQ(record_of<uint64_t>({back, back + 8}), 0x0706050403020100u);
            if (each.reservations == 3)
                std::memcpy(_globals.dirty_gmr_base + 128, _globals.dirty_gmr_base, 128);
        };
        EXPECT_EQ(gpu_cap_test(), 0);
        here().reservations_left = -1;
        EXPECT_EQ(take_lines(), (lines{std::string{"2 kalix: mipmap test: "} + each.step + " failed",
                                       "2 kalix: gpu cap test: mipmap dma... failed"}));
        EXPECT_EQ(_globals.mipmap_dma_failed, 1u);
        take_stream();
        EXPECT_EQ(mipmap_dma_test(), 22); // the result is kept, nothing is sent
        EXPECT_TRUE(take_stream().empty());
    }
}

TEST_F(display_test, ModeShowsTheLastPictureOverAllOfIt)
{
    const auto sid = static_cast<uint32_t>(define_surface(1, 0, 64, 48, 1));
    request(1, KALIX_SET_MODE, words({64, 48, 32}));
    request(1, KALIX_PRESENT, bytes_of(present_req{sid, 3, 4, 5, 6}));
    take_stream();
    request(2, KALIX_SET_MODE, words({80, 60, 32}));
    const stream sent = take_stream();
    const stream whole{0, 0, 80, 60, 0, 0};
    EXPECT_EQ(stream(sent.end() - 6, sent.end()), whole);
    for (const bytes& refused : {words({0, 48, 32}), words({64, 0, 32}), words({64, 48, 24}), words({64, 48, 0}),
                                 words({1024, 1024, 32}), words({~0u, ~0u, 32})}) {
        EXPECT_EQ(request(2, KALIX_SET_MODE, refused).value, 0);
        EXPECT_TRUE(take_stream().empty()) << words_of(refused)[0];
    }
    request(2, KALIX_DEBUG_RESET, {}); // the last picture is still the one before
    const stream again = take_stream();
    EXPECT_EQ(stream(again.end() - 6, again.end()), whole);
    request(1, KALIX_SURFACE_DESTROY, words({sid}));
    take_stream();
    request(2, KALIX_SET_MODE, words({40, 30, 32}));
    EXPECT_TRUE(take_stream().empty());
}

TEST_F(display_test, CursorsArePlacedAndMeasured)
{
    const auto define = [this](uint32_t width, uint32_t height, size_t pixels) {
        bytes payload = bytes_of(set_cursor_req{7, 1, 2, width, height, 0});
        payload.resize(payload.size() + pixels * 4, std::byte{0x5A});
        return request(1, KALIX_SET_CURSOR, payload).value;
    };
    here().device.cursor = 5;
    EXPECT_EQ(define(32, 32, 1024), 0);
    EXPECT_EQ(here().device.cursor, 0u);
    EXPECT_EQ(take_calls(), (lines{"cursor 7 1 2 32 32", "preserve 7"}));
    EXPECT_EQ(take_stream(), stream(1024, 0x5A5A5A5A));
    EXPECT_EQ(define(0, 0, 0), 0);
    EXPECT_EQ(take_calls(), (lines{"cursor 7 1 2 0 0", "preserve 7"}));
    EXPECT_EQ(define(32, 32, 1023), 22);
    EXPECT_EQ(define(1 << 16, 1 << 16, 64), 22); // the bytes are 0 in 32 bits
    EXPECT_EQ(define(257, 1, 257), 0);           // the device's to refuse
    EXPECT_EQ(take_calls(), lines{});
    for (const int32_t command : {KALIX_SET_CURSOR, KALIX_MOVE_CURSOR, KALIX_SET_MODE, KALIX_SVGA_ENABLE})
        EXPECT_EQ(request(1, command, bytes(3)).value, 22);

    here().device.zoom = 0.5f;
    request(1, KALIX_MOVE_CURSOR, words({1, 100, 50, 9}));
    _globals.software_mode = 1;
    request(1, KALIX_MOVE_CURSOR, words({1, 101, 50, 9}));
    request(1, KALIX_MOVE_CURSOR, words({0, ~0u, 0, 9}));
    _globals.software_mode = 0;
    EXPECT_EQ(take_calls(), (lines{"move 1 100 50 9", "move 1 50 25 9", "move 0 2147483648 0 9"}));
    request(1, KALIX_SVGA_ENABLE, words({0}));
    EXPECT_EQ(here().register_writes.back(), (std::pair<uint32_t, uint32_t>{1, 0}));
}

TEST_F(display_test, ZoomIsClampedSnappedAndSetOnce)
{
    struct row {
        float asked, got;
        bool software;
    };
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float middle = (1.0f + 0.75f) / 2;
    const row rows[] = {{0.05f, 0.1f, false},
                        {-9, 0.1f, false},
                        {1.5f, 1, false},
                        {0.6f, 0.6f, false},
                        {0.6f, 0x1.55553ep-1f, true},
                        {0.3f, 0x1.55553ep-2f, true},
                        {0.62f, 0x1.55553ep-1f, true},
                        {0.5f, 0.5f, true},
                        {middle, 1, true},
                        {0.76f, 0.75f, true},
                        {1, 1, true}};
    for (const row& each : rows) {
        _globals.software_mode = each.software;
        here().device.zoom = 0.123f;
        take_calls();
        take_lines();
        adapter_set_zoom_level(each.asked);
        EXPECT_EQ(here().device.zoom, each.got) << each.asked;
        EXPECT_EQ(take_calls(), (lines{"mode 64 48 32 1", "restore"}));
        char line[64];
        std::snprintf(line, sizeof line, "5 kalix: setting zoom level to %1.0f%%", static_cast<double>(100 * each.got));
        EXPECT_EQ(take_lines(), lines{line});
        adapter_set_zoom_level(each.got); // in force: nothing
        EXPECT_TRUE(take_calls().empty() && take_lines().empty());
    }
    _globals.software_mode = 0;
    adapter_set_zoom_level(nan);
    EXPECT_TRUE(std::isnan(here().device.zoom));
    EXPECT_EQ(take_calls().size(), 2u); // and again, since it equals nothing
    adapter_set_zoom_level(nan);
    EXPECT_EQ(take_calls().size(), 2u);
    adapter_set_zoom_level(0.5f);
    EXPECT_EQ(reinterpret_cast<const kalix_status*>(here().status.data())->zoom, 0.5f);
}

TEST_F(display_test, ObjectsAreAppliedLineByLine)
{
    struct row {
        const char* text;
        float zoom; // 0: the one before
        int status;
    };
    const row rows[] = {
        {"@mesa\nx86_64_zoom_factor::0.5\n", 0.5f, 0},
        {"x86_64_zoom_factor::0.75", 0.75f, 0},
        {"@mesa\nx86_64_zoom_factor:n:0.5\n", 0, 0},
        {"other::1\nx86_64_zoom_factor::0.25trailing\n", 0.25f, 0},
        {"x86_64_zoom_factor::0.5\nx86_64_zoom_factor::0.75\n", 0.75f, 0},
        {"x86_64_zoom_factor::\nx86_64_zoom_factor::0.5\n", 0, 22},
        {"x86_64_zoom_factor::0.4\nother::\n", 0.4f, 22},
        {"x86_64_zoom_factor::abc\n", 0.1f, 0},
        {"X86_64_zoom_factor::0.5\n", 0, 0},
        {"x86_64_zoom_factor::::0.5\n", 0.1f, 0}, // the value begins with two colons
        {"\n\n\n\x01\x02\xff::\x03\n", 0, 0},
        {"", 0, 0},
    };
    for (const row& each : rows) {
        here().device.zoom = 1;
        here().config = each.text;
        EXPECT_EQ(pps_load_config(), each.status) << each.text;
        EXPECT_EQ(here().device.zoom, each.zoom == 0 ? 1.0f : each.zoom) << each.text;
    }
    here().device.zoom = 1;
    here().config = std::string(240, '#') + "\nx86_64_zoom_factor::0.5\n"; // cut in the name
    EXPECT_EQ(pps_load_config(), 0);
    EXPECT_EQ(here().device.zoom, 1.0f);
    for (const int nth : {1, 2}) {
        here().config = "a::b\nx86_64_zoom_factor::0.5\n";
        fail_allocation(nth);
        EXPECT_EQ(pps_load_config(), 12);
    }
    EXPECT_EQ(here().device.zoom, 1.0f);
    EXPECT_EQ(process_keyvalue(nullptr, "1"), 22);
}

TEST_F(display_test, PulsesReadAndArmAgain)
{
    const int before = here().armed;
    here().config = "x86_64_zoom_factor::0.5\n";
    here().config_unread = true;
    pps_monitor(_globals.self_coid);
    EXPECT_EQ(here().device.zoom, 0.5f);
    EXPECT_EQ(here().armed, before + 1);
    here().device.zoom = 0.75f;
    EXPECT_EQ(pps_save_config(), 0);
    EXPECT_EQ(here().config, "[-n]x86_64_zoom_factor::0.750000");
    here().refuse_write = true;
    EXPECT_EQ(pps_save_config(), 22);
    reset_config();
    EXPECT_EQ(pps_save_config(), 22);
    EXPECT_EQ(pps_load_config(), 22);
    here().machine = std::string(60, 'm'); // the key is cut
    EXPECT_EQ(pps_init(), 0);
    EXPECT_EQ(process_keyvalue(std::string(39, 'm').c_str(), "0.5"), 0);
    here().machine.clear();
    reset_config();
    EXPECT_EQ(pps_init(), 22);
    EXPECT_EQ(process_keyvalue("", "0.5"), 22); // there is no key
    here().refuse_config = true;
    reset_config();
    EXPECT_EQ(pps_init(), 22);
}

// The message loop's own way: a pulse of code 0 applies the object and arms again, whatever goes on.
TEST_F(display_test, ConfigurationPulsesReachTheLoop)
{
    platform::_pulse pulse{};
    pulse.code = pulse_code_config;
    here().config = "x86_64_zoom_factor::0.25\n";
    const int before = here().armed;
    here().incoming.push_back({0, {}, bytes_of(pulse)});
    EXPECT_EQ(msg_loop(), 0);
    fail_allocation(0);
    EXPECT_EQ(here().device.zoom, 0.25f);
    EXPECT_EQ(here().armed, before + 1);
}

using matrix = std::array<float, 16>;

matrix product(const matrix& a, const matrix& b)
{
    matrix out{};
    for (size_t i = 0; i < 16; ++i)
        for (size_t k = 0; k < 4; ++k)
            out[i] += a[i / 4 * 4 + k] * b[k * 4 + i % 4];
    return out;
}

TEST(Matrices, KeepTheirRules)
{
    std::mt19937 random{test_seed()};
    std::uniform_real_distribution<float> any{-3, 3};
    matrix a;
    matrix b;
    for (float& each : a)
        each = any(random);
    for (float& each : b)
        each = any(random);
    matrix got = a;
    Matrix_Multiply(got.data(), b.data());
    const matrix wanted = product(a, b);
    for (size_t i = 0; i < 16; ++i)
        EXPECT_NEAR(got[i], wanted[i], 1e-5f);
    got = a;
    Matrix_Multiply(got.data(), got.data());
    EXPECT_NEAR(got[6], product(a, a)[6], 1e-5f);
    got = a;
    Matrix_Scale(got.data(), 2, 3, 4, 1);
    EXPECT_EQ(got[4], a[4] * 2);
    EXPECT_EQ(got[14], a[14] * 4);
    EXPECT_EQ(got[15], a[15]);
    got = a;
    Matrix_Translate(got.data(), 3, 4, 5);
    EXPECT_EQ(got[13], a[13] + 4);
    EXPECT_EQ(got[3], a[3]);

    struct rotation_row {
        void (*rotate)(float*, float);
        size_t from, to; // the axis that a quarter turn takes to another
    };
    for (const rotation_row& row :
         {rotation_row{Matrix_RotateX, 1, 2}, {Matrix_RotateY, 2, 0}, {Matrix_RotateZ, 0, 1}}) {
        Matrix_Copy(got.data(), gIdentityMatrix);
        row.rotate(got.data(), 1.5707964f);
        EXPECT_NEAR(got[row.from * 4 + row.to], 1, 1e-6f);
        EXPECT_NEAR(got[row.to * 4 + row.from], -1, 1e-6f);
    }
    Matrix_Ortho(got.data(), 0, 800, 480, 0, -10, 10);
    EXPECT_EQ((matrix{got}), (matrix{2.0f / 800, 0, 0, 0, 0, 2.0f / -480, 0, 0, 0, 0, -0.1f, 0, -1, 1, 0, 1}));
    Matrix_Perspective(got.data(), 90, 2, 1, 100);
    EXPECT_NEAR(got[0], 0.5f, 1e-6f);
    EXPECT_NEAR(got[5], 1, 1e-6f);
    EXPECT_NEAR((100 * got[10] + got[14]) / 100, 1, 1e-6f);
    EXPECT_NEAR(got[10] + got[14], 0, 1e-6f);
    EXPECT_EQ(got[11], 1);
}

} // namespace
} // namespace kalix::test
