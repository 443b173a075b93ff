// Servers beside each other and after each other, how they end, and clients that misuse shared memory.

#include "tests/system/server.h"
#include "tests/unit/platform/support.h"
#include "tools/screen/server_state.h"
#include "tools/screen/status_reader.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <kalix/client.hpp>
#include <sstream>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace kalix::test {
namespace {

// A server in a directory of its own, ready.
struct housed_server {
    run_directory directory;
    server running{directory};
    housed_server() { EXPECT_TRUE(running.is_ready()); }
};

client::connection connect(const run_directory& to)
{
    return client::connection{to.path().c_str()};
}

TEST(Servers, LiveBesideEachOther)
{
    housed_server first;
    const housed_server second;
    const client::connection one = connect(first.directory);
    const client::connection two = connect(second.directory);
    uint32_t cid = 0;
    EXPECT_EQ(kalix_context_define(one.get(), &cid), 0);
    EXPECT_EQ(cid, 1u);
    EXPECT_EQ(kalix_context_define(two.get(), &cid), 0);
    EXPECT_EQ(cid, 1u);
    first.running.send(SIGTERM);
    EXPECT_EQ(first.running.wait(), 0);
    EXPECT_EQ(first.running.log().back(), "5 kalix: shutting down gpu driver...");
    EXPECT_LT(kalix_context_define(one.get(), &cid), 0);
    EXPECT_EQ(kalix_context_define(two.get(), &cid), 0);
    EXPECT_EQ(cid, 2u);
}

TEST(Servers, ASecondOneInTheSameDirectoryFailsCleanly)
{
    const housed_server first;
    const client::connection client = connect(first.directory);
    server second{first.directory};
    EXPECT_FALSE(second.is_ready());
    EXPECT_EQ(second.wait(), 0);
    EXPECT_THAT(second.log(), testing::Contains("2 kalix: could not create channel"));
    EXPECT_EQ(client.parameter(KALIX_PARAM_HAVE_3D), 1u);
}

TEST(Servers, OneThatWasKilledStartsAgain)
{
    const run_directory directory;
    for (int round = 0; round < 3; ++round) {
        server running{directory};
        ASSERT_TRUE(running.is_ready()) << round;
        EXPECT_TRUE(directory.shared_objects().empty()); // nothing of the one before
        const client::connection client = connect(directory);
        const client::dma_buffer buffer{client, 100};
        running.send(SIGKILL);
        EXPECT_EQ(running.wait(), 1000 + SIGKILL);
        uint32_t cid = 0;
        EXPECT_LT(kalix_context_define(client.get(), &cid), 0);
    }
}

// By the lock on its status file, which the kernel takes back; nobody who may only read can keep a server from it.
TEST(Servers, WhoLooksSeesWhetherTheServerLives)
{
    using tools::server_state;
    const run_directory directory;
    EXPECT_EQ(tools::state_of_server(directory.path()), server_state::none);
    unique_fd readers; // with a lock of his own on the file of a server
    for (const int signal : {SIGKILL, SIGTERM, SIGKILL}) {
        server running{directory};
        ASSERT_TRUE(running.is_ready());
        EXPECT_FALSE(readers && tools::writer_lives(readers.get()));
        running.send(SIGSTOP);
        EXPECT_TRUE(tools::server_lives(directory.path()));
        running.send(SIGCONT);
        readers = unique_fd{::open((directory.path() + "/status").c_str(), O_RDONLY | O_CLOEXEC)};
        EXPECT_TRUE(tools::writer_lives(readers.get()));
        running.send(signal);
        running.wait();
        EXPECT_EQ(tools::state_of_server(directory.path()), server_state::ended);
        struct flock whole {};
        whole.l_type = F_RDLCK;
        EXPECT_EQ(::fcntl(readers.get(), F_OFD_SETLK, &whole), 0);
        EXPECT_FALSE(tools::server_lives(directory.path()));
    }
    ::setenv("KALIX_RUN_DIR", directory.path().c_str(), 1);
    ::setenv("KALIX_PPS_DIR", (directory.path() + "/pps").c_str(), 1);
    ::setenv("KALIX_LOG", (directory.path() + "/log").c_str(), 1);
    EXPECT_EQ(run_child([] { return become({program("kalix")}); }), 0); // the one that goes into the background
    EXPECT_TRUE(soon([&] { return tools::server_lives(directory.path()); }));
    ::kill(static_cast<pid_t>(tools::read_status(directory.path())->server_pid), SIGTERM);
    EXPECT_TRUE(soon([&] { return !tools::server_lives(directory.path()); }));
}

// A client that shrinks and changes its command buffer while the server reads it hurts itself alone.
TEST(Servers, CommandBuffersThatShrinkAndChangeHurtNobody)
{
    const housed_server here;
    const client::connection client = connect(here.directory);
    const client::connection bystander = connect(here.directory);
    const client::context context{client};
    const std::string object =
        here.directory.path() + "/shm/execbuf_" + std::to_string(::getpid()) + "_" + std::to_string(context.cid());
    std::jthread spoiler{[&](const std::stop_token& done) {
        const unique_fd file{::open(object.c_str(), O_RDWR | O_CLOEXEC)};
        const uint32_t noise[] = {1057, 0xFFFFFFF0, 7, 1063};
        for (uint32_t i = 0; !done.stop_requested(); ++i) {
            EXPECT_EQ(::ftruncate(file.get(), i % 2 ? 65536 : 100), 0);
            EXPECT_EQ(::pwrite(file.get(), noise, sizeof noise, i % 16 * 4), static_cast<ssize_t>(sizeof noise));
        }
    }};
    for (int i = 0; i < 2000; ++i)
        EXPECT_THAT(kalix_execbuf(client.get(), context.cid(), 4096, 0, nullptr), testing::AnyOf(0, -EINVAL));
    spoiler = {};
    EXPECT_EQ(bystander.parameter(KALIX_PARAM_HAVE_3D), 1u);
}

// What a client that speaks the frames itself may send: channel and dispatcher together.
TEST(Servers, RawFrames)
{
    const housed_server here;
    constexpr uint32_t magic = KALIX_REQUEST_MAGIC;
    struct row {
        const char* name;
        std::vector<uint32_t> sent; // the frame and all, as words
        std::vector<uint32_t> answered;
    };
    for (const auto& [name, sent, answered] : {
             row{"connect", {4, 0, 0x100}, {0, 0, 0}},
             {"no payload length", {8, 64, magic, 3}, {0, 0, 0}},
             {"bad magic", {12, 64, 1 + magic, 3, 0}, {1, 89, 0}},
             {"payload below nothing", {12, 64, magic, 0, 0x80000000}, {0, static_cast<uint32_t>(-22), 0}},
             {"software mode without room", {16, 4, magic, 240, 4, 9}, {0, 0, 4, 0}},
         }) {
        SCOPED_TRACE(name);
        platform::raw_client client{here.directory.path()};
        ASSERT_TRUE(client.send(std::as_bytes(std::span{sent})));
        std::vector<uint32_t> got(answered.size());
        EXPECT_EQ(::recv(client.fd(), got.data(), got.size() * 4, MSG_WAITALL), static_cast<ssize_t>(got.size() * 4));
        EXPECT_EQ(got, answered);
    }
}

#if defined(__x86_64__)
// Has a running server's function answer 1, as a debugger would.
void release_from_debugger(pid_t server)
{
    const std::string process = "/proc/" + std::to_string(server);
    const std::string program = std::filesystem::read_symlink(process + "/exe").string();
    FILE* const symbols = ::popen(("nm -C " + program).c_str(), "r"); // NOLINT(cert-env33-c): a path of our own
    uint64_t address = 0;
    char line[4096];
    while (std::fgets(line, sizeof line, symbols))
        if (std::strstr(line, " kalix::gdb_check()"))
            address = std::strtoull(line, nullptr, 16);
    ::pclose(symbols);
    ASSERT_NE(address, 0u);
    // Its first mapping; a sanitizer's lie before it.
    uint64_t base = 0;
    std::istringstream maps{contents(process + "/maps")};
    for (std::string mapping; base == 0 && std::getline(maps, mapping);)
        if (mapping.ends_with(program))
            base = std::strtoull(mapping.c_str(), nullptr, 16);
    ASSERT_NE(base, 0u);
    const uint8_t answer_one[] = {0xB8, 1, 0, 0, 0, 0xC3};
    const unique_fd memory{::open((process + "/mem").c_str(), O_RDWR | O_CLOEXEC)};
    EXPECT_EQ(::pwrite(memory.get(), answer_one, sizeof answer_one, static_cast<off_t>(base + address)),
              static_cast<ssize_t>(sizeof answer_one));
}

TEST(Servers, OneThatWaitsForADebuggerIsReleasedByItAndEndsOnSignals)
{
    const run_directory directory;
    const auto waits = [](const server& one) {
        return soon([&one] { return testing::Value(one.log(), testing::Contains("5 kalix: waiting for gdb...")); });
    };
    server released{directory, {"waitgdb", "testmode"}};
    ASSERT_TRUE(waits(released));
    release_from_debugger(released.pid());
    EXPECT_EQ(released.wait(), 0);
    EXPECT_EQ(released.log().back(), "5 kalix: software test result = 0");
    server ended{directory, {"WaitGDB"}};
    ASSERT_TRUE(waits(ended));
    ended.send(SIGTERM);
    EXPECT_EQ(ended.wait(), 0);
    EXPECT_EQ(ended.log().back(), "5 kalix: shutting down gpu driver...");
}
#endif

// The same scene drawn twice, on servers of their own, is the same picture.
TEST(Servers, PicturesAreTheSameEveryTime)
{
    const run_directory directory;
    const auto picture = [&](const std::string& name) {
        const std::string file = directory.path() + name;
        const std::string command = program("kalix-run") + " -- " + program("kalix-demo") +
                                    " triangle --size 320x200 --output " + file + " > /dev/null";
        EXPECT_EQ(std::system(command.c_str()), 0); // NOLINT(cert-env33-c): paths of our own
        return contents(file);
    };
    const std::string one = picture("/one.png");
    EXPECT_GT(one.size(), 1000u);
    EXPECT_EQ(one, picture("/two.png"));
}

} // namespace
} // namespace kalix::test
