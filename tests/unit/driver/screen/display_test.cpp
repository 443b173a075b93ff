// Overlays, mode, cursor and zoom, the self-test, and the published configuration.

#include "tests/unit/driver/screen/frames.h"

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

using display_test = driver_test;

overlay_define_req overlay_of(uint32_t buffers, uint64_t address0 = 0, uint64_t address1 = 0)
{
    return {0, 0, 8, 4, buffers, 0, 0, 0, address0, address1};
}

TEST_F(display_test, OverlaysAreBoundedAndPlaced)
{
    const uint64_t base = SVGA_FRAMEBUFFER_BASE;
    const uint64_t end = base + (1u << 20);
    const std::tuple<uint32_t, uint64_t, uint64_t, int32_t> rows[] = {
        {0, 0, 0, 22},         {3, 0, 0, 22},           {1, base, 0, 0},      {1, end - 128, 0, 0},
        {1, end - 127, 0, 22}, {1, end, 0, 22},         {1, base - 1, 0, 22}, {1, base, 1, 0},
        {2, base, 1, 22},      {2, base, end - 128, 0}, {2, base, ~0ull, 22}};
    for (const auto& [buffers, address0, address1, status] : rows) {
        const answer got = request(1, KALIX_OVERLAY_DEFINE, bytes_of(overlay_of(buffers, address0, address1)));
        EXPECT_EQ(got.value, status) << buffers << " " << address0 << " " << address1;
        if (got.value != 0)
            continue;
        EXPECT_EQ(record_of<overlay_define_req>(got.data).id, 1u);
        EXPECT_EQ(request(1, KALIX_OVERLAY_DESTROY, words({1})).value, 0);
    }
    const overlay_define_req huge{0, 0, ~0u, ~0u, 1, 0, 0, 0, base, 0};
    EXPECT_EQ(request(1, KALIX_OVERLAY_DEFINE, bytes_of(huge)).value, 22);
}

TEST_F(display_test, EightOverlaysExist)
{
    for (uint32_t id = 1; id <= 8; ++id)
        EXPECT_EQ(ask(1 + id % 2, KALIX_OVERLAY_DEFINE, overlay_of(1)).id, id);
    EXPECT_EQ(request(1, KALIX_OVERLAY_DEFINE, bytes_of(overlay_of(1))).value, 22);
    expect_refused(request(1, KALIX_OVERLAY_DESTROY, words({3})), -22,
                   {"2 kalix: nebo_overlay_destroy: overlay 3 is unknown"}); // client 2's
    expect_refused(request(1, KALIX_OVERLAY_VISIBLE, words({3, 1})), -22,
                   {"2 kalix: nebo_overlay_visible: overlay 3 is unknown"});
    EXPECT_EQ(words_of(request(2, KALIX_OVERLAY_DESTROY, words({3})).data), stream{3});
    EXPECT_EQ(ask(1, KALIX_OVERLAY_DEFINE, overlay_of(1)).id, 3u);
}

TEST_F(display_test, OverlaysForgetSurfacesThatGo)
{
    const uint32_t depth = surface(1, 4, 4, 8); // a format of no picture
    const uint32_t color = surface(2, 4, 4, 2);
    for (const auto& [sid0, sid1] : {std::pair{depth, color}, {color, depth}, {depth, depth}})
        ask(3, KALIX_OVERLAY_DEFINE, overlay_define_req{0, 0, 8, 4, 1, 0, sid0, sid1, 0, 0});
    with_reservations(0, [&] { return destroy_surface(1, depth); }); // also when the device cannot be told
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
    const answer got = request(1, KALIX_SET_MODE, words({640, 480, 32}));
    EXPECT_EQ(got.value, 0);
    const uint32_t region = _globals.dirty_gmr_id;
    frame_words wanted;
    wanted.command(1040, {32751, 32, 2,  8, 0,  0,  0, 0, 0, 184, 184, 1, 92, 92, 1, 46, 46,
                          1,     23, 23, 1, 11, 11, 1, 5, 5, 1,   2,   2, 1,  1,  1, 1});
    wanted.command(1044, {region, 0, 736, 32751, 0, 0, 1, 0, 0, 0, 32, 1, 1, 0, 0, 0});
    wanted.command(1044, {region, 128, 736, 32751, 0, 0, 2, 0, 0, 0, 32, 1, 1, 0, 0, 0});
    wanted.command(1041, {32751});
    EXPECT_EQ(got.sent, wanted.out);
    EXPECT_EQ(got.said, lines{"2 kalix: gpu cap test: mipmap dma... passed"});
    EXPECT_EQ(_globals.mipmap_dma_failed, 0u);
    EXPECT_TRUE(request(1, KALIX_SET_MODE, words({0, 0xFFFFFFFF, 17})).sent.empty());
    EXPECT_EQ(take_calls(), (lines{"mode 640 480 32 1", "mode 0 4294967295 17 1"}));
}

TEST_F(display_test, SelfTestNamesTheStepThatFailed)
{
    for (const auto& [left, step] :
         {std::pair{0, "create_surface"}, {2, "dma_read"}, {-1, "dma_read"}, {3, "destroy_surface"}}) {
        reset_self_test();
        here().on_wait = [left = left] {
            const std::byte* const back = _globals.dirty_gmr_base + 128;
            EXPECT_EQ(record_of<uint64_t>({back, back + 8}), 0x0706050403020100u);
            if (left == 3)
                std::memcpy(_globals.dirty_gmr_base + 128, _globals.dirty_gmr_base, 128);
        };
        EXPECT_EQ(with_reservations(left, gpu_cap_test), 0);
        EXPECT_EQ(take_lines(), (lines{std::string{"2 kalix: mipmap test: "} + step + " failed",
                                       "2 kalix: gpu cap test: mipmap dma... failed"}));
        EXPECT_EQ(_globals.mipmap_dma_failed, 1u);
        take_stream();
        EXPECT_EQ(mipmap_dma_test(), 22); // the result is kept, nothing is sent
        EXPECT_TRUE(take_stream().empty());
    }
}

TEST_F(display_test, ModeShowsTheLastPictureOverAllOfIt)
{
    const uint32_t sid = surface(1, 64, 48, 1);
    request(1, KALIX_SET_MODE, words({64, 48, 32}));
    request(1, KALIX_PRESENT, bytes_of(present_req{sid, 3, 4, 5, 6}));
    const auto set_mode = [this](const stream& mode) { return request(2, KALIX_SET_MODE, words(mode)); };
    const stream whole{0, 0, 80, 60, 0, 0};
    EXPECT_EQ(tail_of(set_mode({80, 60, 32}).sent, 6), whole);
    for (const stream& refused :
         {stream{0, 48, 32}, {64, 0, 32}, {64, 48, 24}, {64, 48, 0}, {1024, 1024, 32}, {~0u, ~0u, 32}}) {
        const answer got = set_mode(refused);
        EXPECT_EQ(got.value, 0);
        EXPECT_TRUE(got.sent.empty()) << refused[0];
    }
    EXPECT_EQ(tail_of(request(2, KALIX_DEBUG_RESET, {}).sent, 6), whole); // the last picture is still the one before
    destroy_surface(1, sid);
    EXPECT_TRUE(set_mode({40, 30, 32}).sent.empty());
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
    const float middle = (1.0f + 0.75f) / 2;
    const float third = 0x1.55553ep-2f;
    const float two_thirds = 0x1.55553ep-1f;
    using zooms = std::vector<std::pair<float, float>>; // asked, got
    const zooms hardware{{0.05f, 0.1f}, {-9, 0.1f}, {1.5f, 1}, {0.6f, 0.6f}};
    const zooms software{{0.6f, two_thirds}, {0.3f, third}, {0.62f, two_thirds}, {0.5f, 0.5f}, {middle, 1},
                         {0.76f, 0.75f},     {1, 1}};
    const auto expect_set = [this](float asked, float got) {
        here().device.zoom = 0.123f;
        take_calls();
        take_lines();
        adapter_set_zoom_level(asked);
        EXPECT_EQ(here().device.zoom, got) << asked;
        EXPECT_EQ(take_calls(), (lines{"mode 64 48 32 1", "restore"}));
        char line[64];
        std::snprintf(line, sizeof line, "5 kalix: setting zoom level to %1.0f%%", static_cast<double>(100 * got));
        EXPECT_EQ(take_lines(), lines{line});
        adapter_set_zoom_level(got); // in force: nothing
        EXPECT_TRUE(take_calls().empty() && take_lines().empty());
    };
    _globals.software_mode = 1;
    for (const auto& [asked, got] : software)
        expect_set(asked, got);
    _globals.software_mode = 0;
    for (const auto& [asked, got] : hardware)
        expect_set(asked, got);
    for (int i = 0; i < 2; ++i) { // what is no number equals nothing, and so is set again
        adapter_set_zoom_level(std::numeric_limits<float>::quiet_NaN());
        EXPECT_TRUE(std::isnan(here().device.zoom));
        EXPECT_EQ(take_calls().size(), 2u);
    }
    adapter_set_zoom_level(0.5f);
    EXPECT_EQ(reinterpret_cast<const kalix_status*>(here().status.data())->zoom, 0.5f);
}

TEST_F(display_test, ObjectsAreAppliedLineByLine)
{
    const std::tuple<const char*, float, int> rows[] = {
        // a zoom of 0: the one before
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
    for (const auto& [text, zoom, status] : rows) {
        here().device.zoom = 1;
        here().config = text;
        EXPECT_EQ(pps_load_config(), status) << text;
        EXPECT_EQ(here().device.zoom, zoom == 0 ? 1.0f : zoom) << text;
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

// A pulse of code 0 applies the object and arms again, whatever goes on.
TEST_F(display_test, PulsesReadAndArmAgain)
{
    platform::_pulse pulse{};
    pulse.code = pulse_code_config;
    EXPECT_EQ(here().armed, 1); // once start-up had read what was there
    here().config = "x86_64_zoom_factor::0.5\n";
    here().config_unread = true;
    here().incoming.push_back({0, {}, bytes_of(pulse)});
    EXPECT_EQ(msg_loop(), 0);
    fail_allocation(0);
    EXPECT_EQ(here().device.zoom, 0.5f);
    EXPECT_EQ(here().armed, 2);
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
    const auto equals = [](const matrix& wanted, float within) {
        return testing::Pointwise(testing::FloatNear(within), wanted);
    };
    const matrix any{1, 2, 3, 4, -5, 6, 7, 8, 9, 10, -11, 12, 13, 14, 15, 16};
    constexpr float angle = 0.6435011f; // its cosine is 0.8, its sine 0.6
    struct row {
        void (*multiply)(float*);
        matrix by;
    };
    const row rows[] = {
        {[](float* m) { Matrix_Multiply(m, m); }, any},
        {[](float* m) { Matrix_Scale(m, 2, 3, 4, 1); }, {2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 4, 0, 0, 0, 0, 1}},
        {[](float* m) { Matrix_RotateX(m, angle); }, {1, 0, 0, 0, 0, 0.8f, 0.6f, 0, 0, -0.6f, 0.8f, 0, 0, 0, 0, 1}},
        {[](float* m) { Matrix_RotateY(m, angle); }, {0.8f, 0, -0.6f, 0, 0, 1, 0, 0, 0.6f, 0, 0.8f, 0, 0, 0, 0, 1}},
        {[](float* m) { Matrix_RotateZ(m, angle); }, {0.8f, 0.6f, 0, 0, -0.6f, 0.8f, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}},
    };
    for (const row& each : rows) {
        matrix got = any;
        each.multiply(got.data());
        EXPECT_THAT(got, equals(product(any, each.by), 1e-5f));
    }
    matrix got = any;
    Matrix_Translate(got.data(), 3, 4, 5);
    EXPECT_EQ(got, (matrix{1, 2, 3, 4, -5, 6, 7, 8, 9, 10, -11, 12, 16, 18, 20, 16}));
    Matrix_Ortho(got.data(), 0, 800, 480, 0, -10, 10);
    EXPECT_EQ(got, (matrix{2.0f / 800, 0, 0, 0, 0, 2.0f / -480, 0, 0, 0, 0, -0.1f, 0, -1, 1, 0, 1}));
    Matrix_Perspective(got.data(), 90, 2, 1, 100); // near at 0, far at 1
    EXPECT_THAT(got, equals({0.5f, 0, 0, 0, 0, 1, 0, 0, 0, 0, 100 / 99.0f, 1, 0, 0, -100 / 99.0f, 0}, 1e-6f));
}

} // namespace
} // namespace kalix::test
