#include "driver/screen/readback.h"

#include "driver/objects/shares.h"
#include "driver/state/framebuffer.h"
#include "platform/files/shared_memory.h"
#include "svga/svga3d.h"

#include <cstdio>
#include <cstring>
#include <span>
#include <utility>

namespace kalix {
namespace {

constexpr unsigned object_mode = 0777; // without effect: the object is the client's to make
constexpr std::byte opaque{255};
constexpr share_kind destination_kind = share_kind::readback_destination;

// The rectangle asked for, once it has been found to lie inside the surface.
struct rectangle {
    uint32_t x, y, w, h; // pixels
    uint32_t pixel_bytes;
    uint32_t pitch; // bytes between destination rows
    uint64_t row_bytes() const { return uint64_t{w} * pixel_bytes; }
    uint64_t start() const { return uint64_t{y} * pitch + uint64_t{x} * pixel_bytes; }
};

// Opens and maps the client's object as the surface's destination; false, with nothing left behind, when
// that fails.
bool open_destination(const client_record& client, surface_record& surface, const readback_req& req)
{
    std::snprintf(surface.shm_name, sizeof surface.shm_name, "/vm_svga:%u:%u", client.pid,
                  static_cast<uint32_t>(req.shm_number));
    // At an error's severity though it is none, as readers of the log know it: the name that is tried.
    slogf(log_code, log_error, "kalix: shm_name: [%s]", surface.shm_name);
    const int32_t fd = platform::shm_open(surface.shm_name, platform::open_read_write, object_mode);
    if (fd == -1)
        return false;
    surface.shm_map =
        static_cast<std::byte*>(platform::mmap(req.shm_size, platform::protect_read | platform::protect_write, fd));
    if (!surface.shm_map) {
        platform::close(fd);
        return false;
    }
    surface.shm_fd = fd;
    surface.shm_len = req.shm_size;
    return true;
}

// The same within what the client may hold; a bound that it has reached.
share_bound share_destination(const client_record& client, surface_record& surface, const readback_req& req)
    KALIX_REQUIRES(_globals.device_mutex)
{
    const share_bound reached = share_take(destination_kind, client, &surface.shm_share);
    if (reached == share_bound::none && !open_destination(client, surface, req))
        share_give_back(destination_kind, std::exchange(surface.shm_share, nullptr));
    return reached;
}

// Where the pixels go; no memory at all, after a line, when there is no destination.
std::span<std::byte> resolve_destination(const client_record& client, surface_record& surface, const readback_req& req)
    KALIX_REQUIRES(_globals.device_mutex)
{
    share_bound reached = share_bound::none;
    if (req.use_shm && surface.shm_fd == -1)
        reached = share_destination(client, surface, req);
    const std::span<std::byte> found =
        req.use_shm ? std::span{surface.shm_map, surface.shm_len} : framebuffer_from(req.fb_offset);
    if (reached != share_bound::none)
        share_log_refusal(destination_kind, client, reached);
    else if (!found.data())
        slogf(log_code, log_error,
              "kalix: nebo_readback_surface: could not resolve destination address for surface readback");
    return found;
}

// The extent's bound squared, in pixels of four bytes, is the dirty GMR; pixels of eight ask for the comparison in
// bytes as well. All in 64 bits, as every word is the client's.
bool rectangle_is_valid(const readback_req& req, surface_dimensions size, uint32_t pixel_bytes, uint64_t room)
{
    const uint64_t right = uint64_t{req.x} + req.w;
    const uint64_t bottom = uint64_t{req.y} + req.h;
    const rectangle wanted{req.x, req.y, req.w, req.h, pixel_bytes, req.pitch};
    return right <= size.width && bottom <= size.height && right <= KALIX_READBACK_EXTENT_MAX &&
           bottom <= KALIX_READBACK_EXTENT_MAX && wanted.row_bytes() * req.h <= dirty_gmr_bytes &&
           rows_fit(room, wanted.start(), req.h, req.pitch, wanted.row_bytes());
}

// Brings the pixels into the dirty GMR, packed from its start. False without FIFO space.
bool fetch(uint32_t sid, const rectangle& rect)
{
    std::memset(_globals.dirty_gmr_base, 0, rect.row_bytes() * rect.h); // nothing of an earlier user shows
    const svga3d_guest_image guest{{_globals.dirty_gmr_id, 0}, static_cast<uint32_t>(rect.row_bytes())};
    const svga3d_image host{sid, 0, 0};
    svga3d_copy_box* box = nullptr;
    if (SVGA3D_BeginSurfaceDMA(&guest, &host, SVGA3D_READ_HOST_VRAM, &box, 1) != 0)
        return false;
    *box = {rect.x, rect.y, 0, rect.w, rect.h, 1, 0, 0, 0};
    SVGA_FIFOCommitAll();
    SVGA_SyncToFence(SVGA_InsertFence());
    return true;
}

// The destination is memory that its client can write and cut short meanwhile; nothing is read back from it.
void copy_out(const rectangle& rect, bool whole, std::span<std::byte> destination)
{
    const std::byte* from = _globals.dirty_gmr_base;
    if (whole) {
        std::memcpy(destination.data(), from, rect.row_bytes() * rect.h);
        return;
    }
    for (uint64_t row = 0; row < rect.h; ++row, from += rect.row_bytes())
        std::memcpy(&destination[rect.start() + row * rect.pitch], from, rect.row_bytes());
}

// The format's fourth byte means nothing on the device; clients are promised opaque pixels.
void make_opaque(const rectangle& rect, std::span<std::byte> destination)
{
    for (uint64_t row = 0; row < rect.h; ++row)
        for (uint64_t column = 0; column < rect.w; ++column)
            destination[rect.start() + row * rect.pitch + column * rect.pixel_bytes + 3] = opaque;
}

// From the destination to the pixels in it. 0 or the status that refuses the request.
int read_back(const client_record& client, surface_record& surface, const readback_req& req)
    KALIX_REQUIRES(_globals.device_mutex)
{
    const surface_dimensions size = dimensions_of(surface);
    const uint32_t pixel_bytes = format_to_bpp(surface.format);
    // Rows of the surface's own length, but for the one shared surface, whose pitch is its reader's choice.
    if (req.pitch != uint64_t{size.width} * pixel_bytes && req.sid != _globals.shared_sid)
        return status_invalid;
    const std::span<std::byte> destination = resolve_destination(client, surface, req);
    if (!destination.data())
        return status_no_memory;
    if (!rectangle_is_valid(req, size, pixel_bytes, destination.size())) {
        slogf(log_code, log_error,
              "kalix: nebo_readback_surface: invalid readback rect x:%d y:%d w:%d h:%d surface dim w:%d h:%d",
              static_cast<int>(req.x), static_cast<int>(req.y), static_cast<int>(req.w), static_cast<int>(req.h),
              static_cast<int>(size.width), static_cast<int>(size.height));
        return status_invalid;
    }
    const rectangle rect{req.x, req.y, req.w, req.h, pixel_bytes, req.pitch};
    if (!fetch(req.sid, rect))
        return status_no_memory;
    const bool whole = rect.w == size.width && rect.h == size.height && rect.pitch == rect.row_bytes();
    if (rect.row_bytes() * rect.h != 0)
        copy_out(rect, whole, destination);
    if (surface.format == SVGA3D_X8R8G8B8)
        make_opaque(rect, destination);
    return 0;
}

// Gives back mapping, descriptor and share; the name stays its client's.
void close_destination(surface_record& surface) KALIX_REQUIRES(_globals.device_mutex)
{
    platform::munmap(std::exchange(surface.shm_map, nullptr), std::exchange(surface.shm_len, 0));
    platform::close(std::exchange(surface.shm_fd, -1));
    share_give_back(destination_kind, std::exchange(surface.shm_share, nullptr));
}

} // namespace

int nebo_readback_surface(client_record* client, readback_req* req)
{
    if (!client || !req)
        return status_invalid;
    surface_record* const surface = surface_named(*client, req->sid);
    if (!surface) {
        slogf(log_code, log_error, "kalix: nebo_readback_surface: surface %d is unknown", static_cast<int>(req->sid));
        return status_invalid;
    }
    const bool is_first = surface->shm_fd == -1;
    const int status = read_back(*client, *surface, *req);
    // A surface's pixels go where its first readback says; one that was refused has not spent that place.
    if (status != 0 && is_first && surface->shm_fd != -1)
        close_destination(*surface);
    return status;
}

} // namespace kalix
