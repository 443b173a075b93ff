// What kalixctl finds out about a server: as JSON by its schema, as a doctor, as events, in the terminal; and that it
// sees a server's end.

#include "tests/system/programs.h"
#include "tests/system/screen_test.h"

#include <algorithm>
#include <future>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <pty.h>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace kalix::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

class kalixctl_test : public screen_test {
protected:
    static outcome ctl(const std::string& words) { return run(program("kalixctl") + " " + words); }
    std::string file(const std::string& name) const { return directory_.path() + "/" + name; }

    painting paint_in(uint32_t colour)
    {
        return paint(40, 30, SVGA3D_X8R8G8B8, std::vector<uint32_t>(40 * 30, colour));
    }
    // On a screen that it fills to the last row and column.
    void present_larger(const painting& picture)
    {
        EXPECT_EQ(kalix_present(handle(), picture.surface.sid(), 0, 0, 40, 30), 0);
        settle();
    }
};

// ---- JSON ---------------------------------------------------------------------------------------------

const json& schema()
{
    static const json read = json::parse(contents(KALIX_SOURCE_DIR "/docs/kalixctl.schema.json"));
    return read;
}

bool is_of_type(const json& what, const std::string& type)
{
    return type == "null"      ? what.is_null()
           : type == "integer" ? what.is_number_integer()
           : type == "number"  ? what.is_number()
           : type == "boolean" ? what.is_boolean()
           : type == "string"  ? what.is_string()
           : type == "array"   ? what.is_array()
                               : type == "object" && what.is_object();
}

// Those keywords of a schema that ours uses; another one is a failure. Empty, or what is wrong.
std::string complaint(const json& what, const json& by);

std::string complaint_of_fields(const json& what, const json& by)
{
    for (const auto& name : by["required"])
        if (!what.contains(name))
            return "without " + name.get<std::string>();
    for (const auto& [name, content] : what.items()) {
        if (!by["properties"].contains(name))
            return "with " + name;
        if (const std::string wrong = complaint(content, by["properties"][name]); !wrong.empty())
            return name + ": " + wrong;
    }
    return "";
}

std::string complaint(const json& what, const json& by)
{
    std::string wrong;
    for (const auto& [keyword, value] : by.items()) {
        if (keyword == "$ref")
            wrong = complaint(what, schema().at(json::json_pointer{value.get<std::string>().substr(1)}));
        else if (keyword == "enum")
            wrong = std::ranges::find(value, what) == value.end() ? "none of the words" : "";
        else if (keyword == "type" && value.is_array())
            wrong = std::ranges::any_of(value, [&](const json& each) { return is_of_type(what, each); }) ? "" : "type";
        else if (keyword == "type")
            wrong = is_of_type(what, value) ? "" : "no " + value.get<std::string>();
        else if (keyword == "properties")
            wrong = complaint_of_fields(what, by);
        else if (keyword == "items")
            for (const json& each : what)
                wrong += complaint(each, value);
        else if (keyword != "required" && keyword != "additionalProperties")
            wrong = "unknown keyword " + keyword;
        if (!wrong.empty())
            return wrong + " in " + what.dump();
    }
    return "";
}

TEST_F(kalixctl_test, EveryCommandPrintsWhatItsSchemaSays)
{
    const painting picture = show(40, 30);
    const client::overlay badge{*connection_, 2, 2, picture.surface};
    present(picture.surface);
    EXPECT_EQ(kalix_surface_destroy(handle(), 4711), -EINVAL);
    settle();
    const std::string sid = std::to_string(picture.surface.sid());
    const std::pair<std::string, std::string> rows[] = {{"list", ""},
                                                        {"info", sid},
                                                        {"show", sid},
                                                        {"reset", ""},
                                                        {"dump", sid + " " + file("x.png")},
                                                        {"bytes", sid + " --rows 2"},
                                                        {"fill", sid + " 0xFF336699"},
                                                        {"screenshot", file("x.png")},
                                                        {"frame", ""},
                                                        {"stats", ""},
                                                        {"zoom", "0.1"},
                                                        {"mode", "50x40"},
                                                        {"ping", ""},
                                                        {"doctor", ""},
                                                        {"events", ""},
                                                        {"top", "--interval 0.1"},
                                                        {"error", ""}};
    std::set<std::string> stated{"extent", "box", "rectangle", "overlay"}; // parts of the others
    std::map<std::string, json> printed;
    for (const auto& [command, words] : rows) {
        stated.insert(command);
        std::istringstream lines{ctl("--json " + (command == "error" ? "info 4711" : command + " " + words)).text};
        for (json each; !(lines >> std::ws).eof(); printed[command] = each) {
            ASSERT_NO_THROW(lines >> each) << command;
            EXPECT_EQ(complaint(each, schema()["$defs"][command]), "") << command;
        }
    }
    for (const auto& [name, of] : schema()["$defs"].items())
        EXPECT_TRUE(stated.contains(name)) << name << " is stated and not looked at";
    std::istringstream help{ctl("--help").text};
    for (std::string line; std::getline(help, line) && line != "Subcommands:";) {
    }
    for (std::string line; std::getline(help, line) && !line.empty();)
        EXPECT_TRUE(stated.contains(line.substr(2, line.find(' ', 2) - 2))) << line;
    EXPECT_EQ(printed["zoom"]["zoom"], 0.1);
    EXPECT_EQ(printed["fill"]["pixel"], 0xFF336699u);
    EXPECT_EQ(printed["list"]["surfaces"][0]["levels"], 1);
    EXPECT_EQ(printed["info"]["size"], (json{{"width", 40}, {"height", 30}, {"depth", 1}}));
    EXPECT_EQ(printed["error"]["status"], 1);
    EXPECT_EQ(printed["stats"]["clients"][0]["device_bytes"], 40 * 30 * 4);
    EXPECT_EQ(printed["stats"]["clients"][0]["last_refusal"], "surface destroy: -22");
    EXPECT_EQ(printed["top"]["clients"][0]["process"], "kalixctl_test");
    EXPECT_THAT(ctl("--json info seven").text, HasSubstr("\"hint\": \"Try kalixctl info --help.\", \"status\": 2}"));
}

// ---- The doctor ---------------------------------------------------------------------------------------

TEST_F(kalixctl_test, TheDoctorNamesWhatIsWrong)
{
    const std::string stranger = "setpriv --reuid 65534 --regid 65534 --clear-groups ";
    const auto expect = [&](int status, const std::string& line, const std::string& before = "") {
        const outcome got = run(before + program("kalixctl") + " doctor");
        EXPECT_EQ(got.status, status) << got.text;
        EXPECT_THAT(got.text, HasSubstr(line));
    };
    fs::create_directory(file("empty"));
    expect(10, "FAULT  directory  " + file("none") + " (KALIX_RUN_DIR) does not exist",
           "KALIX_RUN_DIR=" + file("none") + " ");
    expect(13, "FAULT  socket     there is no socket", "KALIX_RUN_DIR=" + file("empty") + " ");
    if (::geteuid() == 0 && run(stranger + program("kalixctl") + " --version").status == 0) {
        expect(11, "does not let you in: user root, mode 0700", stranger);
        fs::permissions(directory_.path(), fs::perms{0755});
        expect(12, "FAULT  group      the server does not serve you", stranger);
        // Whoever may connect is told no fault; who may not write the store, least of all.
        fs::permissions(file("svga_ch"), fs::perms{0666});
        expect(17, "ok     group      not needed: the socket is open to you", stranger);
        EXPECT_EQ(run(stranger + program("kalixctl") + " ping").status, 0);
        fs::permissions(file("svga_ch"), fs::perms{0660});
        fs::permissions(directory_.path(), fs::perms{0700});
    }
    expect(19, "FAULT  display    off");
    set_mode(39, 29);
    expect(20, "FAULT  frame      nothing was presented yet");
    const painting black = paint_in(0xFF000000);
    present_larger(black);
    expect(22, "warn   picture    the last frame is one colour, 0xFF000000; did the draw have a texture");
    const painting picture = paint(40, 30);
    present_larger(picture);
    expect(0, "ok     picture    of more than one colour");
    EXPECT_EQ(ctl("show " + std::to_string(picture.surface.sid())).status, 0);
    expect(21, "warn   debug      surface " + std::to_string(picture.surface.sid()) + " is shown alone");
    EXPECT_EQ(ctl("reset").status, 0);
    {
        const client::overlay badge{*connection_, 2, 2, picture.surface};
        kalix_overlay_visible(handle(), badge.id(), 0);
        expect(23, "warn   overlays   overlay 1 of process " + std::to_string(::getpid()) + " is hidden");
    }
    fs::rename(file("pps/services"), file("pps/aside"));
    expect(26, "warn   store      " + file("pps") + " cannot be written by you");
    fs::rename(file("pps/aside"), file("pps/services"));
    EXPECT_EQ(ctl("zoom 0.5").status, 0);
    present_larger(picture);
    expect(27, "warn   zoom       0.5: the screen is smaller than its mode; kalixctl zoom 1");
    EXPECT_EQ(ctl("zoom 1").status, 0);
    present_larger(picture);
    EXPECT_EQ(ctl("mode 9999x9999").status, 1);
    expect(28, "warn   mode       the screen has 39x29 of 32 bits; 1 others were refused");
    EXPECT_EQ(kalix_surface_destroy(handle(), 4711), -EINVAL);
    expect(25, "of clients' requests: 1; the last: surface destroy: -22 by process " + std::to_string(::getpid()));
    uint32_t cid = 0;
    while (kalix_context_define(handle(), &cid) == 0) {
    }
    expect(24, "warn   bounds     reached: context ids 1");
    fs::rename(file("status"), file("aside"));
    put(file("status"), "no status");
    expect(17, "warn   server     the status file cannot be read");
    fs::rename(file("aside"), file("status"));
    server_.send(SIGSTOP);
    expect(18, "FAULT  answer     none within 2 s: the server is stopped or stuck");
    server_.send(SIGCONT);
    server_.send(SIGKILL);
    server_.wait();
    expect(16, "FAULT  server     the server has ended");
    fs::remove(file("status"));
    expect(15, "FAULT  socket     nobody listens");
}

// ---- Events, the end, the terminal --------------------------------------------------------------------

TEST_F(kalixctl_test, EventsAreFollowedToTheEnd)
{
    for (int i = 0; i < 300; ++i)
        kalix_svga_enable(handle(), i % 2 == 0);
    auto following = std::async([this] { return ctl("events --follow > " + file("events")); });
    EXPECT_TRUE(soon([&] { return contents(file("events")).find("\"number\":301") != std::string::npos; }));
    EXPECT_THAT(contents(file("events")), testing::StartsWith("{\"kind\":\"missed\",\"count\":45}\n{\"number\":46,"));
    set_mode(64, 48);
    EXPECT_TRUE(soon([&] { return contents(file("events")).find("\"size\":{\"width\":64") != std::string::npos; }));
    EXPECT_EQ(std::ranges::count(contents(file("events")), '\n'), 1 + 256 + 2); // the mode, and the display with it
    server_.send(SIGKILL);
    EXPECT_EQ(following.get().status, 1);
    EXPECT_THAT(contents(file("events")), testing::EndsWith("}\nkalixctl: the server has ended\n"));
}

TEST_F(kalixctl_test, ADeadServerLooksDead)
{
    const painting picture = show(40, 30);
    EXPECT_EQ(run("KALIX_PPS_DIR=" + file("other") + " " + program("kalixctl") + " zoom 0.5").text, "zoom  0.5\n");
    EXPECT_FALSE(fs::exists(file("other"))); // it is the server's store that was written
    const std::string stored = contents(file("pps/services/mesa"));
    present(picture.surface);
    const std::vector<uint32_t> last = look().pixels;
    for (const int signal : {SIGTERM, SIGKILL}) {
        std::optional<server> again;
        if (signal == SIGKILL)
            again.emplace(directory_);
        server& running = again ? *again : server_;
        running.send(signal);
        running.wait();
        for (const std::string words :
             {"screenshot x.png", "screenshot --term", "frame", "stats", "zoom", "zoom 0.75", "events", "top"}) {
            const outcome got = ctl(words);
            EXPECT_EQ(got.status, 1) << words;
            EXPECT_EQ(got.text, "kalixctl: the server has ended\n") << words;
        }
        EXPECT_EQ(contents(file("pps/services/mesa")), stored);
        EXPECT_EQ(ctl("screenshot --last " + file("last.png")).status, 0);
    }
}

TEST_F(kalixctl_test, TheTerminalIsFilledAndGivenBack)
{
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0)
        ::_exit(become({program("kalixctl"), "top", "--interval", "0.1"}));
    ASSERT_GT(child, 0);
    termios before{}, after{};
    ::tcgetattr(terminal, &before);
    std::string text;
    char part[4096];
    bool typed = false;
    for (ssize_t count; (count = ::read(terminal, part, sizeof part)) > 0;) {
        text.append(part, static_cast<size_t>(count));
        if (!typed && text.find("frames per second") != std::string::npos) {
            ::tcgetattr(terminal, &after);
            EXPECT_EQ(after.c_lflag & ICANON, 0u);
            typed = ::write(terminal, "q", 1) == 1;
        }
        if (text.ends_with("\033[?1049l"))
            break;
    }
    EXPECT_EQ(end_of(child), 0);
    EXPECT_THAT(text, HasSubstr("kalixctl_test"));
    EXPECT_THAT(text, testing::EndsWith("\033[?25h\033[?1049l"));
    ::tcgetattr(terminal, &after);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    ::close(terminal);
}

// The left half red, the right half blue.
TEST_F(kalixctl_test, TheScreenIsDrawnInTheTerminal)
{
    std::vector<uint32_t> pixels(80 * 40);
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = i % 80 < 40 ? 0xFFFF0000 : 0xFF0000FF;
    set_mode(79, 39);
    const painting halves = paint(80, 40, SVGA3D_X8R8G8B8, pixels);
    EXPECT_EQ(kalix_present(handle(), halves.surface.sid(), 0, 0, 80, 40), 0);
    settle();
    const outcome got = run("TERM=xterm-256color COLORTERM=truecolor " + program("kalixctl") + " screenshot --term");
    if (got.text.find("was built without libchafa") != std::string::npos) {
        EXPECT_EQ(got.status, 1);
        GTEST_SKIP() << "built without libchafa";
    }
    EXPECT_EQ(got.status, 0);
    const size_t red = got.text.find("8;2;255;0;0"), blue = got.text.find("8;2;0;0;255");
    EXPECT_LT(red, blue) << got.text;
    EXPECT_NE(blue, std::string::npos);
    EXPECT_THAT(got.text, HasSubstr("size            79x39"));
}

} // namespace
} // namespace kalix::test
