// Every typed call: the message that it sends, byte for byte, and what it makes of the reply.

#include "tests/unit/client/fake_server.h"

#include <cerrno>
#include <gmock/gmock.h>

namespace kalix::test {
namespace {

struct call_row {
    const char* name;
    std::function<int(kalix_connection*, words& out)> call;
    words request; // command, then the payload and what follows it
    words reply;   // on success; also the reply room
    words out;
    uint32_t trail = 0; // words behind the payload
};

words with_zeros(words head, size_t count)
{
    head.resize(count);
    return head;
}

// A call whose request is its arguments, one behind the other, and whose reply is empty.
template <typename function, typename... values>
call_row tells(const char* name, uint32_t command, function call, values... arguments)
{
    return {name,
            [=](kalix_connection* c, words& /*out*/) { return call(c, arguments...); },
            {command, static_cast<uint32_t>(arguments)...},
            {},
            {}};
}
// The same, with the arguments as reply.
call_row echoed(call_row row)
{
    row.reply.assign(row.request.begin() + 1, row.request.end());
    return row;
}
// A call that brings one word back.
template <typename function, typename... values>
call_row asks(const char* name, words request, words reply, uint32_t got, function call, values... arguments)
{
    return {name,
            [=](kalix_connection* c, words& out) { return call(c, arguments..., &out.emplace_back()); },
            std::move(request),
            std::move(reply),
            {got}};
}

// clang-format off
const std::vector<call_row> calls{
    tells("context_destroy", 8, kalix_context_destroy, 3u),
    tells("present", 200, kalix_present, 5u, -1, 2, 30, 40),
    tells("overlay_visible", 210, kalix_overlay_visible, 6u, 1u),
    tells("oob_present", 211, kalix_oob_present, 6u),
    tells("svga_enable", 241, kalix_svga_enable, 1u),
    tells("set_mode", 242, kalix_set_mode, 640u, 480u, 32u),
    tells("debug_reset", 1000, kalix_debug_reset),
    tells("debug_show", 1001, kalix_debug_show, 5u),
    tells("surface_destroy", 10, kalix_surface_destroy, 5u),
    tells("fence_wait", 14, kalix_fence_wait, 41u),
    tells("fence_unref", 16, kalix_fence_unref, 41u),
    tells("disconnect", 0xDEAD, kalix_disconnect),
    echoed(tells("overlay_destroy", 209, kalix_overlay_destroy, 6u)),
    echoed(tells("debug_fill", 1005, kalix_debug_fill, 5u, 9u)),
    asks("context_define", {7, 0, 0}, {3, 0}, 3, kalix_context_define),
    asks("alloc_sid", {203, 0, 0}, {17, 0}, 17, kalix_alloc_sid),
    asks("software_mode", {240, 0, 0}, {0, 0}, 0, kalix_software_mode),
    asks("fifomap", {201, 6, 0}, {6, 44}, 44, kalix_fifomap, 6u),
    {"move_cursor", [](auto* c, words&) { return kalix_move_cursor(c, 1, 20, 30); }, {244, 1, 20, 30, 0}, {}, {}},
    {"present_phys", [](auto* c, words&) { return kalix_present_phys(c, 5, 1, 2, 3, 4, 0x140000000); },
     {206, 5, 1, 2, 3, 4, 0, 0x40000000, 1}, {}, {}},
    {"getparam",
     [](kalix_connection* c, words& out) {
         uint64_t value = 0;
         const int result = kalix_getparam(c, KALIX_PARAM_FRAMEBUFFER_BYTES, &value);
         out = {static_cast<uint32_t>(value), static_cast<uint32_t>(value >> 32)};
         return result;
     },
     {0, 0, 0, 5, 0}, {0x8000000, 7, 5, 0}, {0x8000000, 7}},
    {"surface_define",
     [](kalix_connection* c, words& out) {
         const std::array<surface_size, 2> sizes{{{64, 32, 1, 0}, {32, 16, 1, 0}}};
         const kalix_surface_description wanted{0x20, 2, {2}, sizes.data(), 2, 1, 99};
         return kalix_surface_define(c, &wanted, &out.emplace_back());
     },
     {9, 0x20, 2, 2, 0, 0, 0, 0, 0, 64, 0, 0, 1, 99, 64, 32, 1, 0, 32, 16, 1, 0}, {99, 2}, {99}, 8},
    {"surface_define_2d",
     [](auto* c, words& out) { return kalix_surface_define_2d(c, 0x40, 1, 640, 480, &out.emplace_back()); },
     {9, 0x40, 1, 1, 0, 0, 0, 0, 0, 64, 0, 0, 0, 0, 640, 480, 1, 0}, {5, 1}, {5}, 4},
    {"overlay_define",
     [](kalix_connection* c, words& out) {
         const overlay_define_req wanted{-3, 4, 5, 6, 2, 99, 7, 8, 9, 10};
         return kalix_overlay_define(c, &wanted, &out.emplace_back());
     },
     {208, ~2u, 4, 5, 6, 2, 99, 7, 8, 9, 0, 10, 0}, {0, 0, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0}, {6}},
    {"set_cursor",
     [](kalix_connection* c, words&) {
         const uint32_t pixels[2] = {0xFFAA5500, 7};
         const kalix_cursor_image image{2, 1, 1, 0, pixels};
         return kalix_set_cursor(c, &image);
     },
     {243, 0, 1, 0, 2, 1, 0, 0xFFAA5500, 7}, {}, {}},
    {"debug_info",
     [](kalix_connection* c, words& out) {
         sid_info_req info{};
         info.sid = 5;
         const int result = kalix_debug_info(c, &info);
         out = {info.pids[0], info.ref_count};
         return result;
     },
     with_zeros({1002, 5}, 26), {5, 77, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0}, {77, 3}},
    {"surface_reference",
     [](kalix_connection* c, words& out) {
         surface_reference_req got{};
         const int result = kalix_surface_reference(c, 5, &got);
         out = {got.sid, got.format, got.mip_levels[0], got.mip_levels[5]};
         return result;
     },
     with_zeros({11, 5}, 15), {0x20, 2, 4, 0, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0}, {0x20, 2, 4, 6}},
    {"execbuf",
     [](kalix_connection* c, words& out) {
         execbuf_rep got{};
         const int result = kalix_execbuf(c, 3, 128, 7, &got);
         out = {got.fence_handle, got.fence_flags, got.seqno, got.passed_seqno};
         return result;
     },
     {12, 3, 0, 128, 7, 0, 0, 0, 0}, {41, 3, 41, 40, 0, 0, 0, 0}, {41, 3, 41, 40}},
    {"fence_signalled",
     [](kalix_connection* c, words& out) {
         int signalled = -1;
         const int result = kalix_fence_signalled(c, 41, &signalled, &out.emplace_back());
         out.push_back(static_cast<uint32_t>(signalled));
         return result;
     },
     {15, 41, 0, 0, 0, 0, 0}, {41, 0, 1, 44, 3, 0}, {44, 1}},
};
// clang-format on

class Calls : public testing::TestWithParam<call_row> {
protected:
    // Calls once with that answer; the request is checked whatever the answer.
    int call_with(const reaction& answer, words& out)
    {
        const call_row& row = GetParam();
        fake_server server{[&](const received&) { return answer; }};
        const open_client connection{server};
        const int result = row.call(connection, out);
        const auto payload_words = static_cast<uint32_t>(row.request.size() - 1 - row.trail);
        words expected{KALIX_REQUEST_MAGIC, row.request[0], payload_words * 4};
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
    const open_client connection{server};
    fifomap_caps_rep caps{};
    EXPECT_EQ(kalix_fifomap_caps(connection, &caps), 0);
    EXPECT_EQ(caps.words[0], 0U);
    EXPECT_EQ(caps.words[255], 255U);
}

TEST(RawRequest, TellsStatusAndDataApart)
{
    fake_server server{[](const received& request) { return reply(-22, {request.word(3), 9}); }};
    const open_client connection{server};
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
}

TEST(SurfaceDefine, RefusesListsThatNoServerTakes)
{
    fake_server server{echo};
    const open_client connection{server};
    const std::vector<surface_size> sizes(KALIX_SURFACE_MIPS_MAX + 1);
    kalix_surface_description wanted{0, 2, {145}, sizes.data(), 145, 0, 0};
    uint32_t sid = 7;
    EXPECT_EQ(kalix_surface_define(connection, &wanted, &sid), -EINVAL);
    wanted.sizes = nullptr;
    wanted.size_count = 1;
    EXPECT_EQ(kalix_surface_define(connection, &wanted, &sid), -EINVAL);
    EXPECT_EQ(sid, 7U);
    EXPECT_TRUE(server.requests().empty());
}

} // namespace
} // namespace kalix::test
