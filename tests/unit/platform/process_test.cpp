// The server as a process: start, readiness, a second one, every kind of end.
#include "platform/files/shared_memory.h"
#include "platform/log/clock.h"
#include "platform/log/log.h"
#include "platform/process.h"
#include "platform/settings.h"
#include "tests/unit/platform/support.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {
int sleeps = 0;
}

// NOLINTNEXTLINE: counted on its way to the kernel
extern "C" int clock_nanosleep(clockid_t clock, int flags, const timespec* wanted, timespec* left)
{
    ++sleeps;
    return syscall(SYS_clock_nanosleep, clock, flags, wanted, left) == 0 ? 0 : errno;
}

namespace kalix::platform {
namespace {

void farewell()
{
    slogf_always(log_code, log_information, "kalix: shutting down gpu driver...");
}

// What a server is asked by the length of a message.
constexpr size_t asks_end = 3;
constexpr size_t asks_stuck = 5; // the receiving thread waits for ever

// A server that answers every message with its own process id, until something ends it.
int serve()
{
    process_begin(farewell);
    if (procmgr_daemon(7, daemon_keep_directory | daemon_keep_descriptors | daemon_keep_streams) != 0)
        return 8;
    process_watch_signals();
    name_attach_t* attached = name_attach(nullptr, "svga_ch", 0);
    if (attached == nullptr)
        return 9;
    close(shm_open("/svga_dma_1", open_read_write | open_create, 0));
    for (;;) {
        _msg_info info{};
        _pulse pulse{};
        const std::span<std::byte> part = std::as_writable_bytes(std::span{&pulse, 1});
        const int32_t rcvid = MsgReceivev(attached->chid, {&part, 1}, &info);
        if (rcvid == 0)
            ConnectDetach(static_cast<uint32_t>(pulse.scoid)); // an end is the only pulse
        if (rcvid > 0 && info.srcmsglen == asks_end)
            process_exit(3);
        if (rcvid > 0 && info.srcmsglen == asks_stuck)
            slogf(log_code, log_information, "kalix: stuck"), semaphore{}.wait();
        if (rcvid > 0)
            MsgReply(rcvid, getpid(), {});
    }
}

pid_t server_pid(const std::string& directory)
{
    raw_client client{directory};
    client.send(frame(text_bytes("who?")));
    const auto got = client ? client.receive() : std::nullopt;
    return got ? got->value : -1;
}

class Server : public testing::Test {
protected:
    Server()
    {
        setenv("KALIX_FOREGROUND", "1", 1);
        unsetenv("NOTIFY_SOCKET");
        EXPECT_EQ(pipe2(ready_.data(), O_CLOEXEC), 0);
        setenv("KALIX_READY_FD", std::to_string(ready_[1]).c_str(), 1);
    }
    ~Server() override
    {
        for (const int end : ready_)
            ::close(end);
    }
    // Starts a server in the environment's run directory, waits until it says that it is ready, and asks it.
    pid_t start()
    {
        const pid_t child = start_child(serve);
        EXPECT_TRUE(said_ready());
        EXPECT_EQ(server_pid(std::getenv("KALIX_RUN_DIR")), child);
        return child;
    }
    bool said_ready(int patience_ms = 10'000)
    {
        pollfd ready{ready_[0], POLLIN, 0};
        return poll(&ready, 1, patience_ms) == 1 && read(ready_[0], ready_bytes_.data(), ready_bytes_.size()) == 1;
    }
    // Ends a server and says how it ended.
    static int end(pid_t server, int signal = SIGTERM)
    {
        kill(server, signal);
        return end_of(server);
    }
    bool left_nothing() const
    {
        return !std::filesystem::exists(directory.path() + "/svga_ch") &&
               std::filesystem::is_empty(directory.path() + "/shm");
    }

    const unique_fd third{::open("/dev/null", O_RDONLY | O_CLOEXEC)}; // so that nothing else has the place of 3
    private_run_directory directory;
    captured_log log;

private:
    std::array<int, 2> ready_{-1, -1};
    std::array<char, 4> ready_bytes_{};
};

TEST_F(Server, EndsOnSignalsAndOnRequestLeavingNothing)
{
    const std::vector<std::pair<int, int>> ends{{SIGTERM, 0}, {SIGINT, 0}, {0, 3}};
    for (const auto& [signal, status] : ends) {
        SCOPED_TRACE(signal);
        const pid_t server = start();
        put(directory.object("execbuf_1_1"), "x");
        std::filesystem::create_directories(directory.object("deep/er/and/deeper"));
        const size_t said = log.count("5 kalix: shutting down gpu driver...");
        if (signal != 0)
            kill(server, signal);
        else
            raw_client{directory.path()}.send(frame(text_bytes("end")));
        EXPECT_EQ(end_of(server), status);
        EXPECT_TRUE(left_nothing());
        EXPECT_EQ(log.count("5 kalix: shutting down gpu driver..."), said + (signal != 0 ? 1 : 0));
    }
}

TEST_F(Server, EndsOnASignalWhateverItWaitsFor)
{
    const pid_t stuck = start();
    raw_client{directory.path()}.send(frame(text_bytes("stuck")));
    EXPECT_TRUE(soon([&] { return log.count("kalix: stuck") == 1; }));
    EXPECT_EQ(end(stuck), 0);
    EXPECT_TRUE(left_nothing());

    const pid_t asleep = start_child([]() -> int {
        process_begin(farewell);
        slogf(log_code, log_information, "kalix: asleep");
        for (;;)
            sleep_us(60'000'000);
    });
    EXPECT_TRUE(soon([&] { return log.count("kalix: asleep") == 1; }));
    EXPECT_EQ(end(asleep, SIGINT), 0);
    EXPECT_EQ(log.count("5 kalix: shutting down gpu driver..."), 2U);

    const std::string stalled = directory.path() + ".stalled";
    ASSERT_EQ(mkfifo(stalled.c_str(), 0600), 0);
    const unique_fd reader{::open(stalled.c_str(), O_RDWR | O_NONBLOCK)};
    while (::write(reader.get(), stalled.data(), 1) == 1) {
    }
    const std::string kept = std::getenv("KALIX_LOG");
    setenv("KALIX_LOG", stalled.c_str(), 1);
    const pid_t unheard = start();
    EXPECT_EQ(end(unheard), 0);
    EXPECT_TRUE(left_nothing());
    setenv("KALIX_LOG", kept.c_str(), 1);
}

// An open channel is not enough: what comes behind it may fail.
TEST_F(Server, IsReadyOnceItReceives)
{
    EXPECT_EQ(run_child([] { return name_attach(nullptr, "svga_ch", 0) != nullptr ? 4 : 9; }), 4);
    EXPECT_FALSE(said_ready(0));
}

TEST_F(Server, OnlyOneServesADirectoryAndADeadOneIsReplaced)
{
    const pid_t first = start();
    EXPECT_EQ(run_child(serve), 9);
    EXPECT_EQ(log.count("kalix: cannot lock " + directory.path() + "/svga_ch.lock"), 1U);
    EXPECT_EQ(server_pid(directory.path()), first);
    const std::string first_directory = directory.path();
    {
        const private_run_directory elsewhere;
        const pid_t beside = start();
        EXPECT_EQ(server_pid(first_directory), first);
        EXPECT_EQ(end(beside, SIGKILL), 1000 + SIGKILL);
    }
    setenv("KALIX_RUN_DIR", first_directory.c_str(), 1);
    put(directory.object("execbuf_1_1"), "x");
    EXPECT_EQ(end(first, SIGKILL), 1000 + SIGKILL);
    EXPECT_TRUE(std::filesystem::exists(directory.path() + "/svga_ch"));
    const pid_t second = start();
    EXPECT_FALSE(std::filesystem::exists(directory.object("execbuf_1_1")));
    EXPECT_EQ(end(second), 0);
}

TEST_F(Server, GoesIntoTheBackground)
{
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0); // so that it can be waited for
    setenv("KALIX_FOREGROUND", "0", 1);
    EXPECT_EQ(end_of(start_child(serve)), 7);
    EXPECT_TRUE(said_ready());
    const pid_t server = server_pid(directory.path());
    ASSERT_GT(server, 0);
    EXPECT_EQ(getsid(server), server);
    EXPECT_EQ(end(server), 0);
}

class manager {
public:
    explicit manager(const std::string& name) : socket_{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)}
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::ranges::copy(name, address.sun_path);
        if (name.front() == '@')
            address.sun_path[0] = '\0';
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), length), 0);
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
    }
    std::string hears(int flags = 0) const
    {
        std::array<char, 64> told{};
        const ssize_t length = recv(socket_.get(), told.data(), told.size(), flags);
        return {told.data(), static_cast<size_t>(std::max<ssize_t>(length, 0))};
    }
    std::string has_heard() const { return hears(MSG_DONTWAIT); } // nothing, where nothing waits

private:
    unique_fd socket_;
};

TEST_F(Server, TellsTheServiceManager)
{
    unsetenv("KALIX_FOREGROUND"); // the manager alone keeps it in the foreground
    for (const std::string& name : {directory.path() + ".notify", "@" + directory.path()}) {
        SCOPED_TRACE(name);
        const manager here{name};
        const pid_t server = start();
        EXPECT_EQ(here.hears(), "READY=1\nSTATUS=serving");
        kill(server, SIGTERM);
        EXPECT_EQ(here.hears(), "STOPPING=1\nSTATUS=ending");
        EXPECT_EQ(end_of(server), 0);
    }
}

TEST_F(Server, IsWatchedWhileItReceives)
{
    setenv("WATCHDOG_USEC", "40000", 1);
    const manager here{"@" + directory.path()};
    const int64_t begun = now_ms();
    const pid_t server = start();
    EXPECT_EQ(here.hears(), "READY=1\nSTATUS=serving");
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(here.hears(), "WATCHDOG=1");
    EXPECT_GE(now_ms() - begun, 100); // half of what is allowed, five times
    raw_client{directory.path()}.send(frame(text_bytes("stuck")));
    EXPECT_TRUE(soon([&] { return log.count("kalix: stuck") == 1; }));
    while (!here.has_heard().empty()) {
    }
    std::this_thread::sleep_for(std::chrono::milliseconds{80}); // four times the half of what is allowed
    EXPECT_EQ(here.has_heard(), "");
    kill(server, SIGTERM);
    EXPECT_EQ(here.hears(), "STOPPING=1\nSTATUS=ending");
    EXPECT_EQ(end_of(server), 0);
    setenv("WATCHDOG_PID", "1", 1); // another's
    EXPECT_EQ(run_child([] { return read_settings(), current_settings().watchdog_us == 0 ? 0 : 1; }), 0);
    unsetenv("WATCHDOG_USEC");
    unsetenv("WATCHDOG_PID");
}

// Starts a server with a socket passed to it, as a service manager does.
pid_t start_passed(int socket)
{
    return start_child([socket] {
        dup2(socket, 3);
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        setenv("LISTEN_FDS", "1", 1);
        const int status = serve();
        return std::getenv("LISTEN_FDS") == nullptr ? status : 1;
    });
}

unique_fd passed_socket(const std::string& path, int type = SOCK_STREAM)
{
    unique_fd socket{::socket(AF_UNIX, type | SOCK_CLOEXEC, 0)};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::ranges::copy(path, address.sun_path);
    EXPECT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    listen(socket.get(), 16);
    return socket;
}

TEST_F(Server, TakesAPassedSocketWhichOutlivesIt)
{
    setenv("KALIX_FOREGROUND", "0", 1); // the socket alone keeps it in the foreground
    std::filesystem::create_directory(directory.path());
    const std::string path = directory.path() + "/svga_ch";
    const unique_fd socket = passed_socket(path);
    const pid_t first = start_passed(socket.get());
    EXPECT_TRUE(said_ready());
    EXPECT_EQ(server_pid(directory.path()), first);
    EXPECT_EQ(end(first, SIGKILL), 1000 + SIGKILL);

    raw_client waiting{directory.path()};
    ASSERT_TRUE(waiting) << "nobody is refused while there is no server";
    waiting.send(frame(text_bytes("who?")));
    const pid_t second = start_passed(socket.get());
    const std::optional<reply> got = waiting.receive();
    EXPECT_EQ(got ? got->value : -1, second);
    EXPECT_EQ(end(second), 0);
    EXPECT_TRUE(std::filesystem::exists(path));

    const unique_fd deaf = passed_socket(path + "_", SOCK_DGRAM);
    EXPECT_EQ(end_of(start_passed(deaf.get())), 9);
    EXPECT_EQ(log.count("2 kalix: descriptor 3 was passed, which is no listening stream socket"), 1U);
}

struct place {
    const char* what;
    void (*prepare)(const std::string& path);
    const char* line; // null: it is taken
};

TEST_F(Server, TakesOnlyARunDirectoryOfItsOwn)
{
    namespace fs = std::filesystem;
    const std::vector<place> places{
        {"missing", [](const std::string&) {}, nullptr},
        {"ours", [](const std::string& p) { fs::create_directory(p); }, nullptr},
        {"stale", [](const std::string& p) { fs::create_directory(p), put(p + "/svga_ch", "x"); }, nullptr},
        {"open to all", [](const std::string& p) { fs::create_directory(p), chmod(p.c_str(), 01777); },
         "every user may write into it"},
        {"a link", [](const std::string& p) { fs::create_directory(p + "_"), fs::create_symlink(p + "_", p); },
         "cannot open directory"},
        {"a file", [](const std::string& p) { put(p, "x"); }, "cannot open directory"},
        {"another user's", [](const std::string& p) { fs::create_directory(p), (void)!chown(p.c_str(), 65534, 0); },
         geteuid() == 0 ? "another user owns it" : nullptr},
    };
    for (const place& each : places) {
        SCOPED_TRACE(each.what);
        private_run_directory here;
        each.prepare(here.path());
        const int status = run_child([] { return name_attach(nullptr, "svga_ch", 0) != nullptr ? 0 : 1; });
        EXPECT_EQ(status, each.line == nullptr ? 0 : 1);
        if (each.line != nullptr) {
            EXPECT_EQ(log.count(each.line), std::strcmp(each.what, "a file") == 0 ? 2U : 1U);
        }
    }
}

TEST_F(Server, LivesInDirectoriesWithLongPaths)
{
    directory.lengthen(200);
    const pid_t server = start();
    struct stat socket {};
    ASSERT_EQ(stat((directory.path() + "/svga_ch").c_str(), &socket), 0);
    EXPECT_TRUE(S_ISSOCK(socket.st_mode) && (socket.st_mode & 0777) == 0660);
    EXPECT_EQ(end(server), 0);
    EXPECT_TRUE(left_nothing());
}

TEST(Process, ValuesThatCannotBeReadAreOneWarningEach)
{
    captured_log log;
    setenv("KALIX_FOREGROUND", "perhaps", 1);
    setenv("KALIX_READY_FD", "12x", 1);
    setenv("KALIX_GROUP", "no such group", 1);
    setenv("KALIX_SOCKET_MODE", "1660", 1);
    setenv("WATCHDOG_USEC", "0", 1);
    EXPECT_EQ(run_child([] {
                  rlimit limit{64, 64};
                  getrlimit(RLIMIT_NOFILE, &limit);
                  limit.rlim_cur = 64;
                  setrlimit(RLIMIT_NOFILE, &limit);
                  process_begin(nullptr);
                  getrlimit(RLIMIT_NOFILE, &limit);
                  const settings& read = current_settings();
                  return read.foreground || read.ready_fd != -1 || read.group || read.socket_mode != 0660 ||
                         read.watchdog_us != 0 || limit.rlim_cur != limit.rlim_max;
              }),
              0);
    EXPECT_EQ(log.count("3 kalix: KALIX_FOREGROUND is \"perhaps\", which cannot be read; using 0"), 1U);
    EXPECT_EQ(log.count("3 kalix: KALIX_READY_FD is \"12x\", which cannot be read; using none"), 1U);
    EXPECT_EQ(log.count("3 kalix: KALIX_GROUP is \"no such group\", which cannot be read; using none"), 1U);
    EXPECT_EQ(log.count("3 kalix: KALIX_SOCKET_MODE is \"1660\", which cannot be read; using 0660"), 1U);
    EXPECT_EQ(log.count("3 kalix: WATCHDOG_USEC is \"0\", which cannot be read; using none"), 1U);
    EXPECT_EQ(log.lines().size(), 5U);
    for (const char* name : {"KALIX_READY_FD", "KALIX_GROUP", "KALIX_SOCKET_MODE", "WATCHDOG_USEC"})
        unsetenv(name);
}

// Puts a group kalix into the host's list, for this process alone; false when it may not.
bool make_group_kalix(const std::string& list)
{
    put(list, "root:x:0:\nkalix:x:4711:\n");
    return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount(list.c_str(), "/etc/group", nullptr, MS_BIND, nullptr) == 0;
}

// With whom a user's server shares, by what it is told and who it is.
TEST(Process, AServerSharesOnlyWithAGroupOfItsOwn)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become others";
    captured_log log;
    const test::fresh_directory list;
    std::filesystem::permissions(list.path(), std::filesystem::perms{0755});
    constexpr gid_t asked = 4711, other = 4712;
    struct row {
        const char* told;
        uid_t user;
        gid_t own, further;
        std::optional<gid_t> shares;
    };
    for (const row& each : {row{"4711", 65534, asked, other, asked},
                            {"4711", 65534, other, asked, asked},
                            {"4711", 65534, other, other, std::nullopt},
                            {"4711", 0, other, other, asked},
                            {"root", 0, other, other, 0},
                            {"none", 0, other, other, std::nullopt},
                            {"kalix", 65534, other, asked, asked},
                            {"kalix", 65534, other, other, std::nullopt},
                            {"", 0, other, other, asked},
                            {"", 65534, asked, other, asked},
                            {"", 65534, other, asked, std::nullopt}}) { // a member, who keeps his own private
        setenv("KALIX_GROUP", each.told, 1);
        const int outcome = run_child([&] {
            if (!make_group_kalix(list.path() / "group"))
                return 77;
            if (setgroups(1, &each.further) != 0 || setgid(each.own) != 0 || setuid(each.user) != 0)
                return 1;
            read_settings();
            return current_settings().group == each.shares ? 0 : 2;
        });
        if (outcome == 77)
            GTEST_SKIP() << "no file systems of a process's own here";
        EXPECT_EQ(outcome, 0) << each.told << " as " << each.user;
    }
    EXPECT_EQ(log.count("is \"4711\", a group that this user is no member of; using none"), 1U);
    unsetenv("KALIX_GROUP");
}

struct shared_with_thread {
    semaphore named;
    semaphore seen;
    std::array<char, 16> host_name{};
};

void* tell_name(void* argument)
{
    auto* shared = static_cast<shared_with_thread*>(argument);
    shared->named.wait();
    prctl(PR_GET_NAME, shared->host_name.data());
    shared->seen.post();
    return nullptr;
}

TEST(Process, ThreadsKeepTheirWholeNames)
{
    for (const std::string& name : {std::string{"tessra-gpu-worker3"}, std::string{"short"}}) {
        shared_with_thread shared;
        thread_id thread = 0;
        ASSERT_EQ(pthread_create(&thread, tell_name, &shared), 0);
        EXPECT_EQ(pthread_setname_np(thread, name.c_str()), 0);
        EXPECT_EQ(thread_name(thread), name);
        shared.named.post();
        shared.seen.wait();
        const std::string host{shared.host_name.data()};
        EXPECT_TRUE(name.ends_with(host) && host.size() == std::min<size_t>(name.size(), 15)) << host;
    }
    EXPECT_EQ(thread_name(0), "");
}

TEST(Process, ASleepOfNothingMakesNoSystemCall)
{
    const int before = sleeps;
    sleep_us(0);
    EXPECT_EQ(sleeps, before);
    const int64_t begun = now_ms();
    sleep_us(20'000);
    EXPECT_EQ(sleeps, before + 1);
    EXPECT_GE(now_ms() - begun, 19);
}

} // namespace
} // namespace kalix::platform
