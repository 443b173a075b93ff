#include "driver/message_loop.h"

#include "driver/config.h"
#include "driver/dispatch.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <span>

namespace kalix {
namespace {

constexpr uint32_t no_scoid = 0xFFFFFFFF;
// A pulse is the longest that is looked at here; a message's header is shorter, and workers read the rest.
using receive_buffer = std::array<std::byte, sizeof(platform::_pulse)>;

std::array<platform::thread_id, dispatch_threads> dispatchThreads;

// A worker that cannot be started is told by the platform; the others answer its share.
void start_workers()
{
    for (uint32_t index = 0; index < dispatch_threads; ++index) {
        char name[32];
        std::snprintf(name, sizeof name, "tessra-gpu-worker%d", static_cast<int>(index));
        dispatchThreads[index] = 0;
        platform::pthread_create(&dispatchThreads[index], dispatch_entry, reinterpret_cast<void*>(uintptr_t{index}));
        platform::pthread_setname_np(dispatchThreads[index], name);
    }
}

// What a received thing turned out to be: something to queue, or something that is dealt with.
enum class outcome { queue, done };

outcome accept_pulse(workitem& item, const receive_buffer& received)
{
    platform::_pulse pulse;
    std::memcpy(&pulse, received.data(), sizeof pulse);
    if (pulse.code == platform::pulse_code_disconnect) {
        item.info = {};
        item.info.scoid = static_cast<uint32_t>(pulse.scoid);
        create_disconnect_workitem(&item);
        return outcome::queue;
    }
    // Here, not on a worker: the zoom's setter takes the device mutex itself. Read first and armed behind that, as the
    // pulse has disarmed the notification.
    if (pulse.code == pulse_code_config) {
        pps_load_config();
        pps_monitor(_globals.self_coid);
        return outcome::done;
    }
    if (pulse.code != platform::pulse_code_unblock)
        slogf(log_code, log_warning, "kalix: unknown pulse %d received, dropping", pulse.code);
    return outcome::done;
}

// The first 16 bits are an I/O message's type. A request's are the low half of its magic, 0x2B4E, which is no such
// type, so that none is taken for the other.
outcome accept_message(workitem& item, const receive_buffer& received)
{
    kalix_request_header header;
    uint16_t type;
    std::memcpy(&header, received.data(), sizeof header);
    std::memcpy(&type, received.data(), sizeof type); // of a shorter message the rest is zero
    item.magic = header.magic;
    item.command = header.command;
    item.payload_length = header.payload_length;
    if (type == KALIX_IO_CONNECT) {
        platform::MsgReply(item.rcvid, 0, {});
        return outcome::done;
    }
    if (type > KALIX_IO_CONNECT && type <= KALIX_IO_LAST) {
        platform::MsgError(item.rcvid, platform::error_no_function);
        return outcome::done;
    }
    return outcome::queue;
}

// Refuses what no worker can answer. A disconnect's receive id of 0 reaches no sender.
outcome check(const workitem& item)
{
    const bool has_scoid = item.info.scoid != 0 && item.info.scoid != no_scoid;
    if (has_scoid && item.magic == KALIX_REQUEST_MAGIC)
        return outcome::queue;
    if (has_scoid)
        slogf(log_code, log_warning, "kalix: unknown msg received, dropping.");
    else
        slogf(log_code, log_warning, "kalix: workitem has no scoid -- dropping");
    platform::MsgError(item.rcvid, platform::error_no_function);
    return outcome::done;
}

// Receives one message or pulse into a workitem and does what there is to do with it.
void receive(std::unique_ptr<workitem> item)
{
    receive_buffer received{};
    const std::span<std::byte> part{received};
    errno = 0;
    item->rcvid = platform::MsgReceivev(_globals.channel->chid, {&part, 1}, &item->info);
    if (item->rcvid == -1) {
        slogf(log_code, log_warning, "kalix: MsgReceivev error (%d).", errno);
        return;
    }
    // A disconnect passes the check as a request does: it was given the magic.
    const outcome first = item->rcvid == 0 ? accept_pulse(*item, received) : accept_message(*item, received);
    if (first == outcome::done || check(*item) == outcome::done)
        return;
    if (queue_workitem(item))
        return;
    if (item->rcvid != 0) {
        platform::MsgError(item->rcvid, platform::error_no_function);
        return;
    }
    // Nobody would ask again: what the client held is given back here and now.
    slogf(log_code, log_warning, "kalix: no memory to queue the disconnect of connection %u, drained at once",
          item->info.scoid);
    dispatch(*item);
}

} // namespace

int msg_loop()
{
    if (!_globals.initialized || !_globals.channel || _globals.channel->chid == 0)
        return 1;
    start_workers();
    for (;;) {
        // Before anything is received: what has come in would have to be dropped, a disconnect among it.
        std::unique_ptr<workitem> item{new (std::nothrow) workitem{}};
        if (!item) {
            slogf(log_code, log_error, "kalix: msg_loop out of memory!");
            return 0;
        }
        receive(std::move(item));
    }
}

void create_disconnect_workitem(workitem* item)
{
    if (!item)
        return;
    item->magic = KALIX_REQUEST_MAGIC;
    item->command = KALIX_DISCONNECT;
    item->payload_length = 0;
    item->rcvid = 0;
}

} // namespace kalix
