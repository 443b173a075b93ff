// A server for others: users of its group, strangers, and clients in process namespaces of their own.

#include "tests/system/screen_test.h"

#include <csignal>
#include <gmock/gmock.h>
#include <grp.h>
#include <sched.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace kalix::test {
namespace {

// Ids that no host gives to anybody.
constexpr uid_t service = 64801, member = 64802, stranger = 64803;
constexpr gid_t shared_group = 64810;

// Makes this process one of that user, in a group of its own and perhaps the shared one; false when it may not.
bool become_user(uid_t user, bool in_group)
{
    return ::setgroups(in_group ? 1 : 0, &shared_group) == 0 && ::setgid(user) == 0 && ::setuid(user) == 0;
}

enum outcome { drew = 0, refused = 1, failed = 2 };

bool paints(const client::connection& server, const client::connection& second)
{
    constexpr svga3d_rect all{0, 0, 16, 16};
    client::context drawing{server};
    client::command_buffer& commands = drawing.commands();
    const client::surface picture{server, SVGA3D_SURFACE_HINT_RENDERTARGET, SVGA3D_A8R8G8B8, 16, 16};
    const client::dma_buffer staging{server, 16 * 16 * 4};
    std::ranges::fill(staging.bytes(), std::byte{0x5A});
    commands.upload(staging, picture);
    commands.set_render_target(SVGA3D_RT_COLOR0, picture.image());
    commands.set_viewport({0, 0, 8, 16});
    commands.clear(SVGA3D_CLEAR_COLOR, 0xFF00FF00, 1, 0, {0, 0, 8, 16});
    commands.submit();
    server.present(picture);
    std::vector<uint32_t> wanted;
    for (uint32_t i = 0; i < 256; ++i)
        wanted.push_back(i % 16 < 8 ? 0xFF00FF00 : 0x5A5A5A5A);
    const auto is_wanted = [&wanted](const std::vector<std::byte>& pixels) {
        return std::ranges::equal(pixels, std::as_bytes(std::span{wanted}));
    };
    // A second connection of the process finds the place where the server puts this surface's pixels.
    uint32_t pixel = 0;
    const kalix_readback_area last{picture.sid(), 16, 16, SVGA3D_A8R8G8B8, 15, 15, 1, 1};
    return is_wanted(picture.read(all)) && kalix_readback(second.get(), &last, &pixel, 4) == 0 && pixel == 0x5A5A5A5A;
}

// Draws, moves bytes both ways and presents, as a client of that server.
int draw(const std::string& directory)
try {
    for (int round = 0; round < 3; ++round) {
        const client::connection server{directory.c_str()};
        const client::connection second{directory.c_str()};
        if (!paints(server, second))
            return failed;
    }
    return drew;
} catch (const std::system_error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return error.code() == std::errc::permission_denied ? refused : failed;
}

int draw_as(uid_t user, bool in_group, const std::string& directory)
{
    return run_child([&] { return become_user(user, in_group) ? draw(directory) : 3; });
}

// The number of this process that a server knows is another one than its own here.
int draw_in_a_namespace(uid_t user, const std::string& directory)
{
    return run_child([&] {
        if (::unshare(CLONE_NEWPID) != 0)
            return 4;
        return run_child([&] { return user == 0 || become_user(user, true) ? draw(directory) : 3; });
    });
}

class Sharing : public testing::Test {
protected:
    void SetUp() override
    {
        if (::geteuid() != 0)
            GTEST_SKIP() << "only root can become other users";
        const std::string there = program("kalix");
        if (run_child([&] { return become_user(service, false) && ::access(there.c_str(), X_OK) == 0 ? 0 : 1; }) != 0)
            GTEST_SKIP() << "other users cannot reach " << there;
        ASSERT_EQ(::chown(path().c_str(), service, service), 0);
        start();
        ASSERT_TRUE(running->is_ready()) << testing::PrintToString(running->log());
    }
    void start()
    {
        running.emplace(directory, std::vector<std::string>{}, [] {
            ::setenv("KALIX_GROUP", std::to_string(shared_group).c_str(), 1);
            become_user(service, true);
        });
    }
    std::string path() const { return directory.path(); }
    std::string rights(const std::string& file) const
    {
        struct stat facts {};
        char text[64] = "missing";
        if (::stat((path() + file).c_str(), &facts) == 0)
            std::snprintf(text, sizeof text, "%o %u", facts.st_mode & 07777, facts.st_gid);
        return text;
    }

    run_directory directory;
    std::optional<server> running;
};

TEST_F(Sharing, AnUnprivilegedServerServesItsGroupAndNobodyElse)
{
    const std::string group = " " + std::to_string(shared_group);
    EXPECT_EQ(rights(""), "750" + group);
    EXPECT_EQ(rights("/svga_ch"), "660" + group);
    EXPECT_EQ(rights("/screen"), "640" + group);
    EXPECT_EQ(rights("/status"), "640" + group);
    EXPECT_EQ(rights("/shm").substr(0, 3), "700");
    const size_t descriptors = running->descriptors(); // the one that told of readiness is perhaps still open
    EXPECT_EQ(draw_as(member, true, path()), drew);
    EXPECT_EQ(draw_as(service, false, path()), drew); // its own user, by files
    EXPECT_EQ(draw_as(0, false, path()), drew);       // root, to whom it cannot give files
    EXPECT_EQ(draw_as(stranger, false, path()), refused);
    EXPECT_TRUE(soon([&] { return running->descriptors() <= descriptors; }));
    EXPECT_TRUE(directory.shared_objects().empty());
    EXPECT_THAT(running->log(),
                testing::Contains(testing::ContainsRegex("5 kalix: process [0-9]+ of user 64802 connected")));
}

// A member could put a socket of his own in the place of the server's.
TEST_F(Sharing, AGroupThatMayWriteIntoTheDirectoryIsNotServed)
{
    running.reset();
    ASSERT_EQ(::chmod(path().c_str(), 0770), 0);
    start();
    EXPECT_FALSE(running->is_ready());
    EXPECT_THAT(running->log(), testing::Contains(testing::HasSubstr("the group that shares it may write into it")));
}

TEST_F(Sharing, MembersWhoAreKilledLeaveNothing)
{
    EXPECT_EQ(draw_as(member, true, path()), drew);
    const size_t descriptors = running->descriptors();
    SCOPED_TRACE(testing::Message() << "KALIX_TEST_SEED=" << test_seed());
    std::mt19937 random{test_seed()};
    for (int killed = 0; killed < 60; ++killed) {
        const pid_t victim = start_child([this] {
            if (!become_user(member, true))
                return 3;
            while (draw(path()) == drew) {
            }
            return 1;
        });
        std::this_thread::sleep_for(std::chrono::microseconds{random() % 20'000});
        ::kill(victim, SIGKILL);
        EXPECT_EQ(end_of(victim), 1000 + SIGKILL);
    }
    EXPECT_TRUE(soon([&] { return running->descriptors() <= descriptors; })) << running->descriptors();
    EXPECT_EQ(draw_as(member, true, path()), drew);
}

TEST_F(Sharing, AClientInANamespaceOfItsOwnIsServed)
{
    const int outcome = draw_in_a_namespace(member, path());
    if (outcome == 4)
        GTEST_SKIP() << "no process namespaces here";
    EXPECT_EQ(outcome, drew);
    const run_directory of_root;
    const server root_server{of_root};
    ASSERT_TRUE(root_server.is_ready());
    EXPECT_EQ(draw_in_a_namespace(0, of_root.path()), drew);
    EXPECT_TRUE(of_root.shared_objects().empty());
}

} // namespace
} // namespace kalix::test
