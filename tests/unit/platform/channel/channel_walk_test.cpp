// A random walk of connects, messages, answers and ends beside a plain model: every connection ends with
// one pulse, never while a message of it is outstanding.
#include "tests/unit/platform/support.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <map>
#include <unistd.h>

namespace kalix::platform {
namespace {

struct model_client {
    uint32_t name = 0;
    std::optional<raw_client> own; // of this process, or
    pid_t child = 0;               // of a child that sends one message and waits
    uint32_t scoid = 0;            // known from its first message on
    int32_t rcvid = 0;             // outstanding
    bool waits = false;            // sent and not yet answered
    bool ended = false;
    int pulses = 0;
};

class walk {
public:
    explicit walk(uint32_t seed) : random_{seed} {}

    void step()
    {
        switch (random_() % 5) {
        case 0:
            return add(random_() % 8 == 0);
        case 1:
            return end(any());
        case 2:
            return answer(any());
        default:
            return send(any());
        }
    }

    void look()
    {
        for (const received& got : channel_.settle())
            got.rcvid > 0 ? note_message(got) : note_pulse(got);
    }

    void end_all()
    {
        for (auto& [name, client] : clients_)
            end(&client);
        while (pulses_ < clients_.size() && !testing::Test::HasFailure()) { // each may have waited for older ones
            look();
            for (auto& [name, client] : clients_)
                answer(&client);
        }
        for (const auto& [name, client] : clients_)
            EXPECT_EQ(client.pulses, client.scoid != 0 ? 1 : 0) << name;
        EXPECT_EQ(pulses_, clients_.size());
    }

private:
    void add(bool as_child)
    {
        const auto name = static_cast<uint32_t>(clients_.size() + 1);
        model_client& client = clients_[name];
        client.name = name;
        if (!as_child) {
            client.own.emplace(channel_.connect());
            return;
        }
        client.child = start_child([&] {
            raw_client mine = channel_.connect();
            mine.send(frame(text_bytes(std::to_string(name))));
            return pause();
        });
        const received got = next_message(); // it is there now, so that killing it ends something
        EXPECT_EQ(got.info.pid, static_cast<uint32_t>(client.child));
        note_message(got);
    }

    received next_message()
    {
        for (;;) {
            received got = channel_.next();
            if (got.rcvid > 0 && got.info.pid != static_cast<uint32_t>(getpid()))
                return got;
            got.rcvid > 0 ? note_message(got) : note_pulse(got);
        }
    }

    void send(model_client* client)
    {
        if (client == nullptr || client->ended || !client->own || std::exchange(client->waits, true))
            return;
        client->own->send(frame(text_bytes(std::to_string(client->name))));
    }

    void end(model_client* client)
    {
        if (client == nullptr || client->ended)
            return;
        client->ended = true;
        if (client->own)
            return client->own->close();
        kill(client->child, SIGKILL);
        end_of(client->child);
    }

    void answer(model_client* client)
    {
        if (client == nullptr || client->rcvid == 0)
            return;
        const int32_t rcvid = std::exchange(client->rcvid, 0);
        client->waits = false;
        const bool taken = MsgReply(rcvid, 0, {}) == 0;
        EXPECT_EQ(taken, !client->ended);
        EXPECT_EQ(MsgReply(rcvid, 0, {}), -1);
    }

    void note_message(const received& got)
    {
        const bytes message = channel_.read(got);
        std::string text(message.size(), ' ');
        std::ranges::transform(message, text.begin(), [](std::byte b) { return static_cast<char>(b); });
        model_client& client = clients_.at(static_cast<uint32_t>(std::stoul(text)));
        EXPECT_TRUE(client.scoid == 0 || client.scoid == got.info.scoid);
        EXPECT_EQ(client.rcvid, 0);
        if (client.scoid == 0) {
            EXPECT_TRUE(by_scoid_.emplace(got.info.scoid, &client).second) << "scoid used again";
        }
        client.scoid = got.info.scoid;
        client.rcvid = got.rcvid;
    }

    void note_pulse(const received& got)
    {
        ASSERT_EQ(got.pulse.code, pulse_code_disconnect);
        ++pulses_;
        const auto found = by_scoid_.find(static_cast<uint32_t>(got.pulse.scoid));
        if (found == by_scoid_.end())
            return; // of a client that sent nothing
        EXPECT_TRUE(found->second->ended);
        EXPECT_EQ(found->second->rcvid, 0) << "a message of it is outstanding";
        EXPECT_EQ(++found->second->pulses, 1);
    }

    model_client* any()
    {
        if (clients_.empty())
            return nullptr;
        const uint32_t newest = static_cast<uint32_t>(clients_.size());
        return &clients_.at(newest - static_cast<uint32_t>(random_() % std::min(newest, 12U)));
    }

    std::mt19937 random_;
    own_channel channel_;
    std::map<uint32_t, model_client> clients_;
    std::map<uint32_t, model_client*> by_scoid_;
    size_t pulses_ = 0;
};

TEST(ChannelWalk, EveryConnectionEndsOnceAndInItsTurn)
{
    for (uint32_t seed = test_seed(); seed < test_seed() + 4; ++seed) {
        SCOPED_TRACE(testing::Message() << "KALIX_TEST_SEED=" << seed);
        walk walker{seed};
        for (int step = 0; step < 400 && !testing::Test::HasFailure(); ++step) {
            SCOPED_TRACE(testing::Message() << "step " << step);
            walker.step();
            if (step % 3 == 0)
                walker.look();
        }
        walker.end_all();
    }
}

} // namespace
} // namespace kalix::platform
