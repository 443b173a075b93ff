// Occlusion queries: begun and ended in a context, answered into guest memory.
//
// Drawing is finished when a query ends, so a result is never pending. Ending one that was not begun fails.

#include "device/commands/commands.h"

#include <algorithm>
#include <limits>

namespace kalix::device {
namespace {

// Writes a result, whose count has 32 bits and saturates, or nothing when not all of it can be written.
outcome answer(device_state& device, const svga3d_query& command, uint32_t state, uint64_t samples)
{
    constexpr uint64_t most = std::numeric_limits<uint32_t>::max();
    const svga3d_query_result result{sizeof(svga3d_query_result), state,
                                     static_cast<uint32_t>(std::min(samples, most))};
    const auto& [region, offset] = command.result;
    if (const outcome missing = device.guest.check(region, offset, sizeof result))
        return missing;
    device.guest.copy_out(region, offset, std::as_bytes(std::span{&result, 1}));
    return executed;
}

outcome take_query(device_state& device, command_reader& body, svga3d_query& command, context*& in)
{
    if (!body.take(command))
        return KALIX_REFUSED_SHORT_COMMAND;
    const auto found = device.contexts.find(command.cid);
    if (found == device.contexts.end())
        return KALIX_REFUSED_NO_CONTEXT;
    in = &found->second;
    return command.type < SVGA3D_QUERYTYPE_MAX ? executed : outcome{KALIX_REFUSED_BAD_VALUE};
}

outcome query_begin(device_state& device, command_reader body)
{
    svga3d_begin_query command;
    if (!body.take(command))
        return KALIX_REFUSED_SHORT_COMMAND;
    const auto in = device.contexts.find(command.cid);
    if (in == device.contexts.end())
        return KALIX_REFUSED_NO_CONTEXT;
    if (command.type >= SVGA3D_QUERYTYPE_MAX)
        return KALIX_REFUSED_BAD_VALUE;
    in->second.query = {.active = true};
    return executed;
}

outcome query_end(device_state& device, command_reader body)
{
    svga3d_query command;
    context* in = nullptr;
    if (const outcome refused = take_query(device, body, command, in))
        return refused;
    if (!in->query.active)
        return answer(device, command, SVGA3D_QUERYSTATE_FAILED, 0);
    const outcome result = answer(device, command, SVGA3D_QUERYSTATE_SUCCEEDED, in->query.samples);
    // An answer that could not be written leaves the query running, so that it can be ended with a better place.
    if (result == executed)
        in->query.active = false;
    return result;
}

// The last result once more, 0 before there was one; while the query still runs there is none.
outcome query_wait(device_state& device, command_reader body)
{
    svga3d_query command;
    context* in = nullptr;
    if (const outcome refused = take_query(device, body, command, in))
        return refused;
    if (in->query.active)
        return answer(device, command, SVGA3D_QUERYSTATE_FAILED, 0);
    return answer(device, command, SVGA3D_QUERYSTATE_SUCCEEDED, in->query.samples);
}

constexpr command_row rows[] = {
    {SVGA_3D_CMD_BEGIN_QUERY, sizeof(svga3d_begin_query), query_begin},
    {SVGA_3D_CMD_END_QUERY, sizeof(svga3d_query), query_end},
    {SVGA_3D_CMD_WAIT_FOR_QUERY, sizeof(svga3d_query), query_wait},
};

} // namespace

std::span<const command_row> query_commands()
{
    return rows;
}

} // namespace kalix::device
