// The logger: its lines, whole under concurrency, and what a flood is cut down to.
#include "platform/log.h"
#include "platform/logger.h"
#include "platform/rate_limiter.h"
#include "support.h"

#include <algorithm>
#include <cerrno>
#include <gmock/gmock.h>
#include <map>
#include <memory>
#include <thread>

namespace kalix::platform {
namespace {

using testing::MatchesRegex;

constexpr const char* stamp = "[0-9]+-[0-9][0-9]-[0-9][0-9]T[0-9][0-9]:[0-9][0-9]:[0-9][0-9]\\.[0-9][0-9][0-9][0-9]"
                              "[0-9][0-9]Z ";

TEST(Log, ALineIsStampedWholeAndKeepsErrno)
{
    captured_log log;
    errno = 77;
    slogf(log_code, log_error, "kalix: channel \"%s\" open", "svga_ch");
    slogf(log_code, log_information, "kalix: a forged%cline", '\n');
    slogf(log_code, log_warning, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(errno, 77);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[0], MatchesRegex(std::string{stamp} + "2 kalix: channel \"svga_ch\" open"));
    EXPECT_THAT(lines[1], MatchesRegex(std::string{stamp} + "5 kalix: a forged line"));
    EXPECT_THAT(lines[2], MatchesRegex(std::string{stamp} + "3 x+"));
    EXPECT_EQ(lines[2].size(), 2047U);
}

TEST(Log, LinesStayWholeAcrossThreadsAndProcesses)
{
    captured_log log;
    const auto write_all = [](int writer) {
        for (int i = 0; i < 200; ++i)
            slogf_always(log_code, log_error, "kalix: %d %d %s end", writer, i, std::string(200, 'y').c_str());
        return 0;
    };
    const pid_t child = start_child([&] { return write_all(9); });
    std::vector<std::thread> writers;
    writers.reserve(4);
    for (int w = 0; w < 4; ++w)
        writers.emplace_back(write_all, w);
    for (std::thread& each : writers)
        each.join();
    EXPECT_EQ(end_of(child), 0);
    const auto lines = log.lines();
    EXPECT_EQ(lines.size(), 1000U);
    for (const std::string& line : lines)
        ASSERT_THAT(line, MatchesRegex(std::string{stamp} + "2 kalix: [0-9] [0-9]+ y+ end"));
}

__attribute__((noinline)) void flood(int lines)
{
    for (int i = 0; i < lines; ++i)
        slogf(log_code, log_warning, "kalix: flood %d", i);
}

TEST(Log, AFloodIsCountedAndTheReceiveLoopTellsTheCount)
{
    own_channel channel;
    captured_log log;
    flood(250);
    slogf(log_code, log_error, "kalix: another site");
    EXPECT_EQ(log.count("kalix: flood"), 100U);
    EXPECT_EQ(log.count("another site"), 1U);
    std::thread waker{[&] {
        EXPECT_TRUE(soon([&] { return log.count("more lines") != 0; }));
        MsgSendPulse(channel.self, 0, 1, 0);
    }};
    channel.next(); // nothing else goes on meanwhile
    waker.join();
    EXPECT_THAT(log.lines().back(), MatchesRegex(".*Z 3 kalix: 150 more lines not written, like: kalix: flood 99"));
    flood(1);
    EXPECT_THAT(log.lines().back(), testing::HasSubstr("kalix: flood 0"));
    flood(120);
    log_write_all_counts();
    EXPECT_EQ(log.count("21 more lines not written"), 1U);
}

// Every line is either admitted or counted once, and no window of a site has more than its limit.
TEST(RateLimiter, AccountsForEveryLine)
{
    std::mt19937 random{test_seed()};
    const auto limiter = std::make_unique<rate_limiter>();
    std::map<const void*, uint64_t> called;
    std::map<const void*, uint64_t> told;
    std::map<const void*, std::vector<int64_t>> admitted;
    const std::vector<char> sites(6);
    int64_t now = 5;
    const auto tell = [&](const call_site& site) { told[site.address] += site.withheld; };
    for (int step = 0; step < 50'000; ++step) {
        const void* site = &sites[random() % sites.size() * (random() % 2)];
        now += random() % 16 == 0 ? 10 : 0;
        now += random() % 4096 == 0 ? 2500 : 0;
        if (random() % 2 == 0)
            limiter->take_due(now, tell);
        ++called[site];
        if (call_site* place = limiter->admit(site, now)) {
            place->remember(2, "line");
            ++told[site];
            auto& times = admitted[site];
            times.push_back(now);
            const int64_t before = times.size() > 200 ? times[times.size() - 201] : -rate_window_ms;
            ASSERT_GE(now - before, rate_window_ms) << "seed " << test_seed() << ", step " << step;
        }
    }
    limiter->take_due(now + rate_window_ms, tell);
    EXPECT_EQ(told, called) << "seed " << test_seed();
    EXPECT_LT(admitted[sites.data()].size(), called[sites.data()]);
}

} // namespace
} // namespace kalix::platform
