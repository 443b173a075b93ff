// What can go wrong between client and server: lost, mad and missing servers, threads, forks.

#include "tests/unit/client/fake_server.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <grp.h>
#include <kalix/client.hpp>
#include <kalix/rundir.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
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
    const fresh_directory empty;
    EXPECT_EQ(kalix_open(empty.path().c_str(), &connection), -ENOENT);
    mknod((empty.path() / "svga_ch").c_str(), S_IFSOCK | 0600, 0);
    EXPECT_EQ(kalix_open(empty.path().c_str(), &connection), -ECONNREFUSED);
    EXPECT_EQ(kalix_open(std::string(PATH_MAX, 'x').c_str(), &connection), -ENAMETOOLONG);
    EXPECT_EQ(connection, nullptr);
}

TEST(Open, FindsTheRunDirectoryOfTheEnvironmentAtAPathTooLongForAnAddress)
{
    fake_server server{echo, std::string(90, 'a') + "/" + std::string(90, 'b')};
    setenv("KALIX_RUN_DIR", server.path().c_str(), 1);
    kalix_connection* connection = nullptr;
    EXPECT_EQ(kalix_open(nullptr, &connection), 0);
    unsetenv("KALIX_RUN_DIR");
    EXPECT_EQ(getparam(connection), 0);
    EXPECT_EQ(server.connects(), 1U);
    kalix_close(connection);
}

std::string why(const char* directory, int error)
{
    char text[512] = "";
    const int length = kalix_explain_open(directory, error, text, sizeof text);
    EXPECT_EQ(length, static_cast<int>(strlen(text)));
    return text;
}

TEST(Open, IsExplained)
{
    EXPECT_EQ(why("/nonexistent", -ENOENT), "no server: /nonexistent/svga_ch is missing");
    EXPECT_EQ(why("/d", -ECONNREFUSED), "the server has ended: nobody listens at /d/svga_ch");
    EXPECT_EQ(why("/d", -EMFILE), "/d/svga_ch: Too many open files");
    EXPECT_THAT(why("/d", -EPIPE), testing::StartsWith("the server at /d/svga_ch has let the connection go"));
    char cut[4];
    EXPECT_EQ(kalix_explain_open("/d", -EMFILE, cut, sizeof cut), 31);
    EXPECT_STREQ(cut, "/d/");
    EXPECT_EQ(kalix_explain_open("/d", -EMFILE, nullptr, 0), 31);
    EXPECT_EQ(kalix_explain_open("/d", -EMFILE, nullptr, 4), -EINVAL);
    try {
        const client::connection none{"/nonexistent"};
        FAIL() << "there is none";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
        EXPECT_STREQ(error.what(), "connect to the server: no server: /nonexistent/svga_ch is missing");
    }
}

TEST(Open, ExplainsWhichGroupWouldHelp)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can keep somebody out and become him";
    const fresh_directory directory;
    const std::string path = directory.path(), socket = path + "/svga_ch";
    mknod(socket.c_str(), S_IFSOCK | 0600, 0);
    const auto told = [&](mode_t of_directory, mode_t of_socket, gid_t group) {
        for (const auto& [file, mode] : {std::pair{path, of_directory}, {socket, of_socket}}) {
            EXPECT_EQ(chown(file.c_str(), 0, group), 0);
            EXPECT_EQ(chmod(file.c_str(), mode), 0);
        }
        const fresh_directory results;
        run_child([&] {
            std::ofstream out{results.path() / "said"};
            if (setgroups(0, nullptr) == 0 && setuid(64801) == 0)
                out << why(path.c_str(), -EACCES);
            return 0;
        });
        return contents(results.path() / "said");
    };
    const std::string help = ": permission denied; its group is 64810: usermod -aG 64810 NAME, then log in again";
    EXPECT_EQ(told(0750, 0660, 64810), path + help);
    EXPECT_EQ(told(0755, 0660, 64810), socket + help);
    EXPECT_EQ(told(0755, 0660, 0), socket + ": permission denied; the server is another user's");
    EXPECT_EQ(told(0755, 0600, 64810), socket + ": permission denied; the server is another user's");
    EXPECT_EQ(told(0700, 0660, 64810), path + ": permission denied; the server is another user's");
}

// In a file system of its own, since the host's directory has a fixed name.
TEST(Open, FindsTheUsersServerThenTheHosts)
{
    const int outcome = run_child([] {
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", "/run", "tmpfs", 0, nullptr) != 0)
            return 77;
        const auto finds = [](const std::string& wanted) {
            char path[4096];
            return kalix_find_run_directory(path, sizeof path) > 0 && path == wanted ? 0 : 1;
        };
        const auto serve_in = [](const char* directory) {
            std::filesystem::create_directories(directory);
            return mknod((std::string{directory} + "/svga_ch").c_str(), S_IFSOCK | 0666, 0);
        };
        unsetenv("KALIX_RUN_DIR");
        setenv("XDG_RUNTIME_DIR", "/run/user", 1);
        if (seteuid(64801) != 0)
            return 77;
        int wrong = finds("/run/user/kalix"); // there is none at all
        if (seteuid(0) != 0)
            return 77;
        std::filesystem::create_directory("/run/kalix");
        chmod("/run/kalix", 0700);
        wrong += seteuid(64801) + 2 * finds("/run/kalix") + seteuid(0); // may not be entered
        chmod("/run/kalix", 0755);
        wrong += seteuid(64801) + 4 * finds("/run/user/kalix") + seteuid(0); // nobody serves there
        wrong += serve_in("/run/kalix") + seteuid(64801) + 8 * finds("/run/kalix") + seteuid(0);
        wrong += serve_in("/run/user/kalix") + seteuid(64801) + 16 * finds("/run/user/kalix") + seteuid(0);
        setenv("KALIX_RUN_DIR", "/elsewhere", 1);
        return wrong + 32 * finds("/elsewhere");
    });
    if (outcome == 77)
        GTEST_SKIP() << "no file systems of a process's own here";
    EXPECT_EQ(outcome, 0);
}

struct reply_row {
    std::string name;
    reaction answer;
    int result;
    bool loses; // the connection, for good
};

std::vector<reply_row> failures()
{
    std::vector<reply_row> rows{
        {"more data than there is room", reply(0, words(5)), -EPROTO, true},
        {"a kind that does not exist", reply(0, words(4), 2), -EPROTO, true},
        {"a length without end", {std::vector<std::byte>(12, std::byte{0xFF})}, -EPROTO, true},
    };
    for (const auto& [wire, host] : {std::pair{89, -ENOSYS},
                                     {90, -EMSGSIZE},
                                     {3, -ESRCH},
                                     {34, -ERANGE},
                                     {35, -EREMOTEIO},
                                     {0, -EPROTO},
                                     {-22, -EPROTO},
                                     {INT32_MIN, -EPROTO}})
        rows.push_back({"error " + std::to_string(wire), reply(wire, {}, KALIX_REPLY_ERROR), host, false});
    // Cut at each byte: the server is gone, whether by an orderly close or not.
    const std::vector<std::byte> whole = reply(0, words(4)).bytes;
    for (auto end = whole.begin(); end != whole.end(); ++end)
        rows.push_back({"a reply cut short", {{whole.begin(), end}, true}, -ECONNRESET, true});
    return rows;
}

TEST(Replies, FailACallAndMayLoseTheConnection)
{
    for (const reply_row& row : failures()) {
        SCOPED_TRACE(row.name + ", " + std::to_string(row.answer.bytes.size()) + " bytes");
        fake_server server{[&](const received&) { return row.answer; }};
        const open_client client{server};
        alarm(20); // a hang ends the test
        EXPECT_EQ(getparam(client), row.result);
        EXPECT_EQ(kalix_connection_error(client), row.loses ? row.result : 0);
        EXPECT_EQ(getparam(client), row.result);
        alarm(0);
        EXPECT_EQ(server.requests().size(), row.loses ? 1U : 2U);
    }
}

TEST(Replies, OfAServerThatIsGoneRaiseNoSignal)
{
    fake_server server{[](const received&) { return reaction{reply(0, words(4)).bytes, true}; }};
    const open_client client{server};
    EXPECT_EQ(getparam(client), 0);
    const std::vector<std::byte> payload(1 << 19); // more than a socket buffers
    int32_t status = 0;
    const int result = kalix_request(client, 1, payload.data(), 1 << 19, nullptr, 0, nullptr, &status);
    EXPECT_THAT(result, testing::AnyOf(-EPIPE, -ECONNRESET));
}

// Replies carry the request's own number back, so one that reached the wrong thread would be seen.
TEST(Threads, ShareAConnection)
{
    fake_server server{[](const received& request) { return reply(0, {request.word(3), request.word(3) * 3}); }};
    const open_client client{server};
    std::vector<std::jthread> threads;
    for (uint32_t first = 0; first < 800; first += 200)
        threads.emplace_back([&client, first] {
            for (uint32_t index = first; index < first + 200; ++index) {
                uint32_t value = 0;
                EXPECT_EQ(kalix_fifomap(client, index, &value), 0);
                EXPECT_EQ(value, index * 3);
            }
        });
}

TEST(Fork, LeavesTheSessionToTheParent)
{
    fake_server server{echo};
    const open_client client{server};
    kalix_commands* commands = nullptr;
    ASSERT_EQ(kalix_command_buffer(client, 4, &commands), 0);
    EXPECT_EQ(run_child([&] {
                  const bool refused = getparam(client) == -EPERM && kalix_context_destroy(client, 4) == -EPERM;
                  kalix_close(client);
                  return refused ? 0 : 1;
              }),
              0);
    EXPECT_EQ(getparam(client), 0);
    EXPECT_TRUE(exists(server.object("execbuf_" + std::to_string(getpid()) + "_4")));
}

TEST(Arguments, ThatCannotBeAreRefused)
{
    fake_server server{echo};
    const open_client client{server};
    uint64_t value = 0;
    uint32_t id = 7;
    const std::vector<surface_size> sizes(KALIX_SURFACE_MIPS_MAX + 1);
    const kalix_surface_description too_many{0, 2, {145}, sizes.data(), KALIX_SURFACE_MIPS_MAX + 1, 0, 0};
    const kalix_surface_description without_sizes{0, 2, {1}, nullptr, 1, 0, 0};
    EXPECT_EQ(kalix_open(server.path().c_str(), nullptr), -EINVAL);
    EXPECT_EQ(kalix_getparam(nullptr, 0, &value), -EINVAL);
    EXPECT_EQ(kalix_getparam(client, 0, nullptr), -EINVAL);
    EXPECT_EQ(kalix_context_define(client, nullptr), -EINVAL);
    EXPECT_EQ(kalix_surface_define(client, nullptr, &id), -EINVAL);
    EXPECT_EQ(kalix_surface_define(client, &too_many, &id), -EINVAL);
    EXPECT_EQ(kalix_surface_define(client, &without_sizes, &id), -EINVAL);
    EXPECT_EQ(kalix_dmabuf_alloc(client, 1, nullptr), -EINVAL);
    EXPECT_EQ(kalix_command_buffer(client, 1, nullptr), -EINVAL);
    EXPECT_EQ(kalix_readback(client, nullptr, &value, 8), -EINVAL);
    EXPECT_EQ(kalix_request(client, 0, nullptr, 4, nullptr, 0, nullptr, nullptr), -EINVAL);
    kalix_close(nullptr);
    kalix_dmabuf_unmap(nullptr);
    EXPECT_EQ(id, 7U);
    EXPECT_TRUE(server.requests().empty());
}

} // namespace
} // namespace kalix::test
