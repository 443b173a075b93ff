#include "driver/objects/execution.h"

#include "driver/objects/execbuf.h"
#include "driver/objects/parameters.h"
#include "driver/objects/shares.h"
#include "driver/objects/verifier.h"
#include "svga/svga.h"

#include <algorithm>
#include <cstring>

namespace kalix {
namespace {

// What refuses a request, to be logged once fifo_lock is free.
struct refusal {
    void (*say)() = nullptr;                 // logs its own line, so that no other line's flood hides it
    share_bound reached = share_bound::none; // unless none, told instead
};

struct fence_pair {
    uint32_t inserted, passed;
};

// Ends the FIFO reservation of a request of that many bytes; a request of none has none open.
void commit(uint32_t reserved, uint32_t committed)
{
    if (reserved != 0)
        SVGA_FIFOCommit(committed);
}

// From the reservation to the fence. 0 or the status that refuses the request, and then *why.
int execute(client_record* client, const execbuf_req& req, fence_pair* fence, refusal* why)
    KALIX_REQUIRES(_globals.device_mutex, _globals.fifo_lock)
{
    // Space first, as clients know it: a count beyond any reservation answers -12, whatever buffer it names.
    const uint32_t bytes = req.byte_count;
    auto* const space = static_cast<std::byte*>(SVGA_FIFOReserve(bytes));
    if (!space) {
        why->say = [] { slogf(log_code, log_error, "kalix: fifo reserve failed for execbuf."); };
        return status_no_memory;
    }
    command_buffer_use buffer; // a count beyond the mapping names a buffer that no client has
    if (bytes <= KALIX_COMMAND_BUFFER_BYTES)
        buffer = cmd_getbuf(client, static_cast<uint32_t>(req.buffer_id));
    if (!buffer.map) {
        commit(bytes, 0);
        *why = {[] { slogf(log_code, log_error, "kalix: could not map to user command buffer"); }, buffer.reached};
        return buffer.reached == share_bound::none ? status_invalid : status_no_memory;
    }
    // The one look at the client's memory, which may change under it: what counts from here on is the copy.
    std::memcpy(space, buffer.map, bytes);
    cmd_putbuf(buffer);
    if (const int refused = cmd_check_all(client, {space, bytes})) {
        commit(bytes, 0);
        why->say = [] { slogf(log_code, log_error, "kalix: command validation failed"); };
        return refused;
    }
    // With both locks held: nothing else reaches the device between what it has and these commands.
    platform::sleep_us(std::min(req.delay_us, _globals.settings.max_delay_us));
    commit(bytes, bytes);
    fence->inserted = SVGA_InsertFence(); // behind no commands too: a client may wait for what went before
    fence->passed = fifo_register(SVGA_FIFO_FENCE);
    return 0;
}

} // namespace

int vmw_execbuf_ioctl(client_record* client, execbuf_req* req)
{
    if (!client || !req)
        return status_invalid;
    fence_pair fence{};
    refusal why;
    int status;
    {
        hold lock{_globals.fifo_lock};
        status = execute(client, *req, &fence, &why);
    }
    if (why.reached != share_bound::none)
        share_log_refusal(share_kind::command_buffer, *client, why.reached);
    else if (status != 0)
        why.say();
    if (status != 0)
        return status;
    // Question and answer share the record's bytes, some of which go back as sent.
    execbuf_rep reply;
    static_assert(sizeof reply == sizeof *req);
    std::memcpy(&reply, req, sizeof reply);
    reply.fence_handle = reply.seqno = fence.inserted;
    reply.fence_flags = 3; // a constant of the wire
    reply.passed_seqno = fence.passed;
    reply.error = 0;
    std::memcpy(req, &reply, sizeof reply);
    return 0;
}

} // namespace kalix
