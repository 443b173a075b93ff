#include "driver/objects/overlay.h"

#include "driver/state/framebuffer.h"

#include <memory>
#include <new>
#include <utility>

namespace kalix {
namespace {

// Statuses of the define request alone, positive as its clients know them.
constexpr int define_invalid = 22;
constexpr int define_no_memory = 12;
constexpr uint64_t pixel_bytes = 4;

// Where a buffer's pixels lie. False for an address whose pixels leave the framebuffer; 0 stands for none.
bool translate(const overlay_record& overlay, uint64_t physical, std::byte*& pixels)
{
    pixels = nullptr;
    if (physical == 0)
        return true;
    const uint32_t offset = framebuffer_offset(physical);
    const uint64_t room = framebuffer_from(offset).size();
    // Both sides have 32 bits: their product fits in 64, and so compares without a sum.
    if (uint64_t{overlay.width} * overlay.height > room / pixel_bytes || room == 0)
        return false;
    pixels = framebuffer_bytes().data() + offset;
    return true;
}

// Takes over what the request says. False when shown pixels would leave the framebuffer.
bool fill(const client_record& client, overlay_record& overlay, const overlay_define_req& req)
    KALIX_REQUIRES(_globals.device_mutex)
{
    overlay.magic_cookie = resource_magic + RESOURCE_OVERLAY;
    overlay.x = req.x;
    overlay.y = req.y;
    overlay.width = req.width;
    overlay.height = req.height;
    overlay.buffer_count = req.buffer_count;
    // Both buffers, whatever the count; only those in use are judged, the other may name anything.
    const uint64_t addresses[2] = {req.phys_addr0, req.phys_addr1};
    const uint32_t sids[2] = {req.sid0, req.sid1};
    for (size_t i = 0; i < 2; ++i) {
        if (!translate(overlay, addresses[i], overlay.pixels[i]) && i < req.buffer_count)
            return false;
        overlay.surface[i] = surface_named(client, sids[i]);
    }
    return true;
}

overlay_record* held_overlay(client_record* client, uint32_t id) KALIX_REQUIRES(_globals.device_mutex)
{
    return static_cast<overlay_record*>(resource_get(RESOURCE_OVERLAY, client, id));
}

} // namespace

int overlay_init(overlay_record* overlay)
{
    overlay->id = id_get(&_globals.overlay_ids);
    if (overlay->id == 0)
        return 1;
    overlay->visible = 1;
    overlay->surface[0] = overlay->surface[1] = nullptr;
    return 0;
}

// The surfaces are borrowed and the pixels the framebuffer's: the id is all that an overlay owns.
void overlay_destroy(resource_object* overlay)
{
    if (overlay)
        id_release(&_globals.overlay_ids, overlay->id);
}

overlay_record* overlay_get_by_surface(const surface_record* surface)
{
    overlay_record* found = nullptr;
    if (!surface)
        return found;
    for_each_overlay([&](overlay_record& overlay) {
        if (!found && (overlay.surface[0] == surface || overlay.surface[1] == surface))
            found = &overlay;
    });
    return found;
}

void overlays_forget(const surface_record* surface)
{
    // Each round clears what the search found, so that it ends; buffers that no pass draws count too.
    while (overlay_record* const overlay = overlay_get_by_surface(surface))
        for (surface_record*& slot : overlay->surface)
            if (slot == surface)
                slot = nullptr;
}

// Both names of each buffer, so that either pass shows the same one.
void overlay_flip(overlay_record& overlay)
{
    if (overlay.buffer_count != 2)
        return;
    std::swap(overlay.surface[0], overlay.surface[1]);
    std::swap(overlay.pixels[0], overlay.pixels[1]);
}

int nebo_overlay_define(client_record* client, overlay_define_req* req)
{
    if (!client || !req)
        return status_invalid;
    if (req->buffer_count != 1 && req->buffer_count != 2)
        return define_invalid;
    std::unique_ptr<overlay_record> overlay{new (std::nothrow) overlay_record};
    if (!overlay)
        return define_no_memory;
    if (overlay_init(overlay.get()) != 0)
        return define_invalid;
    overlay->owner_pid = client->pid;
    const bool inside = fill(*client, *overlay, *req);
    if (!inside || resource_add(RESOURCE_OVERLAY, client, overlay.get()) != 0) {
        overlay_destroy(overlay.get()); // gives the id back; the record is still ours
        return inside ? define_no_memory : define_invalid;
    }
    req->id = overlay.release()->id;
    return 0;
}

int nebo_overlay_destroy(client_record* client, overlay_destroy_req* req)
{
    if (!client || !req)
        return status_invalid;
    overlay_record* const overlay = held_overlay(client, req->id);
    if (!overlay) {
        slogf(log_code, log_error, "kalix: nebo_overlay_destroy: overlay %d is unknown", static_cast<int>(req->id));
        return status_invalid;
    }
    resource_unref(RESOURCE_OVERLAY, client, overlay, overlay_destroy, nullptr);
    return 0;
}

int nebo_overlay_visible(client_record* client, overlay_visible_req* req)
{
    if (!client || !req)
        return status_invalid;
    overlay_record* const overlay = held_overlay(client, req->id);
    if (!overlay) {
        slogf(log_code, log_error, "kalix: nebo_overlay_visible: overlay %d is unknown", static_cast<int>(req->id));
        return status_invalid;
    }
    overlay->visible = req->visible;
    return 0;
}

} // namespace kalix
