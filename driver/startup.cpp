#include "driver/startup.h"

#include "driver/config.h"
#include "driver/message_loop.h"
#include "driver/objects/client.h"
#include "driver/objects/gmr.h"
#include "driver/objects/shares.h"
#include "driver/screen/capability_probe.h"
#include "driver/screen/debug.h"
#include "driver/screen/display.h"
#include "driver/screen/postprocess.h"
#include "driver/screen/status_file.h"
#include "driver/state/device_hold.h"
#include "driver/state/settings.h"
#include "platform/files/shared_memory.h"
#include "platform/store/store.h"
#include "svga/svga3d.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <kalix/status.h>
#include <memory>
#include <string_view>

namespace kalix {
namespace {

constexpr int exit_unknown_word = 22;
constexpr uint64_t second_us = 1'000'000;
constexpr int32_t resource_buckets = 512; // ids are dense: a table of as many objects has one in each bucket
constexpr int32_t client_buckets = 64;

void* _hSVGA; // keeps the device library loaded

// The device has no log of its own; it lies on the far side of the bus and knows no platform.
void forward_device_line(int severity, const char* text)
{
    slogf(log_code, severity, "kalix: %s", text);
}

void say_farewell()
{
    platform::slogf_always(log_code, log_information, "kalix: shutting down gpu driver...");
}

// One kind for all: such a line is the last but one.
int fail(const char* line)
{
    slogf(log_code, log_error, "%s", line);
    return 1;
}

// Before the process goes into the background, where a debugger would have to follow the fork.
void wait_for_debugger()
{
    while (gdb_check() == 0) {
        slogf(log_code, log_information, "kalix: waiting for gdb...");
        platform::sleep_us(second_us);
    }
}

struct word {
    std::string_view text;
    void (*effect)();
};
constexpr word words[] = {
    {"waitgdb", wait_for_debugger},
    {"software", [] { _globals.software_mode = 1; }},
    {"testmode", [] { _globals.test_mode = 1; }},
};

// Test mode ends here: the device could be started. Whoever tries it reads the one number on standard output, so that
// the process has stayed in the foreground; a start that failed prints nothing.
[[noreturn]] void report_test()
{
    slogf(log_code, log_information, "kalix: software test result = %d", static_cast<int>(_globals.software_mode));
    svga_shutdown();
    std::printf("%d\n", static_cast<int>(_globals.software_mode));
    std::fflush(stdout);
    platform::process_exit(0);
}

// The pools; the driver's own ids are taken out of them, so that no client ever meets one.
void make_pools()
{
    id_init_pool(&_globals.surface_ids, surface_id_capacity);
    id_init_pool(&_globals.dma_ids, dma_id_capacity);
    id_init_pool(&_globals.context_ids, context_id_capacity);
    id_init_pool(&_globals.overlay_ids, overlay_id_capacity);
    for (uint32_t sid = driver_surface_id_first; sid <= driver_surface_id_last; ++sid)
        id_take(&_globals.surface_ids, sid);
    id_take(&_globals.context_ids, driver_context_id);
}

// From here on clients can connect and send; what they send waits until the message loop receives.
int open_channel()
{
    std::snprintf(_globals.channel_name, sizeof _globals.channel_name, "%s", "svga_ch");
    _globals.channel = platform::name_attach(nullptr, _globals.channel_name, 0);
    if (!_globals.channel)
        return fail("kalix: could not create channel");
    slogf(log_code, log_information, "kalix: channel \"%s\" open", _globals.channel_name);
    _globals.self_coid = platform::ConnectAttach(0, 0, _globals.channel->chid, platform::side_channel, 0);
    if (_globals.self_coid != -1)
        return 0;
    slogf(log_code, log_error, "kalix: could not connect to channel: %s", std::strerror(errno));
    return 1;
}

// Takes back what it has made, still empty, when one cannot be had: the record has all the tables or none.
int make_resource_tables() KALIX_REQUIRES(_globals.device_mutex)
{
    for (size_t type = 0; type < RESOURCE_TOTAL; ++type) {
        _globals.resource_tables[type] = hashtable_create<resource_object>(resource_buckets);
        if (_globals.resource_tables[type])
            continue;
        for (size_t made = type; made-- > 0; _globals.resource_tables[made] = nullptr)
            hashtable_destroy(_globals.resource_tables[made]);
        return fail("kalix: could not allocate resource tables");
    }
    return 0;
}

int make_tables() KALIX_REQUIRES(_globals.device_mutex)
{
    {
        hold lock{_globals.work_lock};
        _globals.work_queue = linkedlist_create<workitem*>();
        if (!_globals.work_queue)
            return fail("kalix: could not allocate app work queue");
    }
    if (make_resource_tables() != 0)
        return 1;
    hold lock{_globals.client_lock};
    _globals.client_table = hashtable_create<client_record>(client_buckets);
    _globals.handed_out_sids = hashtable_create<client_record>(resource_buckets);
    if (!_globals.client_table || !_globals.handed_out_sids)
        return fail("kalix: could not allocate client table");
    return 0;
}

// The driver's own region, through which it moves bytes between its memory and surfaces. Without an owner in the table
// of regions, no client can be found to hold it.
int make_dirty_gmr()
{
    // Zero-filled without touching its pages.
    _globals.dirty_gmr_buffer = static_cast<std::byte*>(std::calloc(1, dirty_gmr_buffer_bytes));
    if (!_globals.dirty_gmr_buffer)
        return fail("kalix: could not allocate dirty gmr buffer");
    uint32_t offset = 0;
    _globals.dirty_gmr_id = static_cast<uint32_t>(
        dma_create_gmr(_globals.dirty_gmr_buffer, &offset, dirty_gmr_bytes, dirty_gmr_buffer_bytes, nullptr));
    if (_globals.dirty_gmr_id == ~0u)
        return fail("kalix: could not allocate dirty gmr id");
    _globals.dirty_gmr_base = _globals.dirty_gmr_buffer + offset;
    return 0;
}

// Tools that change the configuration ask where it lies: their environment may be another.
void publish_store()
{
    std::array<char, KALIX_STATUS_STORE_BYTES> path;
    if (!platform::store_directory(path))
        return;
    device_hold lock;
    status_note_store(path.data());
}

void begin_configuration()
{
    if (pps_init() != 0) {
        slogf(log_code, log_error, "kalix: pps init failed, persistent config not available");
        return;
    }
    publish_store();
    pps_monitor(_globals.self_coid);
}

// Pools, channel and tables. 1 after a line. The status file comes behind the channel, which takes the directory that
// it lies in.
int make_records() KALIX_REQUIRES(_globals.device_mutex)
{
    make_pools();
    if (client_init() != 0)
        return fail("kalix: client_init: failed");
    shares_init(platform::objects_max());
    if (dma_initialize() != 0)
        return fail("kalix: dma_initialize: failed");
    if (open_channel() != 0 || make_tables() != 0)
        return 1;
    status_begin();
    return 0;
}

// All process-wide state. Nobody else is there yet; the device mutex is taken since the record asks for it, and
// not around the configuration, which takes it itself.
int bring_up()
{
    {
        device_hold lock;
        if (make_records() != 0)
            return 1;
    }
    begin_configuration();
    device_hold lock;
    if (make_dirty_gmr() != 0)
        return 1;
    reset_debug_state();
    return 0;
}

} // namespace

// The record and the modules' own statics, which refer to it. Made anew in place: locks cannot be assigned.
void reset_globals()
{
    postprocess_reset();
    reset_self_test();
    reset_adapter();
    reset_config();
    std::destroy_at(&_globals);
    std::construct_at(&_globals);
}

// Never inlined: a debugger stops here.
[[gnu::noinline]] int gdb_check()
{
    volatile int released = 0;
    return released;
}

int process_arguments(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        for (char* letter = argv[i]; *letter; ++letter)
            *letter = static_cast<char>(std::tolower(static_cast<unsigned char>(*letter)));
        const auto* const known = std::ranges::find(words, std::string_view{argv[i]}, &word::text);
        if (known == std::end(words)) {
            slogf(log_code, log_information, "kalix: unsupported argument \"%s\"", argv[i]);
            return exit_unknown_word;
        }
        known->effect();
    }
    return 0;
}

int svga_init()
{
    // No symbol is looked up through the handle, since the program is linked with the library. Loading it says, in a
    // line of ours, whether the library lies where the environment says.
    char path[1024] = "libvmwsvga_g.so";
    if (const char* const root = std::getenv("GRAPHICS_ROOT"))
        std::snprintf(path, sizeof path, "%s/libvmwsvga_g.so", root);
    _hSVGA = platform::dlopen(path, platform::load_lazy);
    if (!_hSVGA) {
        slogf(log_code, log_error, "kalix: SVGA loading: failed, %s", platform::dlerror());
        return 1;
    }
    SVGA_SetLogFunction(forward_device_line); // before the start, which has lines of its own
    _globals.svga_device = SVGA_Init();
    if (!_globals.svga_device)
        return fail("kalix: SVGA_Init: failed");
    if (!_globals.software_mode && SVGA3D_Init() != 0)
        return fail("kalix: SVGA3D_Init: failed");
    return 0;
}

int svga_shutdown()
{
    if (_hSVGA)
        platform::dlclose(_hSVGA);
    _hSVGA = nullptr;
    SVGA_Disable(); // still there: the program's own link keeps the library loaded
    return 0;
}

int kalix_init(mutex* device_mutex)
{
    if (_globals.initialized)
        return fail("kalix: initialize: already initialized");
    _globals.device_mutex.borrow(device_mutex);
    if (!device_mutex)
        slogf(log_code, log_warning, "kalix: kalix_init called with NULL mutex, device synchronization may fail");
    if (svga_init() != 0)
        return fail("kalix: svga_init: failed");
    if (_globals.test_mode)
        report_test();
    slogf(log_code, log_information, "kalix: SVGA device version 0x%x capabilities: 0x%x",
          _globals.svga_device->version, _globals.svga_device->capabilities);
    // A failure leaves what was made: the process ends, and with it everything.
    if (bring_up() != 0)
        return 1;
    _globals.initialized = 1;
    return msg_loop();
}

// In the order in which each step needs the one before: signals are heeded from the beginning, the fork comes before
// any thread, the thread that waits for signals behind the fork. What kalix_init returns is not the exit status:
// whoever starts the server learns of failures from its log, and of success from its readiness.
int run_driver(int argc, char** argv)
{
    static mutex device_mutex; // lives as long as the workers, who go on when this function returns
    reset_globals();
    platform::process_begin(say_farewell);
    if (process_arguments(argc, argv) != 0)
        return exit_unknown_word;
    if (!_globals.test_mode)
        platform::procmgr_daemon(0, platform::daemon_keep_directory | platform::daemon_keep_descriptors |
                                        platform::daemon_keep_streams);
    platform::process_watch_signals();
    platform::ThreadCtl(platform::thread_control_io, nullptr);
    if (_globals.software_mode) {
        slogf(log_code, log_information, "kalix: starting gpu driver in software mode is DISABLED");
        return 0;
    }
    slogf(log_code, log_information, "kalix: starting gpu driver in hardware mode...");
    slogf(log_code, log_information, "kalix: version %s", KALIX_VERSION);
    _globals.settings = read_settings();
    kalix_init(&device_mutex);
    say_farewell();
    return 0;
}

} // namespace kalix
