// Start-up and the message loop: what is answered at once, what is queued, and every way bring-up fails.

#include "tests/unit/driver/support.h"

#include "driver/message_loop.h"
#include "driver/startup.h"

namespace kalix::test {
namespace {

bytes pulse(int8_t code, int32_t scoid)
{
    platform::_pulse p{};
    p.code = code;
    p.scoid = scoid;
    return bytes_of(p);
}

// What the loop says from its start to the end that the fakes give it.
const lines loop_begins{"thread tessra-gpu-worker0", "thread tessra-gpu-worker1", "thread tessra-gpu-worker2",
                        "thread tessra-gpu-worker3", "thread tessra-gpu-worker4"};
const lines loop_ends{"3 kalix: MsgReceivev error (4).", "2 kalix: msg_loop out of memory!"};

TEST_F(driver_test, TheLoopAnswersDropsAndQueues)
{
    const platform::_msg_info info{1001, 0, 1, 12};
    const bytes header = bytes_of(kalix_request_header{KALIX_REQUEST_MAGIC, 3, 0});
    const std::string no_scoid = "3 kalix: workitem has no scoid -- dropping";
    // What is received, the error answered (-1: none), what is said, whether work was queued.
    const std::tuple<const char*, received, int32_t, lines, bool> rows[] = {
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
    for (const auto& [name, what, error, said, queued] : rows) {
        SCOPED_TRACE(name);
        here().answers.clear();
        here().incoming = {what};
        EXPECT_EQ(msg_loop(), 0);
        lines expected = loop_begins;
        for (const lines& more : {said, loop_ends})
            expected.insert(expected.end(), more.begin(), more.end());
        EXPECT_EQ(take_lines(), expected);
        const auto answered = here().answers.find(what.rcvid);
        EXPECT_EQ(answered == here().answers.end() || !answered->second.is_error ? -1 : answered->second.value, error);
        if (queued) {
            const std::unique_ptr<workitem> item = take_workitem();
            EXPECT_EQ(item->magic, uint32_t{KALIX_REQUEST_MAGIC});
            EXPECT_EQ(item->command, what.rcvid ? 3 : int32_t{KALIX_DISCONNECT});
            EXPECT_EQ(item->info.scoid, what.rcvid ? 1u : 4u);
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

struct start_row {
    const char* name;
    void (*prepare)(); // with the state as at the start
    std::string lines; // of errors and warnings, in order
    int status = 0;    // of the process
    test::lines words{};
};

// Start-up's allocations, in order: four pools, the regions' table, the queue, five tables by type, clients.
constexpr int regions_table = 5;
constexpr int work_queue = 6;
constexpr int first_table = 7;
constexpr int table_allocations = 514; // itself, its row of 512 buckets, each bucket
constexpr int client_table = first_table + 5 * table_allocations;

std::string text_of(const lines& list)
{
    std::string text;
    for (const std::string& line : list)
        text += line + "\n";
    return text;
}

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
        lines words{"kalix"};
        words.insert(words.end(), row.words.begin(), row.words.end());
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(word.data());
        const int status = run_driver(static_cast<int>(argv.size()), argv.data());
        std::erase_if(here().lines, [](const std::string& line) {
            return line.find("version") != line.npos || line.find("created GMR") != line.npos;
        });
        std::fprintf(stderr, "\nsaid:\n%s", text_of(here().lines).c_str());
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
    const std::string test_begin = "5 kalix: starting gpu driver in hardware mode...\n";
    const std::string begin = "daemon\n" + test_begin;
    const std::string end = "5 kalix: shutting down gpu driver...\n";
    const std::string open = "5 kalix: channel \"svga_ch\" open\n";
    const std::string loop = text_of(loop_begins) + text_of(loop_ends);
    const std::string no_device = "2 kalix: svga_init: failed\n";
    const std::string no_library = "2 kalix: SVGA loading: failed, no such library\n" + no_device;
    const std::string no_gmr2 = "2 kalix: dma_create_gmr ERROR: SVGA HW cannot support 64bit\n";
    const std::string no_table = "2 kalix: could not allocate resource tables\n";
    const start_row rows[] = {
        {"unknown word", [] {}, "5 kalix: unsupported argument \"x\"\n", 22, {"X", "software"}},
        {"empty word", [] {}, "5 kalix: unsupported argument \"\"\n", 22, {"software", ""}},
        {"software", [] {}, "daemon\n5 kalix: starting gpu driver in software mode is DISABLED\n", 0, {"Software"}},
        {"already, and without a mutex", [] { kalix_init(nullptr); },
         "3 kalix: kalix_init called with NULL mutex, device synchronization may fail\n" + open + loop + begin +
             "2 kalix: initialize: already initialized\n" + end},
        {"no library", [] { here().refuse_library = true; }, begin + no_library + end},
        {"no library, testing", [] { here().refuse_library = true; }, test_begin + no_library + end, 0, {"TestMode"}},
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
         begin + open + "2 kalix: pps init failed, persistent config not available\n" + loop + end},
        {"no buffer", [] { here().refuse_calloc = true; },
         begin + open + "2 kalix: could not allocate dirty gmr buffer\n" + end},
        {"no gmr2", [] { here().device.capabilities = 0; },
         begin + open + no_gmr2 + "2 kalix: could not allocate dirty gmr id\n" + end},
        {"nothing", [] {}, begin + open + loop + end},
    };
    for (const start_row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EXIT(std::_Exit(start::run(row)), testing::ExitedWithCode(row.status),
                    testing::EndsWith("\nsaid:\n" + row.lines));
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

} // namespace
} // namespace kalix::test
