// kalixctl and kalix-view against a real server with several clients: what they say, write and show.

#include "base/unique_fd.h"
#include "tests/system/programs.h"
#include "tests/system/screen_test.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <gmock/gmock.h>
#include <png.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

namespace kalix::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class tools_test : public screen_test {
protected:
    static outcome ctl(const std::string& words) { return run(program("kalixctl") + " " + words); }
    std::string file(const std::string& name) const { return directory_.path() + "/" + name; }
};

// The pixels of a PNG file, 0xAARRGGBB, packed.
std::vector<uint32_t> read_png(const std::string& path, uint32_t& width)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_TRUE(png_image_begin_read_from_file(&image, path.c_str())) << path;
    image.format = PNG_FORMAT_BGRA;
    width = image.width;
    std::vector<uint32_t> pixels(size_t{image.width} * image.height);
    EXPECT_TRUE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr));
    return pixels;
}

TEST_F(tools_test, ListsDescribesAndPings)
{
    std::vector<client::surface> many;
    for (uint32_t i = 0; i < 23; ++i) // three pages
        many.emplace_back(*connection_, 0, SVGA3D_X8R8G8B8, 4 + i, 4);
    const client::connection other;
    ASSERT_EQ(kalix_surface_reference(other.get(), many[5].sid(), nullptr), 0);
    const outcome list = ctl("list");
    EXPECT_EQ(list.status, 0);
    EXPECT_EQ(std::count(list.text.begin(), list.text.end(), '\n'), 25) << list.text;
    EXPECT_THAT(list.text, HasSubstr("26x4       1  X8R8G8B8"));
    const std::string pid = std::to_string(::getpid());
    const outcome info = ctl("info " + std::to_string(many[5].sid()));
    EXPECT_THAT(info.text, HasSubstr("holders     " + pid + " " + pid));
    EXPECT_THAT(info.text, HasSubstr("references  2"));
    EXPECT_THAT(ctl("--json info " + std::to_string(many[5].sid())).text, HasSubstr("\"references\": 2"));
    const outcome ping = ctl("ping");
    EXPECT_THAT(ping.text, HasSubstr("server         " + std::to_string(server_.pid())));
    const outcome stats = ctl("stats");
    EXPECT_THAT(stats.text, testing::ContainsRegex("surface define"));
    EXPECT_THAT(stats.text, HasSubstr(pid));
}

TEST_F(tools_test, EveryProgramExplainsItselfAndWhatIsWrong)
{
    struct row {
        const char* words;
        int status;
        const char* text;
    };
    for (const row& each : {row{"kalixctl info 77", 1, "cannot describe surface 77"},
                            {"kalixctl show 77", 1, "cannot show surface 77"},
                            {"kalixctl dump 77 x.png", 1, "cannot describe surface 77"},
                            {"kalixctl fill 77 1", 1, "cannot fill surface 77"},
                            {"kalixctl bytes 77 --rows 100", 1, "a dump has at most 511 bytes"},
                            {"kalixctl zoom 2", 1, "a factor is a number from 0.1 to 1"},
                            {"kalixctl mode 9999x9999", 1, "the device has no mode 9999x9999"},
                            {"kalixctl mode 9", 2, "no size"},
                            {"kalixctl screenshot /nowhere/x.png", 1, "cannot write /nowhere/x.png: No such file"},
                            {"kalixctl frobnicate", 2, "what is frobnicate for?"},
                            {"kalixctl", 2, "no command given"},
                            {"kalixctl bytes 77 --stride -512", 1, "cannot dump surface 77"},
                            {"kalixctl info", 2, "sid is required\nTry kalixctl info --help."},
                            {"kalixctl info -3", 2, "-3 is not from 0 to 4294967295"},
                            {"kalixctl info 7seven", 2, "7seven is no number"},
                            {"kalixctl bytes 7 --stride -2147483649", 2, "not from -2147483648 to 2147483647"},
                            {"kalixctl dump 7 x.png y.png", 2, "what is y.png for?\nTry kalixctl dump --help."},
                            {"kalixctl list --help", 0, "Usage: kalixctl list"},
                            {"kalix-demo triangel", 2, "there is no triangel; there are triangle, mesh, "},
                            {"kalix-demo triangle --size 9x20", 2, "the width of 9x20 is not from 16 to 2048"},
                            {"kalix-demo mesh --output x.png", 2, "kalixctl screenshot writes the screen"},
                            {"kalix-demo --help", 0, "SCENE\n  triangle    three shaded triangles"},
                            {"kalix-view --socket x", 2, "--socket requires --vnc"},
                            {"kalix-view --vnc 65536", 2, "65536 is not from 0 to 65535"},
                            {"kalix-view --frames -1", 2, "-1 is not from 0 to "},
                            {"kalix-view --vnc --web", 2, "--vnc and --web are two viewers"},
                            {"kalix-view --listen ::1 --vnc", 2, "--listen requires --web"},
                            {"kalix-view --password-file x", 2, "--password-file is for --vnc or --web"},
                            {"kalix-view --vnc --password-file /nowhere", 1, "cannot read /nowhere: No such file"},
                            {"kalix-view --vnc --password-file /dev/null", 1, "/dev/null is no VNC password"},
                            {"kalix-view --web --pages /nowhere", 1, "the package novnc brings it"},
                            {"kalix-view --web --listen here", 1, "cannot listen on here: it is no numeric address"},
                            {"kalix-demo mesh --frames -1", 2, "-1 is not from 0 to "},
                            {"kalix-demo mesh --reconnect -1", 2, "-1 is not from 0 to "},
                            {"kalix-bench --rounds 0", 2, "0 is not from 1 to 100000"},
                            {"kalix-bench --rounds -1", 2, "-1 is not from 1 to 100000"},
                            {"kalix-bench --frames 0", 2, "0 is not from 1 to 1000000"},
                            {"kalix-bench --frames -1", 2, "-1 is not from 1 to 1000000"},
                            {"kalix-bench --rounds 1 --frames 2", 0, "presents of 1024x768 "}}) {
        const outcome got = run(program(each.words));
        EXPECT_EQ(got.status, each.status) << each.words;
        EXPECT_THAT(got.text, HasSubstr(each.text)) << each.words;
    }
    for (const std::string name : {"kalixctl", "kalix-view", "kalix-run", "kalix-demo", "kalix-bench"}) {
        EXPECT_THAT(run(program(name) + " --help").text, HasSubstr("Usage: " + name)) << name;
        EXPECT_EQ(run(program(name) + " --version").text, name + " " KALIX_VERSION "\n");
        EXPECT_THAT(run(program(name) + " --frob").text, HasSubstr("what is --frob for?")) << name;
    }
    const outcome alone = run("KALIX_RUN_DIR=" + file("none") + " " + program("kalixctl") + " ping");
    EXPECT_EQ(alone.status, 1);
    EXPECT_EQ(alone.text,
              "kalixctl: cannot connect to the server: no server: " + file("none") + "/svga_ch is missing\n");
    EXPECT_THAT(run("KALIX_RUN_DIR=" + file("none") + " " + program("kalixctl") + " screenshot " + file("x")).text,
                HasSubstr("Is a server running?"));
}

TEST_F(tools_test, DumpsAndFills)
{
    std::vector<uint32_t> pixels(15);
    for (uint32_t i = 0; i < 15; ++i)
        pixels[i] = 0x11223344u * (i + 1);
    const painting owned = paint(5, 3, SVGA3D_A8R8G8B8, pixels);
    const std::string sid = std::to_string(owned.surface.sid());
    EXPECT_EQ(ctl("dump " + sid + " " + file("a.png")).status, 0);
    uint32_t width = 0;
    EXPECT_EQ(read_png(file("a.png"), width), pixels);
    EXPECT_EQ(width, 5u);
    EXPECT_EQ(ctl("dump --raw " + sid + " " + file("a.raw")).status, 0);
    EXPECT_EQ(contents(file("a.raw")), std::string(reinterpret_cast<const char*>(pixels.data()), 60));
    EXPECT_THAT(ctl("bytes " + sid + " --rows 2 --row-bytes 4 --offset 4").text, HasSubstr("88 66 44 22"));
    EXPECT_EQ(ctl("fill " + sid + " 0x80FF0001").status, 0);
    EXPECT_EQ(ctl("dump " + sid + " " + file("a.png")).status, 0);
    EXPECT_EQ(read_png(file("a.png"), width), std::vector<uint32_t>(15, 0x80FF0001));
    const client::surface deep{*connection_, 0, SVGA3D_Z_D24S8, 8, 8};
    EXPECT_THAT(ctl("dump " + std::to_string(deep.sid()) + " " + file("b.png")).text,
                HasSubstr("--raw writes its bytes"));
    EXPECT_FALSE(fs::exists(file("b.png")));
}

TEST_F(tools_test, TakesScreenshotsAndTellsTheFrame)
{
    const painting picture = show(200, 120);
    const std::vector<uint32_t> ink(4, 0xFF00FF00);
    const kalix_cursor_image image{2, 2, 0, 0, ink.data()};
    kalix_set_cursor(handle(), &image);
    kalix_move_cursor(handle(), 1, 10, 10);
    uint32_t width = 0;
    EXPECT_TRUE(soon([&] { return look(cursor_drawing::with).pixels[2010] == 0xFF00FF00; }));
    EXPECT_EQ(ctl("screenshot " + file("s.png")).status, 0);
    EXPECT_EQ(kalix_svga_enable(handle(), 0), 0);
    EXPECT_THAT(ctl("screenshot " + file("off.png")).text, HasSubstr("display is off: kalixctl mode WxH\n"));
    EXPECT_EQ(kalix_svga_enable(handle(), 1), 0);
    EXPECT_THAT(ctl("screenshot " + file("on.png")).text, testing::Not(HasSubstr("is off")));
    EXPECT_EQ(read_png(file("s.png"), width), look(cursor_drawing::with).pixels);
    EXPECT_EQ(ctl("screenshot --no-cursor - > " + file("s.png")).status, 0);
    EXPECT_EQ(read_png(file("s.png"), width), look().pixels);
    EXPECT_THAT(ctl("frame").text, HasSubstr("rectangle       200x120 at (0, 0)"));
    EXPECT_THAT(ctl("--json frame").text, HasSubstr("\"overlays\": []"));
    EXPECT_EQ(ctl("zoom 0.5").text, "zoom  0.5\n");
    EXPECT_EQ(look().width, 100u);
    EXPECT_THAT(ctl("mode 400x300").text, HasSubstr("screen          200x150"));
    EXPECT_EQ(ctl("show " + std::to_string(picture.surface.sid())).status, 0);
    present(picture.surface); // shows nothing else
    const screen_frame shown = look();
    EXPECT_EQ(shown.pixels[119 * 200 + 199], picture.at(199, 119) | 0xFF000000);
    EXPECT_EQ(shown.pixels[120 * 200 + 199], 0xFFFF00FF);
    EXPECT_EQ(shown.pixels.back(), 0xFFFF00FF);
    EXPECT_EQ(ctl("reset").status, 0);
    EXPECT_TRUE(soon([&] { return look().pixels[150 * 200 - 1] != 0xFFFF00FF; }));
}

// Every scene of the example client, small; it says itself when a picture comes back in one colour.
TEST_F(tools_test, TheGalleryIsDrawn)
{
    std::istringstream list{run(program("kalix-demo") + " --list").text};
    int drawn = 0;
    for (std::string line; std::getline(list, line);) {
        const std::string name = line.substr(2, line.find(' ', 2) - 2);
        const std::string options = name == "mesh" ? " --frames 3" : " --output " + file("scene.png");
        const outcome got = run(program("kalix-demo") + " " + name + " --size 64x48" + options);
        EXPECT_EQ(got.status, 0) << name << ": " << got.text;
        ++drawn;
    }
    EXPECT_GE(drawn, 22);
    EXPECT_EQ(ctl("stats").text.find("not supported"), std::string::npos);
}

// Two pictures in turn, as fast as they come: no frame that is read shows parts of both.
TEST_F(tools_test, FramesAreReadWhole)
{
    set_mode(1024, 768);
    const painting pictures[] = {paint(1024, 768, SVGA3D_X8R8G8B8, std::vector<uint32_t>(1024 * 768, 0xFFFF0000)),
                                 paint(1024, 768, SVGA3D_X8R8G8B8, std::vector<uint32_t>(1024 * 768, 0xFF0000FF))};
    present(pictures[0].surface);
    const std::jthread presenting{[&](const std::stop_token& stop) {
        for (size_t i = 1; !stop.stop_requested(); ++i) {
            present(pictures[i % 2].surface);
            settle();
        }
    }};
    tools::screen_reader reader{directory_.path()};
    screen_frame frame;
    uint64_t changes = 0;
    uint32_t last = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{2};
    while (std::chrono::steady_clock::now() < end) {
        if (!reader.read(frame, cursor_drawing::without))
            continue;
        const uint32_t first = frame.pixels[0];
        ASSERT_EQ(std::ranges::count(frame.pixels, first), 1023 * 767); // the last row and column are bare
        changes += first != last;
        last = first;
    }
    EXPECT_GT(changes, 2u);
}

// ---- Viewers ------------------------------------------------------------------------------------------

class vnc_viewer {
public:
    explicit vnc_viewer(const std::string& path) : socket_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)}
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path.c_str());
        connected_ = ::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    bool is_connected() const { return connected_; }

    std::string take(size_t count)
    {
        std::string out(count, '\0');
        return ::recv(socket_.get(), out.data(), count, MSG_WAITALL) == static_cast<ssize_t>(count) ? out : "";
    }
    uint32_t number(size_t bytes)
    {
        uint32_t value = 0;
        for (const char byte : take(bytes))
            value = value << 8 | static_cast<uint8_t>(byte);
        return value;
    }
    void send(const std::string& bytes) { ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL); }

    // Version 3.8, no password, shared; leaves the size known.
    void greet()
    {
        take(12);
        send("RFB 003.008\n");
        take(number(1));
        send("\x01");
        EXPECT_EQ(number(4), 0u);
        send("\x01");
        width = number(2);
        height = number(2);
        take(16);
        take(number(4));
        send(std::string{"\x02\x00\x00\x01\x00\x00\x00\x00", 8}); // raw rectangles alone
    }

    // The whole picture, 0xFFRRGGBB, as it is now.
    std::vector<uint32_t> ask()
    {
        const auto two = [](uint32_t value) {
            return std::string{static_cast<char>(value >> 8), static_cast<char>(value)};
        };
        send(std::string{"\x03\x00\x00\x00\x00\x00", 6} + two(width) + two(height));
        std::vector<uint32_t> picture(size_t{width} * height);
        EXPECT_EQ(number(1), 0u);
        take(1);
        for (uint32_t rectangles = number(2); rectangles > 0; --rectangles) {
            const uint32_t x = number(2), y = number(2), w = number(2), h = number(2);
            EXPECT_EQ(number(4), 0u);
            const std::string bytes = take(size_t{w} * h * 4);
            for (uint32_t row = 0; row < h && bytes.size() == size_t{w} * h * 4; ++row)
                std::memcpy(&picture[size_t{y + row} * width + x], &bytes[size_t{row} * w * 4], size_t{w} * 4);
        }
        for (uint32_t& pixel : picture)
            pixel |= 0xFF000000;
        return picture;
    }

    uint32_t width = 0, height = 0;

private:
    unique_fd socket_;
    bool connected_;
};

TEST_F(tools_test, RemoteViewersSeeTheScreen)
{
    const painting picture = show(300, 200);
    background serving{{program("kalix-view"), "--vnc"}};
    ASSERT_TRUE(soon([&] { return vnc_viewer{file("vnc")}.is_connected(); }));
    struct stat facts {};
    ASSERT_EQ(::stat(file("vnc").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, 0600u);
    vnc_viewer one{file("vnc")};
    vnc_viewer two{file("vnc")};
    for (vnc_viewer* each : {&one, &two}) {
        each->greet();
        EXPECT_EQ(each->width, 300u);
        EXPECT_TRUE(soon([&] { return each->ask() == look().pixels; }));
    }
    // View-only: its pointer moves nothing.
    one.send(std::string{"\x05\x00\x00\x20\x00\x20", 6});
    one.ask();
    EXPECT_EQ(look(cursor_drawing::with).pixels, look().pixels);
    EXPECT_EQ(serving.end(), 0);
    EXPECT_FALSE(fs::exists(file("vnc")));
}

// An X server without a screen of its own, which keeps its picture in a file.
class x_server {
public:
    explicit x_server(const std::string& directory)
        : display_{":" + std::to_string(1000 + ::getpid() % 50000)}, file_{directory + "/Xvfb_screen0"},
          process_{
              {"Xvfb", display_, "-screen", "0", "800x600x24", "-fbdir", directory, "-nolisten", "tcp", "-noreset"}}
    {
    }
    const std::string& display() const { return display_; }

    // Its pixels, 0xFFRRGGBB, which end the file; none before it has started.
    std::vector<uint32_t> pixels() const
    {
        const std::string bytes = contents(file_);
        std::vector<uint32_t> out(size_t{width} * 600);
        if (bytes.size() < out.size() * 4)
            return {};
        std::memcpy(out.data(), bytes.data() + bytes.size() - out.size() * 4, out.size() * 4);
        for (uint32_t& pixel : out)
            pixel |= 0xFF000000;
        return out;
    }
    bool shows(const screen_frame& part) const
    {
        const std::vector<uint32_t> all = pixels();
        const auto row = [&](size_t y) { return part.pixels.begin() + static_cast<std::ptrdiff_t>(y * part.width); };
        auto at = std::search(all.begin(), all.end(), row(0), row(1));
        uint32_t y = 0;
        for (; y < part.height && all.end() - at >= width && std::equal(row(y), row(y + 1), at); ++y)
            at += width;
        return y == part.height;
    }

private:
    static constexpr uint32_t width = 800;
    std::string display_, file_;
    background process_;
};

TEST_F(tools_test, AWindowShowsTheScreen)
{
    const x_server display{directory_.path()};
    if (!soon([&] { return !display.pixels().empty(); }))
        GTEST_SKIP() << "no Xvfb";
    painting picture = show(320, 240);
    ::setenv("DISPLAY", display.display().c_str(), 1);
    ::setenv("SDL_VIDEODRIVER", "x11", 1);
    ::setenv("SDL_RENDER_DRIVER", "software", 1); // nothing of a GL library, which sanitizers dislike
    ::setenv("SDL_FRAMEBUFFER_ACCELERATION", "0", 1);
    ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // the display's libraries keep memory to their end
    background window{{program("kalix-view")}};
    EXPECT_TRUE(soon([&] { return display.shows(look()); }));
    picture = show(400, 200); // it follows the mode
    EXPECT_TRUE(soon([&] { return display.shows(look()); }));
    EXPECT_EQ(window.end(), 0);
}

} // namespace
} // namespace kalix::test
