#include "driver/dispatch.h"

#include "driver/objects/client.h"
#include "driver/objects/context.h"
#include "driver/objects/dma.h"
#include "driver/objects/execution.h"
#include "driver/objects/fence.h"
#include "driver/objects/overlay.h"
#include "driver/objects/parameters.h"
#include "driver/objects/surface.h"
#include "driver/objects/surface_ids.h"
#include "driver/screen/debug.h"
#include "driver/screen/display.h"
#include "driver/screen/present.h"
#include "driver/screen/readback.h"
#include "driver/screen/status_file.h"
#include "driver/state/device_hold.h"
#include "platform/files/sender.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <span>

namespace kalix {
namespace {

constexpr int status_failed = 1; // the dispatcher's own
constexpr uint64_t payload_offset = sizeof(kalix_request_header);

struct request {
    client_record* client; // none when it could not be made
    int32_t rcvid;
    std::span<std::byte> buffer; // payload, at least as long as the reply
    bool missing;                // no payload, or less than the handler reads
};

struct request_row {
    int32_t command;
    int (*call)(const request&);
    uint32_t request_bytes; // a shorter payload counts as missing; 0: any will do
    uint32_t reply_bytes;
};

// Lets a handler work on a copy of the record at the buffer's start, or on none when it is missing. A copy, since the
// buffer may be shorter than the record. What a handler leaves alone goes back as sent.
template <typename record, typename function>
int with_record(const request& what, function handler) KALIX_REQUIRES(_globals.device_mutex)
{
    if (what.missing)
        return handler(static_cast<record*>(nullptr));
    // The buffer may end within the record, behind what is read and replied: the rest is zero.
    record req{};
    const size_t bytes = std::min(sizeof req, what.buffer.size());
    std::memcpy(&req, what.buffer.data(), bytes);
    const int status = handler(&req);
    std::memcpy(what.buffer.data(), &req, bytes);
    return status;
}

template <typename record, int (*handler)(client_record*, record*)>
int call(const request& what) KALIX_REQUIRES(_globals.device_mutex)
{
    return with_record<record>(what, [&what](record* req)
                                         KALIX_REQUIRES(_globals.device_mutex) { return handler(what.client, req); });
}

int define_surface(const request& what) KALIX_REQUIRES(_globals.device_mutex)
{
    return with_record<surface_define_req>(
        what, [&what](surface_define_req* req) KALIX_REQUIRES(_globals.device_mutex) {
            const int status = vmw_surface_define_ioctl(what.client, req, what.rcvid);
            if (status == 0 && req)
                status_note_surface(req->flags); // the reply's first word: its sid
            return status;
        });
}

int set_cursor(const request& what) KALIX_REQUIRES(_globals.device_mutex)
{
    return with_record<set_cursor_req>(what, [&what](set_cursor_req* req) KALIX_REQUIRES(_globals.device_mutex) {
        return nebo_adapter_set_cursor(what.client, req, what.buffer.subspan(req ? sizeof *req : 0));
    });
}

int reset_debug(const request& what) KALIX_REQUIRES(_globals.device_mutex)
{
    return vmw_debug_reset_debug_state_msg(what.client);
}

int accept_without_doing(const request&)
{
    return 0;
}

// An empty pool answers with the whole record and an id of 0, by which clients tell it from an unknown request.
int allocate_sid(client_record* client, alloc_sid_req* req) KALIX_REQUIRES(_globals.device_mutex)
{
    if (!req)
        return status_failed;
    req->sid = client ? surface_id_hand_out(client) : 0;
    return req->sid == 0 ? status_failed : 0;
}

int query_software_mode(client_record*, software_mode_req* req)
{
    if (!req)
        return status_failed;
    req->software_mode = _globals.software_mode;
    slogf(log_code, log_information, "kalix: returning software mode %d", static_cast<int>(req->software_mode));
    return 0;
}

// Also what a client sends that wants to give back all at once: its connection goes on, with a new record at its next
// request. The status file is told before the record goes, which knows its slot there.
int disconnect(const request& what) KALIX_REQUIRES(_globals.device_mutex)
{
    if (!what.client)
        return 0;
    slogf(log_code, log_information, "kalix: disconnecting client pid %d", static_cast<int>(what.client->pid));
    client_destroy(what.client);
    status_forget_client(*what.client);
    client_remove(what.client);
    return 0;
}

// Bytes up to and with the last field that a handler reads: clients may leave out what lies behind, as long as nobody
// looks at it. A reply may be longer than the request, or a part of it.
constexpr uint32_t readback_bytes = offsetof(readback_req, use_shm) + sizeof(readback_req::use_shm);
constexpr uint32_t dump_bytes = offsetof(dump_sid_req, rows) + sizeof(dump_sid_req::rows);
constexpr uint32_t execbuf_bytes = offsetof(execbuf_req, delay_us) + sizeof(execbuf_req::delay_us);
constexpr uint32_t define_reply = offsetof(surface_define_req, mip_levels);
constexpr uint32_t param_bytes = offsetof(getparam_req, param) + sizeof(getparam_req::param);

// In the order of their codes, for the search. The codes without a name are requests that need nothing done here;
// clients may send them.
// clang-format off
constexpr request_row requests[] = {
    {KALIX_GETPARAM,          call<getparam_req, vmw_getparam_ioctl>,                   param_bytes, sizeof(getparam_req)},
    {KALIX_DMABUF_ALLOC,      call<dmabuf_alloc_req, vmw_dmabuf_alloc_ioctl>,           4, sizeof(dmabuf_alloc_req)},
    {KALIX_DMABUF_UNREF,      call<dmabuf_unref_req, vmw_dmabuf_unref_ioctl>,           4, 0},
    {3,                       accept_without_doing,                                     0, 0},
    {4,                       accept_without_doing,                                     0, 0},
    {5,                       accept_without_doing,                                     0, 0},
    {6,                       accept_without_doing,                                     0, 0},
    {KALIX_CONTEXT_DEFINE,    call<context_define_req, vmw_context_define_ioctl>,       0, sizeof(context_define_req)},
    {KALIX_CONTEXT_DESTROY,   call<context_destroy_req, vmw_context_destroy_ioctl>,     4, 0},
    {KALIX_SURFACE_DEFINE,    define_surface,                                           sizeof(surface_define_req), define_reply},
    {KALIX_SURFACE_DESTROY,   call<surface_destroy_req, vmw_surface_destroy_ioctl>,     4, 0},
    {KALIX_SURFACE_REFERENCE, call<surface_reference_req, vmw_surface_reference_ioctl>, 4, sizeof(surface_reference_req)},
    {KALIX_EXECBUF,           call<execbuf_req, vmw_execbuf_ioctl>,                     execbuf_bytes, sizeof(execbuf_req)},
    {13,                      accept_without_doing,                                     0, 0},
    {KALIX_FENCE_WAIT,        call<fence_wait_req, vmw_fence_wait_ioctl>,               4, 0},
    {KALIX_FENCE_SIGNALLED,   call<fence_signalled_req, vmw_fence_signalled_ioctl>,     4, sizeof(fence_signalled_req)},
    {KALIX_FENCE_UNREF,       accept_without_doing,                                     0, 0},
    {17,                      accept_without_doing,                                     0, 0},
    {18,                      accept_without_doing,                                     0, 0},
    {19,                      accept_without_doing,                                     0, 0},
    {KALIX_PRESENT,           call<present_req, nebo_present_ioctl>,                    sizeof(present_req), 0},
    {KALIX_FIFOMAP,           call<fifomap_req, nebo_getparam_fifomap>,                 4, sizeof(fifomap_req)},
    {KALIX_FIFOMAP_CAPS,      call<fifomap_caps_rep, nebo_getparam_fifomap_caps>,       0, sizeof(fifomap_caps_rep)},
    {KALIX_ALLOC_SID,         call<alloc_sid_req, allocate_sid>,                        0, sizeof(alloc_sid_req)},
    {KALIX_PRESENT_PHYS,      call<present_phys_req, nebo_present_to_phys_addr_ioctl>,  sizeof(present_phys_req), 0},
    {KALIX_READBACK,          call<readback_req, nebo_readback_surface>,                readback_bytes, 0},
    {KALIX_OVERLAY_DEFINE,    call<overlay_define_req, nebo_overlay_define>,            sizeof(overlay_define_req), sizeof(overlay_define_req)},
    {KALIX_OVERLAY_DESTROY,   call<overlay_destroy_req, nebo_overlay_destroy>,          4, sizeof(overlay_destroy_req)},
    {KALIX_OVERLAY_VISIBLE,   call<overlay_visible_req, nebo_overlay_visible>,          8, 0},
    {KALIX_OOB_PRESENT,       call<oob_present_req, nebo_oob_present>,                  4, 0},
    {KALIX_SOFTWARE_MODE,     call<software_mode_req, query_software_mode>,             0, sizeof(software_mode_req)},
    {KALIX_SVGA_ENABLE,       call<svga_enable_req, nebo_adapter_svga_enable>,          4, 0},
    {KALIX_SET_MODE,          call<set_mode_req, nebo_adapter_set_mode>,                sizeof(set_mode_req), 0},
    {KALIX_SET_CURSOR,        set_cursor,                                               sizeof(set_cursor_req), 0},
    {KALIX_MOVE_CURSOR,       call<move_cursor_req, nebo_adapter_move_cursor>,          sizeof(move_cursor_req), 0},
    {KALIX_DEBUG_RESET,       reset_debug,                                              0, 0},
    {KALIX_DEBUG_SHOW_SID,    call<show_sid_req, vmw_debug_show_sid_msg>,               4, 0},
    {KALIX_DEBUG_SID_INFO,    call<sid_info_req, vmw_debug_get_sid_info_msg>,           4, sizeof(sid_info_req)},
    {KALIX_DEBUG_LIST_SIDS,   call<list_sids_req, vmw_debug_list_sids_msg>,             4, sizeof(list_sids_req)},
    {KALIX_DEBUG_DUMP_SID,    call<dump_sid_req, vmw_debug_dump_sid_msg>,               dump_bytes, sizeof(dump_sid_req)},
    {KALIX_DEBUG_FILL_SID,    call<fill_sid_req, vmw_debug_fill_sid_msg>,               sizeof(fill_sid_req), sizeof(fill_sid_req)},
    {KALIX_DISCONNECT,        disconnect,                                               0, 0},
};
// clang-format on
static_assert(std::ranges::is_sorted(requests, {}, &request_row::command));

const request_row* row_of(int32_t command)
{
    const auto* const row = std::ranges::lower_bound(requests, command, {}, &request_row::command);
    return row != std::end(requests) && row->command == command ? row : nullptr;
}

// The payload and the room that its reply needs.
struct payload_buffer {
    std::unique_ptr<std::byte[]> bytes; // none without a payload
    size_t size = 0;
};

// Bytes of payload that the sender's message holds; a declared length beyond them allocates nothing.
int64_t payload_held(const workitem& item)
{
    return std::max<int64_t>(int64_t{item.info.srcmsglen} - int64_t{payload_offset}, 0);
}

// Reads the payload whole; none, after a line, when the sender has not sent it or there is no memory.
std::optional<payload_buffer> read_payload(const workitem& item, uint32_t reply_bytes)
{
    if (item.payload_length <= 0)
        return payload_buffer{};
    const auto declared = static_cast<size_t>(item.payload_length);
    int64_t got = std::min<int64_t>(payload_held(item), item.payload_length);
    if (got == item.payload_length) {
        // Zero-filled: a reply that is longer than the payload carries nothing of what the heap held before.
        payload_buffer payload{nullptr, std::max<size_t>(declared, reply_bytes)};
        payload.bytes.reset(new (std::nothrow) std::byte[payload.size]{});
        const std::span<std::byte> part{payload.bytes.get(), payload.bytes ? declared : 0};
        got = payload.bytes ? platform::MsgReadv(item.rcvid, {&part, 1}, payload_offset) : -1;
        if (got == item.payload_length)
            return payload;
    }
    slogf(log_code, log_error,
          "kalix: expected to read %d bytes of workitem data for command %d, got %d! dropping workitem",
          item.payload_length, item.command, static_cast<int>(got));
    return std::nullopt;
}

int answer(const request_row& row, const request& what) KALIX_REQUIRES(_globals.device_mutex)
{
    const int status = row.call(what);
    // Behind a disconnect the record is freed.
    if (what.client && row.command != KALIX_DISCONNECT)
        status_note_request(*what.client, row.command, status);
    return status;
}

// The record is looked up before the device mutex is taken, so that looking does not wait for a handler; an unknown
// request makes one too. A client without a record, for want of memory, is each handler's to refuse.
int call_handler(const request_row* row, const workitem& item, const payload_buffer& payload)
{
    client_record* const client = client_get(item.info);
    if (!row)
        return status_failed;
    request what{client, item.rcvid, {payload.bytes.get(), payload.size}, !payload.bytes};
    what.missing |= item.payload_length > 0 && static_cast<uint32_t>(item.payload_length) < row->request_bytes;
    device_hold lock;
    platform::sender_scope sender{item.info.uid};
    return answer(*row, what);
}

} // namespace

void* dispatch_entry(void*)
{
    for (;;)
        dispatch(*take_workitem());
}

void dispatch(const workitem& item)
{
    const request_row* const row = row_of(item.command);
    const uint32_t reply_bytes = row ? row->reply_bytes : 0;
    const std::optional<payload_buffer> payload = read_payload(item, reply_bytes);
    if (!payload) { // answered all the same: its sender waits, and would for ever
        platform::MsgError(item.rcvid, platform::error_no_function);
        return;
    }
    const int status = call_handler(row, item, *payload);
    if (item.rcvid == 0) {
        platform::ConnectDetach(item.info.scoid); // a disconnect: nobody to answer
        return;
    }
    // Whether the client takes it is the platform's care: one that does not is disconnected, and then drained.
    const size_t replied = payload->bytes ? reply_bytes : 0;
    platform::MsgReply(item.rcvid, status, {payload->bytes.get(), replied});
}

} // namespace kalix
