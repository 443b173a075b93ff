// Every typed call: the message that it sends, byte for byte, and what it makes of the reply.

#include "fake_server.h"

#include <cerrno>
#include <gmock/gmock.h>

namespace kalix::test {
namespace {

struct call_row {
    const char* name;
    int (*call)(kalix_connection*, words& out);
    words request; // command, then the payload and what follows it
    uint32_t payload_bytes;
    words reply; // on success; also the reply room
    words out;
};

const std::vector<call_row> calls{
    {"getparam",
     [](kalix_connection* c, words& out) {
         uint64_t value = 0;
         const int result = kalix_getparam(c, KALIX_PARAM_FRAMEBUFFER_BYTES, &value);
         out = {static_cast<uint32_t>(value), static_cast<uint32_t>(value >> 32)};
         return result;
     },
     {0, 0, 0, 5, 0},
     16,
     {0x8000000, 7, 5, 0},
     {0x8000000, 7}},
    {"context_define",
     [](kalix_connection* c, words& out) { return kalix_context_define(c, &out.emplace_back()); },
     {7, 0, 0},
     8,
     {3, 0},
     {3}},
    {"context_destroy", [](kalix_connection* c, words&) { return kalix_context_destroy(c, 3); }, {8, 3}, 4, {}, {}},
    {"surface_define",
     [](kalix_connection* c, words& out) {
         const std::array<surface_size, 2> sizes{{{64, 32, 1, 0}, {32, 16, 1, 0}}};
         const kalix_surface_description wanted{0x20, 2, {2}, sizes.data(), 2, 1, 99};
         return kalix_surface_define(c, &wanted, &out.emplace_back());
     },
     {9, 0x20, 2, 2, 0, 0, 0, 0, 0, 64, 0, 0, 1, 99, 64, 32, 1, 0, 32, 16, 1, 0},
     52,
     {99, 2},
     {99}},
    {"surface_define_2d",
     [](kalix_connection* c, words& out) { return kalix_surface_define_2d(c, 0x40, 1, 640, 480, &out.emplace_back()); },
     {9, 0x40, 1, 1, 0, 0, 0, 0, 0, 64, 0, 0, 0, 0, 640, 480, 1, 0},
     52,
     {5, 1},
     {5}},
    {"present",
     [](kalix_connection* c, words&) { return kalix_present(c, 5, -1, 2, 30, 40); },
     {200, 5, ~0u, 2, 30, 40},
     20,
     {},
     {}},
    {"present_phys",
     [](kalix_connection* c, words&) { return kalix_present_phys(c, 5, 1, 2, 3, 4, 0x140000000); },
     {206, 5, 1, 2, 3, 4, 0, 0x40000000, 1},
     32,
     {},
     {}},
    {"overlay_define",
     [](kalix_connection* c, words& out) {
         const overlay_define_req wanted{-3, 4, 5, 6, 2, 99, 7, 8, 9, 10};
         return kalix_overlay_define(c, &wanted, &out.emplace_back());
     },
     {208, static_cast<uint32_t>(-3), 4, 5, 6, 2, 99, 7, 8, 9, 0, 10, 0},
     48,
     {0, 0, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0},
     {6}},
    {"overlay_destroy", [](kalix_connection* c, words&) { return kalix_overlay_destroy(c, 6); }, {209, 6}, 4, {6}, {}},
    {"overlay_visible",
     [](kalix_connection* c, words&) { return kalix_overlay_visible(c, 6, 1); },
     {210, 6, 1},
     8,
     {},
     {}},
    {"oob_present", [](kalix_connection* c, words&) { return kalix_oob_present(c, 6); }, {211, 6}, 4, {}, {}},
    {"svga_enable", [](kalix_connection* c, words&) { return kalix_svga_enable(c, 1); }, {241, 1}, 4, {}, {}},
    {"set_mode",
     [](kalix_connection* c, words&) { return kalix_set_mode(c, 640, 480, 32); },
     {242, 640, 480, 32},
     12,
     {},
     {}},
    {"set_cursor",
     [](kalix_connection* c, words&) {
         const uint32_t pixels[2] = {0xFFAA5500, 7};
         const kalix_cursor_image image{2, 1, 1, 0, pixels};
         return kalix_set_cursor(c, &image);
     },
     {243, 0, 1, 0, 2, 1, 0, 0xFFAA5500, 7},
     32,
     {},
     {}},
    {"move_cursor",
     [](kalix_connection* c, words&) { return kalix_move_cursor(c, 1, 20, 30); },
     {244, 1, 20, 30, 0},
     16,
     {},
     {}},
    {"debug_reset", [](kalix_connection* c, words&) { return kalix_debug_reset(c); }, {1000}, 0, {}, {}},
    {"debug_show", [](kalix_connection* c, words&) { return kalix_debug_show(c, 5); }, {1001, 5}, 4, {}, {}},
    {"debug_fill", [](kalix_connection* c, words&) { return kalix_debug_fill(c, 5, 9); }, {1005, 5, 9}, 8, {5, 9}, {}},
    {"debug_info",
     [](kalix_connection* c, words& out) {
         sid_info_req info{};
         info.sid = 5;
         const int result = kalix_debug_info(c, &info);
         out = {info.pids[0], info.ref_count};
         return result;
     },
     {1002, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
     100,
     {5, 77, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0},
     {77, 3}},
    {"surface_destroy", [](kalix_connection* c, words&) { return kalix_surface_destroy(c, 5); }, {10, 5}, 4, {}, {}},
    {"surface_reference",
     [](kalix_connection* c, words& out) {
         surface_reference_req got{};
         const int result = kalix_surface_reference(c, 5, &got);
         out = {got.sid, got.format, got.mip_levels[0], got.mip_levels[5]};
         return result;
     },
     {11, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
     56,
     {0x20, 2, 4, 0, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0},
     {0x20, 2, 4, 6}},
    {"execbuf",
     [](kalix_connection* c, words& out) {
         execbuf_rep got{};
         const int result = kalix_execbuf(c, 3, 128, 7, &got);
         out = {got.fence_handle, got.fence_flags, got.seqno, got.passed_seqno};
         return result;
     },
     {12, 3, 0, 128, 7, 0, 0, 0, 0},
     32,
     {41, 3, 41, 40, 0, 0, 0, 0},
     {41, 3, 41, 40}},
    {"fence_wait", [](kalix_connection* c, words&) { return kalix_fence_wait(c, 41); }, {14, 41}, 4, {}, {}},
    {"fence_signalled",
     [](kalix_connection* c, words& out) {
         int signalled = -1;
         uint32_t passed = 0;
         const int result = kalix_fence_signalled(c, 41, &signalled, &passed);
         out = {static_cast<uint32_t>(signalled), passed};
         return result;
     },
     {15, 41, 0, 0, 0, 0, 0},
     24,
     {41, 0, 1, 44, 3, 0},
     {1, 44}},
    {"fence_unref", [](kalix_connection* c, words&) { return kalix_fence_unref(c, 41); }, {16, 41}, 4, {}, {}},
    {"fifomap",
     [](kalix_connection* c, words& out) { return kalix_fifomap(c, 6, &out.emplace_back()); },
     {201, 6, 0},
     8,
     {6, 44},
     {44}},
    {"alloc_sid",
     [](kalix_connection* c, words& out) { return kalix_alloc_sid(c, &out.emplace_back()); },
     {203, 0, 0},
     8,
     {17, 0},
     {17}},
    {"software_mode",
     [](kalix_connection* c, words& out) { return kalix_software_mode(c, &out.emplace_back()); },
     {240, 0, 0},
     8,
     {0, 0},
     {0}},
    {"disconnect", [](kalix_connection* c, words&) { return kalix_disconnect(c); }, {0xDEAD}, 0, {}, {}},
};

class Calls : public testing::TestWithParam<call_row> {
protected:
    // Calls once with that answer; the request is checked whatever the answer.
    int call_with(const reaction& answer, words& out)
    {
        const call_row& row = GetParam();
        fake_server server{[&](const received&) { return answer; }};
        kalix_connection* connection = nullptr;
        EXPECT_EQ(kalix_open(server.path().c_str(), &connection), 0);
        const int result = row.call(connection, out);
        kalix_close(connection);
        words expected{KALIX_REQUEST_MAGIC, row.request[0], row.payload_bytes};
        expected.insert(expected.end(), row.request.begin() + 1, row.request.end());
        const auto requests = server.requests();
        EXPECT_EQ(requests.size(), 1U);
        EXPECT_EQ(requests.at(0).as_words(), expected);
        EXPECT_EQ(requests.at(0).room, row.reply.size() * sizeof(uint32_t));
        return result;
    }
};

TEST_P(Calls, SendsItsRecordAndReadsTheReply)
{
    words out;
    EXPECT_EQ(call_with(reply(0, GetParam().reply), out), 0);
    EXPECT_EQ(out, GetParam().out);
}

TEST_P(Calls, TurnsStatusesIntoErrors)
{
    const std::string name = GetParam().name;
    const int bare_one = name == "oob_present" ? -ENOENT : -ENOSYS; // nothing to show; no such request
    const int one = name == "alloc_sid" ? -ENOSPC : bare_one;
    const words& data = GetParam().reply;
    struct {
        int32_t status;
        int result;
    } const rows[]{{-22, -EINVAL}, {-12, -ENOMEM},    {-2, -ENOENT},        {22, -EINVAL},
                   {12, -ENOMEM},  {70'000, -EPROTO}, {INT32_MIN, -EPROTO}, {1, one}};
    for (const auto& row : rows) {
        words out;
        EXPECT_EQ(call_with(reply(row.status, data), out), row.result) << "status " << row.status;
    }
    words out;
    EXPECT_EQ(call_with(reply(1), out), bare_one) << "status 1 without data";
    if (data.empty())
        return;
    EXPECT_EQ(call_with(reply(0, {data.begin(), data.end() - 1}), out), -EPROTO) << "a reply one word short";
}

INSTANTIATE_TEST_SUITE_P(Client, Calls, testing::ValuesIn(calls),
                         [](const auto& row) { return std::string{row.param.name}; });

TEST(FifomapCaps, FillsTheWholeArea)
{
    fake_server server{[](const received& request) {
        EXPECT_EQ(request.message.size(), 12U + 1024U);
        words area(256);
        for (uint32_t i = 0; i < area.size(); ++i)
            area[i] = i;
        return reply(0, area);
    }};
    kalix_connection* connection = nullptr;
    ASSERT_EQ(kalix_open(server.path().c_str(), &connection), 0);
    fifomap_caps_rep caps{};
    EXPECT_EQ(kalix_fifomap_caps(connection, &caps), 0);
    EXPECT_EQ(caps.words[0], 0U);
    EXPECT_EQ(caps.words[255], 255U);
    kalix_close(connection);
}

TEST(RawRequest, TellsStatusAndDataApart)
{
    fake_server server{[](const received& request) { return reply(-22, {request.word(3), 9}); }};
    kalix_connection* connection = nullptr;
    ASSERT_EQ(kalix_open(server.path().c_str(), &connection), 0);
    const uint32_t payload = 77;
    words back(4);
    uint32_t bytes = 0;
    int32_t status = 0;
    EXPECT_EQ(kalix_request(connection, 1234, &payload, 4, back.data(), 16, &bytes, &status), 0);
    EXPECT_EQ(status, -22);
    EXPECT_EQ(bytes, 8U);
    EXPECT_THAT(back, testing::ElementsAre(77, 9, 0, 0));
    EXPECT_EQ(server.requests().at(0).command(), 1234);

    std::vector<std::byte> large(KALIX_MESSAGE_MAX);
    const auto send = [&](size_t length) {
        return kalix_request(connection, 1234, large.data(), static_cast<uint32_t>(length), back.data(), 16, nullptr,
                             &status);
    };
    EXPECT_EQ(send(large.size() - 11), -EMSGSIZE);
    EXPECT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(send(large.size() - 12), 0) << "a message as large as may be";
    kalix_close(connection);
}

TEST(SurfaceDefine, RefusesListsThatNoServerTakes)
{
    fake_server server{echo};
    kalix_connection* connection = nullptr;
    ASSERT_EQ(kalix_open(server.path().c_str(), &connection), 0);
    const std::vector<surface_size> sizes(KALIX_SURFACE_MIPS_MAX + 1);
    kalix_surface_description wanted{0, 2, {145}, sizes.data(), 145, 0, 0};
    uint32_t sid = 7;
    EXPECT_EQ(kalix_surface_define(connection, &wanted, &sid), -EINVAL);
    wanted.sizes = nullptr;
    wanted.size_count = 1;
    EXPECT_EQ(kalix_surface_define(connection, &wanted, &sid), -EINVAL);
    EXPECT_EQ(sid, 7U);
    EXPECT_TRUE(server.requests().empty());
    kalix_close(connection);
}

} // namespace
} // namespace kalix::test
