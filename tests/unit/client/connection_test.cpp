// What can go wrong between client and server: lost, mad and missing servers, threads, forks.

#include "tests/unit/client/fake_server.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kalix::test {
namespace {

int getparam(kalix_connection* connection)
{
    uint64_t value = 0;
    return kalix_getparam(connection, 0, &value);
}

TEST(Open, SaysWhatIsMissing)
{
    kalix_connection* connection = nullptr;
    EXPECT_EQ(kalix_open("/nonexistent/kalix", &connection), -ENOENT);
    const run_directory empty;
    EXPECT_EQ(kalix_open(empty.path().c_str(), &connection), -ENOENT);
    const std::string endless(PATH_MAX, 'x');
    EXPECT_EQ(kalix_open(endless.c_str(), &connection), -ENAMETOOLONG);
    {
        const run_directory kept;
        mknod((kept.path() / "svga_ch").c_str(), S_IFSOCK | 0600, 0);
        EXPECT_EQ(kalix_open(kept.path().c_str(), &connection), -ECONNREFUSED);
    }
    EXPECT_EQ(connection, nullptr);
}

TEST(Open, ReachesAChannelWhosePathIsTooLongForAnAddress)
{
    const std::string deep = std::string(90, 'a') + "/" + std::string(90, 'b');
    fake_server server{echo, deep};
    const open_client client{server};
    EXPECT_EQ(getparam(client), 0);
    EXPECT_EQ(server.connects(), 1U);
}

TEST(Open, FindsTheRunDirectoryOfTheEnvironment)
{
    fake_server server{echo};
    setenv("KALIX_RUN_DIR", server.path().c_str(), 1);
    kalix_connection* connection = nullptr;
    EXPECT_EQ(kalix_open(nullptr, &connection), 0);
    unsetenv("KALIX_RUN_DIR");
    EXPECT_EQ(getparam(connection), 0);
    kalix_close(connection);
}

TEST(ErrorReplies, BecomeTheHostsNumbers)
{
    struct {
        int32_t wire;
        int host;
    } const rows[]{{89, -ENOSYS}, {90, -EMSGSIZE},  {3, -ESRCH},  {12, -ENOMEM},  {22, -EINVAL},
                   {34, -ERANGE}, {35, -EREMOTEIO}, {0, -EPROTO}, {-22, -EPROTO}, {INT32_MIN, -EPROTO}};
    for (const auto& row : rows) {
        fake_server server{[&](const received&) { return reply(row.wire, {}, KALIX_REPLY_ERROR); }};
        const open_client client{server};
        EXPECT_EQ(getparam(client), row.host) << "wire error " << row.wire;
        EXPECT_EQ(kalix_connection_error(client), 0) << "an error reply loses no connection";
        EXPECT_EQ(getparam(client), row.host);
    }
}

// A reply of 28 bytes, cut at each of them: the server is gone, whether by an orderly close or not.
TEST(LostServer, IsAnErrorAtEveryByteOfItsReply)
{
    const reaction whole = reply(0, {0, 0, 0, 0});
    for (size_t length = 0; length < whole.bytes.size(); ++length) {
        fake_server server{[&](const received&) {
            return reaction{{whole.bytes.begin(), whole.bytes.begin() + static_cast<ptrdiff_t>(length)}, true};
        }};
        const open_client client{server};
        alarm(20); // a hang ends the test
        EXPECT_EQ(getparam(client), -ECONNRESET) << length << " bytes";
        EXPECT_EQ(kalix_connection_error(client), -ECONNRESET);
        EXPECT_EQ(getparam(client), -ECONNRESET) << "the connection stays lost";
        alarm(0);
        EXPECT_EQ(server.requests().size(), 1U);
    }
}

TEST(LostServer, RaisesNoSignal)
{
    fake_server server{[](const received&) { return reaction{reply(0, {0, 0, 0, 0}).bytes, true}; }};
    const open_client client{server};
    EXPECT_EQ(getparam(client), 0);
    const std::vector<std::byte> payload(1 << 19); // more than a socket buffers
    int32_t status = 0;
    const int result = kalix_request(client, 1, payload.data(), 1 << 19, nullptr, 0, nullptr, &status);
    EXPECT_THAT(result, testing::AnyOf(-EPIPE, -ECONNRESET));
}

TEST(MadServer, EndsTheConnection)
{
    const words five{1, 2, 3, 4, 5};
    const std::pair<const char*, reaction> rows[]{
        {"more data than there is room", reply(0, five)},
        {"a kind that does not exist", reply(0, {0, 0, 0, 0}, 2)},
        {"a length without end", {reaction{std::vector<std::byte>(12, std::byte{0xFF}), false}}},
    };
    for (const auto& [name, answer] : rows) {
        fake_server server{[&bytes = answer](const received&) { return bytes; }};
        const open_client client{server};
        EXPECT_EQ(getparam(client), -EPROTO) << name;
        EXPECT_EQ(getparam(client), -EPROTO) << name;
        EXPECT_EQ(server.requests().size(), 1U) << name;
    }
}

// Replies carry the request's own number back, so one that reached the wrong thread would be seen.
TEST(Threads, ShareAConnection)
{
    fake_server server{[](const received& request) { return reply(0, {request.word(3), request.word(3) * 3}); }};
    const open_client client{server};
    constexpr uint32_t requests = 200;
    std::vector<std::thread> threads;
    std::atomic<uint32_t> right = 0;
    for (uint32_t thread = 0; thread < 4; ++thread)
        threads.emplace_back([&, thread] {
            for (uint32_t i = 0; i < requests; ++i) {
                uint32_t value = 0;
                const uint32_t index = thread * requests + i;
                right += kalix_fifomap(client, index, &value) == 0 && value == index * 3;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(right, 4 * requests);
}

TEST(Fork, LeavesTheSessionToTheParent)
{
    fake_server server{[](const received& request) {
        return request.command() == KALIX_CONTEXT_DEFINE ? reply(0, {4, 0}) : echo(request);
    }};
    kalix_connection* client = nullptr;
    ASSERT_EQ(kalix_open(server.path().c_str(), &client), 0);
    kalix_commands* commands = nullptr;
    ASSERT_EQ(kalix_command_buffer(client, 4, &commands), 0);
    const pid_t child = fork();
    if (child == 0) {
        const bool refused = getparam(client) == -EPERM && kalix_context_destroy(client, 4) == -EPERM;
        kalix_close(client);
        _exit(refused ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(getparam(client), 0);
    EXPECT_TRUE(exists(server.directory().object("execbuf_" + std::to_string(getpid()) + "_4")));
    kalix_close(client);
}

TEST(Arguments, ThatAreMissingAreRefused)
{
    fake_server server{echo};
    const open_client client{server};
    uint64_t value = 0;
    uint32_t id = 0;
    EXPECT_EQ(kalix_open(server.path().c_str(), nullptr), -EINVAL);
    EXPECT_EQ(kalix_getparam(nullptr, 0, &value), -EINVAL);
    EXPECT_EQ(kalix_getparam(client, 0, nullptr), -EINVAL);
    EXPECT_EQ(kalix_context_define(client, nullptr), -EINVAL);
    EXPECT_EQ(kalix_surface_define(client, nullptr, &id), -EINVAL);
    EXPECT_EQ(kalix_dmabuf_alloc(client, 1, nullptr), -EINVAL);
    EXPECT_EQ(kalix_command_buffer(client, 1, nullptr), -EINVAL);
    EXPECT_EQ(kalix_readback(client, nullptr, &value, 8), -EINVAL);
    EXPECT_EQ(kalix_request(client, 0, nullptr, 4, nullptr, 0, nullptr, nullptr), -EINVAL);
    kalix_close(nullptr);
    kalix_dmabuf_unmap(nullptr);
    EXPECT_TRUE(server.requests().empty());
}

} // namespace
} // namespace kalix::test
