// Start-up and the message loop: what is answered at once, what is queued, and every way bring-up fails.

#include "tests/unit/driver/support.h"

#include "hardware/gpu/vmware_svga/gpu/kalix/message_loop.h"
#include "hardware/gpu/vmware_svga/gpu/kalix/startup.h"

#include <cctype>

namespace kalix::test {
namespace {

bytes pulse(int8_t code, int32_t scoid)
{
    platform::_pulse p{};
    p.code = code;
    p.scoid = scoid;
    return bytes_of(p);
}

struct loop_row {
    const char* name;
    received what;
    int32_t error; // answered; -1: no error
    std::vector<std::string> lines;
    bool queued;
};

TEST_F(driver_test, TheLoopAnswersDropsAndQueues)
{
    const platform::_msg_info info{1001, 0, 1, 12};
    const bytes header = bytes_of(kalix_request_header{KALIX_REQUEST_MAGIC, 3, 0});
    const std::string no_scoid = "3 kalix: workitem has no scoid -- dropping";
    const loop_row rows[] = {
        {"connect", {5, info, words({0x100})}, -1, {}, false},
        {"io message", {5, info, words({0x101})}, 89, {}, false},
        {"last io message", {5, info, words({0x1FF})}, 89, {}, false},
        {"request", {5, info, header}, -1, {}, true},
        {"no scoid", {5, {1001, 0, 0, 12}, header}, 89, {no_scoid}, false},
        {"scoid all ones", {5, {1001, 0, ~0u, 12}, header}, 89, {no_scoid}, false},
        {"bad magic", {5, info, words({0x7F9E2B4F, 3, 0})}, 89, {"3 kalix: unknown msg received, dropping."}, false},
        {"empty message", {5, info, {}}, 89, {"3 kalix: unknown msg received, dropping."}, false},
        {"disconnect", {0, {}, pulse(-33, 4)}, -1, {}, true},
        {"disconnect of nobody", {0, {}, pulse(-33, 0)}, 89, {no_scoid}, false},
        {"unblock", {0, {}, pulse(-32, 4)}, -1, {}, false},
        {"unknown pulse", {0, {}, pulse(5, 4)}, -1, {"3 kalix: unknown pulse 5 received, dropping"}, false},
        {"unknown pulse below 0", {0, {}, pulse(-5, 4)}, -1, {"3 kalix: unknown pulse -5 received, dropping"}, false},
    };
    for (const loop_row& row : rows) {
        SCOPED_TRACE(row.name);
        here().answers.clear();
        here().incoming = {row.what};
        EXPECT_EQ(msg_loop(), 0);
        std::vector<std::string> lines = take_lines();
        ASSERT_EQ(lines.size(), 5 + row.lines.size() + 2);
        EXPECT_EQ(std::vector(lines.begin() + 5, lines.end() - 2), row.lines);
        EXPECT_EQ(lines[lines.size() - 2], "3 kalix: MsgReceivev error (4).");
        EXPECT_EQ(lines.back(), "2 kalix: msg_loop out of memory!");
        EXPECT_EQ(lines[4], "thread tessra-gpu-worker4");
        const auto answered = here().answers.find(row.what.rcvid);
        EXPECT_EQ(answered == here().answers.end() || !answered->second.is_error ? -1 : answered->second.value,
                  row.error);
        if (row.queued) {
            const std::unique_ptr<workitem> item = take_workitem();
            EXPECT_EQ(item->magic, uint32_t{KALIX_REQUEST_MAGIC});
            EXPECT_EQ(item->command, row.what.rcvid ? 3 : int32_t{KALIX_DISCONNECT});
            EXPECT_EQ(item->info.scoid, row.what.rcvid ? 1u : 4u);
        }
        hold lock{_globals.work_lock};
        EXPECT_TRUE(linkedlist_is_empty(_globals.work_queue));
    }
}

TEST_F(driver_test, ADisconnectThatCannotBeQueuedIsDoneAtOnce)
{
    ASSERT_EQ(define_surface(4), 1);
    take_lines();
    here().incoming = {{0, {}, pulse(-33, 4)}};
    fail_allocation(2); // behind the workitem's own
    EXPECT_EQ(msg_loop(), 0);
    EXPECT_THAT(take_lines(),
                testing::Contains("3 kalix: no memory to queue the disconnect of connection 4, drained at once"));
    EXPECT_EQ(here().detached, std::vector{4u});
    EXPECT_TRUE(hashtable_is_empty(_globals.resource_tables[RESOURCE_SURFACE]));
}

TEST_F(driver_test, WorkIsTakenInOrder)
{
    for (int32_t command = 1; command <= 3; ++command) {
        auto item = std::make_unique<workitem>();
        item->command = command;
        EXPECT_TRUE(queue_workitem(item));
    }
    for (int32_t command = 1; command <= 3; ++command)
        EXPECT_EQ(take_workitem()->command, command);
    auto item = std::make_unique<workitem>();
    fail_allocation(1);
    EXPECT_FALSE(queue_workitem(item));
    EXPECT_TRUE(item);
}

struct words_row {
    std::vector<std::string> given;
    int result;
    uint32_t software, test;
    std::vector<std::string> lines;
};

TEST_F(driver_test, CommandLine)
{
    const words_row rows[] = {
        {{}, 0, 0, 0, {}},
        {{"TestMode"}, 0, 0, 1, {}},
        {{"SOFTWARE", "testmode"}, 0, 1, 1, {}},
        {{"Bogus", "software"}, 22, 0, 0, {"5 kalix: unsupported argument \"bogus\""}},
        {{"software", ""}, 22, 1, 0, {"5 kalix: unsupported argument \"\""}},
    };
    for (const words_row& row : rows) {
        _globals.software_mode = _globals.test_mode = 0;
        std::vector<std::string> given = row.given;
        std::string program = "kalix";
        std::vector<char*> argv{program.data()};
        for (std::string& word : given)
            argv.push_back(word.data());
        EXPECT_EQ(process_arguments(static_cast<int>(argv.size()), argv.data()), row.result);
        EXPECT_EQ(_globals.software_mode, row.software);
        EXPECT_EQ(_globals.test_mode, row.test);
        EXPECT_EQ(take_lines(), row.lines);
    }
    _globals.software_mode = _globals.test_mode = 0;
}

struct start_row {
    const char* name;
    void (*prepare)();
    std::vector<std::string> lines;
    int status = 11; // ten and what bring-up returned
};

// Runs in a child each, since bring-up leaves what it made.
TEST(Startup, EveryFailureSaysWhatFailed)
{
    testing::FLAGS_gtest_death_test_style = "fast";
    struct bring_up : driver_test {
        void TestBody() override {}
        static int run(void (*prepare)())
        {
            bring_up test;
            test.SetUp(); // a good one first, which proves that the fault alone is to blame
            reset_globals();
            here().lines.clear();
            prepare();
            static mutex lock;
            const int result = kalix_init(&lock);
            for (const std::string& line : here().lines)
                std::fprintf(stderr, "%s\n", line.c_str());
            return result;
        }
    };
    const start_row rows[] = {
        {"no library",
         [] { here().refuse_device = true; },
         {"2 kalix: SVGA loading: failed, no such library", "2 kalix: svga_init: failed"}},
        {"no channel", [] { here().refuse_attach = true; }, {"2 kalix: could not create channel"}},
        {"no self connection",
         [] { here().refuse_self_connection = true; },
         {"2 kalix: could not connect to channel: "}},
        {"no gmr2",
         [] { here().device.capabilities = 0; },
         {"2 kalix: dma_create_gmr ERROR: SVGA HW cannot support 64bit", "2 kalix: could not allocate dirty gmr id"}},
        {"no store, which is no failure",
         [] { here().refuse_config = here().refuse_status = true; },
         {"2 kalix: pps init failed, persistent config not available", "thread tessra-gpu-worker0"},
         10},
        {"already", [] { _globals.initialized = 1; }, {"2 kalix: initialize: already initialized"}},
    };
    for (const start_row& row : rows) {
        SCOPED_TRACE(row.name);
        std::string pattern;
        for (const std::string& line : row.lines)
            pattern += "(.|\n)*" + line;
        EXPECT_EXIT(std::_Exit(10 + bring_up::run(row.prepare)), testing::ExitedWithCode(row.status), pattern);
    }
}

} // namespace
} // namespace kalix::test
