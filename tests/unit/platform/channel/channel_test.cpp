// Frames, receive ids, replies and limits of the channel, over real sockets.
#include "platform/channel/receive_loop.h"
#include "tests/unit/platform/support.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <kalix/protocol.h>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace kalix::platform {
namespace {

bytes pattern(size_t size)
{
    bytes made(size);
    for (size_t i = 0; i < size; ++i)
        made[i] = static_cast<std::byte>(i * 7 + i / 251);
    return made;
}

bool is_disconnect(const received& got, uint32_t scoid)
{
    return got.rcvid == 0 && got.pulse.code == pulse_code_disconnect && got.pulse.scoid == static_cast<int32_t>(scoid);
}

void set_descriptor_limit(rlim_t soft)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = soft == 0 ? limit.rlim_max : soft;
    setrlimit(RLIMIT_NOFILE, &limit);
}

class Channel : public testing::Test {
protected:
    static void SetUpTestSuite() { set_descriptor_limit(0); }
    // Whether the next thing that comes is the message that this client sends.
    bool hears(raw_client& client, const std::string& text)
    {
        return client.send(frame(text_bytes(text))) && channel.read(channel.next()) == text_bytes(text);
    }

    own_channel channel;
    captured_log log;
};

struct cut {
    size_t message_bytes;
    std::vector<size_t> pieces; // bytes sent at a time, the rest at once
};

TEST_F(Channel, HandsOutWhatWasSentHoweverItIsCut)
{
    std::vector<cut> cuts{{0, {}}, {0, {1, 6}}, {4, {}}, {11, {4, 4, 4}}, {12, {8}}, {300'000, {8, 1, 100'000}}};
    cuts.push_back({40, std::vector<size_t>(48, 1)});
    cuts.push_back({KALIX_MESSAGE_MAX, {3, 70'000}});
    raw_client client = channel.connect();
    for (const cut& each : cuts) {
        SCOPED_TRACE(testing::Message() << each.message_bytes << " bytes in " << each.pieces.size() << " pieces");
        const bytes message = pattern(each.message_bytes);
        std::thread sender{[&] {
            const bytes whole = frame(message);
            std::span<const std::byte> rest{whole};
            for (const size_t piece : each.pieces) {
                EXPECT_TRUE(client.send(rest.first(piece)));
                rest = rest.subspan(piece);
                std::this_thread::yield();
            }
            EXPECT_TRUE(client.send(rest));
        }};
        const received got = channel.next();
        sender.join();
        ASSERT_GT(got.rcvid, 0);
        EXPECT_EQ(got.info.srcmsglen, message.size());
        EXPECT_EQ(got.info.pid, static_cast<uint32_t>(getpid()));
        EXPECT_EQ(got.info.uid, geteuid());
        bytes head = message;
        head.resize(24); // a short message leaves zeros behind it
        EXPECT_EQ(got.head, head);
        EXPECT_EQ(channel.read(got), message);
        EXPECT_EQ(MsgReply(got.rcvid, 5, {}), 0);
        EXPECT_EQ(client.receive(), (reply{KALIX_REPLY_STATUS, 5, {}}));
    }
}

TEST_F(Channel, ReadsAnyPartOfAMessage)
{
    raw_client client = channel.connect();
    const bytes message = pattern(100);
    client.send(frame(message));
    const received got = channel.next();
    for (const uint64_t offset : {uint64_t{0}, uint64_t{1}, uint64_t{60}, uint64_t{99}, uint64_t{100}, UINT64_MAX}) {
        SCOPED_TRACE(offset);
        bytes first(7, std::byte{0xEE});
        bytes second(50, std::byte{0xEE});
        const std::array<std::span<std::byte>, 3> parts{first, std::span<std::byte>{}, second};
        const size_t there = std::min<uint64_t>(offset >= 100 ? 0 : 100 - offset, 57);
        ASSERT_EQ(MsgReadv(got.rcvid, parts, offset), static_cast<int64_t>(there));
        bytes expected(57, std::byte{0xEE});
        for (size_t i = 0; i < there; ++i)
            expected[i] = message[offset + i];
        first.insert(first.end(), second.begin(), second.end());
        EXPECT_EQ(first, expected);
    }
    EXPECT_EQ(MsgReply(got.rcvid, 0, {}), 0);
}

TEST_F(Channel, ReplyGoesOnceAndIsCutToTheRoom)
{
    raw_client client = channel.connect();
    std::set<int32_t> seen;
    for (const uint32_t room : {0U, 1U, 10U, 20U, UINT32_MAX}) {
        SCOPED_TRACE(room);
        client.send(frame(text_bytes("question"), room));
        const received got = channel.next();
        ASSERT_TRUE(got.rcvid > 0 && seen.insert(got.rcvid).second);
        const bytes data = pattern(20);
        ASSERT_EQ(MsgReply(got.rcvid, -22, data), 0);
        const bytes expected(data.begin(), data.begin() + std::min(room, 20U));
        EXPECT_EQ(client.receive(), (reply{KALIX_REPLY_STATUS, -22, expected}));
        std::byte any{};
        for (const int64_t stale : {int64_t{MsgReply(got.rcvid, 0, {})}, int64_t{MsgError(got.rcvid, 89)},
                                    MsgRead(got.rcvid, std::span{&any, 1}, 0)}) {
            EXPECT_EQ(stale, -1);
            EXPECT_EQ(errno, ESRCH);
        }
    }
    client.send(frame(text_bytes("question")));
    EXPECT_EQ(MsgError(channel.next().rcvid, error_no_function), 0);
    EXPECT_EQ(client.receive(), (reply{KALIX_REPLY_ERROR, 89, {}}));
    for (const int32_t never : {0, -1, INT32_MAX})
        EXPECT_EQ(MsgError(never, 89), -1);
}

TEST_F(Channel, OneMessageOfAConnectionIsOutstanding)
{
    raw_client client = channel.connect();
    bytes both = frame(text_bytes("first"));
    const bytes second = frame(text_bytes("second"));
    both.insert(both.end(), second.begin(), second.end());
    client.send(both);
    client.close(); // the end, too, waits for its turn
    const received first = channel.next();
    EXPECT_EQ(channel.read(first), text_bytes("first"));
    EXPECT_TRUE(channel.settle().empty());
    MsgReply(first.rcvid, 0, {});
    EXPECT_TRUE(is_disconnect(channel.next(), first.info.scoid));
    EXPECT_TRUE(channel.settle().empty());
}

TEST_F(Channel, AMessageTooLargeIsAnsweredAndEndsTheConnection)
{
    for (const uint32_t size : {uint32_t{KALIX_MESSAGE_MAX} + 1, UINT32_MAX}) {
        raw_client client = channel.connect();
        client.send(header_only(size));
        const received got = channel.next();
        EXPECT_EQ(got.pulse.code, pulse_code_disconnect);
        EXPECT_EQ(client.receive(), (reply{KALIX_REPLY_ERROR, KALIX_EMSGSIZE, {}}));
        EXPECT_TRUE(client.ended());
    }
    EXPECT_EQ(log.count("connection closed"), 2U);
}

TEST_F(Channel, AStalledSenderIsClosedAndHoldsNobody)
{
    set_gather_timeout_ms(200);
    raw_client stalled = channel.connect();
    raw_client honest = channel.connect();
    stalled.send(header_only(100));
    stalled.send(pattern(99));
    honest.send(frame(text_bytes("hello")));
    const received got = channel.next();
    EXPECT_EQ(channel.read(got), text_bytes("hello"));
    const received gone = channel.next();
    EXPECT_TRUE(gone.pulse.code == pulse_code_disconnect && gone.pulse.scoid != static_cast<int32_t>(got.info.scoid));
    EXPECT_TRUE(stalled.ended());
    EXPECT_EQ(log.count("sent 99 of 100 message bytes in 200 ms"), 1U);
    MsgReply(got.rcvid, 0, {});

    // A loop that comes late finds the rest of the message and counts it.
    honest.send(header_only(5));
    EXPECT_TRUE(channel.settle().empty());
    std::this_thread::sleep_for(std::chrono::milliseconds{250});
    honest.send(text_bytes("later"));
    EXPECT_EQ(channel.read(channel.next()), text_bytes("later"));
}

TEST_F(Channel, AClientThatDoesNotReadIsDisconnectedOnce)
{
    raw_client client = channel.connect();
    const bytes question = frame(text_bytes("?"), UINT32_MAX);
    const bytes data = pattern(60'000);
    int answered = 0;
    received got;
    for (;; ++answered) {
        ASSERT_LT(answered, 100);
        client.send(question);
        got = channel.next();
        if (MsgReply(got.rcvid, 0, data) != 0)
            break;
    }
    EXPECT_GT(answered, 0);
    EXPECT_TRUE(is_disconnect(channel.next(), got.info.scoid));
    EXPECT_TRUE(channel.settle().empty());
    EXPECT_EQ(log.count("does not read its replies"), 1U);
}

TEST_F(Channel, GatheredMessagesAreBoundedInSum)
{
    constexpr size_t clients = gathered_bytes_max / KALIX_MESSAGE_MAX + 1;
    bytes almost = frame(bytes(KALIX_MESSAGE_MAX));
    almost.pop_back();
    std::vector<raw_client> senders;
    std::vector<received> ends;
    for (size_t i = 0; i < clients; ++i) {
        senders.push_back(channel.connect());
        std::span<const std::byte> rest{almost};
        while (!rest.empty() && ends.empty()) {
            rest = rest.subspan(senders.back().send_some(rest));
            for (const received& got : channel.settle())
                ends.push_back(got);
        }
    }
    ASSERT_EQ(ends.size(), 1U);
    EXPECT_EQ(ends[0].pulse.code, pulse_code_disconnect);
    EXPECT_TRUE(senders.back().ended());
    senders.front().send(bytes(1));
    EXPECT_EQ(channel.next().info.srcmsglen, uint32_t{KALIX_MESSAGE_MAX});
}

struct succession {
    const char* what;
    bool answered_first; // the old connection's message, before its client goes
    bool entered;        // the waiting connection had a message before
};

// A connection is not answered while an older one of its process is on its way out; everybody else is.
TEST(Succession, AConnectionWaitsForTheDrainOfAnOlderOneOfItsProcess)
{
    for (const succession& row : {succession{"gone and told", true, false},
                                  {"gone with a message of it unanswered", false, false},
                                  {"another that lived beside it", true, true}}) {
        SCOPED_TRACE(row.what);
        own_channel channel;
        channel.detaches = false;
        raw_client old = channel.connect();
        old.send(frame(text_bytes("old")));
        const received first = channel.next();
        if (row.answered_first)
            MsgReply(first.rcvid, 0, {});
        raw_client late = channel.connect();
        if (row.entered) {
            late.send(frame(text_bytes("before")));
            MsgReply(channel.next().rcvid, 0, {});
        }
        old.close();
        late.send(frame(text_bytes("late")));
        const auto of_another = start_child([&] {
            raw_client other = channel.connect();
            other.send(frame(text_bytes("other")));
            return other.receive() ? 0 : 1;
        });
        std::vector<received> seen;
        while (seen.empty() || seen.back().info.pid != static_cast<uint32_t>(of_another))
            seen.push_back(channel.next());
        MsgReply(seen.back().rcvid, 0, {});
        EXPECT_EQ(end_of(of_another), 0);
        seen.pop_back();
        if (!row.answered_first) {
            EXPECT_TRUE(seen.empty());
            MsgReply(first.rcvid, 0, {});
        }
        std::ranges::copy(channel.settle(), std::back_inserter(seen));
        ASSERT_EQ(seen.size(), 2U); // the ends of the old connection and of the other process
        const auto end = std::ranges::find(seen, static_cast<int32_t>(first.info.scoid),
                                           [](const received& each) { return each.pulse.scoid; });
        ASSERT_NE(end, seen.end());
        EXPECT_TRUE(is_disconnect(*end, first.info.scoid));
        EXPECT_EQ(ConnectDetach(first.info.scoid), 0);
        EXPECT_EQ(channel.read(channel.next()), text_bytes("late"));
    }
}

// What one message or ended connection was charged with is there for the next.
TEST_F(Channel, GatheredBytesAreGivenBack)
{
    const bytes largest = frame(bytes(KALIX_MESSAGE_MAX));
    constexpr size_t rounds = gathered_bytes_max / KALIX_MESSAGE_MAX + 2;
    raw_client whole = channel.connect();
    for (size_t i = 0; i < rounds; ++i) {
        std::thread sender{[&] { whole.send(largest); }};
        const received got = channel.next();
        sender.join();
        ASSERT_GT(got.rcvid, 0) << i;
        MsgReply(got.rcvid, 0, {});
        whole.receive();
    }
    for (size_t i = 0; i < rounds; ++i) {
        raw_client part = channel.connect();
        std::thread sender{[&] {
            part.send(std::span{largest}.first(largest.size() - 1));
            part.close();
        }};
        EXPECT_EQ(channel.next().pulse.code, pulse_code_disconnect);
        sender.join();
    }
    EXPECT_EQ(log.count("exceed"), 0U);
}

TEST_F(Channel, ConnectionsAreBounded)
{
    std::vector<raw_client> clients;
    for (size_t i = 0; i < connections_max; ++i) {
        clients.push_back(channel.connect());
        if (i % 16 == 15)
            channel.settle(); // the backlog is shorter than this
    }
    raw_client refused = channel.connect();
    channel.settle();
    EXPECT_TRUE(refused.ended());
    EXPECT_EQ(log.count("refused: too many connections"), 1U);
    clients.pop_back();
    EXPECT_EQ(channel.next().pulse.code, pulse_code_disconnect);
    raw_client admitted = channel.connect();
    EXPECT_TRUE(hears(admitted, "in"));
}

TEST_F(Channel, AForeignUserHasFewerConnections)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can be two users";
    const pid_t child = start_child([&] {
        if (setgid(0) != 0 || setuid(65534) != 0)
            return 1;
        std::vector<raw_client> clients;
        for (size_t i = 0; i <= connections_of_a_user_max; ++i)
            clients.push_back(channel.connect());
        if (!clients.back().ended())
            return 2;
        clients.front().send(frame(text_bytes("foreign")));
        return clients.front().receive() ? 0 : 3;
    });
    const received got = channel.next();
    EXPECT_EQ(got.info.uid, 65534U);
    EXPECT_EQ(got.info.pid, static_cast<uint32_t>(child));
    EXPECT_EQ(log.count("too many connections of this user"), 1U);
    MsgReply(got.rcvid, 0, {});
    EXPECT_EQ(end_of(child), 0);
}

TEST_F(Channel, WithoutDescriptorsClientsAreRefusedAndLaterServed)
{
    raw_client known = channel.connect();
    // Once before the limit: a sanitizer looks at a fixture's type the first time, and takes a pipe for it.
    raw_client earlier = channel.connect();
    EXPECT_TRUE(hears(earlier, "before"));
    const int highest = dup(known.fd());
    close(highest);
    raw_client refused = channel.connect(); // waits in the backlog; takes the number just seen
    set_descriptor_limit(static_cast<rlim_t>(highest) + 1);
    EXPECT_TRUE(channel.settle().empty());
    EXPECT_TRUE(refused.ended());
    EXPECT_TRUE(hears(known, "still"));
    set_descriptor_limit(0);
    EXPECT_EQ(log.count("cannot accept a connection: Too many open files"), 1U);
    raw_client later = channel.connect();
    EXPECT_TRUE(hears(later, "served"));
}

TEST_F(Channel, PulsesToOneselfComeInOrderFromAnyThread)
{
    std::thread sender{[&] {
        for (int i = 0; i < 200; ++i)
            EXPECT_EQ(MsgSendPulse(channel.self, 10, static_cast<int8_t>(i % 50), i), 0);
    }};
    for (int i = 0; i < 200; ++i) {
        const received got = channel.next();
        ASSERT_TRUE(got.rcvid == 0 && got.pulse.code == i % 50 && got.pulse.value == i) << i;
    }
    sender.join();
    EXPECT_EQ(MsgSendPulse(channel.self + 1, 0, 0, 0), -1);
    EXPECT_EQ(ConnectAttach(0, 0, channel.attached->chid + 1, side_channel, 0), -1);
    EXPECT_EQ(MsgReceivev(channel.attached->chid + 1, {}, nullptr), -1);
    size_t waiting = 0;
    while (MsgSendPulse(channel.self, 0, 1, 0) == 0)
        ++waiting;
    EXPECT_EQ(waiting, pulses_max);
}

TEST_F(Channel, WorkersAnswerWhileTheLoopReceives)
{
    constexpr int rounds = 200;
    constexpr int clients = 4;
    std::vector<std::jthread> callers;
    for (int c = 0; c < clients; ++c) {
        callers.emplace_back([&, c] {
            raw_client client = channel.connect();
            for (int i = 0; i < rounds; ++i) {
                const bytes message = pattern(static_cast<size_t>(c) * 1000 + static_cast<size_t>(i));
                client.send(frame(message, 8000));
                ASSERT_EQ(client.receive(), (reply{KALIX_REPLY_STATUS, 0, message}));
            }
        });
    }
    std::vector<std::jthread> workers;
    for (int gone = 0, answered = 0; gone < clients;) {
        const received got = channel.next();
        if (got.rcvid == 0) {
            ++gone;
        } else if (++answered % 4 == 0) {
            MsgReply(got.rcvid, 0, channel.read(got));
        } else {
            workers.emplace_back([this, got] { MsgReply(got.rcvid, 0, channel.read(got)); });
        }
    }
}

} // namespace
} // namespace kalix::platform
