// The logger: its lines, whole under concurrency, and what a flood is cut down to.
#include "platform/log/log.h"
#include "platform/log/log_sink.h"
#include "platform/log/logger.h"
#include "platform/log/rate_limiter.h"
#include "tests/unit/platform/support.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <map>
#include <memory>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
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
    {
        std::vector<std::jthread> writers;
        for (int w = 0; w < 4; ++w)
            writers.emplace_back(write_all, w);
    }
    EXPECT_EQ(end_of(child), 0);
    const auto lines = log.lines();
    EXPECT_EQ(lines.size(), 1000U);
    for (const std::string& line : lines)
        ASSERT_THAT(line, MatchesRegex(std::string{stamp} + "2 kalix: [0-9] [0-9]+ y+ end"));
}

// All through one call, as a compiler may merge them: it is the format that tells lines apart.
void flood(int lines, bool rare = false)
{
    for (int i = 0; i < lines; ++i)
        slogf(log_code, rare ? log_error : log_warning, rare ? "kalix: another kind %d" : "kalix: flood %d", i);
}

TEST(Log, AFloodIsCountedAndTheReceiveLoopTellsTheCount)
{
    own_channel channel;
    captured_log log;
    flood(250);
    flood(1, true);
    EXPECT_EQ(log.count("kalix: flood"), 100U);
    EXPECT_EQ(log.count("another kind"), 1U);
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
    log_finish();
    EXPECT_EQ(log.count("21 more lines not written"), 1U);
}

// A target whose reader stalls, and what the reader finds once it reads.
class stalled_target {
public:
    explicit stalled_target(const std::string& what) : stderr_{dup(STDERR_FILENO)}
    {
        const std::string path = directory_.path() + ".log";
        setenv("KALIX_LOG", what == "file" ? path.c_str() : what == "system log" ? "" : "stderr", 1);
        std::array<int, 2> ends{};
        if (what == "file") {
            EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
            reader_.reset(::open(path.c_str(), O_RDONLY | O_NONBLOCK));
        } else if (what == "system log") {
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            std::ranges::copy(path, address.sun_path);
            reader_.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0));
            EXPECT_EQ(bind(reader_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
            system_path_ = path;
            set_system_log_socket(system_path_.c_str());
            EXPECT_GE(dup2(unique_fd{::open("/dev/null", O_RDWR)}.get(), STDERR_FILENO), 0); // no terminal
        } else {
            EXPECT_EQ(what == "pipe" ? pipe(ends.data()) : socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
            reader_.reset(ends[0]);
            fcntl(ends[0], F_SETFL, O_NONBLOCK);
            EXPECT_GE(dup2(unique_fd{ends[1]}.get(), STDERR_FILENO), 0);
        }
    }
    ~stalled_target()
    {
        dup2(stderr_.get(), STDERR_FILENO);
        set_system_log_socket("/dev/log");
    }
    stalled_target(const stalled_target&) = delete;
    stalled_target& operator=(const stalled_target&) = delete;
    // All that lies there.
    std::string read() const
    {
        std::string all;
        std::array<char, 4096> piece{};
        for (ssize_t count; (count = ::read(reader_.get(), piece.data(), piece.size())) > 0;) {
            all.append(piece.data(), static_cast<size_t>(count));
            all += system_path_.empty() ? "" : "\n"; // a datagram is a line
        }
        return all;
    }

private:
    private_run_directory directory_;
    std::string system_path_;
    unique_fd reader_;
    unique_fd stderr_;
};

TEST(Log, AReaderThatStallsStopsNobodyAndIsToldWhatItMissed)
{
    for (const std::string what : {"file", "pipe", "socket", "system log"}) {
        SCOPED_TRACE(what);
        const stalled_target target{what};
        const auto sink = std::make_unique<log_sink>();
        sink->open();
        constexpr int lines = 8000;
        for (int i = 0; i < lines; ++i)
            sink->write(log_error, "kalix: line " + std::to_string(i) + std::string(40, '.'));
        sink->write(log_error, "kalix: the end", line_class::last_words);
        EXPECT_TRUE(sink->waits());
        sink->finish(20); // a bounded wait
        std::string all;
        for (int round = 0; sink->waits() && round < lines; ++round) {
            all += target.read();
            sink->catch_up();
        }
        sink->write(log_error, "kalix: and on");
        std::istringstream got{all + target.read()};
        std::string line;
        int kept = 0;
        for (; std::getline(got, line) && line.find("line " + std::to_string(kept) + "....") != line.npos; ++kept)
            ASSERT_TRUE(line.ends_with(std::string(40, '.')) && line.find('<', 1) == line.npos) << line;
        EXPECT_GT(kept, 500);
        EXPECT_THAT(line, MatchesRegex(what == "system log" ? "<27>.* kalix\\[[0-9]+\\]: kalix: the end"
                                                            : std::string{stamp} + "2 kalix: the end"));
        std::getline(got, line);
        EXPECT_THAT(line, testing::EndsWith("kalix: " + std::to_string(lines - kept) +
                                            " lines lost, the log could not be written"));
        std::getline(got, line);
        EXPECT_THAT(line, testing::EndsWith("kalix: and on"));
    }
}

// A disk without room takes nothing; what another target then hears is how much it was.
TEST(Log, WhatADiskWithoutRoomDidNotTakeIsCounted)
{
    captured_log log;
    const std::string path = std::getenv("KALIX_LOG");
    const auto sink = std::make_unique<log_sink>();
    setenv("KALIX_LOG", "/dev/full", 1);
    sink->open();
    for (int i = 0; i < 3; ++i)
        sink->write(log_error, "kalix: a line");
    EXPECT_TRUE(sink->waits());
    setenv("KALIX_LOG", path.c_str(), 1);
    sink->open();
    sink->write(log_error, "kalix: and on");
    EXPECT_EQ(log.count("3 kalix: 3 lines lost, the log could not be written"), 1U);
    EXPECT_EQ(log.count("kalix: and on"), 1U);
}

// Lines that waited come out by themselves while the receive loop has nothing else to do.
TEST(Log, TheReceiveLoopTriesAgain)
{
    own_channel channel;
    const stalled_target target{"pipe"};
    log_open();
    for (int i = 0; i < 50; ++i)
        slogf(log_code, log_error, "kalix: %d %s", i, std::string(2000, 'z').c_str());
    slogf(log_code, log_error, "kalix: the last");
    EXPECT_EQ(target.read().find("the last"), std::string::npos);
    std::thread waker{[&] {
        EXPECT_TRUE(soon([&] { return target.read().find("the last") != std::string::npos; }));
        MsgSendPulse(channel.self, 0, 1, 0);
    }};
    channel.next();
    waker.join();
}

// Every line is either admitted or counted once, and no window of a kind has more than its limit.
TEST(RateLimiter, AccountsForEveryLine)
{
    std::mt19937 random{test_seed()};
    const auto limiter = std::make_unique<rate_limiter>();
    std::map<const void*, uint64_t> called, told;
    std::map<const void*, std::vector<int64_t>> admitted;
    const std::vector<char> sites(6);
    int64_t now = 5;
    const auto tell = [&](const line_kind& kind) { told[kind.format] += kind.withheld; };
    for (int step = 0; step < 50'000; ++step) {
        const void* site = &sites[random() % sites.size() * (random() % 2)];
        now += random() % 16 == 0 ? 10 : 0;
        now += random() % 4096 == 0 ? 2500 : 0;
        if (random() % 2 == 0)
            limiter->take_due(now, tell);
        ++called[site];
        if (line_kind* place = limiter->admit(site, now)) {
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
