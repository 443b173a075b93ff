// Clients that die at any moment leave the server as it was before they came.

#include "tests/system/server.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kalix/client.h>
#include <random>
#include <thread>
#include <unistd.h>

namespace kalix::test {
namespace {

using namespace std::chrono_literals;

constexpr int clients_in_all = 1000;
constexpr int clients_at_once = 8;

struct books {
    size_t descriptors, mappings;
    std::vector<std::string> objects;
    uint32_t cid, sid, dma_handle, gmr_id;
    bool operator==(const books&) const = default;
};

// What the server holds, and the ids that it hands out next, seen by a client of its own.
books count(const server& of, const run_directory& in)
{
    kalix_connection* connection = nullptr;
    books now{};
    if (kalix_open(in.path().c_str(), &connection) != 0)
        return now;
    kalix_dma_buffer buffer{};
    kalix_context_define(connection, &now.cid);
    kalix_surface_define_2d(connection, 0, SVGA3D_A8R8G8B8, 4, 4, &now.sid);
    kalix_dmabuf_alloc(connection, 100, &buffer);
    now.dma_handle = buffer.handle;
    now.gmr_id = buffer.gmr_id;
    now.descriptors = of.descriptors();
    now.mappings = of.mapped_objects();
    now.objects = in.shared_objects();
    kalix_dmabuf_unref(connection, &buffer);
    kalix_close(connection);
    return now;
}

void submit_a_clear(kalix_connection* connection, uint32_t cid, uint32_t sid)
{
    kalix_commands* list = nullptr;
    if (kalix_command_buffer(connection, cid, &list) != 0)
        return;
    const svga3d_image target{sid, 0, 0};
    const svga3d_rect all{0, 0, 64, 64};
    kalix_cmd_set_render_target(list, cid, SVGA3D_RT_COLOR0, &target);
    kalix_cmd_set_viewport(list, cid, &all);
    kalix_cmd_clear(list, cid, SVGA3D_CLEAR_COLOR, 0xFF00FF00, 1, 0, &all, 1);
    uint32_t fence = 0;
    if (kalix_submit(connection, cid, &fence) == 0)
        kalix_fence_wait(connection, fence);
}

// Works until it is killed: every step leaves something behind that somebody must clear away.
int live(const std::string& directory, uint32_t seed)
{
    std::mt19937 random{seed};
    kalix_connection* connection = nullptr;
    if (kalix_open(directory.c_str(), &connection) != 0)
        return 1;
    for (;;) {
        uint32_t cid = 0;
        uint32_t sid = 0;
        kalix_context_define(connection, &cid);
        if (random() % 2)
            kalix_alloc_sid(connection, &sid);
        kalix_surface_define_2d(connection, SVGA3D_SURFACE_HINT_TEXTURE, SVGA3D_A8R8G8B8, 64, 64, &sid);
        kalix_dma_buffer buffer{};
        kalix_dmabuf_alloc(connection, 20000, &buffer);
        kalix_commands* unused = nullptr;
        kalix_command_buffer(connection, 5000 + static_cast<uint32_t>(random() % 100), &unused); // made, never used
        submit_a_clear(connection, cid, sid);
        std::vector<uint32_t> pixels(64 * 64);
        const kalix_readback_area area{sid, 64, 64, SVGA3D_A8R8G8B8, 0, 0, 64, 64};
        kalix_readback(connection, &area, pixels.data(), 256);
        if (random() % 3 == 0)
            kalix_surface_destroy(connection, sid);
        if (random() % 3 == 0)
            kalix_context_destroy(connection, cid);
    }
}

TEST(KilledClients, LeaveTheServerAsItWas)
{
    const run_directory directory;
    server running{directory};
    ASSERT_TRUE(running.is_ready());
    count(running, directory);
    const books before = count(running, directory);
    ASSERT_EQ(before.sid, 1u);
    SCOPED_TRACE(testing::Message() << "KALIX_TEST_SEED=" << test_seed());
    std::mt19937 random{test_seed()};
    std::vector<pid_t> alive;
    for (int born = 0; born < clients_in_all || !alive.empty();) {
        while (born < clients_in_all && alive.size() < clients_at_once) {
            const uint32_t seed = test_seed() + static_cast<uint32_t>(++born);
            alive.push_back(start_child([&] { return live(directory.path(), seed); }));
        }
        std::this_thread::sleep_for(std::chrono::microseconds{random() % 1500});
        const size_t victim = random() % alive.size();
        ::kill(alive[victim], SIGKILL);
        end_of(alive[victim]);
        alive.erase(alive.begin() + static_cast<std::ptrdiff_t>(victim));
    }
    books after{};
    soon([&] { return (after = count(running, directory)) == before; });
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.mappings, before.mappings);
    EXPECT_EQ(after.objects, before.objects);
    EXPECT_EQ(std::tuple(after.cid, after.sid, after.dma_handle, after.gmr_id),
              std::tuple(before.cid, before.sid, before.dma_handle, before.gmr_id));
    EXPECT_EQ(::kill(running.pid(), 0), 0);
}

// What a connection leaves is gone before the next of its process gets an answer, and takes nothing along.
TEST(KilledClients, AQuickReconnectKeepsItsObjects)
{
    const run_directory directory;
    server running{directory};
    ASSERT_TRUE(running.is_ready());
    for (int round = 0; round < 400; ++round) {
        kalix_connection* connection = nullptr;
        ASSERT_EQ(kalix_open(directory.path().c_str(), &connection), 0);
        kalix_commands* unused = nullptr;
        ASSERT_EQ(kalix_command_buffer(connection, 5000, &unused), 0);
        for (uint32_t wanted = 1; wanted <= 21; ++wanted) {
            uint32_t sid = 0;
            kalix_surface_define_2d(connection, SVGA3D_SURFACE_HINT_TEXTURE, SVGA3D_A8R8G8B8, 64, 64, &sid);
            EXPECT_EQ(sid, wanted) << round; // all that the one before held has been given back
        }
        EXPECT_EQ(kalix_submit(connection, 5000, nullptr), 0) << round;
        std::vector<uint32_t> pixels(64 * 64);
        const kalix_readback_area area{1, 64, 64, SVGA3D_A8R8G8B8, 0, 0, 64, 64};
        EXPECT_EQ(kalix_readback(connection, &area, pixels.data(), 256), 0) << round;
        kalix_close(connection);
    }
}

} // namespace
} // namespace kalix::test
