// What the server says of itself without being asked: the last frame's making, and the counters of driver and device.
//
// Read from the status and screen files, so that it works while the server is stuck, and disturbs nothing.

#include "tools/ctl/commands.h"
#include "tools/ctl/status_text.h"
#include "tools/ctl/svga_names.h"
#include "tools/screen/run_directory.h"
#include "tools/screen/screen_reader.h"
#include "tools/screen/server_state.h"
#include "tools/screen/status_reader.h"

#include <kalix/status.h>

namespace kalix::ctl {
namespace {

record row_of(const kalix_status_overlay& overlay)
{
    const uint32_t shown = overlay.shown_buffer < 2 ? overlay.shown_buffer : 0;
    return {{"id", uint64_t{overlay.id}},
            {"owner", uint64_t{overlay.owner_pid}},
            {"rectangle", rectangle{overlay.x, overlay.y, overlay.width, overlay.height}},
            {"visible", overlay.visible != 0},
            {"buffers", uint64_t{overlay.buffer_count}},
            {"buffer", uint64_t{shown}},
            {"sid", uint64_t{overlay.sids[shown]}},
            {"turned", overlay.turned != 0}};
}

record row_of(const kalix_status_client& client)
{
    return {{"pid", uint64_t{client.pid}},
            {"uid", uint64_t{client.uid}},
            {"contexts", uint64_t{client.objects[KALIX_STATUS_CONTEXTS]}},
            {"dma_buffers", uint64_t{client.objects[KALIX_STATUS_DMA_BUFFERS]}},
            {"surfaces", uint64_t{client.objects[KALIX_STATUS_SURFACES]}},
            {"command_buffers", uint64_t{client.objects[KALIX_STATUS_COMMAND_BUFFERS]}},
            {"overlays", uint64_t{client.objects[KALIX_STATUS_OVERLAYS_HELD]}},
            {"device_bytes", client.device_bytes},
            {"shared_bytes", client.shared_bytes},
            {"requests", client.requests},
            {"presents", client.presents},
            {"refused", uint64_t{client.refused.count}},
            {"last_refusal", last_refusal(client)}};
}

// Counters that have counted something, with their names.
template <size_t count, typename function>
table counted(const char* name, const char* kind, const uint64_t (&counters)[count], function name_of)
{
    table out{name, {}};
    for (uint32_t i = 0; i < count; ++i)
        if (counters[i] != 0)
            out.rows.push_back({{"count", counters[i]}, {kind, name_of(i)}});
    return out;
}

} // namespace

report tell_frame(const arguments&)
{
    const std::string directory = tools::run_directory();
    tools::expect_server(directory);
    const auto status = tools::read_status(directory);
    const kalix_status_frame& frame = status->frame;
    report out{{{"frame", frame.number}}, {}};
    if (frame.number == 0)
        return out;
    out.head.push_back({"surface", uint64_t{frame.sid}});
    out.head.push_back({"debug_display", frame.debug != 0});
    out.head.push_back({"rectangle", rectangle{frame.x, frame.y, frame.width, frame.height}});
    out.head.push_back({"zoom", plain(frame.zoom)});
    out.head.push_back({"screen", extent{frame.screen_width, frame.screen_height}});
    out.head.push_back({"uploaded_bytes", uint64_t{frame.uploaded_bytes}});
    out.head.push_back({"waited", frame.waited != 0});
    table overlays{"overlays", {}};
    for (uint32_t i = 0; i < frame.overlay_count && i < KALIX_STATUS_OVERLAYS; ++i)
        overlays.rows.push_back(row_of(frame.overlays[i]));
    out.tables.push_back(std::move(overlays));
    return out;
}

report tell_statistics(const arguments&)
{
    const std::string directory = tools::run_directory();
    tools::expect_server(directory);
    const auto status = tools::read_status(directory);
    const kalix_screen_statistics device = tools::screen_reader{directory}.statistics();
    report out{{{"server", uint64_t{status->server_pid}},
                {"started", time_text(status->start_ns)},
                {"store", status->store[0] ? value{std::string{status->store}} : unknown{}},
                {"presents", status->frame.number},
                {"screen_changes", device.frames},
                {"fences", device.fences},
                {"draws", device.draws},
                {"bytes_moved", device.bytes_moved},
                {"surfaces", device.surfaces},
                {"surface_bytes", device.surface_bytes},
                {"contexts", device.contexts},
                {"regions", device.regions},
                {"clients_seen", uint64_t{status->clients_seen}}},
               {}};
    table clients{"clients", {}};
    for (const kalix_status_client& client : status->clients)
        if (client.pid != 0)
            clients.rows.push_back(row_of(client));
    table overlays{"overlays", {}};
    for (const kalix_status_overlay& overlay : status->overlays)
        if (overlay.id != 0)
            overlays.rows.push_back(row_of(overlay));
    out.tables = {std::move(clients), std::move(overlays),
                  counted("bounds_reached", "bound", status->bounds_reached, bound_name),
                  counted("commands", "command", device.commands, command_name),
                  counted("refused", "reason", device.refused, refusal_name)};
    return out;
}

} // namespace kalix::ctl
