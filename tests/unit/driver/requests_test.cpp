// The dispatcher and the small handlers, as a table: request bytes in; status, reply and lines out.

#include "tests/unit/driver/support.h"

#include <kalix/svga3d_types.h>

namespace kalix::test {
namespace {

struct row {
    const char* name;
    int32_t command;
    bytes payload;
    int32_t status;
    bytes reply;
    lines said = {};
};

class RequestTable : public driver_test {
protected:
    void run(const std::vector<row>& rows)
    {
        for (const row& each : rows) {
            SCOPED_TRACE(each.name);
            const answer got = request(1, each.command, each.payload);
            EXPECT_FALSE(got.is_error);
            EXPECT_EQ(got.value, each.status);
            EXPECT_EQ(got.data, each.reply);
            EXPECT_EQ(got.said, each.said);
        }
    }
};

TEST_F(RequestTable, ParametersAndRegisters)
{
    auto& fifo = here().fifo;
    fifo[SVGA_FIFO_MIN] = 8192;
    fifo[SVGA_FIFO_3D_HWVERSION] = 0x20001;
    fifo[SVGA_FIFO_CAPABILITIES] = 0x147;
    fifo[1024] = 99;
    const std::string illegal = "2 kalix: vmw_getparam_ioctl: illegal kalix get param request: 7";
    run({
        {"parameter 0", 0, words({7, 7, 0, 9}), 0, words({0, 0, 0, 9})},
        {"3d", 0, words({0, 0, 2, 0}), 0, words({1, 0, 2, 0})},
        {"capabilities", 0, words({0, 0, 3, 0}), 0, words({0x408000, 0, 3, 0})},
        {"fifo capabilities", 0, words({0, 0, 4, 0}), 0, words({0x147, 0, 4, 0})},
        {"framebuffer", 0, words({0, 0, 5, 0}), 0, words({1 << 20, 0, 5, 0})},
        {"version", 0, words({0, 0, 6, 0}), 0, words({0x20001, 0, 6, 0})},
        {"unknown", 0, words({1, 2, 7, 3}), -22, words({1, 2, 7, 3}), {illegal}},
        {"short", 0, words({1, 2}), -22, words({1, 2, 0, 0})},
        {"register 1024", 201, words({1024, 0}), 0, words({1024, 99})},
        {"register 1025", 201, words({1025, 5}), -22, words({1025, 5})},
        {"register wrapping", 201, words({0x40000001, 5}), -22, words({0x40000001, 5})},
        {"register short", 201, words({1024}), 0, words({1024, 99})},
    });
    for (const auto& [capabilities, least, version] :
         {std::array{0x400000u, 8192u, 0x20001u}, {0x408000u, 28u, 0x20001u}, {0x408000u, 8192u, 0x1FFFFu}}) {
        here().device.capabilities = capabilities;
        fifo[SVGA_FIFO_MIN] = least;
        fifo[SVGA_FIFO_3D_HWVERSION] = version;
        run({{"no 3d", 0, words({9, 9, 2, 0}), 0, words({0, 0, 2, 0})}});
    }
    here().device.capabilities = SVGA_CAP_GMR2;
}

TEST_F(RequestTable, FencesAndTheDispatchersOwn)
{
    here().fifo[SVGA_FIFO_FENCE] = 10;
    run({
        {"zero", 15, words({0, 1, 2, 3, 4, 5}), 0, words({0, 1, 1, 10, 3, 5})},
        {"passed", 15, words({10}), 0, words({10, 0, 1, 10, 3, 0})},
        {"not yet", 15, words({11, 0, 9, 9, 9, 9}), 0, words({11, 0, 0, 10, 0, 9})},
        {"release", 16, words({1}), 0, {}},
        {"release of nothing", 16, {}, 0, {}},
        {"wait", 14, words({12}), 0, {}},
        {"no operation", 3, words({1, 2, 3, 4}), 0, {}},
        {"no operation 13", 13, {}, 0, {}},
        {"no operation 19", 19, words({1}), 0, {}},
        {"unknown", 204, words({1, 2}), 1, {}},
        {"unknown negative", -1, words({1}), 1, {}},
        {"sid", 203, words({9, 9}), 0, words({1, 9})},
        {"next sid", 203, words({9}), 0, words({2, 0})},
        {"sid without payload", 203, {}, 1, {}},
        {"software mode", 240, words({5, 6}), 0, words({0, 6}), {"5 kalix: returning software mode 0"}},
        {"software mode without payload", 240, {}, 1, {}},
    });
    EXPECT_EQ(here().waited, stream{12});
}

TEST_F(RequestTable, CapabilityArea)
{
    const auto caps = [this](std::initializer_list<uint32_t> area) {
        std::fill_n(&here().fifo[SVGA_FIFO_3D_CAPS], 256, 0);
        std::copy(area.begin(), area.end(), &here().fifo[SVGA_FIFO_3D_CAPS]);
        return request(1, KALIX_FIFOMAP_CAPS, words({0}));
    };
    EXPECT_EQ(caps({}).value, -22);
    EXPECT_EQ(caps({2, 0x200, 2, 0xFF}).value, -22);
    EXPECT_EQ(caps({0xFFFFFFFF, 0x50, 4, 0x100}).value, -22);
    EXPECT_EQ(caps({1, 0x100}).value, 0); // a length of 1 steps into its own type word
    const answer good = caps({2, 0x50, 4, 0x100, 3, 8});
    EXPECT_EQ(good.value, 0);
    ASSERT_EQ(good.data.size(), 1024u);
    EXPECT_EQ(words_of(good.data)[5], 8u);
}

TEST_F(RequestTable, AMissingOrShortPayloadNeverReachesARecord)
{
    struct bound {
        int32_t command;
        size_t least;
        int32_t status = -22;
    };
    for (const bound& b :
         {bound{0, 12}, {1, 4},    {2, 4},    {7, 1},     {8, 4},       {9, 52},       {10, 4},       {11, 4},
          {12, 16},     {14, 4},   {15, 4},   {200, 20},  {201, 4},     {202, 1},      {206, 32},     {207, 49},
          {208, 48},    {209, 4},  {210, 8},  {211, 4},   {241, 4, 22}, {242, 12, 22}, {243, 24, 22}, {244, 16, 22},
          {1001, 4},    {1002, 4}, {1003, 4}, {1004, 20}, {1005, 8}})
        for (size_t length = 0; length < b.least; ++length)
            for (const std::byte fill : {std::byte{0}, std::byte{0xFF}})
                EXPECT_EQ(request(1, b.command, bytes(length, fill)).value, b.status)
                    << b.command << " with " << length << " bytes";
    EXPECT_TRUE(take_lines().empty());
    EXPECT_TRUE(take_stream().empty());
}

TEST_F(driver_test, APayloadThatIsNotThereIsDroppedAndItsSenderUnblocked)
{
    here().messages[900] = bytes_of(kalix_request_header{KALIX_REQUEST_MAGIC, 3, 64});
    here().messages[900].resize(12 + 40);
    const auto send = [](int32_t declared) {
        dispatch({KALIX_REQUEST_MAGIC, 3, declared, 900, {1001, 0, 1, 52}});
        return here().answers[900].value;
    };
    const auto line = [](int32_t declared, int32_t got) {
        return lines{"2 kalix: expected to read " + std::to_string(declared) +
                     " bytes of workitem data for command 3, got " + std::to_string(got) + "! dropping workitem"};
    };
    EXPECT_EQ(send(64), 89);
    EXPECT_TRUE(here().answers[900].is_error);
    EXPECT_EQ(take_lines(), line(64, 40));
    failing(1, [&] { return send(INT32_MAX); }); // what is not there is not allocated
    EXPECT_EQ(take_lines(), line(INT32_MAX, 40));
    failing(1, [&] { return send(40); });
    EXPECT_EQ(take_lines(), line(40, -1));
}

TEST_F(driver_test, ContextsComeAndGo)
{
    EXPECT_EQ(define_context(1), 1u);
    EXPECT_EQ(take_stream(), (stream{1045, 4, 1}));
    const auto destroy = [this](uint32_t client) { return request(client, KALIX_CONTEXT_DESTROY, words({1})); };
    EXPECT_EQ(destroy(2).value, -22);
    EXPECT_TRUE(take_stream().empty());
    const answer destroyed = destroy(1);
    EXPECT_EQ(destroyed.value, 0);
    EXPECT_EQ(destroyed.sent, (stream{1046, 4, 1}));
    EXPECT_EQ(destroyed.said, lines{"2 kalix: execbuf_release_cmdbuf: execbuf 1 is unknown!"});
    EXPECT_EQ(destroy(1).value, -22);
    // 246 is the driver's own.
    for (uint32_t cid = 1; cid <= 245; ++cid)
        ASSERT_EQ(define_context(1 + cid % 3), cid);
    expect_refused(request(1, KALIX_CONTEXT_DEFINE, words({0, 0})), -12,
                   {"2 kalix: vmw_context_define_ioctl: could not create context!"});
    EXPECT_EQ(request(1, KALIX_CONTEXT_DESTROY, words({9})).value, 0);
    EXPECT_EQ(define_context(2), 9u);
}

TEST_F(driver_test, ADisconnectSaysWhoWentAndDrainsEverything)
{
    define_context(1);
    define_surface(1);
    request(1, KALIX_DMABUF_ALLOC, words({100}));
    command_buffer(1, 1, {});
    EXPECT_EQ(execute(1, 1, 0).value, 0);
    take_lines();
    take_stream();
    disconnect(1);
    EXPECT_EQ(take_lines(), lines{"5 kalix: disconnecting client pid 1001"});
    EXPECT_EQ(take_stream(), (stream{1046, 4, 1, 41, 1, 0, 1041, 4, 1}));
    EXPECT_THAT(here().unlinked, testing::ElementsAre("/svga_dma_1", "/execbuf_1001_1"));
    EXPECT_EQ(here().detached, std::vector{1u}); // once it was drained
    define_surface(2);
    EXPECT_EQ(request(2, KALIX_DISCONNECT, {}).value, 0); // the connection lives on
    EXPECT_EQ(here().detached, std::vector{1u});
    take_lines();
    disconnect(1); // never heard of
    EXPECT_EQ(take_lines(), lines{"5 kalix: disconnecting client pid 0"});
}

} // namespace
} // namespace kalix::test
