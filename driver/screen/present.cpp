#include "driver/screen/present.h"

#include "base/saturate.h"
#include "driver/objects/overlay.h"
#include "driver/screen/debug_picture.h"
#include "driver/screen/postprocess.h"
#include "driver/screen/software_pass.h"
#include "driver/screen/status_file.h"
#include "driver/screen/zoom.h"
#include "driver/state/framebuffer.h"
#include "svga/svga3d.h"

#include <kalix/svga3d_formats.h>

namespace kalix {
namespace {

constexpr uint64_t phys_addr_max = 0x80000000; // the wire's bound, 2 GiB
constexpr int nothing_to_show = 1;             // a status of its own: the overlay was flipped all the same
constexpr uint32_t debug_copy_side = 400;      // pixels

// For who debugs the driver itself: no request sets the sid. A copy that finds no space is left out.
void copy_debug_box(uint32_t sid) KALIX_REQUIRES(_globals.device_mutex)
{
    const svga3d_image from{_globals.debug_copy_sid, 0, 0};
    const svga3d_image to{sid, 0, 0};
    svga3d_copy_box* box = nullptr;
    if (SVGA3D_BeginSurfaceCopy(&from, &to, &box, 1) != 0)
        return;
    *box = {0, 0, 0, debug_copy_side, debug_copy_side, 1, 0, 0, 0};
    SVGA_FIFOCommitAll();
}

// The target's picture begins at its corner, wherever the rectangle lies: only its place on the screen is the
// rectangle's. A pass that failed is not presented, since the target then holds half a picture.
int show_postprocessed(const surface_record& surface, const present_rectangle& rectangle)
    KALIX_REQUIRES(_globals.device_mutex, _globals.fifo_lock)
{
    if (postprocess_present(&surface, rectangle) != 0)
        return status_invalid;
    svga3d_copy_rect* rect = nullptr;
    if (SVGA3D_BeginPresent(postprocess_target_sid, &rect, 1) != 0)
        return status_invalid;
    *rect = {zoomed(rectangle.x),
             zoomed(rectangle.y),
             static_cast<uint32_t>(zoomed(rectangle.width)),
             static_cast<uint32_t>(zoomed(rectangle.height)),
             0,
             0};
    SVGA_FIFOCommitAll();
    return 0;
}

// Sums of a client's numbers wrap as the device's own words do.
int32_t sum(int32_t a, int32_t b)
{
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

int show_blitted(const surface_record& surface, const present_rectangle& rectangle)
{
    const float zoom = _globals.svga_device->zoom;
    const auto [x, y, width, height] = rectangle;
    const int32_t left = zoomed(x);
    const int32_t top = zoomed(y);
    const svga3d_image source{surface.id, 0, 0};
    const svga3d_signed_rect from{x, y, sum(x, width), sum(y, height)};
    const svga3d_signed_rect to{left, top, truncated(static_cast<float>(left) + static_cast<float>(width) * zoom),
                                truncated(static_cast<float>(top) + static_cast<float>(height) * zoom)};
    svga3d_signed_rect* clip = nullptr;
    if (SVGA3D_BeginBlitSurfaceToScreen(&source, &from, SVGA_ID_INVALID, &to, &clip, 0) != 0)
        return status_invalid;
    SVGA_FIFOCommitAll();
    return 0;
}

// One transfer of a box out of a surface, committed and not waited for: each caller knows when it needs the pixels.
bool read_surface(uint32_t sid, const svga3d_guest_image& guest, const svga3d_copy_box& wanted)
    KALIX_REQUIRES(_globals.fifo_lock)
{
    const svga3d_image host{sid, 0, 0};
    svga3d_copy_box* box = nullptr;
    if (SVGA3D_BeginSurfaceDMA(&guest, &host, SVGA3D_READ_HOST_VRAM, &box, 1) != 0)
        return false;
    *box = wanted;
    SVGA_FIFOCommitAll();
    return true;
}

int show_copied(const surface_record& surface, const present_rectangle& rectangle) KALIX_REQUIRES(_globals.fifo_lock)
{
    const auto x = static_cast<uint32_t>(rectangle.x);
    const auto y = static_cast<uint32_t>(rectangle.y);
    const auto width = static_cast<uint32_t>(rectangle.width);
    const auto height = static_cast<uint32_t>(rectangle.height);
    const svga3d_guest_image screen{{SVGA_GMR_FRAMEBUFFER, 0}, _globals.svga_device->pitch};
    if (!read_surface(surface.id, screen, {x, y, 0, width, height, 1, x, y, 0}))
        return status_invalid;
    SVGA_Update(x, y, width, height);
    return 0;
}

// All with fifo_lock held from the first command to the last, so that no client's commands come in between.
int show(present_technique technique, const surface_record& surface, const present_rectangle& rectangle)
    KALIX_REQUIRES(_globals.device_mutex, _globals.fifo_lock)
{
    switch (technique) {
    case present_technique::blit:
        return show_blitted(surface, rectangle);
    case present_technique::dma:
        return show_copied(surface, rectangle);
    case present_technique::postprocessed:
        break;
    }
    return show_postprocessed(surface, rectangle);
}

// Any client's, without a question whose: under strict settings only the server's own user can have chosen it.
surface_record* shown_for_debugging() KALIX_REQUIRES(_globals.device_mutex)
{
    return static_cast<surface_record*>(resource_get_global(RESOURCE_SURFACE, _globals.debug_show_sid));
}

} // namespace

surface_record* last_presented()
{
    if (_globals.last_present_sid == 0)
        return nullptr;
    auto* const surface =
        static_cast<surface_record*>(resource_get_global(RESOURCE_SURFACE, _globals.last_present_sid));
    return surface && (surface->presented || !_globals.settings.strict) ? surface : nullptr;
}

int present_with(present_technique technique, surface_record* surface, const present_rectangle& rectangle)
{
    if (_globals.software_mode) { // the frame is in the framebuffer already: no surface is asked for, and no sid kept
        postprocess_software_present(rectangle);
        _globals.last_present_rect = rectangle;
        return 0;
    }
    if (!surface)
        return status_invalid;
    if (dimensions_of(*surface).width == 0) {
        slogf(log_code, log_error, "kalix: nebo_present_ioctl: surface %d has missing or invalid dimensions",
              static_cast<int>(surface->id));
        return status_invalid;
    }
    hold lock{_globals.fifo_lock};
    if (_globals.debug_copy_sid != 0)
        copy_debug_box(surface->id);
    if (const int status = show(technique, *surface, rectangle); status != 0)
        return status;
    // Only what was shown counts as shown last: a present that failed leaves what a flip or a new mode shows again.
    surface->presented = true;
    _globals.last_present_sid = surface->id;
    _globals.last_present_rect = rectangle;
    status_note_frame(*surface, rectangle);
    return 0;
}

int present(surface_record* surface, int32_t x, int32_t y, int32_t width, int32_t height)
{
    return present_with(present_technique::postprocessed, surface, {x, y, width, height});
}

void present_again()
{
    const present_rectangle last = _globals.last_present_rect;
    if (surface_record* const surface = last_presented())
        present(surface, last.x, last.y, last.width, last.height);
}

int present_debug(const surface_record* surface)
{
    if (_globals.software_mode || !surface || dimensions_of(*surface).width == 0)
        return 0;
    // The pixels are in the framebuffer before they are painted over, and the lock is held until it shows: another
    // picture would land in the middle of the painting.
    hold lock{_globals.fifo_lock};
    const debug_picture picture = plan_debug_picture(*surface);
    const svga3d_guest_image screen{{SVGA_GMR_FRAMEBUFFER, 0}, _globals.svga_device->pitch};
    if (!read_surface(surface->id, screen, {0, 0, 0, picture.box_width, picture.box_height, 1, 0, 0, 0}))
        return 0;
    SVGA_SyncToFence(SVGA_InsertFence());
    paint_debug_picture(picture);
    SVGA_Update(0, 0, _globals.svga_device->width, _globals.svga_device->height);
    SVGA_SyncToFence(SVGA_InsertFence());
    status_note_debug_frame(*surface);
    return 0;
}

int present_to_phys_addr(const surface_record* surface, uint64_t phys_addr, uint32_t x, uint32_t y, uint32_t width,
                         uint32_t height)
{
    const svga3d_block block = svga3d_block_of(surface->format);
    const uint32_t offset = framebuffer_offset(phys_addr);
    const uint64_t pitch = svga3d_row_bytes(block, dimensions_of(*surface).width);
    // 32 bits of rows times 36 of pitch, and less than 2^37 for the rest: the sums fit in 64 bits.
    if (block.bytes == 0 || pitch > UINT32_MAX)
        return status_invalid;
    const uint64_t start = offset + y / block.height * pitch + svga3d_row_bytes(block, x);
    if (!rows_fit(framebuffer_bytes().size(), start, svga3d_block_rows(block, height), static_cast<uint32_t>(pitch),
                  svga3d_row_bytes(block, width)))
        return status_invalid;
    hold lock{_globals.fifo_lock};
    // A pitch of 0 is the surface's own, which the bounds above were worked out with.
    const svga3d_guest_image guest{{SVGA_GMR_FRAMEBUFFER, offset}, 0};
    if (!read_surface(surface->id, guest, {x, y, 0, width, height, 1, x, y, 0}))
        return status_invalid;
    SVGA_SyncToFence(SVGA_InsertFence()); // the client reads the bytes when it has the answer
    return 0;
}

int nebo_present_ioctl(client_record* client, present_req* req)
{
    if (!client || !req)
        return status_invalid;
    // The presenting client must hold what is shown, also while debug display chooses it: else nothing is shown.
    const bool debugging = _globals.debug_show_sid != 0;
    const uint32_t sid = debugging ? _globals.debug_show_sid : req->sid;
    surface_record* const surface = surface_held(*client, sid);
    if (!surface && !_globals.software_mode) {
        if (debugging) // no client may fail because somebody looks at another's surface
            return 0;
        slogf(log_code, log_error, "kalix: nebo_present_ioctl: surface %d is unknown", static_cast<int>(sid));
        return status_invalid;
    }
    return debugging ? present_debug(surface) : present(surface, req->x, req->y, req->width, req->height);
}

int nebo_oob_present(client_record* client, oob_present_req* req)
{
    if (!client || !req)
        return status_invalid;
    const present_rectangle last = _globals.last_present_rect;
    if (_globals.software_mode)
        return present(nullptr, last.x, last.y, last.width, last.height);
    auto* const overlay = static_cast<overlay_record*>(resource_get(RESOURCE_OVERLAY, client, req->overlay_id));
    if (!overlay) {
        slogf(log_code, log_error, "kalix: nebo_oob_present: overlay %d is unknown", static_cast<int>(req->overlay_id));
        return status_invalid;
    }
    overlay_flip(*overlay); // whatever becomes of the present: the next one shows it
    const bool debugging = _globals.debug_show_sid != 0;
    surface_record* const surface = debugging ? shown_for_debugging() : last_presented();
    if (!surface)
        return nothing_to_show;
    return debugging ? present_debug(surface) : present(surface, last.x, last.y, last.width, last.height);
}

int nebo_present_to_phys_addr_ioctl(client_record* client, present_phys_req* req)
{
    if (!client || !req)
        return status_invalid;
    surface_record* const surface = surface_held(*client, req->sid);
    if (!surface) {
        slogf(log_code, log_error, "kalix: nebo_present_to_phys_addr_ioctl: surface %d is unknown",
              static_cast<int>(req->sid));
        return status_invalid;
    }
    if (req->phys_addr > phys_addr_max) {
        slogf(log_code, log_error, "kalix: nebo_present_to_phys_addr_ioctl: address 0x%llx is above 0x80000000",
              static_cast<unsigned long long>(req->phys_addr));
        return status_invalid;
    }
    return present_to_phys_addr(surface, req->phys_addr, req->x, req->y, req->width, req->height);
}

} // namespace kalix
