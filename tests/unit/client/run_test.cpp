// kalix-run with small shell programs in the server's place.

#include "base/unique_fd.h"
#include "tests/support.h"

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <unistd.h>

namespace kalix::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

struct outcome {
    int status = -1;
    std::string output, errors;
};

constexpr const char* ready_line = "printf r > /proc/self/fd/$KALIX_READY_FD\n";

class Run : public testing::Test {
protected:
    Run()
    {
        fs::create_directory(path("tmp"));
        write_server(std::string{ready_line} + "echo serving >> \"$KALIX_LOG\"\nexec sleep 1000\n");
    }
    ~Run() override { EXPECT_TRUE(fs::is_empty(path("tmp"))) << "the run directory stayed"; }

    void write_server(const std::string& body) const
    {
        put(path("kalix"), "#!/bin/sh\necho $$ > " + path("pid") + "\n" + body);
        fs::permissions(path("kalix"), fs::perms::owner_all);
    }

    // Starts kalix-run with the options, and the shell text as its command.
    void start(const std::string& command, const std::vector<std::string>& options = {})
    {
        std::vector<std::string> words{"--server", path("kalix")};
        words.insert(words.end(), options.begin(), options.end());
        words.insert(words.end(), {"--", "/bin/sh", "-c", command});
        launch(words);
    }
    void launch(std::vector<std::string> words)
    {
        words.insert(words.begin(), KALIX_RUN_PROGRAM);
        pid_ = start_child([&] {
            setenv("TMPDIR", path("tmp").c_str(), 1);
            freopen(path("out").c_str(), "w", stdout);
            freopen(path("err").c_str(), "w", stderr);
            return become(words);
        });
    }
    outcome finish() const
    {
        alarm(60);
        const int status = end_of(pid_);
        alarm(0);
        return {status, text("out"), text("err")};
    }
    outcome run(const std::string& command, const std::vector<std::string>& options = {})
    {
        start(command, options);
        return finish();
    }

    std::string path(const char* file) const { return (root_.path() / file).string(); }
    std::string text(const char* file) const { return contents(path(file)); }
    bool appears(const char* file) const
    {
        return soon([&] { return !text(file).empty(); });
    }
    bool server_lives() const
    {
        const int pid = std::atoi(text("pid").c_str());
        return pid > 0 && kill(pid, 0) == 0;
    }
    pid_t runner() const { return pid_; }

private:
    fresh_directory root_;
    pid_t pid_ = -1;
};

TEST_F(Run, GivesTheCommandAServerAndReturnsItsStatus)
{
    const outcome got = run("test -d \"$KALIX_RUN_DIR\" && test \"$KALIX_PPS_DIR\" = \"$KALIX_RUN_DIR/pps\" && "
                            "stat -c %a \"$KALIX_RUN_DIR\"; kill -0 $(cat " +
                                path("pid") + ") && echo alive; exit 7",
                            {"--log", path("log")});
    EXPECT_EQ(got.status, 7);
    EXPECT_EQ(got.output, "700\nalive\n");
    EXPECT_EQ(got.errors, "");
    EXPECT_EQ(text("log"), "serving\n");
    EXPECT_FALSE(server_lives());
    EXPECT_EQ(run("true").status, 0);
}

TEST_F(Run, StartsTheServerInTheForegroundWithItsOwnSettings)
{
    write_server("env > " + path("env") + "\n" + ready_line + "exec sleep 1000\n");
    setenv("NOTIFY_SOCKET", "/nonexistent", 1);
    EXPECT_EQ(run("true", {"--run-dir", path("tmp/chosen")}).status, 0);
    unsetenv("NOTIFY_SOCKET");
    const std::string environment = text("env");
    EXPECT_THAT(environment, HasSubstr("KALIX_FOREGROUND=1\n"));
    EXPECT_THAT(environment, HasSubstr("KALIX_RUN_DIR=" + path("tmp/chosen") + "\n"));
    EXPECT_THAT(environment, HasSubstr("KALIX_LOG=" + path("tmp/chosen/server.log") + "\n"));
    EXPECT_THAT(environment, testing::Not(HasSubstr("NOTIFY_SOCKET")));

    const outcome taken = run("echo ran", {"--run-dir", path("env")});
    EXPECT_EQ(taken.status, 125) << "a run directory that is there already is somebody's";
    EXPECT_EQ(taken.output, "");
    EXPECT_FALSE(text("env").empty());
}

TEST_F(Run, ShowsTheLogOfAServerThatDoesNotStart)
{
    write_server("echo no device >> \"$KALIX_LOG\"\nexit 3\n");
    const outcome got = run("echo ran");
    EXPECT_EQ(got.status, 125);
    EXPECT_EQ(got.output, "");
    EXPECT_THAT(got.errors, HasSubstr("exit status 3"));
    EXPECT_THAT(got.errors, HasSubstr("no device"));
}

TEST_F(Run, ReportsAServerThatDiesMeanwhile)
{
    const std::string kill_server = "kill -9 $(cat " + path("pid") + "); sleep 0.3; ";
    const outcome unminded = run(kill_server + "exit 0");
    EXPECT_EQ(unminded.status, 125);
    EXPECT_THAT(unminded.errors, HasSubstr("the server ended with signal 9 (Killed) while the command was running"));
    EXPECT_EQ(run(kill_server + "exit 4").status, 4);
}

TEST_F(Run, KillsAServerThatDoesNotStop)
{
    write_server("trap '' TERM\n" + std::string{ready_line} + "while :; do sleep 0.1; done\n");
    EXPECT_EQ(run("exit 5").status, 5);
    EXPECT_FALSE(server_lives());
}

TEST_F(Run, PassesSignalsOn)
{
    for (const int number : {SIGTERM, SIGINT}) {
        fs::remove(path("started"));
        start("echo x > " + path("started") + "; exec sleep 1000");
        ASSERT_TRUE(appears("started"));
        kill(runner(), number);
        EXPECT_EQ(finish().status, 128 + number);
        EXPECT_FALSE(server_lives());
    }
    fs::remove(path("started"));
    start("trap 'exit 9' TERM; echo x > " + path("started") + "; while :; do sleep 0.05; done");
    ASSERT_TRUE(appears("started"));
    kill(runner(), SIGTERM);
    EXPECT_EQ(finish().status, 9) << "the command may choose another end";
}

TEST_F(Run, EndsTheServerWhenASignalComesBeforeItIsReady)
{
    write_server("exec sleep 1000\n");
    start("echo ran");
    ASSERT_TRUE(appears("pid"));
    kill(runner(), SIGTERM);
    const outcome got = finish();
    EXPECT_EQ(got.status, 128 + SIGTERM);
    EXPECT_EQ(got.output, "");
    EXPECT_FALSE(server_lives());
}

TEST_F(Run, GivesUpAServerThatIsNeverReady)
{
    write_server("exec sleep 1000\n");
    const outcome got = run("echo ran", {"--ready-timeout", "1"});
    EXPECT_EQ(got.status, 125);
    EXPECT_EQ(got.output, "");
    EXPECT_THAT(got.errors, HasSubstr("not ready after 1 s"));
    EXPECT_FALSE(server_lives());
}

TEST_F(Run, EndsACommandWhoseTimeIsOver)
{
    const outcome minded = run("exec sleep 1000", {"--timeout", "1"});
    EXPECT_EQ(minded.status, 124);
    EXPECT_EQ(minded.errors, "kalix-run: the command has not ended within 1 s; it is ended now\n");
    EXPECT_EQ(run("trap 'exit 0' TERM; while :; do sleep 0.05; done", {"--timeout", "1"}).status, 124);
    EXPECT_EQ(run("trap : TERM; while :; do sleep 0.05; done", {"--timeout", "1"}).status, 124) << "killed";
}

// A process in a session of its own, whose parent has gone, and which minds no SIGTERM.
TEST_F(Run, EndsWhatTheCommandLeft)
{
    put(path("daemon"), "trap : TERM\necho $$ > " + path("left") + "\nwhile :; do sleep 0.05; done\n");
    const outcome got =
        run("(setsid sh " + path("daemon") + " &); while [ ! -s " + path("left") + " ]; do sleep 0.01; done; exit 5");
    EXPECT_EQ(got.status, 5);
    const int left = std::atoi(text("left").c_str());
    ASSERT_GT(left, 1);
    EXPECT_NE(kill(left, 0), 0);
}

// While the command runs, too: a session of days leaves no dead processes behind.
TEST_F(Run, ReapsWhatHasComeToIt)
{
    const outcome got = run("for i in 1 2 3; do (true &); done; sleep 0.3; for i in $(seq 200); do "
                            "grep -l \"^State:.Z\" $(grep -l \"^PPid:.$PPID$\" /proc/[0-9]*/status) 2>&1 || exit 0; "
                            "sleep 0.02; done; exit 1");
    EXPECT_EQ(got.status, 0) << got.output;
}

TEST_F(Run, SweepsWhatKilledRunsLeftAndNothingElse)
{
    const auto begin = [&](const char* folder) {
        start("echo $KALIX_RUN_DIR > " + path(folder) + "; exec sleep 1000");
        EXPECT_TRUE(appears(folder));
        const std::string name = text(folder);
        return std::pair{runner(), fs::path{name.substr(0, name.find('\n'))}};
    };
    const auto [living, held] = begin("held");
    const auto [killed, left] = begin("left");
    // Nor what has such a name and is no run's: neither a longer one, nor one as fresh ones have it.
    const std::array others{fs::path{path("tmp/kalix-other")}, fs::path{path("tmp/kalix-run.notes")},
                            fs::path{path("tmp/kalix-run.orders")}};
    for (const fs::path& another : others)
        fs::create_directory(another);
    kill(killed, SIGKILL);
    EXPECT_EQ(end_of(killed), 1000 + SIGKILL);
    EXPECT_TRUE(fs::exists(left / "pps"));
    // A server of that directory which has not ended yet.
    put(left / "svga_ch.lock", "");
    {
        const unique_fd lock{open((left / "svga_ch.lock").c_str(), O_RDWR | O_CLOEXEC)};
        ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
        EXPECT_EQ(run("true").status, 0);
        EXPECT_TRUE(fs::exists(left));
    }
    EXPECT_EQ(run("true").status, 0);
    EXPECT_FALSE(fs::exists(left));
    EXPECT_TRUE(fs::exists(held / "pps"));
    for (const fs::path& another : others)
        EXPECT_TRUE(fs::remove(another)) << another;
    kill(living, SIGTERM);
    EXPECT_EQ(end_of(living), 128 + SIGTERM);
}

TEST_F(Run, AnswersCommandLines)
{
    struct {
        std::vector<std::string> words;
        int status;
        const char* output;
        const char* errors;
    } const rows[]{
        {{"--version"}, 0, "kalix-run " KALIX_VERSION "\n", ""},
        {{"--help"}, 0, "EXIT STATUS", ""},
        {{}, 125, "", "no command"},
        {{"ls"}, 125, "", "behind --"},
        {{"--server", path("kalix"), "--", "/nonexistent/program"}, 127, "", "cannot start"},
        {{"--server", path("kalix"), "--", path("tmp")}, 126, "", "cannot start"},
        {{"--server", "/nonexistent/kalix", "--", "true"}, 125, "", "/nonexistent/kalix"},
        {{"--log", "/nonexistent/log", "--", "true"}, 125, "", "cannot write the log /nonexistent/log: No such file"},
        {{"--log", "/", "--", "true"}, 125, "", "cannot write the log /: Is a directory"},
        {{"--screenshot", "/nonexistent/x", "--", "true"}, 125, "", "cannot write the screenshot /nonexistent/x"},
        {{"--timeout", "0", "--", "true"}, 125, "", "0 is not from 1 to "},
        {{"--ready-timeout", "-1", "--", "true"}, 125, "", "-1 is not from 1 to "},
        {{"--server", path("kalix"), "--", "/bin/echo", "[a,b]", "", "--", "--help"}, 0, "[a,b]  -- --help\n", ""}};
    for (const auto& row : rows) {
        launch(row.words);
        const outcome got = finish();
        EXPECT_EQ(got.status, row.status) << testing::PrintToString(row.words);
        EXPECT_THAT(got.output, HasSubstr(row.output));
        EXPECT_THAT(got.errors, HasSubstr(row.errors));
    }
}

} // namespace
} // namespace kalix::test
