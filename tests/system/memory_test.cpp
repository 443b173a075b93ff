// The whole server in this process, without memory: the n-th allocation fails, or all from the n-th on, of every
// request, on whichever thread works for it. Each request is answered, the next one works, and nothing is left.

#include "driver/startup.h"
#include "driver/state/device_hold.h"
#include "driver/state/driver_state.h"
#include "driver/workitem.h"
#include "platform/files/shared_memory.h"
#include "tests/unit/device/stream.h"
#include "tests/unit/platform/support.h"
#include "tools/screen/screen_reader.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <new>
#include <numeric>
#include <sys/prctl.h>
#include <thread>
#include <utility>

namespace kalix::test {
namespace {

enum class thread_kind { tester, receiver, worker, device };

// What fails.
struct failing {
    std::atomic<int> nth{0}; // 1: the next; 0: none
    std::atomic<bool> lasting{false}, fired{false};
    std::atomic<thread_kind> victim{};
};
failing* plan = new (std::malloc(sizeof(failing))) failing;
thread_local bool is_tester = false;
std::atomic<int64_t> live{0}; // allocations of the server's threads

thread_kind kind_of_this_thread()
{
    if (is_tester)
        return thread_kind::tester;
    char name[16] = {};
    prctl(PR_GET_NAME, name);
    if (std::strncmp(name, "svga-", 5) == 0)
        return thread_kind::device;
    return std::strstr(name, "worker") ? thread_kind::worker : thread_kind::receiver;
}

bool allocation_fails(size_t bytes)
{
    if (!plan || plan->nth == 0)
        return false;
    const thread_kind kind = kind_of_this_thread();
    const thread_kind victim = plan->victim;
    if (kind == thread_kind::tester || victim != kind)
        return false;
    if (victim == thread_kind::receiver && bytes == sizeof(workitem))
        return false; // its lack ends the message loop, as it should
    if (plan->nth > 1) {
        --plan->nth;
        return false;
    }
    plan->fired = true;
    if (!plan->lasting)
        plan->nth = 0;
    return true;
}

void* allocate(size_t bytes)
{
    if (allocation_fails(bytes))
        return nullptr;
    void* const memory = std::malloc(bytes == 0 ? 1 : bytes);
    live += memory && !is_tester;
    return memory;
}

void release(void* memory)
{
    live -= memory && !is_tester;
    std::free(memory);
}

} // namespace
} // namespace kalix::test

// NOLINTBEGIN: the replaceable functions, and what the linker calls instead of calloc
void* operator new(size_t bytes)
{
    if (void* const memory = kalix::test::allocate(bytes))
        return memory;
    throw std::bad_alloc{};
}
void* operator new[](size_t bytes)
{
    return operator new(bytes);
}
void* operator new(size_t bytes, const std::nothrow_t&) noexcept
{
    return kalix::test::allocate(bytes);
}
void* operator new[](size_t bytes, const std::nothrow_t&) noexcept
{
    return kalix::test::allocate(bytes);
}
void operator delete(void* memory) noexcept
{
    kalix::test::release(memory);
}
void operator delete[](void* memory) noexcept
{
    kalix::test::release(memory);
}
void operator delete(void* memory, size_t) noexcept
{
    kalix::test::release(memory);
}
void operator delete[](void* memory, size_t) noexcept
{
    kalix::test::release(memory);
}
extern "C" void* __real_calloc(size_t count, size_t bytes);
extern "C" void* __wrap_calloc(size_t count, size_t bytes)
{
    return kalix::test::allocation_fails(count * bytes) ? nullptr : __real_calloc(count, bytes);
}
// NOLINTEND

namespace kalix::test {
namespace {

using platform::bytes;
using platform::raw_client;

template <typename... records>
bytes bytes_of(const records&... each)
{
    return stream{}.add(each...).bytes;
}

int run_server()
{
    char program[] = "kalix";
    char* words[] = {program, nullptr};
    return run_driver(1, words);
}

struct answer {
    bool is_error = true; // also when the connection ended
    int32_t value = 0;
    bytes data;
};

answer ask(raw_client& over, int32_t command, const bytes& payload)
{
    bytes message = bytes_of(kalix_request_header{KALIX_REQUEST_MAGIC, command, static_cast<int32_t>(payload.size())});
    message.insert(message.end(), payload.begin(), payload.end());
    if (!over.send(platform::frame(message, 2048)))
        return {};
    const std::optional<platform::reply> got = over.receive();
    return got ? answer{got->kind != KALIX_REPLY_STATUS, got->value, got->data} : answer{};
}

bytes parameter()
{
    return bytes_of(getparam_req{0, KALIX_PARAM_HAVE_3D, 0});
}

bool serves(const std::string& run_directory)
{
    raw_client client{run_directory};
    return client && !ask(client, KALIX_GETPARAM, parameter()).is_error;
}

// Arms the plan, runs something and disarms it; whether an allocation was made to fail.
template <typename function>
bool without_memory(int nth, bool lasting, thread_kind victim, const function& run)
{
    plan->victim = victim;
    plan->lasting = lasting;
    plan->fired = false;
    plan->nth = nth;
    run();
    plan->nth = 0;
    return plan->fired;
}

// Tries the first allocation, the second, ... until none has failed: attempt(n, lasting) says whether one did. From
// the single-th on it leaves out more and more: there, the same is made hundreds of times.
template <typename function>
void sweep(int single, const function& attempt)
{
    for (const bool lasting : {false, true})
        for (int nth = 1;; nth += 1 + nth / single) {
            ASSERT_LT(nth, 10'000) << "without end";
            SCOPED_TRACE(std::to_string(nth) + (lasting ? " and on" : ""));
            if (!attempt(nth, lasting))
                break;
        }
}

class server_environment {
public:
    server_environment()
    {
        is_tester = true;
        setenv("KALIX_FOREGROUND", "1", 1);
        setenv("GRAPHICS_ROOT", KALIX_LIBRARY_DIR, 1);
        setenv("SVGA_DEVICE_THREADS", "2", 1);
        setenv("KALIX_PPS_DIR", (directory.path() + "-pps").c_str(), 1);
    }
    platform::private_run_directory directory;
    platform::captured_log log;
};

// From some allocation of the starting thread on there is no memory: the program says so and ends in order.
TEST(Memory, AStartWithoutItEndsInOrder)
{
    const server_environment environment;
    for (const int nth : {1, 2, 3, 5, 8, 14, 15, 22, 23, 40, 100, 600}) {
        SCOPED_TRACE(nth);
        pid_t child = -1;
        without_memory(nth, true, thread_kind::receiver, [&] {
            child = start_child([] {
                is_tester = false;
                return run_server();
            });
        });
        EXPECT_EQ(end_of(child), 0);
        const std::vector<std::string> lines = environment.log.lines();
        EXPECT_NE(lines.back().find("kalix: shutting down gpu driver..."), std::string::npos) << lines.back();
    }
}

// What the server holds.
struct books {
    std::array<uint32_t, 4> ids;
    std::array<int32_t, RESOURCE_TOTAL> objects;
    int32_t clients;
    size_t mappings, descriptors;
    int64_t allocations;
    bool operator==(const books&) const = default;
};

void PrintTo(const books& of, std::ostream* to)
{
    *to << testing::PrintToString(of.ids) << testing::PrintToString(of.objects) << " " << of.clients << " clients, "
        << of.mappings << " mappings, " << of.descriptors << " descriptors, " << of.allocations << " allocations";
}

books count()
{
    const device_hold lock; // no handler runs
    const auto used = [](const id_pool& pool) { return pool.usecount; };
    books now{
        {used(_globals.surface_ids), used(_globals.dma_ids), used(_globals.context_ids), used(_globals.overlay_ids)},
        {},
        0,
        platform::guarded_mappings(),
        0,
        live};
    for (size_t type = 0; type < RESOURCE_TOTAL; ++type)
        now.objects[type] = _globals.resource_tables[type]->count;
    const hold table{_globals.client_lock};
    now.clients = _globals.client_table->count;
    for ([[maybe_unused]] const auto& each : std::filesystem::directory_iterator{"/proc/self/fd"})
        ++now.descriptors;
    return now;
}

// What a request names, made by another one before it, on the same connection.
struct maker {
    int32_t command;
    bytes payload;
    size_t id_offset; // in the reply
};

struct request {
    const char* name;
    int32_t command;
    bytes payload; // its first word names what was made
    const maker* named = nullptr;
    int32_t without = 0;  // the status that says that there was no memory
    int32_t unmapped = 0; // and the one when what is shared cannot be mapped for lack of it
};
const maker buffer{KALIX_DMABUF_ALLOC, bytes_of(dmabuf_alloc_req{64, 0, 0, 0, 0}), offsetof(dmabuf_alloc_req, handle)};
const maker context{KALIX_CONTEXT_DEFINE, bytes_of(uint64_t{0}), 0};
const maker surface{
    KALIX_SURFACE_DEFINE,
    bytes_of(surface_define_req{0, SVGA3D_A8R8G8B8, {1, 0, 0, 0, 0, 0}, 64, 0, 0, 0, 0}, surface_size{512, 512, 1, 0}),
    0};
const maker overlay{KALIX_OVERLAY_DEFINE, bytes_of(overlay_define_req{0, 0, 4, 4, 2, 0, 0, 0, 0, 0}),
                    offsetof(overlay_define_req, id)};
constexpr int32_t hang_up = -1; // the connection's end in place of a request

template <typename... records>
bytes command(uint32_t id, const records&... each)
{
    return stream{}.command(id, each...).bytes;
}

// Looks again sooner than soon() does; the sweep waits thousands of times.
template <typename function>
void await(const function& condition)
{
    for (int i = 0; i < 20'000 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::microseconds{100});
}

class ServingWithoutMemory : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        environment = new server_environment;
        std::thread{[] {
            prctl(PR_SET_NAME, "receive");
            run_server();
        }}.detach();
        ASSERT_TRUE(soon([] { return serves(environment->directory.path()); }));
        keeper = new raw_client{environment->directory.path()}; // so that the process's objects stay
        ask(*keeper, KALIX_SET_MODE, bytes_of(set_mode_req{640, 480, 32}));
        std::memcpy(&shown, ask(*keeper, surface.command, surface.payload).data.data(), sizeof shown);
    }

    // One connection: what the request names is made, then comes the request. Its answer.
    template <typename function>
    static answer converse(const request& what, bool is_known, const function& around)
    {
        const std::string own = std::to_string(getpid());
        make_object("execbuf_" + own + "_7", KALIX_COMMAND_BUFFER_BYTES, command(SVGA_3D_CMD_PRESENT_READBACK));
        make_object("vm_svga:" + own + ":3", 4096, {});
        ask(*keeper, KALIX_PRESENT, bytes_of(present_req{shown, 0, 0, 512, 480}));
        raw_client client{environment->directory.path()};
        bytes payload = what.payload;
        if (is_known && !what.named)
            ask(client, KALIX_GETPARAM, parameter());
        if (is_known && what.named) {
            const answer made = ask(client, what.named->command, what.named->payload);
            std::memcpy(payload.data(), made.data.data() + what.named->id_offset, sizeof(uint32_t));
        }
        answer got{false, 0, {}};
        around([&] {
            if (what.command == hang_up) {
                client.close();
                await([] { return count().clients == 1; });
            } else {
                got = ask(client, what.command, payload);
            }
            settle();
        });
        client.close();
        await([] { return count().clients == 1; }); // drained: it takes the shared objects' names with it
        return got;
    }
    static void settle()
    {
        uint32_t fence;
        {
            const device_hold lock;
            fence = SVGA_InsertFence();
        }
        SVGA_SyncToFence(fence);
    }
    static uint64_t refused()
    {
        const kalix_screen_statistics now = tools::screen_reader{environment->directory.path()}.statistics();
        return std::accumulate(std::begin(now.refused), std::end(now.refused), uint64_t{0});
    }
    // What a client does that shares memory.
    static void make_object(const std::string& name, off_t length, const bytes& beginning)
    {
        const std::string path = environment->directory.object(name);
        const unique_fd file{open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
        if (ftruncate(file.get(), length) != 0 || pwrite(file.get(), beginning.data(), beginning.size(), 0) < 0)
            std::abort();
    }
    void expect_that_it_passes(const request& what, bool is_known, thread_kind victim);

    static inline server_environment* environment;
    static inline raw_client* keeper;
    static inline uint32_t shown; // the keeper's surface
};

// The platform's own messages are answered by the receiving thread, and end at most the connection that sent them.
TEST_F(ServingWithoutMemory, AnObjectOverTheConnectionIsRefused)
{
    kalix_object_req wanted{{}, KALIX_COMMAND_BUFFER_BYTES, 1};
    std::snprintf(wanted.name, sizeof wanted.name, "execbuf_%d_9", getpid());
    const bytes message = platform::frame(bytes_of(kalix_platform_header{KALIX_PLATFORM_MAGIC, KALIX_OBJECT}, wanted));
    bool was_refused = false;
    const size_t before = count().descriptors;
    sweep(64, [&](int nth, bool lasting) {
        raw_client client{environment->directory.path()};
        EXPECT_FALSE(ask(client, KALIX_GETPARAM, parameter()).is_error);
        std::optional<platform::reply> got;
        const bool failed = without_memory(nth, lasting, thread_kind::receiver, [&] {
            EXPECT_TRUE(client.send(message));
            got = client.receive();
        });
        EXPECT_TRUE(!got || got->value == 0 || got->value == -12) << got->value;
        was_refused |= got && got->value == -12;
        client.close();
        await([] { return count().clients == 1; });
        EXPECT_TRUE(serves(environment->directory.path()));
        return failed;
    });
    EXPECT_TRUE(was_refused);
    await([before] { return count().descriptors == before; }); // the last connection ends on another thread
    EXPECT_EQ(count().descriptors, before);
}

// A request without memory, the same again with it, and the ends of both connections leave what there was.
void ServingWithoutMemory::expect_that_it_passes(const request& what, bool is_known, thread_kind victim)
{
    const auto normally = [&] { return converse(what, is_known, [](const auto& run) { run(); }); };
    normally();
    const answer normal = normally();
    ASSERT_FALSE(normal.is_error);
    EXPECT_TRUE(!is_known || normal.value == 0) << normal.value;
    books before = count();
    await([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds{7});
        return before == std::exchange(before, count()) && before.clients == 1;
    });
    const auto attempt = [&](int nth, bool lasting) {
        bool failed = false;
        const answer got =
            converse(what, is_known, [&](const auto& run) { failed = without_memory(nth, lasting, victim, run); });
        if (victim == thread_kind::worker) {
            const bool is_unread = got.is_error && got.value == KALIX_ENOSYS;
            const bool is_nobodys = !is_known && got.value == -22; // no record of the client could be made
            EXPECT_TRUE(is_unread || is_nobodys || got.value == normal.value || got.value == what.without ||
                        got.value == what.unmapped)
                << got.value;
        } else if (victim == thread_kind::device) {
            EXPECT_EQ(got.value, normal.value);
        }
        EXPECT_EQ(normally().value, normal.value);
        return failed;
    };
    sweep(is_known ? 64 : 2, [&](int nth, bool lasting) {
        // What comes once and stays, such as a worker's own memory, is no loss: a loss is one each time.
        for (int round = 0;; ++round) {
            const bool failed = attempt(nth, lasting);
            books after{};
            await([&] { return (after = count()) == before; });
            if (after == before || round == 2) {
                EXPECT_EQ(after, before);
                return failed && !HasFailure();
            }
            before = after;
        }
    });
}

TEST_F(ServingWithoutMemory, EveryRequestIsAnsweredAndLeavesNothing)
{
    const auto made_by = [](const char* name, const maker& of, int32_t without) {
        return request{name, of.command, of.payload, nullptr, without, 0};
    };
    const bytes shape = bytes_of(set_cursor_req{1, 0, 0, 16, 16, 0}, std::array<uint32_t, 256>{});
    std::vector<request> requests{
        {"parameter", KALIX_GETPARAM, parameter()},
        made_by("dma buffer", buffer, -12),
        {"dma buffer's end", KALIX_DMABUF_UNREF, bytes_of(0u), &buffer},
        made_by("context", context, -12),
        {"context's end", KALIX_CONTEXT_DESTROY, bytes_of(0u), &context},
        made_by("surface", surface, -12),
        {"surface's end", KALIX_SURFACE_DESTROY, bytes_of(0u), &surface},
        {"reference", KALIX_SURFACE_REFERENCE, bytes_of(surface_reference_req{}), &surface, -12},
        {"commands", KALIX_EXECBUF, bytes_of(execbuf_req{7, 8, 0, {}}), nullptr, -12, -22},
        {"fence", KALIX_FENCE_WAIT, bytes_of(1u)},
        {"passed", KALIX_FENCE_SIGNALLED, bytes_of(fence_signalled_req{1, 0, 0, 0, 0, 0})},
        {"present", KALIX_PRESENT, bytes_of(present_req{0, 0, 0, 512, 480}), &surface},
        {"fifo", KALIX_FIFOMAP, bytes(sizeof(fifomap_req))},
        {"capabilities", KALIX_FIFOMAP_CAPS, bytes(sizeof(fifomap_caps_rep))},
        {"sid", KALIX_ALLOC_SID, bytes_of(uint64_t{0}), nullptr, 1},
        {"to memory", KALIX_PRESENT_PHYS, bytes_of(present_phys_req{0, 0, 0, 4, 4, 0, 0x40000000}), &surface},
        {"readback", KALIX_READBACK, bytes_of(readback_req{0, 0, 0, 4, 4, 2048, 0, 0, 0, 0, 0, {}}), &surface, -12},
        {"to shared", KALIX_READBACK, bytes_of(readback_req{0, 0, 0, 4, 2, 2048, 3, 4096, 0, 0, 1, {}}), &surface, -12},
        made_by("overlay", overlay, 12),
        {"overlay's end", KALIX_OVERLAY_DESTROY, bytes_of(0u), &overlay},
        {"overlay's sight", KALIX_OVERLAY_VISIBLE, bytes_of(0u, 1u), &overlay},
        {"overlay's flip", KALIX_OOB_PRESENT, bytes_of(0u), &overlay},
        {"software", KALIX_SOFTWARE_MODE, bytes(sizeof(software_mode_req))},
        {"enable", KALIX_SVGA_ENABLE, bytes_of(1u)},
        {"mode", KALIX_SET_MODE, bytes_of(set_mode_req{640, 480, 32})},
        {"cursor", KALIX_SET_CURSOR, shape},
        {"cursor's place", KALIX_MOVE_CURSOR, bytes_of(move_cursor_req{1, 4, 4, 0})},
        {"reset", KALIX_DEBUG_RESET, {}},
        {"show", KALIX_DEBUG_SHOW_SID, bytes_of(0u), &surface},
        {"about", KALIX_DEBUG_SID_INFO, bytes_of(sid_info_req{}), &surface, -12},
        {"list", KALIX_DEBUG_LIST_SIDS, bytes(sizeof(list_sids_req)), nullptr, -12},
        {"dump", KALIX_DEBUG_DUMP_SID, bytes_of(dump_sid_req{0, 0, 4, 4, 1, 0, {}}), &surface},
        {"fill", KALIX_DEBUG_FILL_SID, bytes_of(fill_sid_req{0, 5}), &surface},
        {"disconnect", KALIX_DISCONNECT, {}},
        {"surface's owner goes", hang_up, bytes_of(0u), &surface},
        {"overlay's owner goes", hang_up, bytes_of(0u), &overlay},
    };
    for (const int32_t number : {3, 4, 5, 6, 13, int{KALIX_FENCE_UNREF}, 17, 18, 19})
        requests.push_back({"accepted", number, {}});
    for (const request& each : requests)
        for (const bool is_known : {true, false})
            for (const thread_kind victim : {thread_kind::worker, thread_kind::device, thread_kind::receiver}) {
                SCOPED_TRACE(std::string{each.name} + (is_known ? "" : ", first") + ", thread " +
                             std::to_string(static_cast<int>(victim)));
                expect_that_it_passes(each, is_known, victim);
            }
}

TEST_F(ServingWithoutMemory, TheDeviceCountsWhatItCannotDo)
{
    constexpr uint32_t cid = 900, target = 901, vertices = 902, missing = 903;
    const svga3d_vertex_declaration position{
        SVGA3D_DECLTYPE_FLOAT4, 0, SVGA3D_DECLUSAGE_POSITION, 0, {vertices, 0, 0}, 0, 0};
    const svga3d_primitive_range many{SVGA3D_PRIMITIVE_TRIANGLELIST, 3000, {SVGA3D_INVALID_ID, 0, 0}, 0, 0};
    const svga3d_image image{target, 0, 0};
    const bytes commands[] = {
        command(SVGA_3D_CMD_CONTEXT_DEFINE, svga3d_context{cid}),
        stream{}.define_surface(target, SVGA3D_A8R8G8B8, {{512, 512, 1}}).bytes,
        stream{}.define_surface(vertices, SVGA3D_BUFFER, {{64, 1, 1}}).bytes,
        command(SVGA_3D_CMD_SETRENDERTARGET, svga3d_set_render_target{cid, SVGA3D_RT_COLOR0, image}),
        command(SVGA_3D_CMD_SETVIEWPORT, svga3d_set_viewport{cid, {0, 0, 512, 512}}),
        command(SVGA_3D_CMD_SETRENDERSTATE, svga3d_context{cid}, svga3d_render_state_value{SVGA3D_RS_ZENABLE, 0}),
        command(SVGA_3D_CMD_SETTEXTURESTATE, svga3d_context{cid},
                svga3d_texture_state_value{0, SVGA3D_TS_BIND_TEXTURE, missing}),
        command(SVGA_3D_CMD_SHADER_DEFINE, svga3d_shader_define{cid, 1, 1}, uint64_t{1}),
        command(SVGA_3D_CMD_SET_SHADER_CONST, svga3d_set_shader_const{cid, 3, 1, 0, {1, 2, 3, 4}}),
        command(SVGA_3D_CMD_CLEAR, svga3d_clear{cid, SVGA3D_CLEAR_COLOR, 5, 1, 0}, svga3d_rect{0, 0, 512, 512}),
        command(SVGA_3D_CMD_SURFACE_DMA, svga3d_surface_dma{{{SVGA_GMR_FRAMEBUFFER, 0}, 0}, image, 1},
                svga3d_copy_box{0, 0, 0, 8, 8, 1, 0, 0, 0}),
        command(SVGA_3D_CMD_SURFACE_COPY, svga3d_surface_copy{image, image},
                svga3d_copy_box{0, 0, 0, 8, 8, 1, 9, 9, 0}),
        command(SVGA_3D_CMD_SURFACE_STRETCHBLT,
                svga3d_surface_stretchblt{image, image, {0, 0, 0, 8, 8, 1}, {9, 9, 0, 5, 5, 1}, 0}),
        command(SVGA_3D_CMD_DRAW_PRIMITIVES, svga3d_draw_primitives{cid, 1, 1}, position, many),
        command(SVGA_3D_CMD_PRESENT, svga3d_present{target}, svga3d_copy_rect{0, 0, 512, 480, 0, 0}),
        command(SVGA_3D_CMD_BLIT_SURFACE_TO_SCREEN, svga3d_blit_to_screen{image, {0, 0, 9, 9}, 0, {0, 0, 20, 20}}),
    };
    for (const bytes& each : commands) {
        uint32_t id;
        std::memcpy(&id, each.data(), sizeof id);
        SCOPED_TRACE(id);
        sweep(64, [&](int nth, bool lasting) {
            const uint64_t before = refused();
            const bool failed = without_memory(nth, lasting, thread_kind::device, [&] {
                {
                    const device_hold lock;
                    std::ranges::copy(each,
                                      static_cast<std::byte*>(SVGA_FIFOReserve(static_cast<uint32_t>(each.size()))));
                    SVGA_FIFOCommitAll();
                }
                settle();
            });
            EXPECT_EQ(refused() - before, failed);
            return failed;
        });
    }
}

} // namespace
} // namespace kalix::test

// The server's threads run to the last.
int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    std::fflush(nullptr);
    _exit(result);
}
