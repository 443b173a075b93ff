// Viewers and the animated scene where something is missing, a display or the server; and the picture that stays.

#include "base/unique_fd.h"
#include "tests/system/programs.h"
#include "tools/screen/status_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace kalix::test {
namespace {

using testing::HasSubstr;

class viewers_test : public testing::Test {
protected:
    viewers_test()
    {
        ::setenv("KALIX_RUN_DIR", directory_.path().c_str(), 1);
        ::setenv("KALIX_PPS_DIR", (directory_.path() + "/pps").c_str(), 1);
        ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // the display's libraries keep memory to their end
        server_.emplace(directory_);
        EXPECT_TRUE(server_->is_ready());
    }
    void kill_server()
    {
        server_->send(SIGKILL);
        EXPECT_EQ(server_->wait(), 1000 + SIGKILL);
    }
    std::string file(const std::string& name) const { return directory_.path() + "/" + name; }
    // What a program in the background has written so far.
    bool says(const std::string& name, const std::string& text) const
    {
        return soon([&] { return contents(file(name)).find(text) != std::string::npos; });
    }
    // A viewer whose output goes into a file.
    std::vector<std::string> viewer(const std::string& options) const
    {
        return {"sh", "-c", "exec " + program("kalix-view") + " " + options + " > " + file("view") + " 2>&1"};
    }

    run_directory directory_;
    std::optional<server> server_;
};

TEST_F(viewers_test, WithoutADisplayTheOtherWaysAreNamed)
{
    for (const std::string driver : {"-u SDL_VIDEODRIVER", "SDL_VIDEODRIVER=x11"}) {
        const outcome got = run("env -u DISPLAY -u WAYLAND_DISPLAY " + driver + " timeout 20 " + program("kalix-view"));
        EXPECT_EQ(got.status, 1) << driver;
        EXPECT_THAT(got.text, HasSubstr("cannot open a display (kalix-view --vnc and --web serve ")) << driver;
    }
}

TEST(Run, WritesTheLastPictureAndTellsOfADisplayThatIsOff)
{
    const fresh_directory files;
    const auto file = [&](const char* name) { return (files.path() / name).string(); };
    const std::string kalix_run = program("kalix-run") + " --screenshot ";
    const outcome drawn =
        run(kalix_run + file("a.png") + " -- sh -c '" + program("kalix-demo") + " mesh --size 64x48 --frames 3 && " +
            program("kalixctl") + " screenshot " + file("b.png") + "'");
    EXPECT_EQ(drawn.status, 0) << drawn.text;
    EXPECT_THAT(contents(file("a.png")), HasSubstr("IDAT"));
    EXPECT_EQ(contents(file("a.png")), contents(file("b.png")));
    const outcome off = run(kalix_run + file("off.png") + " -- true");
    EXPECT_EQ(off.status, 0);
    EXPECT_EQ(off.text, "kalix-run: display is off: kalixctl mode WxH\n");
    EXPECT_EQ(run(kalix_run + file("off.png") + " -- sh -c 'exit 4'").status, 4);
    const outcome gone = run(kalix_run + file("gone.png") + " -- sh -c 'kill -9 $(" + program("kalixctl") +
                             " ping | sed -n \"s/^server  *//p\")'");
    EXPECT_EQ(gone.status, 125);
    EXPECT_THAT(gone.text, HasSubstr("cannot take a screenshot: the server has ended"));
    EXPECT_FALSE(std::filesystem::exists(file("gone.png")));
}

TEST_F(viewers_test, PortZeroIsOneThatIsFree)
{
    background one{viewer("--vnc 0")};
    EXPECT_TRUE(says("view", "kalix-view: serving 127.0.0.1:"));
    EXPECT_THAT(contents(file("view")), testing::Not(HasSubstr(":0,")));
    EXPECT_EQ(one.end(), 0);
}

// Viewers that have not said who they are: each may come, and none keeps the others from their picture.
TEST_F(viewers_test, SilentViewersHoldNobodyUp)
{
    background one{viewer("--vnc")};
    ASSERT_TRUE(says("view", "serving"));
    const auto come = [&] {
        unique_fd made{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", file("vnc").c_str());
        EXPECT_EQ(::connect(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        const timeval patience{10, 0}; // the library's own is twice that
        ::setsockopt(made.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        return made;
    };
    const auto is_greeted = [](const unique_fd& viewer) {
        char version[12];
        return ::recv(viewer.get(), version, sizeof version, MSG_WAITALL) == sizeof version;
    };
    const auto is_let_go = [](const unique_fd& viewer) {
        char none;
        return ::recv(viewer.get(), &none, 1, MSG_DONTWAIT) == 0;
    };
    const unique_fd stuck = come();
    ASSERT_TRUE(is_greeted(stuck));
    EXPECT_EQ(::send(stuck.get(), "R", 1, MSG_NOSIGNAL), 1); // the first letter of its version
    EXPECT_TRUE(is_greeted(come()));
    EXPECT_TRUE(soon([&] { return is_let_go(stuck); }));
    std::vector<unique_fd> silent(40);
    for (unique_fd& each : silent) {
        each = come();
        EXPECT_TRUE(is_greeted(each)); // the library does so before it asks whether there is room
    }
    EXPECT_TRUE(soon([&] { return std::ranges::count_if(silent, is_let_go) == 40 - 32; }));
    EXPECT_EQ(one.end(), 0);
}

TEST_F(viewers_test, AViewerSaysThatItsServerHasEnded)
{
    background one{viewer("--vnc")};
    ASSERT_TRUE(says("view", "serving"));
    kill_server();
    EXPECT_EQ(one.wait(), 1);
    EXPECT_THAT(contents(file("view")), HasSubstr("kalix-view: the server has ended\n"));
    EXPECT_THAT(run(program("kalix-view") + " --vnc").text, HasSubstr("the server has ended"));
}

TEST_F(viewers_test, TheAnimatedSceneGoesOnWithTheNextServer)
{
    const auto shows = [&](pid_t server) {
        return soon([&] {
            const auto status = tools::read_status(directory_.path());
            return status->server_pid == static_cast<uint32_t>(server) && status->frame.number > 5 &&
                   status->frame.overlay_count == 1; // the second process's
        });
    };
    background demo{{"sh", "-c", "exec " + program("kalix-demo") + " mesh --size 320x200 2> " + file("demo")}};
    EXPECT_TRUE(shows(server_->pid()));
    kill_server();
    EXPECT_TRUE(says("demo", "kalix-demo: the server has gone; another is waited for, for 30 s\n"));
    server_.emplace(directory_);
    ASSERT_TRUE(server_->is_ready());
    EXPECT_TRUE(shows(server_->pid()));
    EXPECT_EQ(demo.end(), 0);
}

TEST_F(viewers_test, TheAnimatedSceneEndsWhereNoServerComes)
{
    background demo{
        {"sh", "-c", "exec " + program("kalix-demo") + " mesh --size 64x48 --reconnect 0 2> " + file("demo")}};
    ASSERT_TRUE(soon([&] { return tools::read_status(directory_.path())->frame.number > 0; }));
    kill_server();
    EXPECT_EQ(demo.wait(), 1);
    EXPECT_THAT(contents(file("demo")), HasSubstr("kalix-demo: cannot "));
}

} // namespace
} // namespace kalix::test
