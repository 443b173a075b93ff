// The publish/subscribe store: merges as tables and against a model, changes of every kind, bad files.
#include "platform/store/store.h"
#include "platform/store/store_text.h"
#include "tests/unit/platform/support.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace kalix::platform {
namespace {

namespace fs = std::filesystem;

TEST(StoreText, MergesLineByLine)
{
    struct row {
        const char *held, *written, *merged;
    };
    const row rows[] = {
        {"", "", "@mesa\n"},
        {"", "[-n]a::1", "@mesa\na::1\n"},
        {"@mesa\na::1\nb:n:2\n", "a::3\n", "@mesa\na::3\nb:n:2\n"},
        {"@mesa\na::1\n", "[-n]b::2\n[n]a::5\nc::", "@mesa\na::5\nb::2\nc::\n"},
        {"@other\nx\n\n::1\na:1\n@x::2\na::1\na::2", "", "@mesa\na::2\n"}, // no attributes, and one name twice
        {"[-n]a::1\n", "A::2\n", "@mesa\na::1\nA::2\n"},
        {"a::x:y::z\n", "a.b::c d\n", "@mesa\na::x:y::z\na.b::c d\n"},
    };
    for (const row& each : rows)
        EXPECT_EQ(merge_attributes("mesa", each.held, each.written), each.merged) << each.held << "|" << each.written;
}

TEST(StoreText, RandomTextsMergeLikeAMap)
{
    SCOPED_TRACE(testing::Message() << "KALIX_TEST_SEED=" << test_seed());
    std::mt19937 random{test_seed()};
    const auto text = [&random](std::map<std::string, std::string>& model) {
        std::string out;
        for (uint32_t line = 0; line < random() % 6; ++line) {
            std::string raw;
            for (uint32_t i = 0; i < random() % 6; ++i)
                raw += "ab:@[]\x01"[random() % 7];
            out += raw + "\n";
            const size_t qualifier = raw.starts_with('[') ? raw.find(']') : std::string::npos;
            const std::string bare = qualifier == std::string::npos ? raw : raw.substr(qualifier + 1);
            const size_t first = bare.find(':');
            if (first == std::string::npos || first == 0 || bare[0] == '@' || bare.find(':', first + 1) == bare.npos)
                continue;
            model[bare.substr(0, first)] = bare;
        }
        return out;
    };
    for (int i = 0; i < 20'000; ++i) {
        std::map<std::string, std::string> model;
        const std::string held = text(model);
        const std::string written = text(model);
        const std::string merged = merge_attributes("o", held, written);
        EXPECT_EQ(merge_attributes("o", merged, ""), merged);
        for (const auto& [name, line] : model)
            EXPECT_NE(("\n" + merged).find("\n" + line + "\n"), std::string::npos) << held << "|" << written;
        EXPECT_EQ(static_cast<size_t>(std::ranges::count(merged, '\n')), model.size() + 1);
    }
}

class Store : public testing::Test {
protected:
    Store() { setenv("KALIX_PPS_DIR", (channel_.directory.path() + "/pps").c_str(), 1); }
    ~Store() override
    {
        close_object(fd_);
        unsetenv("KALIX_PPS_DIR");
    }
    void open_mesa() { fd_ = open("/pps/services/mesa", open_read_write | open_create); }
    std::string file() const { return channel_.directory.path() + "/pps/services/mesa"; }
    void edit(const std::string& text) const { test::put(file(), text); }
    int64_t put(const std::string& text) { return write(fd_, std::as_bytes(std::span{text})); }
    // What a read returns; "-" when it fails.
    std::string get(size_t room = 256)
    {
        bytes buffer(room);
        const int64_t count = read(fd_, buffer);
        return count < 0 ? "-" : std::string{reinterpret_cast<const char*>(buffer.data()), static_cast<size_t>(count)};
    }
    int arm()
    {
        const pulse_event event{notify_pulse | notify_update, channel_.self, 10, 0, 0};
        return ionotify(fd_, notify_poll_arm, notify_input, &event);
    }
    // Reads until nothing is left unread and the next change is armed.
    void settle()
    {
        while (arm() == static_cast<int>(notify_input))
            get();
    }
    bool told()
    {
        const received got = channel_.next();
        return got.rcvid == 0 && got.pulse.code == 0;
    }

    own_channel channel_;
    int32_t fd_ = -1;
};

TEST_F(Store, MakesReadsAndMerges)
{
    EXPECT_EQ(open("/pps/services/mesa", open_read_write), -1);
    open_mesa();
    ASSERT_NE(fd_, -1);
    EXPECT_EQ(get(), "@mesa\n");
    EXPECT_EQ(put("[-n]zoom::0.5"), 13);
    EXPECT_EQ(put("other:n:1\n"), 10);
    EXPECT_EQ(fsync(fd_), 0);
    EXPECT_EQ(get(), "@mesa\nzoom::0.5\nother:n:1\n");
    EXPECT_EQ(get(9), "@mesa\nzoo"); // the beginning alone
    const auto mode = fs::status(file()).permissions();
    EXPECT_EQ(mode, fs::perms{0644});
    EXPECT_EQ(std::distance(fs::directory_iterator{fs::path{file()}.parent_path()}, {}), 1); // nothing beside it
    for (const char* bad : {"/pps/", "/pps//a", "/pps/../a", "/etc/passwd", "pps/a", "/pps/a/", ""}) {
        EXPECT_EQ(open(bad, open_read_write | open_create), -1) << bad;
        EXPECT_EQ(errno, EINVAL);
    }
}

TEST_F(Store, EveryKindOfChangeIsToldOnce)
{
    open_mesa();
    EXPECT_EQ(arm(), static_cast<int>(notify_input)); // nothing was read yet
    settle();
    const std::function<void()> changes[] = {
        [&] { edit("@mesa\na::1\n"); },
        [&] { put("a::2"); },
        [&] { test::put(file() + ".new", "@mesa\na::3\n"), fs::rename(file() + ".new", file()); },
        [&] { fs::remove(file()); },
        [&] { edit("@mesa\na::4\n"); },
        [&] { test::put(file(), contents(file()) + "b::5\n"); },
    };
    for (const auto& change : changes) {
        change();
        EXPECT_TRUE(told());
        settle();
        EXPECT_TRUE(channel_.settle().size() <= 1); // one change may be several events
        settle();
    }
    test::put(file() + ".beside", "x"); // another file is none
    EXPECT_TRUE(channel_.settle().empty());
}

TEST_F(Store, TheLastOfManyChangesIsRead)
{
    open_mesa();
    settle();
    constexpr int last = 2000;
    std::thread writer{[&] {
        for (int i = 0; i <= last; ++i)
            i % 2 ? edit("@mesa\na::" + std::to_string(i) + "\n") : static_cast<void>(put("a::" + std::to_string(i)));
    }};
    const std::string wanted = "@mesa\na::" + std::to_string(last) + "\n";
    std::string seen;
    while (seen != wanted) {
        ASSERT_TRUE(told());
        while (arm() == static_cast<int>(notify_input))
            seen = get();
    }
    writer.join();
}

TEST_F(Store, WritersDoNotUndoEachOther)
{
    open_mesa();
    {
        std::vector<std::jthread> writers;
        for (int w = 0; w < 4; ++w)
            writers.emplace_back([this, w] {
                for (int i = 0; i < 50; ++i)
                    EXPECT_GT(put("w" + std::to_string(w) + "." + std::to_string(i) + "::1"), 0);
            });
    }
    EXPECT_EQ(std::ranges::count(contents(file()), '\n'), 201);
}

TEST_F(Store, WhatIsNoObjectIsRefusedAndReplaced)
{
    open_mesa();
    settle();
    fs::remove(file());
    EXPECT_EQ(get(), "-");
    fs::create_symlink("/etc/passwd", file());
    EXPECT_EQ(get(), "-");
    EXPECT_GT(put("a::1"), 0); // takes the link's place
    EXPECT_EQ(get(), "@mesa\na::1\n");
    fs::remove(file());
    ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
    EXPECT_EQ(get(), "-");
    fs::remove(file());
    fs::create_directory(file());
    EXPECT_EQ(get(), "-");
    EXPECT_EQ(put("a::1"), -1);
    EXPECT_EQ(open("/pps/services/mesa", open_read_write | open_create), -1);
    fs::remove(file());
    edit(std::string(2 << 20, 'x'));
    EXPECT_EQ(get().size(), 256u);
    EXPECT_EQ(put("a::1"), -1);
    EXPECT_EQ(errno, EFBIG);
    EXPECT_EQ(fs::file_size(file()), 2u << 20); // as it was
    edit("@mesa\na::1\n");
    const int full = run_child([&] { // a disk without room, as far as this process is concerned
        const rlimit none{8, 8};
        signal(SIGXFSZ, SIG_IGN);
        return setrlimit(RLIMIT_FSIZE, &none) == 0 && put("b::2") == -1 && contents(file()) == "@mesa\na::1\n" ? 0 : 1;
    });
    EXPECT_EQ(full, 0);
    EXPECT_EQ(std::distance(fs::directory_iterator{fs::path{file()}.parent_path()}, {}), 1);
    EXPECT_EQ(read(-5, {}), -1);
    EXPECT_EQ(ionotify(-5, notify_poll_arm, notify_input, nullptr), -1);
}

} // namespace
} // namespace kalix::platform
