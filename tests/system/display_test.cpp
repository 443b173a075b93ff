// What the screen shows: pictures, overlays, zoom and cursor, seen through the screen file.

#include "tests/system/server.h"
#include "tools/screen/screen_reader.h"
#include "tools/screen/status_reader.h"

#include <atomic>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <kalix/client.hpp>
#include <optional>
#include <random>
#include <sys/stat.h>
#include <thread>

namespace kalix::test {
namespace {

namespace fs = std::filesystem;
using tools::cursor_drawing;
using tools::screen_frame;

constexpr uint32_t mode_width = 1024;
constexpr uint32_t mode_height = 768;

// A surface with pixels of its own, random in all channels.
struct painting {
    client::surface surface;
    std::vector<uint32_t> pixels;

    uint32_t at(uint32_t x, uint32_t y) const { return pixels[size_t{y} * surface.width() + x]; }
};

class display_test : public testing::Test {
protected:
    display_test() : server_{directory_}
    {
        EXPECT_TRUE(server_.is_ready());
        connection_.emplace(directory_.path().c_str());
        context_.emplace(*connection_);
    }

    painting paint(uint32_t width, uint32_t height, uint32_t format)
    {
        painting made{{*connection_, SVGA3D_SURFACE_HINT_TEXTURE, format, width, height}, {}};
        made.pixels.resize(size_t{width} * height);
        for (uint32_t& pixel : made.pixels)
            pixel = static_cast<uint32_t>(random_());
        const client::dma_buffer staging{*connection_, width * height * 4};
        std::ranges::copy(std::as_bytes(std::span{made.pixels}), staging.bytes().begin());
        const svga3d_copy_box all{0, 0, 0, width, height, 1, 0, 0, 0};
        context_->commands().surface_dma({{staging.at(0), 0}, made.surface.image(), SVGA3D_WRITE_HOST_VRAM}, {&all, 1});
        connection_->wait(context_->commands().submit());
        return made;
    }

    void set_mode(uint32_t bits = 32)
    {
        EXPECT_EQ(kalix_set_mode(connection_->get(), mode_width, mode_height, bits), 0);
    }

    void present(const client::surface& what)
    {
        EXPECT_EQ(kalix_present(connection_->get(), what.sid(), 0, 0, static_cast<int32_t>(what.width()),
                                static_cast<int32_t>(what.height())),
                  0);
    }

    // The screen once all that was asked for shows.
    screen_frame look(cursor_drawing cursor = cursor_drawing::without)
    {
        uint32_t fence = 0;
        EXPECT_EQ(kalix_submit(connection_->get(), context_->cid(), &fence), 0);
        EXPECT_EQ(kalix_fence_wait(connection_->get(), fence), 0);
        screen_frame frame;
        EXPECT_TRUE(tools::screen_reader{directory_.path()}.read(frame, cursor));
        return frame;
    }

    std::string object() const { return directory_.path() + "/pps/services/mesa"; }

    void configure(const std::string& text) const { std::ofstream{object()} << text; }
    // Sets the zoom from outside and waits until the driver has it.
    void zoom(const std::string& factor)
    {
        configure("@mesa\n" + key() + "::" + factor + "\n");
        const float wanted = std::strtof(factor.c_str(), nullptr);
        EXPECT_TRUE(soon([&] { return tools::read_status(directory_.path())->zoom == wanted; })) << factor;
    }
    static std::string key()
    {
#if defined(__x86_64__)
        return "x86_64_zoom_factor";
#else
        return "aarch64_zoom_factor";
#endif
    }

    run_directory directory_;
    server server_;
    std::optional<client::connection> connection_;
    std::optional<client::context> context_;
    std::mt19937 random_{4};
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
    set_mode();
    const painting picture = paint(mode_width, mode_height, SVGA3D_X8R8G8B8);
    present(picture.surface);
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
    set_mode();
    const painting picture = paint(mode_width, mode_height, SVGA3D_X8R8G8B8);
    present(picture.surface);
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
    set_mode();
    const painting picture = paint(mode_width, mode_height, SVGA3D_X8R8G8B8);
    const painting glass = paint(100, 60, SVGA3D_A8R8G8B8);
    uint32_t id = 0;
    overlay_define_req wanted{200, 100, 100, 60, 1, 0, glass.surface.sid(), 0, 0, 0};
    ASSERT_EQ(kalix_overlay_define(connection_->get(), &wanted, &id), 0);
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
    painting turned = paint(mode_height, mode_width, SVGA3D_X8R8G8B8);
    wanted = {0, 0, mode_height, mode_width, 1, 0, turned.surface.sid(), 0, 0, 0};
    ASSERT_EQ(kalix_overlay_define(connection_->get(), &wanted, &id), 0);
    present(picture.surface);
    shown = look();
    size_t wrong = 0;
    for (uint32_t y = 0; y < mode_height; ++y)
        for (uint32_t x = 0; x < mode_width; ++x)
            wrong += shown.pixels[size_t{y} * mode_width + x] != (turned.at(y, std::min(1024 - x, 1023u)) | 0xFF000000);
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(tools::read_status(directory_.path())->frame.overlays[1].turned, 1u);
}

// What a still frame costs, as the device counts it.
TEST_F(display_test, StillFramesUploadNothingAndWaitForNothing)
{
    set_mode();
    const painting picture = paint(mode_width, mode_height, SVGA3D_X8R8G8B8);
    const painting glass = paint(100, 60, SVGA3D_A8R8G8B8);
    uint32_t id = 0;
    const overlay_define_req wanted{20, 10, 100, 60, 1, 0, glass.surface.sid(), 0, 0, 0};
    ASSERT_EQ(kalix_overlay_define(connection_->get(), &wanted, &id), 0);
    present(picture.surface);
    look();
    const tools::screen_reader reader{directory_.path()};
    const auto count = [&] {
        const kalix_screen_statistics now = reader.statistics();
        return std::array{now.fences, now.commands[SVGA_3D_CMD_SURFACE_DMA - 1040],
                          now.commands[SVGA_3D_CMD_PRESENT - 1040], now.commands[SVGA_3D_CMD_DRAW_PRIMITIVES - 1040]};
    };
    const auto before = count();
    for (int i = 0; i < 10; ++i)
        present(picture.surface);
    look(); // one fence of its own
    const auto after = count();
    EXPECT_EQ(after[0] - before[0], 1u);
    EXPECT_EQ(after[1] - before[1], 0u);
    EXPECT_EQ(after[2] - before[2], 10u);
    EXPECT_EQ(after[3] - before[3], 20u);
    EXPECT_EQ(tools::read_status(directory_.path())->frame.waited, 0u);
}

TEST_F(display_test, SixteenBitsShowTheSamePicture)
{
    set_mode(16);
    const painting picture = paint(mode_width, mode_height, SVGA3D_X8R8G8B8);
    present(picture.surface);
    const screen_frame shown = look();
    ASSERT_EQ(shown.bits_per_pixel, 16u);
    const uint32_t got = shown.pixels[300 * mode_width + 40];
    for (const unsigned shift : {0u, 8u, 16u})
        EXPECT_NEAR(got >> shift & 255, picture.at(40, 300) >> shift & 255, 8.3);
}

TEST_F(display_test, CursorsLieOverThePictureAndSurviveZoom)
{
    set_mode();
    const std::vector<uint32_t> arrow(16, 0x80402010); // premultiplied
    const kalix_cursor_image image{4, 4, 1, 2, arrow.data()};
    ASSERT_EQ(kalix_set_cursor(connection_->get(), &image), 0);
    ASSERT_EQ(kalix_move_cursor(connection_->get(), 1, 50, 60), 0);
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
    kalix_move_cursor(connection_->get(), 1, 0, 0); // cut at the corner
    EXPECT_TRUE(drawn(2, 1));
}

TEST_F(display_test, DebugShowAndReset)
{
    set_mode();
    const painting picture = paint(mode_width, mode_height, SVGA3D_X8R8G8B8);
    const painting small = paint(30, 20, SVGA3D_X8R8G8B8);
    present(picture.surface);
    ASSERT_EQ(kalix_debug_show(connection_->get(), small.surface.sid()), 0);
    present(picture.surface);
    screen_frame shown = look();
    EXPECT_EQ(shown.pixels[19 * mode_width + 29], small.at(29, 19) | 0xFF000000);
    EXPECT_EQ(shown.pixels[19 * mode_width + 30], 0xFFFF00FF);
    EXPECT_EQ(shown.pixels[mode_width * mode_height - 1], 0xFFFF00FF);
    ASSERT_EQ(kalix_debug_reset(connection_->get()), 0);
    shown = look();
    EXPECT_EQ(shown.pixels[19 * mode_width + 30], picture.at(30, 19) | 0xFF000000);
}

TEST_F(display_test, ZoomFollowsTheObjectHoweverItChanges)
{
    set_mode();
    const painting picture = paint(mode_width, mode_height, SVGA3D_X8R8G8B8);
    std::atomic<bool> stop = false;
    std::thread drawing{[&] { // a client goes on presenting all the while
        const client::connection other{directory_.path().c_str()};
        const client::surface mine{other, SVGA3D_SURFACE_HINT_TEXTURE, SVGA3D_X8R8G8B8, 64, 64};
        while (!stop)
            EXPECT_EQ(kalix_present(other.get(), mine.sid(), 0, 0, 64, 64), 0);
    }};
    for (const char* factor : {"0.5", "0.75", "0.25", "1.0"})
        zoom(factor);
    for (int i = 0; i < 300; ++i) // faster than they are read; the last one holds
        configure("@mesa\n" + key() + "::0." + std::to_string(200 + i) + "\n");
    EXPECT_TRUE(soon([&] { return std::fabs(tools::read_status(directory_.path())->zoom - 0.499f) < 1e-6f; }));
    const std::string renamed = object() + ".tmp";
    std::ofstream{renamed} << "@mesa\n" << key() << "::0.625\n";
    fs::rename(renamed, object());
    EXPECT_TRUE(soon([&] { return tools::read_status(directory_.path())->zoom == 0.625f; }));
    stop = true;
    drawing.join();
    present(picture.surface);
    EXPECT_EQ(look().width, 640u);
}

// Whatever lies at the object's place, the server serves on, and follows it when it is good again.
TEST_F(display_test, BadObjectsChangeNothing)
{
    set_mode();
    const auto served = [&] {
        uint64_t value = 0;
        return kalix_getparam(connection_->get(), KALIX_PARAM_HAVE_3D, &value) == 0;
    };
    std::string binary(5000, '\0');
    for (char& byte : binary)
        byte = static_cast<char>(random_());
    const std::function<void()> spoilers[] = {
        [&] { configure(""); },
        [&] { configure(binary); },
        [&] { configure(std::string(10 << 20, 'x')); },
        [&] { configure(key() + "::\n"); },
        [&] { fs::remove(object()); },
        [&] {
            fs::remove(object());
            fs::create_directory(object());
        },
        [&] {
            fs::remove_all(object());
            fs::create_symlink("/dev/zero", object());
        },
        [&] {
            fs::remove_all(object());
            ASSERT_EQ(mkfifo(object().c_str(), 0600), 0);
        },
    };
    int round = 0;
    for (const auto& spoil : spoilers) {
        const float before = tools::read_status(directory_.path())->zoom;
        spoil();
        EXPECT_TRUE(served());
        std::this_thread::sleep_for(std::chrono::milliseconds{30});
        EXPECT_EQ(tools::read_status(directory_.path())->zoom, before);
        fs::remove_all(object());
        zoom(round++ % 2 ? "0.5" : "0.75");
    }
}

TEST_F(display_test, BadDisplayRequestsAreSurvived)
{
    set_mode();
    const painting picture = paint(64, 64, SVGA3D_X8R8G8B8);
    kalix_connection* const server = connection_->get();
    for (const auto& [w, h, bits] :
         {std::array{0u, 0u, 32u}, {1u << 16, 1u << 16, 32u}, {~0u, ~0u, 32u}, {1024u, 768u, 24u}, {7u, 0u, 16u}}) {
        EXPECT_EQ(kalix_set_mode(server, w, h, bits), 0);
        EXPECT_EQ(look().width, mode_width);
    }
    EXPECT_EQ(kalix_set_mode(server, 33, 17, 16), 0);
    EXPECT_EQ(look().width, 33u);
    constexpr int32_t low = INT32_MIN;
    constexpr int32_t high = INT32_MAX;
    for (const int32_t place : {0, -1, low, high})
        for (const int32_t size : {0, -1, low, high, 40})
            EXPECT_EQ(kalix_present(server, picture.surface.sid(), place, place, size, size), 0);
    std::uniform_int_distribution<int32_t> any{low, high};
    for (int i = 0; i < 200; ++i)
        kalix_present(server, picture.surface.sid(), any(random_), any(random_), any(random_), any(random_));
    look();
    const client::connection hostile{directory_.path().c_str()};
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
    ASSERT_EQ(kalix_debug_reset(server), 0);
    kalix_svga_enable(server, 1);
    set_mode();
    const painting last = paint(64, 64, SVGA3D_X8R8G8B8); // the first one may have been filled
    present(last.surface);
    EXPECT_EQ(look().pixels[0], last.at(0, 0) | 0xFF000000);
}

} // namespace
} // namespace kalix::test
