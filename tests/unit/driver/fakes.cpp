#include "platform/channel/channel.h"
#include "platform/files/published_file.h"
#include "platform/files/sender.h"
#include "platform/files/shared_memory.h"
#include "platform/log/clock.h"
#include "platform/log/log.h"
#include "platform/process.h"
#include "platform/store/store.h"
#include "svga/svga.h"
#include "svga/svga3d.h"
#include "tests/unit/driver/support.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace kalix::test {
namespace {

std::unique_ptr<world> current;
int allocations_left = -1; // before one fails; -1: none will
bool failures_last;
std::atomic<int> live; // allocations

void note(int severity, const char* format, va_list list)
{
    char text[1024];
    std::vsnprintf(text, sizeof text, format, list);
    here().lines.push_back(std::to_string(severity) + " " + text);
}

bool allocation_fails()
{
    if (allocations_left < 0)
        return false;
    if (allocations_left > 0) {
        --allocations_left;
        return false;
    }
    if (!failures_last)
        allocations_left = -1;
    return true;
}

} // namespace

world& here()
{
    return *current;
}

int live_allocations()
{
    return live;
}

void set_world(std::unique_ptr<world> to)
{
    current = std::move(to);
}

void fail_allocation(int nth, bool lasting)
{
    allocations_left = nth - 1;
    failures_last = lasting;
}

} // namespace kalix::test

// NOLINTBEGIN: the replaceable functions, which the driver's own allocations go through, and what the linker
// puts in the place of functions (--wrap)
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return kalix::test::allocation_fails() ? nullptr : operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept
{
    return operator new(size, tag);
}
void* operator new(std::size_t size)
{
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (!memory)
        std::abort();
    ++kalix::test::live;
    return memory;
}
void* operator new[](std::size_t size)
{
    return operator new(size);
}
void operator delete(void* memory) noexcept
{
    kalix::test::live -= memory ? 1 : 0;
    std::free(memory);
}
void operator delete[](void* memory) noexcept
{
    operator delete(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    operator delete(memory);
}
void operator delete[](void* memory, std::size_t) noexcept
{
    operator delete(memory);
}
extern "C" void* __real_calloc(std::size_t, std::size_t);
extern "C" void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return kalix::test::current && kalix::test::current->refuse_calloc ? nullptr : __real_calloc(count, size);
}
extern "C" int __wrap__ZN5kalix11client_initEv()
{
    return kalix::test::here().refuse_clients ? 1 : 0;
}
// NOLINTEND

namespace kalix::platform {

using test::here;

void slogf(int, int severity, const char* format, ...)
{
    va_list list;
    va_start(list, format);
    test::note(severity, format, list);
    va_end(list);
}

void slogf_always(int, int severity, const char* format, ...)
{
    va_list list;
    va_start(list, format);
    test::note(severity, format, list);
    va_end(list);
    std::fprintf(stderr, "%s\n", here().lines.back().c_str());
}

name_attach_t* name_attach(void*, const char*, unsigned)
{
    static name_attach_t attached{7};
    return here().refuse_attach ? nullptr : &attached;
}

int32_t ConnectAttach(uint32_t, int32_t, int32_t, uint32_t, int)
{
    errno = EAGAIN;
    return here().refuse_self_connection ? -1 : 1;
}

int32_t MsgReceivev(int32_t, std::span<const std::span<std::byte>> parts, _msg_info* info)
{
    if (here().incoming.empty()) {
        test::fail_allocation(1); // ends the message loop
        errno = EINTR;
        return -1;
    }
    const test::received next = here().incoming.front();
    here().incoming.pop_front();
    std::copy_n(next.message.begin(), std::min(parts[0].size(), next.message.size()), parts[0].begin());
    *info = next.info;
    if (next.rcvid > 0)
        here().messages[next.rcvid] = next.message;
    return next.rcvid;
}

int64_t MsgRead(int32_t rcvid, std::span<std::byte> buffer, uint64_t offset)
{
    const test::bytes& message = here().messages[rcvid];
    const size_t count = offset < message.size() ? std::min(buffer.size(), message.size() - offset) : 0;
    if (count != 0)
        std::memcpy(buffer.data(), message.data() + offset, count);
    return static_cast<int64_t>(count);
}

int64_t MsgReadv(int32_t rcvid, std::span<const std::span<std::byte>> parts, uint64_t offset)
{
    return MsgRead(rcvid, parts[0], offset);
}

int MsgReply(int32_t rcvid, int32_t status, std::span<const std::byte> data)
{
    here().answers[rcvid] = {false, status, {data.begin(), data.end()}};
    return 0;
}

int MsgError(int32_t rcvid, int error)
{
    here().answers[rcvid] = {true, error, {}};
    return 0;
}

int ConnectDetach(uint32_t scoid)
{
    hold lock{_globals.client_lock};
    EXPECT_TRUE(scoid == 0 || !hashtable_get(_globals.client_table, scoid)) << scoid; // it was drained
    here().detached.push_back(scoid);
    return 0;
}

namespace {

// What has the name goes, as a file does: who has it open keeps it.
void take_name(const char* name)
{
    if (auto node = here().objects.extract(name))
        here().nameless.push_back(std::move(node));
}

} // namespace

int32_t shm_open(const char* name, unsigned flags, unsigned)
{
    const uint32_t user = user_served();
    if (flags & open_create) {
        take_name(name);
        here().objects[name];
        here().owners[name] = user;
    }
    const bool there = here().objects.contains(name);
    if (!there || here().owners[name] != user) {
        errno = there ? EACCES : ENOENT;
        return -1;
    }
    int32_t fd = 100;
    while (here().open_objects.contains(fd))
        ++fd;
    here().open_objects[fd] = &here().objects[name];
    return fd;
}

int shm_unlink(const char* name)
{
    here().unlinked.emplace_back(name);
    take_name(name);
    return 0;
}

int shm_unlink_open(const char* name, int32_t fd)
{
    const auto named = here().objects.find(name);
    const bool same = named != here().objects.end() && &named->second == here().open_objects.at(fd);
    return same ? shm_unlink(name) : 0;
}

int ftruncate(int32_t fd, int64_t size)
{
    here().open_objects.at(fd)->resize(static_cast<size_t>(size));
    return 0;
}

int close(int32_t fd)
{
    return here().open_objects.erase(fd) == 1 ? 0 : -1;
}

void* mmap(std::size_t size, unsigned, int32_t fd)
{
    test::bytes& object = *here().open_objects.at(fd);
    if (here().refuse_map || size > object.size())
        return nullptr;
    ++here().mappings;
    return object.data();
}

int munmap(void*, std::size_t)
{
    --here().mappings;
    return 0;
}

std::size_t objects_max()
{
    return here().descriptors;
}

std::size_t getpagesize()
{
    return 4096;
}

int mem_offset(const void* address, uint64_t* physical)
{
    *physical = here().physical ? here().physical(address) : reinterpret_cast<uintptr_t>(address);
    return *physical == ~uint64_t{0} ? -1 : 0;
}

int procmgr_daemon(int, unsigned)
{
    here().lines.emplace_back("daemon");
    return 0;
}
int ThreadCtl(int, void*)
{
    return 0;
}
uint32_t own_user()
{
    return here().own_uid;
}
uint32_t own_process()
{
    return 4711;
}

void* map_published_file(const char*, std::size_t size)
{
    return here().refuse_status || size > here().status.size() ? nullptr : here().status.data();
}

uint64_t time_of_day_ns()
{
    return here().time_ns;
}

bool store_directory(std::span<char> path)
{
    return static_cast<size_t>(std::snprintf(path.data(), path.size(), "%s", here().store.c_str())) < path.size();
}

int32_t open(const char* path, unsigned flags)
{
    EXPECT_STREQ(path, "/pps/services/mesa");
    EXPECT_EQ(flags, 0x102u);
    return here().refuse_config ? -1 : 9;
}
void close_object(int32_t) {}

int64_t read(int32_t, std::span<std::byte> buffer)
{
    here().config_unread = false;
    const size_t count = std::min(buffer.size(), here().config.size());
    std::memcpy(buffer.data(), here().config.data(), count);
    return static_cast<int64_t>(count);
}

int64_t write(int32_t, std::span<const std::byte> lines)
{
    if (here().refuse_write)
        return -1;
    here().config.assign(reinterpret_cast<const char*>(lines.data()), lines.size());
    return static_cast<int64_t>(lines.size());
}

int fsync(int32_t)
{
    return 0;
}

int ionotify(int32_t, uint32_t action, uint32_t conditions, const pulse_event* event)
{
    EXPECT_EQ(action, 3u);
    EXPECT_EQ(conditions, 0x10000000u);
    EXPECT_EQ(event->notify, 0x84u);
    EXPECT_EQ(event->code, 0);
    if (here().config_unread)
        return static_cast<int>(conditions);
    ++here().armed;
    return 0;
}

int uname(machine_name* name)
{
    std::snprintf(name->machine, sizeof name->machine, "%s", here().machine.c_str());
    return here().machine.empty() ? -1 : 0;
}

int SchedGet(int32_t, int32_t, sched_param*)
{
    return 0;
}
void process_begin(void (*)())
{
    if (here().on_begin)
        here().on_begin();
}
void process_watch_signals() {}
void process_exit(int status)
{
    std::_Exit(status);
}
int pthread_create(thread_id* thread, void* (*)(void*), void*)
{
    *thread = 1;
    return 0;
}
int pthread_setname_np(thread_id, const char* name)
{
    here().lines.push_back(std::string{"thread "} + name);
    return 0;
}

semaphore::semaphore() : state_{} {}
semaphore::~semaphore() = default;
void semaphore::post()
{
    ++*reinterpret_cast<uint8_t*>(state_);
}
void semaphore::wait()
{
    EXPECT_NE(*reinterpret_cast<uint8_t*>(state_), 0); // else it would never end
    --*reinterpret_cast<uint8_t*>(state_);
}

void sleep_us(uint64_t microseconds)
{
    here().slept_us += microseconds;
}
void* dlopen(const char*, int)
{
    static int library;
    return here().refuse_library ? nullptr : &library;
}
const char* dlerror()
{
    return "no such library";
}
int dlclose(void*)
{
    return 0;
}

} // namespace kalix::platform

using kalix::test::here;

void SVGA_SetLogFunction(svga_log_function) {}
svga_device* SVGA_Init()
{
    svga_device& device = here().device;
    if (here().refuse_device)
        return nullptr;
    device.fifo = here().fifo.data();
    device.framebuffer = here().framebuffer.data();
    device.fb_bytes = static_cast<uint32_t>(here().framebuffer.size());
    device.fb_physical = SVGA_FRAMEBUFFER_BASE;
    return &device;
}
void SVGA_Disable() {}
int SVGA3D_Init()
{
    return here().refuse_3d ? 1 : 0;
}
uint32_t SVGA_ReadReg(uint32_t index)
{
    if (index == SVGA_REG_GMR_MAX_IDS)
        return here().regions;
    return index == SVGA_REG_MAX_WIDTH || index == SVGA_REG_MAX_HEIGHT ? 8192 : 0;
}
void SVGA_WriteReg(uint32_t index, uint32_t value)
{
    here().register_writes.emplace_back(index, value);
}
void* SVGA_FIFOReserve(uint32_t count)
{
    if (count > SVGA_FIFO_RESERVATION_MAX || here().reservations_left == 0)
        return nullptr;
    if (here().reservations_left > 0)
        --here().reservations_left;
    here().reservation.assign(count, std::byte{0});
    return here().reservation.data();
}
void SVGA_FIFOCommit(uint32_t count)
{
    here().stream.insert(here().stream.end(), here().reservation.begin(), here().reservation.begin() + count);
}
void SVGA_FIFOCommitAll()
{
    SVGA_FIFOCommit(static_cast<uint32_t>(here().reservation.size()));
}
uint32_t SVGA_InsertFence()
{
    return ++here().fence;
}
void SVGA_SyncToFence(uint32_t seqno)
{
    here().waited.push_back(seqno);
    here().fifo[SVGA_FIFO_FENCE] = seqno;
    if (here().on_wait)
        here().on_wait();
}

namespace {

template <typename... number>
void note_call(const char* name, number... arguments)
{
    std::string text = name;
    ((text += " " + std::to_string(arguments)), ...);
    here().calls.push_back(text);
}

} // namespace

// Keeps the record as the device library does.
void SVGA_SetMode(uint32_t width, uint32_t height, uint32_t bits_per_pixel, uint32_t enable)
{
    note_call("mode", width, height, bits_per_pixel, enable);
    svga_device& device = here().device;
    const bool has_depth = bits_per_pixel == 16 || bits_per_pixel == 32;
    if (!has_depth || width == 0 || height == 0 || uint64_t{width} * height > device.fb_bytes / 4)
        return;
    const float zoom = device.zoom == device.zoom ? device.zoom : 1;
    device.mode_width = width;
    device.mode_height = height;
    device.bits_per_pixel = bits_per_pixel;
    device.width = static_cast<uint32_t>(static_cast<float>(width) * zoom);
    device.height = static_cast<uint32_t>(static_cast<float>(height) * zoom);
    device.pitch = device.width * bits_per_pixel / 8;
    device.visible_bytes = device.pitch * device.height;
}
void SVGA_Update(uint32_t x, uint32_t y, uint32_t width, uint32_t height)
{
    note_call("update", x, y, width, height);
}
int SVGA_BeginDefineAlphaCursor(const svga_alpha_cursor* header, void** image)
{
    *image = nullptr;
    if (header->width > SVGA_CURSOR_EXTENT_MAX || header->height > SVGA_CURSOR_EXTENT_MAX)
        return -1;
    note_call("cursor", header->id, header->hotspot_x, header->hotspot_y, header->width, header->height);
    *image = SVGA_FIFOReserve(header->width * header->height * 4);
    return *image ? 0 : -1;
}
void SVGA_MoveCursor(uint32_t visible, uint32_t x, uint32_t y, uint32_t screen_id)
{
    note_call("move", visible, x, y, screen_id);
}
void NEBO_SVGA_PreserveCursor(const void*, const svga_alpha_cursor* header)
{
    note_call("preserve", header->id);
}
void NEBO_SVGA_RestoreCursor()
{
    note_call("restore");
}
