// Start-up and the message loop: what is answered at once, what is queued, and every way bring-up fails.

#include "tests/unit/driver/support.h"

#include "driver/message_loop.h"
#include "driver/startup.h"

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
    void (*prepare)(); // with the state as at the start
    std::string lines; // of errors and warnings, in order
    int status = 0;    // of the process
    std::vector<std::string> words{};
};

// Start-up's allocations, in order: four pools, the regions' table, the queue, five tables by type, clients.
constexpr int regions_table = 5;
constexpr int work_queue = 6;
constexpr int first_table = 7;
constexpr int table_allocations = 514; // itself, its row of 512 buckets, each bucket
constexpr int client_table = first_table + 5 * table_allocations;

// The whole program in a child, since it leaves what it made.
struct start : driver_test {
    void TestBody() override {}
    start()
    {
        testing::FLAGS_gtest_death_test_style = "fast";
        SetUp(); // a good one first, which proves that the fault alone is to blame
        here().lines.reserve(64);
        here().lines.clear();
    }
    static int run(const start_row& row)
    {
        start test;
        here().on_begin = row.prepare;
        std::vector<std::string> words{"kalix"};
        words.insert(words.end(), row.words.begin(), row.words.end());
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(word.data());
        const int status = run_driver(static_cast<int>(argv.size()), argv.data());
        std::string said;
        for (const std::string& line : here().lines)
            said += line.find("version") == line.npos && line.find("created GMR") == line.npos ? line + "\n" : "";
        std::fprintf(stderr, "\n%s", said.c_str());
        return status;
    }
    // How many allocations bring-up leaves when the nth one fails.
    static int left_by(int nth)
    {
        static mutex lock;
        reset_globals();
        const int before = live_allocations();
        fail_allocation(nth);
        EXPECT_EQ(kalix_init(&lock), 1);
        here().lines.clear();
        return live_allocations() - before;
    }
};

TEST(Startup, EveryFailureSaysWhatFailed)
{
    const std::string begin = "5 kalix: starting gpu driver in hardware mode...\n";
    const std::string end = "5 kalix: shutting down gpu driver...\n";
    const std::string open = "5 kalix: channel \"svga_ch\" open\n";
    const std::string threads = "thread tessra-gpu-worker0\nthread tessra-gpu-worker1\nthread tessra-gpu-worker2\n"
                                "thread tessra-gpu-worker3\nthread tessra-gpu-worker4\n"
                                "3 kalix: MsgReceivev error (4).\n2 kalix: msg_loop out of memory!\n";
    const std::string no_device = "2 kalix: svga_init: failed\n";
    const std::string no_table = "2 kalix: could not allocate resource tables\n";
    const start_row rows[] = {
        {"unknown word", [] {}, "5 kalix: unsupported argument \"x\"\n", 22, {"X", "software"}},
        {"software", [] {}, "5 kalix: starting gpu driver in software mode is DISABLED\n", 0, {"Software"}},
        {"already", [] { _globals.initialized = 1; }, begin + "2 kalix: initialize: already initialized\n" + end},
        {"no library", [] { here().refuse_library = true; },
         begin + "2 kalix: SVGA loading: failed, no such library\n" + no_device + end},
        {"no library in test mode",
         [] { here().refuse_library = true; },
         begin + "2 kalix: SVGA loading: failed, no such library\n" + no_device + end,
         0,
         {"testmode"}},
        {"no device", [] { here().refuse_device = true; }, begin + "2 kalix: SVGA_Init: failed\n" + no_device + end},
        {"no 3D", [] { here().refuse_3d = true; }, begin + "2 kalix: SVGA3D_Init: failed\n" + no_device + end},
        {"no clients", [] { here().refuse_clients = true; }, begin + "2 kalix: client_init: failed\n" + end},
        {"no regions", [] { fail_allocation(regions_table); }, begin + "2 kalix: dma_initialize: failed\n" + end},
        {"no channel", [] { here().refuse_attach = true; }, begin + "2 kalix: could not create channel\n" + end},
        {"no self connection", [] { here().refuse_self_connection = true; },
         begin + open + "2 kalix: could not connect to channel: " + std::strerror(EAGAIN) + "\n" + end},
        {"no queue", [] { fail_allocation(work_queue); },
         begin + open + "2 kalix: could not allocate app work queue\n" + end},
        {"no table", [] { fail_allocation(first_table); }, begin + open + no_table + end},
        {"no bucket of the last table", [] { fail_allocation(client_table - 1); }, begin + open + no_table + end},
        {"no client table", [] { fail_allocation(client_table); },
         begin + open + "2 kalix: could not allocate client table\n" + end},
        {"no store, which is no failure", [] { here().refuse_config = here().refuse_status = true; },
         begin + open + "2 kalix: pps init failed, persistent config not available\n" + threads + end},
        {"no buffer", [] { here().refuse_calloc = true; },
         begin + open + "2 kalix: could not allocate dirty gmr buffer\n" + end},
        {"no gmr2", [] { here().device.capabilities = 0; },
         begin + open +
             "2 kalix: dma_create_gmr ERROR: SVGA HW cannot support 64bit\n"
             "2 kalix: could not allocate dirty gmr id\n" +
             end},
        {"nothing", [] {}, begin + open + threads + end},
    };
    for (const start_row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EXIT(std::_Exit(start::run(row)), testing::ExitedWithCode(row.status),
                    testing::EndsWith("\n" + row.lines));
    }
}

TEST(Startup, TablesMadeBeforeOneThatFailsAreGivenBack)
{
    EXPECT_EXIT(
        {
            const start test;
            start::left_by(first_table); // what the fakes keep is made once
            const int none = start::left_by(first_table);
            std::_Exit(none > 0 && start::left_by(first_table + 2 * table_allocations) == none &&
                               start::left_by(client_table - 1) == none
                           ? 0
                           : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(Startup, ServesWithoutADeviceMutex)
{
    EXPECT_EXIT(
        {
            const start test;
            reset_globals();
            kalix_init(nullptr);
            std::_Exit(here().lines.front() == "3 kalix: kalix_init called with NULL mutex, device synchronization "
                                               "may fail" &&
                               here().lines.back() == "2 kalix: msg_loop out of memory!"
                           ? 0
                           : 1);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace kalix::test
