// What the screen shows: pictures, overlays, zoom and cursor, seen through the screen file.

#include "tests/system/screen_test.h"
#include "tools/screen/status_reader.h"

#include <algorithm>
#include <cmath>
#include <sys/stat.h>
#include <thread>

namespace kalix::test {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t mode_width = 1024;
constexpr uint32_t mode_height = 768;

class display_test : public screen_test {
protected:
    std::string object() const { return directory_.path() + "/pps/services/mesa"; }
    float zoom() const { return tools::read_status(directory_.path())->zoom; }
    static std::string zoom_line(const std::string& factor)
    {
#if defined(__x86_64__)
        return "@mesa\nx86_64_zoom_factor::" + factor + "\n";
#else
        return "@mesa\naarch64_zoom_factor::" + factor + "\n";
#endif
    }
    void expect_zoom(float factor) const
    {
        EXPECT_TRUE(soon([&] { return zoom() == factor; })) << factor;
    }
    // Sets the zoom from outside and waits until the driver has it.
    void zoom(const std::string& factor) const
    {
        put(object(), zoom_line(factor));
        expect_zoom(std::strtof(factor.c_str(), nullptr));
    }
};

// a x share + b x (1 - share), channel by channel, exact before the rounding.
bool is_mixed(uint32_t got, uint32_t a, uint32_t b, double share)
{
    for (const unsigned shift : {0u, 8u, 16u}) {
        const double wanted = (a >> shift & 255) * share + (b >> shift & 255) * (1 - share);
        if (std::abs(wanted - (got >> shift & 255)) > 0.51)
            return false;
    }
    return true;
}

TEST_F(display_test, AtFullSizeEveryPixelIsItsTexel)
{
    const painting picture = show(mode_width, mode_height);
    const screen_frame shown = look();
    ASSERT_EQ(shown.width, mode_width);
    ASSERT_EQ(shown.height, mode_height);
    size_t wrong = 0;
    for (uint32_t y = 0; y < mode_height; ++y)
        for (uint32_t x = 0; x < mode_width; ++x) {
            const bool border = x == mode_width - 1 || y == mode_height - 1;
            const uint32_t wanted = border ? 0xFF000000 : picture.at(x, y) | 0xFF000000;
            wrong += shown.pixels[size_t{y} * mode_width + x] != wanted;
        }
    EXPECT_EQ(wrong, 0u);
}

TEST_F(display_test, AtHalfSizeNeighboursAreMixed)
{
    zoom("0.5");
    const painting picture = show(mode_width, mode_height);
    const screen_frame shown = look();
    ASSERT_EQ(shown.width, 512u);
    ASSERT_EQ(shown.height, 384u);
    // Row 0 is texel row 0: its first pixel is texel 0, its second 0.496 of texel 1 and the rest of texel 2.
    EXPECT_TRUE(is_mixed(shown.pixels[0], picture.at(0, 0), 0, 1));
    EXPECT_TRUE(is_mixed(shown.pixels[1], picture.at(1, 0), picture.at(2, 0), 0.4961));
    EXPECT_EQ(shown.pixels[511], 0xFF000000u);
    EXPECT_EQ(shown.pixels[383 * 512 + 5], 0xFF000000u);
    EXPECT_NE(shown.pixels[510], 0xFF000000u);
    EXPECT_NE(shown.pixels[382 * 512], 0xFF000000u);
}

TEST_F(display_test, OverlaysBlendInOrderAndTurn)
{
    const painting picture = show(mode_width, mode_height);
    const painting glass = paint(100, 60, SVGA3D_A8R8G8B8);
    uint32_t id = 0;
    overlay_define_req wanted{200, 100, 100, 60, 1, 0, glass.surface.sid(), 0, 0, 0};
    ASSERT_EQ(kalix_overlay_define(handle(), &wanted, &id), 0);
    present(picture.surface);
    screen_frame shown = look();
    for (uint32_t y = 0; y < 60; ++y)
        for (uint32_t x = 0; x < 100; ++x) {
            const uint32_t over = glass.at(x, y);
            ASSERT_TRUE(is_mixed(shown.pixels[(size_t{y} + 100) * mode_width + 200 + x], over,
                                 picture.at(200 + x, 100 + y), (over >> 24) / 255.0))
                << x << " " << y;
        }
    EXPECT_EQ(shown.pixels[160 * mode_width + 200], picture.at(200, 160) | 0xFF000000);

    // As wide as the mode is high: it stands on its side and covers everything.
    painting turned = paint(mode_height, mode_width);
    wanted = {0, 0, mode_height, mode_width, 1, 0, turned.surface.sid(), 0, 0, 0};
    ASSERT_EQ(kalix_overlay_define(handle(), &wanted, &id), 0);
    present(picture.surface);
    shown = look();
    size_t wrong = 0;
    for (uint32_t y = 0; y < mode_height; ++y)
        for (uint32_t x = 0; x < mode_width; ++x)
            wrong += shown.pixels[size_t{y} * mode_width + x] != (turned.at(y, std::min(1024 - x, 1023u)) | 0xFF000000);
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(tools::read_status(directory_.path())->frame.overlays[1].turned, 1u);
}

TEST_F(display_test, SixteenBitsShowTheSamePicture)
{
    set_mode(mode_width, mode_height, 16);
    const painting picture = paint(mode_width, mode_height);
    present(picture.surface);
    const screen_frame shown = look();
    ASSERT_EQ(shown.bits_per_pixel, 16u);
    const uint32_t got = shown.pixels[300 * mode_width + 40];
    for (const unsigned shift : {0u, 8u, 16u})
        EXPECT_NEAR(got >> shift & 255, picture.at(40, 300) >> shift & 255, 8.3);
}

TEST_F(display_test, CursorsLieOverThePictureAndSurviveZoom)
{
    set_mode(mode_width, mode_height);
    const std::vector<uint32_t> arrow(16, 0x80402010); // premultiplied
    const kalix_cursor_image image{4, 4, 1, 2, arrow.data()};
    ASSERT_EQ(kalix_set_cursor(handle(), &image), 0);
    ASSERT_EQ(kalix_move_cursor(handle(), 1, 50, 60), 0);
    const auto drawn = [&](uint32_t x, uint32_t y) {
        const screen_frame frame = look(cursor_drawing::with);
        return frame.pixels[size_t{y} * frame.width + x] != 0xFF000000;
    };
    EXPECT_TRUE(drawn(49, 58) && drawn(52, 61));
    EXPECT_FALSE(drawn(48, 58) || drawn(49, 57) || drawn(53, 61));
    zoom("0.75");
    EXPECT_EQ(look().width, 768u);
    EXPECT_TRUE(drawn(49, 58));
    EXPECT_EQ(look().pixels[58 * 768 + 49], 0xFF000000u);
    kalix_move_cursor(handle(), 1, 0, 0); // cut at the corner
    EXPECT_TRUE(drawn(2, 1));
}

TEST_F(display_test, ZoomFollowsTheObjectHoweverItChanges)
{
    const painting picture = show(mode_width, mode_height);
    std::jthread drawing{[](const std::stop_token& stop) { // a client goes on presenting all the while
        const client::connection other;
        const client::surface mine{other, SVGA3D_SURFACE_HINT_TEXTURE, SVGA3D_X8R8G8B8, 64, 64};
        while (!stop.stop_requested())
            EXPECT_EQ(kalix_present(other.get(), mine.sid(), 0, 0, 64, 64), 0);
    }};
    for (const char* factor : {"0.5", "0.75", "0.25", "1.0"})
        zoom(factor);
    for (int i = 0; i < 300; ++i) // faster than they are read; the last one holds
        put(object(), zoom_line("0." + std::to_string(200 + i)));
    expect_zoom(0.499F);
    put(object() + ".tmp", zoom_line("0.625"));
    fs::rename(object() + ".tmp", object());
    expect_zoom(0.625F);
    drawing = {};
    present(picture.surface);
    EXPECT_EQ(look().width, 640u);
}

// Whatever lies at the object's place, the server serves on, and follows it when it is good again.
TEST_F(display_test, BadObjectsChangeNothing)
{
    std::string binary(5000, '\0');
    std::ranges::generate(binary, [&] { return static_cast<char>(random_()); });
    const std::function<void(const std::string& path)> spoilers[] = {
        [](const auto& path) { put(path, ""); },
        [&](const auto& path) { put(path, binary); },
        [](const auto& path) { put(path, std::string(10 << 20, 'x')); },
        [](const auto& path) { put(path, zoom_line("")); },
        [](const auto& path) { fs::remove(path); },
        [](const auto& path) { fs::remove(path), fs::create_directory(path); },
        [](const auto& path) { fs::remove(path), fs::create_symlink("/dev/zero", path); },
        [](const auto& path) {
            fs::remove(path);
            ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
        },
    };
    const char* next = "0.75";
    zoom("0.5");
    for (const auto& spoil : spoilers) {
        const float before = zoom();
        spoil(object());
        EXPECT_EQ(connection_->parameter(KALIX_PARAM_HAVE_3D), 1u);
        std::this_thread::sleep_for(std::chrono::milliseconds{30});
        EXPECT_EQ(zoom(), before);
        fs::remove_all(object());
        zoom(std::exchange(next, before == 0.5F ? "0.5" : "0.75"));
    }
}

TEST_F(display_test, BadDisplayRequestsAreSurvived)
{
    set_mode(mode_width, mode_height);
    const painting picture = paint(64, 64);
    set_mode(~0u, ~0u);
    EXPECT_EQ(look().width, mode_width);
    set_mode(33, 17, 16);
    EXPECT_EQ(look().width, 33u);
    constexpr int32_t low = INT32_MIN;
    constexpr int32_t high = INT32_MAX;
    for (const int32_t place : {0, -1, low, high})
        for (const int32_t size : {0, -1, low, high, 40})
            EXPECT_EQ(kalix_present(handle(), picture.surface.sid(), place, place, size, size), 0);
    std::uniform_int_distribution<int32_t> any{low, high};
    for (int i = 0; i < 200; ++i)
        kalix_present(handle(), picture.surface.sid(), any(random_), any(random_), any(random_), any(random_));
    look();
    const client::connection hostile;
    for (const int32_t command : {200, 206, 208, 209, 210, 211, 241, 242, 243, 244, 1000, 1001, 1002, 1003, 1004, 1005})
        for (int i = 0; i < 50; ++i) { // random payloads; known codes never answer 1 but for nothing to show
            std::vector<uint32_t> payload(random_() % 150);
            for (uint32_t& word : payload)
                word = random_() % 3 ? static_cast<uint32_t>(random_() % 5) : static_cast<uint32_t>(random_());
            int32_t status = 0;
            ASSERT_EQ(kalix_request(hostile.get(), command, payload.data(), static_cast<uint32_t>(payload.size() * 4),
                                    nullptr, 0, nullptr, &status),
                      0);
            EXPECT_TRUE(status != 1 || command == KALIX_OOB_PRESENT) << command;
        }
    EXPECT_EQ(kalix_disconnect(hostile.get()), 0); // its overlays go
    ASSERT_EQ(kalix_debug_reset(handle()), 0);
    kalix_svga_enable(handle(), 1);
    set_mode(mode_width, mode_height);
    const painting last = paint(64, 64); // the first one may have been filled
    present(last.surface);
    EXPECT_EQ(look().pixels[0], last.at(0, 0) | 0xFF000000);
}

} // namespace
} // namespace kalix::test
