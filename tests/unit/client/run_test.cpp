// kalix-run with small shell programs in the server's place.

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
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
    void SetUp() override
    {
        std::string name = (fs::temp_directory_path() / "kalix-run-test.XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        root_ = name;
        fs::create_directory(root_ / "tmp");
        write_server(std::string{ready_line} + "echo serving >> \"$KALIX_LOG\"\nexec sleep 1000\n");
    }
    void TearDown() override
    {
        EXPECT_TRUE(fs::is_empty(root_ / "tmp")) << "the run directory stayed";
        fs::remove_all(root_);
    }

    void write_server(const std::string& body) const
    {
        std::ofstream{root_ / "kalix"} << "#!/bin/sh\necho $$ > " << (root_ / "pid").string() << "\n" << body;
        chmod((root_ / "kalix").c_str(), 0700);
    }

    // Starts kalix-run with the options, and the shell text as its command.
    void start(const std::string& command, const std::vector<std::string>& options = {})
    {
        std::vector<std::string> words{KALIX_RUN_PROGRAM, "--server", (root_ / "kalix").string()};
        words.insert(words.end(), options.begin(), options.end());
        words.insert(words.end(), {"--", "/bin/sh", "-c", command});
        launch(words);
    }
    void launch(std::vector<std::string> words)
    {
        pid_ = fork();
        if (pid_ != 0)
            return;
        setenv("TMPDIR", (root_ / "tmp").c_str(), 1);
        freopen((root_ / "out").c_str(), "w", stdout);
        freopen((root_ / "err").c_str(), "w", stderr);
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        execv(arguments[0], arguments.data());
        _exit(99);
    }
    outcome finish()
    {
        alarm(60);
        int status = 0;
        waitpid(pid_, &status, 0);
        alarm(0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), text("out"), text("err")};
    }
    outcome run(const std::string& command, const std::vector<std::string>& options = {})
    {
        start(command, options);
        return finish();
    }

    std::string text(const char* file) const
    {
        std::ifstream stream{root_ / file};
        return {std::istreambuf_iterator<char>{stream}, {}};
    }
    std::string path(const char* file) const { return (root_ / file).string(); }
    bool appears(const char* file) const
    {
        for (int i = 0; i < 1000 && text(file).empty(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds{10});
        return !text(file).empty();
    }
    bool server_lives() const
    {
        const int pid = std::atoi(text("pid").c_str());
        return pid > 0 && kill(pid, 0) == 0;
    }
    pid_t runner() const { return pid_; }

private:
    fs::path root_;
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
        {{"--server", path("kalix"), "--", "/bin/echo", "[a,b]", "", "--", "--help"}, 0, "[a,b]  -- --help\n", ""}};
    for (const auto& row : rows) {
        std::vector<std::string> words{KALIX_RUN_PROGRAM};
        words.insert(words.end(), row.words.begin(), row.words.end());
        launch(words);
        const outcome got = finish();
        EXPECT_EQ(got.status, row.status) << testing::PrintToString(row.words);
        EXPECT_THAT(got.output, HasSubstr(row.output));
        EXPECT_THAT(got.errors, HasSubstr(row.errors));
    }
}

} // namespace
} // namespace kalix::test
