// Clients and overlays in the status file. Each request passes here, so that what costs time is done for those alone
// that change something: a refusal reads the clock, overlays are written while there are any.

#include "driver/screen/status_file.h"
#include "driver/screen/status_page.h"
#include "platform/log/clock.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace kalix {
namespace {

static_assert(static_cast<size_t>(KALIX_STATUS_OBJECT_TYPES) == RESOURCE_TOTAL);
static_assert(static_cast<uint32_t>(KALIX_STATUS_OVERLAYS) == overlay_id_capacity);
static_assert(static_cast<uint32_t>(KALIX_STATUS_BOUND_DMA_BUFFERS) == static_cast<uint32_t>(share_kind::dma_buffer));
static_assert(static_cast<uint32_t>(KALIX_STATUS_REASON_LENGTH) == static_cast<uint32_t>(refusal_reason::length));

constexpr uint64_t second_ns = 1'000'000'000;

// When a client's refusal was last an event, by its slot: one that repeats itself must not push all others out.
std::array<uint64_t, KALIX_STATUS_CLIENTS> refusal_told;
bool overlays_written; // the file has some

void write_bounds() KALIX_REQUIRES(_globals.device_mutex)
{
    const auto counted = [](kalix_status_bound bound, uint64_t count) { status_page->bounds_reached[bound] = count; };
    for (size_t kind = 0; kind < share_kinds; ++kind)
        counted(static_cast<kalix_status_bound>(kind), _globals.shares.refused[kind]);
    counted(KALIX_STATUS_BOUND_CONTEXT_IDS, id_exhausted(&_globals.context_ids));
    counted(KALIX_STATUS_BOUND_SURFACE_IDS, id_exhausted(&_globals.surface_ids));
    counted(KALIX_STATUS_BOUND_OVERLAY_IDS, id_exhausted(&_globals.overlay_ids));
}

// Whatever a bound refuses is a refusal, so that the bounds are looked at here alone.
void write_refusal(client_record& client, kalix_status_client& slot, int32_t command, int32_t status)
    KALIX_REQUIRES(_globals.device_mutex)
{
    const command_refusal why = std::exchange(client.refused, {});
    const kalix_status_refusal last = slot.refused;
    slot.refused = {last.count + 1, status,   static_cast<uint32_t>(command), static_cast<uint32_t>(why.reason),
                    why.command,    why.named};
    write_bounds();
    uint64_t& told = refusal_told[client.status_slot - 1];
    const uint64_t now = platform::time_of_day_ns();
    const bool repeated = last.status == status && last.request == slot.refused.request && last.command == why.command;
    if (repeated && now - told < second_ns)
        return;
    told = now;
    status_event(KALIX_EVENT_REFUSAL, &client, slot.refused.request, why.command, static_cast<uint32_t>(status));
}

void tell_overlay(const kalix_status_overlay& before, const kalix_status_overlay& now, const client_record& by)
{
    if (before.id == 0)
        status_event(KALIX_EVENT_OVERLAY_DEFINED, &by, now.id);
    else if (now.id == 0)
        status_event(KALIX_EVENT_OVERLAY_DESTROYED, &by, before.id);
    if (before.id != 0 && now.id != 0 && (before.visible != 0) != (now.visible != 0))
        status_event(KALIX_EVENT_OVERLAY_VISIBLE, &by, now.id, now.visible != 0);
}

// Whichever request it was may have changed them, as by the end of a surface; what has changed tells what was done.
void write_overlays(const client_record& by) KALIX_REQUIRES(_globals.device_mutex)
{
    if (!overlays_written && _globals.resource_tables[RESOURCE_OVERLAY]->count == 0)
        return;
    std::array<kalix_status_overlay, KALIX_STATUS_OVERLAYS> now{};
    for_each_overlay([&now](const overlay_record& overlay) { now[overlay.id - 1] = status_overlay(overlay); });
    for (size_t i = 0; i < now.size(); ++i)
        if (kalix_status_overlay& written = status_page->overlays[i];
            std::memcmp(&written, &now[i], sizeof written) != 0)
            tell_overlay(std::exchange(written, now[i]), now[i], by);
    overlays_written = std::ranges::any_of(now, [](const kalix_status_overlay& each) { return each.id != 0; });
}

bool shows_a_frame(int32_t command)
{
    return command == KALIX_PRESENT || command == KALIX_OOB_PRESENT;
}

} // namespace

kalix_status_client* status_slot(client_record& client)
{
    if (client.status_slot != 0)
        return &status_page->clients[client.status_slot - 1];
    auto* const free = std::ranges::find(status_page->clients, 0u, &kalix_status_client::pid);
    if (free == std::end(status_page->clients))
        return nullptr;
    client.status_slot = static_cast<uint32_t>(free - std::begin(status_page->clients)) + 1;
    free->pid = client.pid;
    free->uid = client.uid;
    status_page->clients_seen++;
    refusal_told[client.status_slot - 1] = 0;
    status_event(KALIX_EVENT_CONNECT, &client, 0);
    return free;
}

void status_note_request(client_record& client, int32_t command, int32_t status)
{
    if (!status_page)
        return;
    const status_change now;
    if (kalix_status_client* const slot = status_slot(client)) {
        slot->requests++;
        slot->presents += shows_a_frame(command) && status == 0;
        slot->device_bytes = client.held_bytes[RESOURCE_SURFACE];
        slot->shared_bytes = client.held_bytes[RESOURCE_DMA] + client.held_bytes[RESOURCE_EXECBUF];
        for (size_t type = 0; type < RESOURCE_TOTAL; ++type)
            slot->objects[type] = static_cast<uint32_t>(client.ref_tables[type]->count);
        if (status != 0)
            write_refusal(client, *slot, command, status);
    }
    write_overlays(client);
}

void status_forget_client(const client_record& client)
{
    if (!status_page)
        return;
    const status_change now;
    // The overlays that went with the client, too: this is the last that is heard of it.
    write_overlays(client);
    if (client.status_slot == 0)
        return;
    kalix_status_client& slot = status_page->clients[client.status_slot - 1];
    status_event(KALIX_EVENT_DISCONNECT, &client, static_cast<uint32_t>(slot.requests));
    slot = {};
}

// Not a change: a byte is written whole, and names a surface that its reader asks about elsewhere.
void status_note_surface(uint32_t sid)
{
    if (!status_page || sid >= KALIX_STATUS_SURFACE_IDS)
        return;
    const auto* const surface = static_cast<surface_record*>(resource_get_global(RESOURCE_SURFACE, sid));
    if (surface)
        std::atomic_ref{status_page->levels[sid]}.store(static_cast<uint8_t>(surface->face_mips[0]),
                                                        std::memory_order_relaxed);
}

} // namespace kalix
