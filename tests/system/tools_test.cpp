// kalixctl and kalix-view against a real server with several clients: what they say, write and show.

#include "base/unique_fd.h"
#include "tests/system/server.h"
#include "tools/screen/screen_reader.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <kalix/client.hpp>
#include <optional>
#include <png.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>

namespace kalix::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

std::string program(const std::string& name)
{
    return (fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "bin" / name).string();
}

struct outcome {
    int status = -1;
    std::string text; // standard output and standard error
};

outcome run(const std::string& command)
{
    outcome out;
    std::FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
    char part[4096];
    while (const size_t count = std::fread(part, 1, sizeof part, pipe))
        out.text.append(part, count);
    const int ended = ::pclose(pipe);
    out.status = WIFEXITED(ended) ? WEXITSTATUS(ended) : -1;
    return out;
}

// A program in the background, ended with this.
class background {
public:
    explicit background(const std::vector<std::string>& words) : pid_{::fork()}
    {
        if (pid_ != 0)
            return;
        std::vector<char*> arguments;
        for (const std::string& word : words)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        ::execvp(arguments[0], arguments.data());
        ::_exit(127);
    }
    ~background() { end(); }
    background(const background&) = delete;
    background& operator=(const background&) = delete;

    // Asks it to end; its exit status, or -1.
    int end()
    {
        if (pid_ <= 0)
            return -1;
        ::kill(pid_, SIGTERM);
        int status = 0;
        ::waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t pid_;
};

class tools_test : public testing::Test {
protected:
    tools_test() : server_{directory_}
    {
        ::setenv("KALIX_RUN_DIR", directory_.path().c_str(), 1);
        ::setenv("KALIX_PPS_DIR", (directory_.path() + "/pps").c_str(), 1);
        EXPECT_TRUE(server_.is_ready());
        connection_.emplace();
    }

    static outcome ctl(const std::string& words) { return run(program("kalixctl") + " " + words); }

    client::surface surface(uint32_t width, uint32_t height, uint32_t format = SVGA3D_X8R8G8B8)
    {
        return {*connection_, SVGA3D_SURFACE_HINT_TEXTURE, format, width, height};
    }
    // Fills it, without leaving a trace on the screen's file that later steps do not replace.
    void fill(const client::surface& what, const std::vector<uint32_t>& pixels)
    {
        client::context context{*connection_};
        const client::dma_buffer staging{*connection_, static_cast<uint32_t>(pixels.size() * 4)};
        std::memcpy(staging.bytes().data(), pixels.data(), pixels.size() * 4);
        const svga3d_copy_box all{0, 0, 0, what.width(), what.height(), 1, 0, 0, 0};
        context.commands().surface_dma({{staging.at(0), 0}, what.image(), SVGA3D_WRITE_HOST_VRAM}, {&all, 1});
        connection_->wait(context.commands().submit());
    }
    void present(const client::surface& what)
    {
        EXPECT_EQ(kalix_present(connection_->get(), what.sid(), 0, 0, static_cast<int32_t>(what.width()),
                                static_cast<int32_t>(what.height())),
                  0);
    }
    // A picture on a screen of that size, every pixel another.
    client::surface show_picture(uint32_t width, uint32_t height)
    {
        EXPECT_EQ(kalix_set_mode(connection_->get(), width, height, 32), 0);
        client::surface picture = surface(width, height);
        std::vector<uint32_t> pixels(size_t{width} * height);
        for (uint32_t i = 0; i < pixels.size(); ++i)
            pixels[i] = 0xFF000000 | i * 2654435761u >> 8;
        fill(picture, pixels);
        present(picture);
        client::context context{*connection_};
        connection_->wait(context.commands().submit()); // it shows
        return picture;
    }
    tools::screen_frame screen(tools::cursor_drawing cursor = tools::cursor_drawing::without) const
    {
        tools::screen_frame frame;
        EXPECT_TRUE(tools::screen_reader{directory_.path()}.read(frame, cursor));
        return frame;
    }
    std::string file(const std::string& name) const { return directory_.path() + "/" + name; }

    run_directory directory_;
    server server_;
    std::optional<client::connection> connection_;
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
        many.push_back(surface(4 + i, 4));
    const client::connection other;
    ASSERT_EQ(kalix_surface_reference(other.get(), many[5].sid(), nullptr), 0);
    const outcome list = ctl("list");
    EXPECT_EQ(list.status, 0);
    EXPECT_EQ(std::count(list.text.begin(), list.text.end(), '\n'), 25) << list.text;
    EXPECT_THAT(list.text, HasSubstr("26x4  X8R8G8B8"));
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

TEST_F(tools_test, SaysWhatIsWrong)
{
    struct row {
        const char* words;
        int status;
        const char* text;
    };
    for (const row& each : {row{"info 77", 1, "cannot describe surface 77"},
                            {"show 77", 1, "cannot show surface 77"},
                            {"dump 77 x.png", 1, "cannot describe surface 77"},
                            {"fill 77 1", 1, "cannot fill surface 77"},
                            {"bytes 77 --rows 100", 1, "a dump has at most 511 bytes"},
                            {"zoom 2", 1, "a factor is a number from 0.1 to 1"},
                            {"mode 9999x9999", 1, "the device has no mode 9999x9999"},
                            {"mode 9", 2, "no size"},
                            {"screenshot /nowhere/x.png", 1, "cannot write /nowhere/x.png: No such file"},
                            {"frobnicate", 2, "what is frobnicate for?"},
                            {"", 2, "no command given"},
                            {"bytes 77 --stride -512", 1, "cannot dump surface 77"},
                            {"info", 2, "sid is required\nTry kalixctl info --help."},
                            {"info -3", 2, "-3 is not from 0 to 4294967295"},
                            {"info 7seven", 2, "7seven is no number"},
                            {"bytes 7 --stride -2147483649", 2, "not from -2147483648 to 2147483647"},
                            {"dump 7 x.png y.png", 2, "what is y.png for?\nTry kalixctl dump --help."}}) {
        const outcome got = ctl(each.words);
        EXPECT_EQ(got.status, each.status) << each.words;
        EXPECT_THAT(got.text, HasSubstr(each.text)) << each.words;
    }
    const outcome alone = run("KALIX_RUN_DIR=" + file("none") + " " + program("kalixctl") + " ping");
    EXPECT_EQ(alone.status, 1);
    EXPECT_THAT(alone.text, HasSubstr("Is a server running?"));
    for (const char* command : {"", "list", "dump", "frame", "mode"})
        EXPECT_EQ(ctl(std::string{command} + " --help").status, 0);
}

TEST_F(tools_test, EveryProgramExplainsItself)
{
    for (const std::string name : {"kalixctl", "kalix-view", "kalix-run", "kalix-demo", "kalix-bench"}) {
        EXPECT_THAT(run(program(name) + " --help").text, HasSubstr("Usage: " + name)) << name;
        EXPECT_EQ(run(program(name) + " --version").text, name + " " KALIX_VERSION "\n");
        EXPECT_THAT(run(program(name) + " --frob").text, HasSubstr("what is --frob for?")) << name;
    }
    struct row {
        const char* words;
        int status;
        const char* text;
    };
    for (const row& each : {row{"kalix-demo triangel", 2, "there is no triangel; there are triangle, mesh, "},
                            {"kalix-demo triangle --size 9x20", 2, "the width of 9x20 is not from 16 to 2048"},
                            {"kalix-demo mesh --output x.png", 2, "kalixctl screenshot writes the screen"},
                            {"kalix-demo --help", 0, "SCENE\n  triangle    three shaded triangles"},
                            {"kalix-view --socket x", 2, "--socket requires --vnc"},
                            {"kalix-view --vnc 65536", 2, "65536 is not from 0 to 65535"},
                            {"kalix-bench --rounds 0", 2, "0 is not from 1 to 100000"},
                            {"kalix-bench --rounds 1 --frames 2", 0, "presents of 1024x768 "}}) {
        const outcome got = run(program(each.words));
        EXPECT_EQ(got.status, each.status) << each.words;
        EXPECT_THAT(got.text, HasSubstr(each.text)) << each.words;
    }
}

TEST_F(tools_test, DumpsAndFills)
{
    client::surface owned = surface(5, 3, SVGA3D_A8R8G8B8);
    std::vector<uint32_t> pixels(15);
    for (uint32_t i = 0; i < 15; ++i)
        pixels[i] = 0x11223344u * (i + 1);
    fill(owned, pixels);
    const std::string sid = std::to_string(owned.sid());
    EXPECT_EQ(ctl("dump " + sid + " " + file("a.png")).status, 0);
    uint32_t width = 0;
    EXPECT_EQ(read_png(file("a.png"), width), pixels);
    EXPECT_EQ(width, 5u);
    EXPECT_EQ(ctl("dump --raw " + sid + " " + file("a.raw")).status, 0);
    std::ifstream raw{file("a.raw")};
    const std::string bytes{std::istreambuf_iterator<char>{raw}, {}};
    EXPECT_EQ(bytes, std::string(reinterpret_cast<const char*>(pixels.data()), 60));
    EXPECT_THAT(ctl("bytes " + sid + " --rows 2 --row-bytes 4 --offset 4").text, HasSubstr("88 66 44 22"));
    EXPECT_EQ(ctl("fill " + sid + " 0x80FF0001").status, 0);
    EXPECT_EQ(ctl("dump " + sid + " " + file("a.png")).status, 0);
    EXPECT_EQ(read_png(file("a.png"), width), std::vector<uint32_t>(15, 0x80FF0001));
    const client::surface deep = surface(8, 8, SVGA3D_Z_D24S8);
    EXPECT_THAT(ctl("dump " + std::to_string(deep.sid()) + " " + file("b.png")).text,
                HasSubstr("--raw writes its bytes"));
    EXPECT_FALSE(fs::exists(file("b.png")));
}

TEST_F(tools_test, TakesScreenshotsAndTellsTheFrame)
{
    const client::surface picture = show_picture(200, 120);
    const std::vector<uint32_t> ink(4, 0xFF00FF00);
    const kalix_cursor_image image{2, 2, 0, 0, ink.data()};
    kalix_set_cursor(connection_->get(), &image);
    kalix_move_cursor(connection_->get(), 1, 10, 10);
    uint32_t width = 0;
    EXPECT_TRUE(soon([&] { return screen(tools::cursor_drawing::with).pixels[2010] == 0xFF00FF00; }));
    EXPECT_EQ(ctl("screenshot " + file("s.png")).status, 0);
    EXPECT_EQ(read_png(file("s.png"), width), screen(tools::cursor_drawing::with).pixels);
    EXPECT_EQ(ctl("screenshot --no-cursor - > " + file("s.png")).status, 0);
    EXPECT_THAT(ctl("frame").text, HasSubstr("rectangle       200x120 at (0, 0)"));
    EXPECT_THAT(ctl("--json frame").text, HasSubstr("\"overlays\": []"));
    EXPECT_EQ(ctl("zoom 0.5").text, "zoom  0.5\n");
    EXPECT_EQ(screen().width, 100u);
    EXPECT_THAT(ctl("mode 400x300").text, HasSubstr("screen          200x150"));
    EXPECT_EQ(ctl("show " + std::to_string(picture.sid())).status, 0);
    EXPECT_EQ(screen().pixels[screen().pixels.size() - 1], 0xFFFF00FF);
    EXPECT_EQ(ctl("reset").status, 0);
    EXPECT_TRUE(soon([&] { return screen().pixels[150 * 200 - 1] != 0xFFFF00FF; }));
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
    EXPECT_EQ(kalix_set_mode(connection_->get(), 1024, 768, 32), 0);
    const client::surface red = surface(1024, 768);
    const client::surface blue = surface(1024, 768);
    fill(red, std::vector<uint32_t>(1024 * 768, 0xFFFF0000));
    fill(blue, std::vector<uint32_t>(1024 * 768, 0xFF0000FF));
    present(red);
    std::atomic<bool> stop = false;
    std::thread presenting{[&] {
        client::context context{*connection_};
        for (int i = 0; !stop; ++i) {
            present(i % 2 ? red : blue);
            connection_->wait(context.commands().submit());
        }
    }};
    tools::screen_reader reader{directory_.path()};
    tools::screen_frame frame;
    uint64_t changes = 0;
    uint32_t last = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{2};
    while (std::chrono::steady_clock::now() < end) {
        if (!reader.read(frame, tools::cursor_drawing::without))
            continue;
        const uint32_t first = frame.pixels[0];
        size_t other = 0;
        for (size_t y = 0; y < 767; ++y)
            other +=
                1023 - static_cast<size_t>(std::count(&frame.pixels[y * 1024], &frame.pixels[y * 1024] + 1023, first));
        ASSERT_EQ(other, 0u);
        changes += first != last;
        last = first;
    }
    stop = true;
    presenting.join();
    RecordProperty("pictures_seen", static_cast<int>(changes));
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
        size_t got = 0;
        while (got < count) {
            const ssize_t part = ::recv(socket_.get(), out.data() + got, count - got, 0);
            if (part <= 0)
                return "";
            got += static_cast<size_t>(part);
        }
        return out;
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
    const client::surface picture = show_picture(300, 200);
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
        EXPECT_TRUE(soon([&] { return each->ask() == screen().pixels; }));
    }
    // View-only: its pointer moves nothing.
    one.send(std::string{"\x05\x00\x00\x20\x00\x20", 6});
    one.ask();
    EXPECT_EQ(screen(tools::cursor_drawing::with).pixels, screen().pixels);
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

    // Its pixels, 0xFFRRGGBB; none before it has started.
    std::vector<uint32_t> pixels() const
    {
        std::ifstream in{file_, std::ios::binary};
        const std::string bytes{std::istreambuf_iterator<char>{in}, {}};
        const auto word = [&](size_t index) { // of the dump's header, big-endian
            uint32_t value = 0;
            for (size_t i = 0; i < 4; ++i)
                value = value << 8 | static_cast<uint8_t>(bytes[index * 4 + i]);
            return value;
        };
        constexpr size_t pixel_bytes = size_t{800} * 600 * 4;
        if (bytes.size() < 100 + pixel_bytes)
            return {};
        const size_t start = word(0) + size_t{word(19)} * 12; // the header, and the colours behind it
        std::vector<uint32_t> out(size_t{800} * 600);
        if (bytes.size() < start + pixel_bytes)
            return {};
        std::memcpy(out.data(), bytes.data() + start, pixel_bytes);
        for (uint32_t& pixel : out)
            pixel |= 0xFF000000;
        return out;
    }

private:
    std::string display_, file_;
    background process_;
};

bool contains(const std::vector<uint32_t>& all, const tools::screen_frame& part)
{
    for (size_t start = 0; start + part.width <= all.size(); ++start) {
        bool same = start + size_t{part.height - 1} * 800 + part.width <= all.size();
        for (uint32_t y = 0; same && y < part.height; ++y)
            same = std::equal(&part.pixels[size_t{y} * part.width], &part.pixels[size_t{y} * part.width] + part.width,
                              &all[start + size_t{y} * 800]);
        if (same)
            return true;
    }
    return false;
}

TEST_F(tools_test, AWindowShowsTheScreen)
{
    const x_server display{directory_.path()};
    if (!soon([&] { return !display.pixels().empty(); }))
        GTEST_SKIP() << "no Xvfb";
    client::surface picture = show_picture(320, 240);
    ::setenv("DISPLAY", display.display().c_str(), 1);
    ::setenv("SDL_VIDEODRIVER", "x11", 1);
    ::setenv("SDL_RENDER_DRIVER", "software", 1); // nothing of a GL library, which sanitizers dislike
    ::setenv("SDL_FRAMEBUFFER_ACCELERATION", "0", 1);
    ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // the display's libraries keep memory to their end
    background window{{program("kalix-view")}};
    EXPECT_TRUE(soon([&] { return contains(display.pixels(), screen()); }));
    picture = show_picture(400, 200); // it follows the mode
    EXPECT_TRUE(soon([&] { return contains(display.pixels(), screen()); }));
    EXPECT_EQ(window.end(), 0);
}

} // namespace
} // namespace kalix::test
