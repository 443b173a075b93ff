// Servers beside each other and after each other, how they end, and clients that misuse shared memory.

#include "tests/system/server.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kalix/client.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kalix::test {
namespace {

kalix_connection* connect(const run_directory& to)
{
    kalix_connection* connection = nullptr;
    EXPECT_EQ(kalix_open(to.path().c_str(), &connection), 0);
    return connection;
}

TEST(Servers, LiveBesideEachOther)
{
    const run_directory first_directory;
    const run_directory second_directory;
    server first{first_directory};
    server second{second_directory};
    ASSERT_TRUE(first.is_ready() && second.is_ready());
    kalix_connection* const one = connect(first_directory);
    kalix_connection* const two = connect(second_directory);
    uint32_t cid = 0;
    EXPECT_EQ(kalix_context_define(one, &cid), 0);
    EXPECT_EQ(cid, 1u);
    EXPECT_EQ(kalix_context_define(two, &cid), 0);
    EXPECT_EQ(cid, 1u);
    first.send(SIGTERM);
    const int status = first.wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(first.log().back(), "5 kalix: shutting down gpu driver...");
    EXPECT_LT(kalix_context_define(one, &cid), 0);
    EXPECT_EQ(kalix_context_define(two, &cid), 0);
    EXPECT_EQ(cid, 2u);
    kalix_close(one);
    kalix_close(two);
}

TEST(Servers, ASecondOneInTheSameDirectoryFailsCleanly)
{
    const run_directory directory;
    server first{directory};
    ASSERT_TRUE(first.is_ready());
    kalix_connection* const connection = connect(directory);
    server second{directory};
    EXPECT_FALSE(second.is_ready());
    const int status = second.wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_THAT(second.log(), testing::Contains("2 kalix: could not create channel"));
    uint32_t cid = 0;
    EXPECT_EQ(kalix_context_define(connection, &cid), 0);
    kalix_close(connection);
}

TEST(Servers, OneThatWasKilledStartsAgain)
{
    const run_directory directory;
    for (int round = 0; round < 3; ++round) {
        server running{directory};
        ASSERT_TRUE(running.is_ready()) << round;
        EXPECT_TRUE(directory.shared_objects().empty()); // nothing of the one before
        kalix_connection* const connection = connect(directory);
        kalix_dma_buffer buffer{};
        ASSERT_EQ(kalix_dmabuf_alloc(connection, 100, &buffer), 0);
        running.send(SIGKILL);
        running.wait();
        uint32_t cid = 0;
        EXPECT_LT(kalix_context_define(connection, &cid), 0);
        kalix_dmabuf_unmap(&buffer);
        kalix_close(connection);
    }
}

// A client that shrinks and changes its command buffer while the server reads it hurts itself alone.
TEST(Servers, CommandBuffersThatShrinkAndChangeHurtNobody)
{
    const run_directory directory;
    server running{directory};
    ASSERT_TRUE(running.is_ready());
    kalix_connection* const connection = connect(directory);
    kalix_connection* const bystander = connect(directory);
    uint32_t cid = 0;
    ASSERT_EQ(kalix_context_define(connection, &cid), 0);
    kalix_commands* list = nullptr;
    ASSERT_EQ(kalix_command_buffer(connection, cid, &list), 0);
    const std::string object =
        directory.path() + "/shm/execbuf_" + std::to_string(::getpid()) + "_" + std::to_string(cid);
    std::atomic<bool> done{false};
    std::thread spoiler{[&] {
        const int file = ::open(object.c_str(), O_RDWR | O_CLOEXEC);
        const uint32_t noise[] = {1057, 0xFFFFFFF0, 7, 1063};
        for (uint32_t i = 0; !done; ++i) {
            EXPECT_EQ(::ftruncate(file, i % 2 ? 65536 : 100), 0);
            EXPECT_EQ(::pwrite(file, noise, sizeof noise, i % 16 * 4), static_cast<ssize_t>(sizeof noise));
        }
        ::close(file);
    }};
    for (int i = 0; i < 2000; ++i) {
        execbuf_rep reply{};
        const int status = kalix_execbuf(connection, cid, 4096, 0, &reply);
        ASSERT_TRUE(status == 0 || status == -EINVAL) << status;
    }
    done = true;
    spoiler.join();
    EXPECT_EQ(kalix_context_define(bystander, &cid), 0);
    kalix_close(connection);
    kalix_close(bystander);
}

struct raw_row {
    const char* name;
    std::vector<uint32_t> sent;     // the frame and all, as words
    std::vector<uint32_t> answered; // empty: the connection is closed without one
};

// What a client that speaks the frames itself may send.
TEST(Servers, RawFrames)
{
    const run_directory directory;
    server running{directory};
    ASSERT_TRUE(running.is_ready());
    constexpr uint32_t magic = KALIX_REQUEST_MAGIC;
    const raw_row rows[] = {
        {"connect", {4, 0, 0x100}, {0, 0, 0}},
        {"io message", {4, 0, 0x101}, {1, 89, 0}},
        {"no operation", {12, 64, magic, 3, 0}, {0, 0, 0}},
        {"no payload length", {8, 64, magic, 3}, {0, 0, 0}},
        {"bad magic", {12, 64, 1 + magic, 3, 0}, {1, 89, 0}},
        {"payload missing", {12, 64, magic, 3, 64}, {1, 89, 0}},
        {"payload of 2 GiB", {12, 64, magic, 0, 0x7FFFFFFF}, {1, 89, 0}},
        {"payload below nothing", {12, 64, magic, 0, 0x80000000}, {0, static_cast<uint32_t>(-22), 0}},
        {"software mode", {16, 64, magic, 240, 4, 9}, {0, 0, 8, 0, 0}},
        {"software mode without room", {16, 4, magic, 240, 4, 9}, {0, 0, 4, 0}},
        {"unknown", {16, 64, magic, 204, 4, 9}, {0, 1, 0}},
        {"too long", {0x100001, 64, magic}, {1, 90, 0}},
    };
    for (const raw_row& row : rows) {
        SCOPED_TRACE(row.name);
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{AF_UNIX, {}};
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s/svga_ch", directory.path().c_str());
        ASSERT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        const timeval patience{10, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        ASSERT_EQ(::send(fd, row.sent.data(), row.sent.size() * 4, MSG_NOSIGNAL),
                  static_cast<ssize_t>(row.sent.size() * 4));
        std::vector<uint32_t> got(row.answered.size());
        EXPECT_EQ(::recv(fd, got.data(), got.size() * 4, MSG_WAITALL), static_cast<ssize_t>(got.size() * 4));
        EXPECT_EQ(got, row.answered);
        ::close(fd);
    }
}

#if defined(__x86_64__)
// Has a running server's function answer 1, as a debugger would.
void release_from_debugger(pid_t server)
{
    const std::string process = "/proc/" + std::to_string(server);
    const std::string program = std::filesystem::read_symlink(process + "/exe").string();
    const std::string listing = "nm -C " + program;
    FILE* const symbols = ::popen(listing.c_str(), "r"); // NOLINT(cert-env33-c): a path of our own
    uint64_t address = 0;
    char line[4096];
    while (std::fgets(line, sizeof line, symbols))
        if (std::strstr(line, " kalix::gdb_check()"))
            address = std::strtoull(line, nullptr, 16);
    ::pclose(symbols);
    ASSERT_NE(address, 0u);
    // Its first mapping; a sanitizer's lie before it.
    uint64_t base = 0;
    std::ifstream maps{process + "/maps"};
    for (std::string mapping; base == 0 && std::getline(maps, mapping);)
        if (mapping.ends_with(program))
            base = std::strtoull(mapping.c_str(), nullptr, 16);
    ASSERT_NE(base, 0u);
    const uint8_t answer_one[] = {0xB8, 1, 0, 0, 0, 0xC3};
    const int memory = ::open((process + "/mem").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(::pwrite(memory, answer_one, sizeof answer_one, static_cast<off_t>(base + address)),
              static_cast<ssize_t>(sizeof answer_one));
    ::close(memory);
}

TEST(Servers, OneThatWaitsForADebuggerIsReleasedByItAndEndsOnSignals)
{
    const run_directory directory;
    const auto waits = [](const server& one) {
        return soon([&one] { return testing::Value(one.log(), testing::Contains("5 kalix: waiting for gdb...")); });
    };
    server released{directory, {}, {"waitgdb", "testmode"}};
    ASSERT_TRUE(waits(released));
    release_from_debugger(released.pid());
    EXPECT_EQ(released.wait(), 0);
    EXPECT_EQ(released.log().back(), "5 kalix: software test result = 0");
    server ended{directory, {}, {"WaitGDB"}};
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
    const std::filesystem::path bin =
        std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "bin";
    std::vector<std::string> pictures;
    for (const char* name : {"/one.png", "/two.png"}) {
        const std::string file = directory.path() + name;
        const std::string command = (bin / "kalix-run").string() + " -- " + (bin / "kalix-demo").string() +
                                    " triangle --size 320x200 --output " + file + " > /dev/null";
        ASSERT_EQ(std::system(command.c_str()), 0); // NOLINT(cert-env33-c): paths of our own
        std::string& picture = pictures.emplace_back(std::filesystem::file_size(file), '\0');
        const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(::read(fd, picture.data(), picture.size()), static_cast<ssize_t>(picture.size()));
        ::close(fd);
    }
    EXPECT_GT(pictures[0].size(), 1000u);
    EXPECT_EQ(pictures[0], pictures[1]);
}

} // namespace
} // namespace kalix::test
