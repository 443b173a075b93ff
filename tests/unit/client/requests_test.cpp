// Every typed call: the message that it sends, byte for byte, and what it makes of the reply.

#include "tests/unit/client/fake_server.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <numeric>

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
// Records of which no word is like another.
words counting(size_t count)
{
    words made(count);
    std::iota(made.begin(), made.end(), 50u);
    return made;
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
// A call that brings a record or a number back through its last argument.
template <typename result, typename function, typename... values>
call_row asks(const char* name, words request, words reply, words got, function call, values... arguments)
{
    return {name,
            [=](kalix_connection* c, words& out) {
                result value{};
                const int error = call(c, arguments..., &value);
                out.resize(sizeof value / sizeof(uint32_t));
                std::memcpy(out.data(), &value, sizeof value);
                return error;
            },
            std::move(request), std::move(reply), std::move(got)};
}
call_row with_sizes(call_row row, uint32_t sizes)
{
    row.trail = sizes * uint32_t{sizeof(surface_size) / sizeof(uint32_t)};
    return row;
}

constexpr std::array<surface_size, 2> levels{{{64, 32, 1, 0}, {32, 16, 1, 0}}};
const kalix_surface_description two_levels{0x20, 2, {2}, levels.data(), 2, 1, 99};
constexpr overlay_define_req overlay{-3, 4, 5, 6, 2, 99, 7, 8, 9, 10};
constexpr uint32_t pixels[] = {0xFFAA5500, 7};
const kalix_cursor_image cursor{2, 1, 1, 0, pixels};

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
    {"move_cursor", [](auto* c, words&) { return kalix_move_cursor(c, 1, 20, 30); }, {244, 1, 20, 30, 0}, {}, {}},
    {"set_cursor", [](auto* c, words&) { return kalix_set_cursor(c, &cursor); },
     {243, 0, 1, 0, 2, 1, 0, 0xFFAA5500, 7}, {}, {}},
    {"present_phys", [](auto* c, words&) { return kalix_present_phys(c, 5, 1, 2, 3, 4, 0x140000000); },
     {206, 5, 1, 2, 3, 4, 0, 0x40000000, 1}, {}, {}},
    {"fence_signalled",
     [](kalix_connection* c, words& out) {
         int signalled = -1;
         const int result = kalix_fence_signalled(c, 41, &signalled, &out.emplace_back());
         out.push_back(static_cast<uint32_t>(signalled));
         return result;
     },
     {15, 41, 0, 0, 0, 0, 0}, {41, 0, 1, 44, 3, 0}, {44, 1}},
    asks<uint32_t>("context_define", {7, 0, 0}, {3, 0}, {3}, kalix_context_define),
    asks<uint32_t>("alloc_sid", {203, 0, 0}, {17, 0}, {17}, kalix_alloc_sid),
    asks<uint32_t>("software_mode", {240, 0, 0}, {9, 0}, {9}, kalix_software_mode),
    asks<uint32_t>("fifomap", {201, 6, 0}, {6, 44}, {44}, kalix_fifomap, 6u),
    asks<uint64_t>("getparam", {0, 0, 0, 5, 0}, {0x8000000, 7, 5, 0}, {0x8000000, 7}, kalix_getparam, 5u),
    asks<uint32_t>("overlay_define", {208, ~2u, 4, 5, 6, 2, 99, 7, 8, 9, 0, 10, 0}, counting(12), {55},
                   kalix_overlay_define, &overlay),
    with_sizes(asks<uint32_t>("surface_define",
                              {9, 0x20, 2, 2, 0, 0, 0, 0, 0, 64, 0, 0, 1, 99, 64, 32, 1, 0, 32, 16, 1, 0}, {99, 2},
                              {99}, kalix_surface_define, &two_levels), 2),
    with_sizes(asks<uint32_t>("surface_define_2d",
                              {9, 0x40, 1, 1, 0, 0, 0, 0, 0, 64, 0, 0, 0, 0, 640, 480, 1, 0}, {5, 1}, {5},
                              kalix_surface_define_2d, 0x40u, 1u, 640u, 480u), 1),
    asks<surface_reference_req>("surface_reference", with_zeros({11, 5}, 15), counting(14), counting(14),
                                kalix_surface_reference, 5u),
    asks<execbuf_rep>("execbuf", {12, 3, 0, 128, 7, 0, 0, 0, 0}, counting(8), counting(8), kalix_execbuf, 3u, 128u, 7u),
    asks<fifomap_caps_rep>("fifomap_caps", with_zeros({202}, 257), counting(256), counting(256), kalix_fifomap_caps),
    asks<sid_info_req>("debug_info", with_zeros({1002, 5}, 26), counting(25), counting(25),
                       [](auto* c, sid_info_req* about) { return about->sid = 5, kalix_debug_info(c, about); }),
    asks<list_sids_req>("debug_list", with_zeros({1003}, 103), counting(102), counting(102), kalix_debug_list),
    asks<dump_sid_req>("debug_dump", with_zeros({1004}, 135), counting(134), counting(134), kalix_debug_dump),
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

} // namespace
} // namespace kalix::test
