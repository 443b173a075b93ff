#include "driver/objects/surface.h"

#include "driver/objects/overlay.h"
#include "driver/objects/shares.h"
#include "driver/objects/surface_ids.h"
#include "platform/files/shared_memory.h"
#include "svga/svga3d.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <kalix/svga3d_formats.h>
#include <new>
#include <numeric>
#include <span>

namespace kalix {
namespace {

// By format number; 0 where a pixel has no bytes of its own. Part of the wire's contract: clients work out pitches of
// readback by the same numbers, libkalix among them.
constexpr uint8_t bytes_per_pixel[SVGA3D_FORMAT_MAX] = {
    0, 4, 4, 2, 2, 2, 2, 4, 2, 4, 2, 1, 1, 2, 2, 0, 0, 0, 0, 0, 2, 2,
    4, 3, 2, 4, 4, 2, 4, 2, 4, 4, 1, 2, 4, 2, 4, 0, 4, 4, 4, 8, 4, 4,
};

// What the device takes for all levels, or nothing for a surface that it refuses: sizes come from clients, and three
// of 32 bits do not fit in 64.
uint64_t bytes_of(const surface_record& surface)
{
    const svga3d_block block = svga3d_block_of(surface.format);
    constexpr uint64_t most = uint64_t{1} << 40;
    uint64_t sum = 0;
    for (const surface_size& level : std::span{surface.sizes.get(), surface.mip_count}) {
        // 36 bits times 32: the product with the depth is compared by division.
        const uint64_t row = svga3d_row_bytes(block, level.width);
        const uint64_t rows = svga3d_block_rows(block, level.height);
        if (row > most || (row != 0 && rows > most / row) || (row * rows != 0 && level.depth > most / (row * rows)))
            return 0;
        sum += row * rows * level.depth;
    }
    return sum;
}

uint64_t sizes_offset(const surface_define_req& req)
{
    return uint64_t{req.sizes_offset_high} << 32 | req.sizes_offset_low;
}

// Whether the device may only be given the top level: its mipmap transfers are broken, or the client is
// the one that holds the shared surface.
bool single_level(const client_record* client, const surface_define_req& req) KALIX_REQUIRES(_globals.device_mutex)
{
    return (client == _globals.shared_sid_client || _globals.mipmap_dma_failed) &&
           req.flags & SVGA3D_SURFACE_HINT_TEXTURE && (req.format == SVGA3D_X8R8G8B8 || req.format == SVGA3D_A8R8G8B8);
}

// Gives the record its sid, the client's choice or one of the pool. 0, or the status that refuses it.
int choose_sid(client_record* client, surface_record& surface, uint32_t wanted) KALIX_REQUIRES(_globals.device_mutex)
{
    if (wanted == 0) {
        surface.id = surface_id_get();
        return surface.id == 0 ? status_no_memory : 0;
    }
    if (surface_id_in_use(client, wanted)) {
        slogf(log_code, log_error, "kalix: vmw_surface_define_ioctl: requesting surface sid (%d) already in use!",
              static_cast<int>(wanted));
        return status_invalid;
    }
    // Retained before anything can fail: a refused definition leaves the sid with the client, until that goes.
    surface.id = wanted;
    surface.client_sid = 1;
    return surface_id_claim(client, wanted) == 0 ? 0 : status_no_memory;
}

// Levels and sizes as the request says, the missing end of the list zero. 0, -22 or -12.
int read_levels(const client_record* client, surface_record& surface, const surface_define_req& req, int32_t rcvid)
    KALIX_REQUIRES(_globals.device_mutex)
{
    if (single_level(client, req))
        surface.face_mips[0] = 1;
    else
        std::copy(std::begin(req.mip_levels), std::end(req.mip_levels), surface.face_mips);
    // Six counts of 32 bits, so that their sum is made in 64.
    const uint64_t levels = std::accumulate(std::begin(surface.face_mips), std::end(surface.face_mips), uint64_t{0});
    if (levels > KALIX_SURFACE_MIPS_MAX)
        return status_invalid;
    surface.mip_count = static_cast<uint32_t>(levels);
    surface.sizes.reset(new (std::nothrow) surface_size[surface.mip_count]{});
    if (!surface.sizes)
        return status_no_memory;
    // The list lies in the message, behind the payload, wherever the client says. One that is short leaves zeros, which
    // the device refuses as sizes: an error of this surface alone.
    const std::span<surface_size> list{surface.sizes.get(), surface.mip_count};
    platform::MsgRead(rcvid, std::as_writable_bytes(list), sizes_offset(req));
    return 0;
}

// Fills the record and defines it on the device. 0 or the status that refuses it; what was taken from the
// pool is the caller's to give back.
int define(client_record* client, surface_record& surface, const surface_define_req& req, int32_t rcvid)
    KALIX_REQUIRES(_globals.device_mutex)
{
    surface.magic_cookie = resource_magic + RESOURCE_SURFACE;
    surface.flags = req.flags;
    surface.format = req.format;
    surface.shared = req.shared != 0;
    surface.owner_uid = client->uid;
    if (const int status = read_levels(client, surface, req, rcvid); status != 0)
        return status;
    surface.bytes = bytes_of(surface);
    const int status = surface_init(&surface);
    if (status != 0)
        slogf(log_code, log_error, "kalix: vmw_surface_define_ioctl: could not create surface!");
    return status;
}

// What the client chose goes back with the client, not with the surface: it may define another under the same sid.
void release_pool_sid(const surface_record& surface)
{
    if (!surface.client_sid)
        id_release(&_globals.surface_ids, surface.id);
}

// The name may be that of a newer object: the surface can outlive the connection that opened its own.
void release_readback_destination(const surface_record& surface) KALIX_REQUIRES(_globals.device_mutex)
{
    if (surface.shm_fd == -1)
        return;
    platform::munmap(surface.shm_map, surface.shm_len);
    platform::shm_unlink_open(surface.shm_name, surface.shm_fd);
    platform::close(surface.shm_fd);
    share_give_back(share_kind::readback_destination, surface.shm_share);
}

bool is_visible(const client_record& client, const surface_record& surface)
{
    return !_globals.settings.strict || client.uid == surface.owner_uid || client.uid == platform::own_user();
}

} // namespace

surface_dimensions dimensions_of(const surface_record& surface)
{
    if (surface.mip_count == 0 || surface.sizes[0].width == 0 || surface.sizes[0].height == 0)
        return {0, 0};
    return {surface.sizes[0].width, surface.sizes[0].height};
}

uint32_t format_to_bpp(uint32_t format)
{
    return format < std::size(bytes_per_pixel) ? bytes_per_pixel[format] : 0;
}

// Not waited for: whatever names the surface comes behind it in the FIFO.
int surface_init(surface_record* surface)
{
    const auto body = static_cast<uint32_t>(sizeof(svga3d_surface_define) + sizeof(svga3d_size) * surface->mip_count);
    const auto bytes = static_cast<uint32_t>(sizeof(svga3d_command_header) + body);
    auto* out = static_cast<std::byte*>(SVGA_FIFOReserve(bytes));
    if (!out) {
        slogf(log_code, log_error, "kalix: surface_init: fifo reserve failed for create surface.");
        return status_no_memory;
    }
    const svga3d_command_header header{SVGA_3D_CMD_SURFACE_DEFINE, body};
    svga3d_surface_define define{surface->id, surface->flags, surface->format, {}};
    std::copy(std::begin(surface->face_mips), std::end(surface->face_mips), define.mip_levels);
    std::memcpy(out, &header, sizeof header);
    std::memcpy(out + sizeof header, &define, sizeof define);
    out += sizeof header + sizeof define;
    for (uint32_t i = 0; i < surface->mip_count; ++i, out += sizeof(svga3d_size)) {
        const svga3d_size size{surface->sizes[i].width, surface->sizes[i].height, surface->sizes[i].depth};
        std::memcpy(out, &size, sizeof size);
    }
    SVGA_FIFOCommit(bytes);
    return 0;
}

surface_record* surface_create_local(uint32_t sid, uint32_t width, uint32_t height, uint32_t format, uint32_t flags)
{
    std::unique_ptr<surface_record> surface{new (std::nothrow) surface_record};
    if (!surface)
        return nullptr;
    surface->sizes.reset(new (std::nothrow) surface_size[1]{{width, height, 1, 0}});
    if (!surface->sizes)
        return nullptr;
    surface->magic_cookie = resource_magic + RESOURCE_SURFACE;
    surface->id = sid;
    surface->flags = flags;
    surface->format = format;
    surface->mip_count = 1;
    surface->face_mips[0] = 1;
    return surface_init(surface.get()) == 0 ? surface.release() : nullptr;
}

int surface_destroy_on_hw(surface_record* surface)
{
    struct {
        svga3d_command_header header;
        svga3d_surface_destroy body;
    } const command{{SVGA_3D_CMD_SURFACE_DESTROY, sizeof(svga3d_surface_destroy)}, {surface ? surface->id : 0}};
    void* const space = surface ? SVGA_FIFOReserve(sizeof command) : nullptr;
    if (!space)
        return -1;
    std::memcpy(space, &command, sizeof command);
    SVGA_FIFOCommit(sizeof command);
    return 0;
}

void surface_destroy(resource_object* object)
{
    auto* const surface = static_cast<surface_record*>(object);
    overlays_forget(surface); // the record goes, whatever the device says
    if (!surface || surface_destroy_on_hw(surface) != 0)
        return; // the device keeps it, so that its sid must not name another surface
    surface->sizes.reset();
    release_pool_sid(*surface);
    release_readback_destination(*surface);
}

surface_record* surface_named(const client_record& client, uint32_t sid)
{
    auto* const surface = static_cast<surface_record*>(resource_get_global(RESOURCE_SURFACE, sid));
    return surface && is_visible(client, *surface) ? surface : nullptr;
}

surface_record* surface_held(client_record& client, uint32_t sid)
{
    return resource_have_ref(RESOURCE_SURFACE, &client, sid) ? surface_named(client, sid) : nullptr;
}

int surface_check(client_record* client, uint32_t sid)
{
    return surface_held(*client, sid) ? 0 : status_invalid;
}

int vmw_surface_define_ioctl(client_record* client, surface_define_req* req, int32_t rcvid)
{
    if (!client || !req)
        return status_invalid;
    std::unique_ptr<surface_record> surface{new (std::nothrow) surface_record};
    if (!surface)
        return status_no_memory;
    if (const int status = choose_sid(client, *surface, req->sid); status != 0)
        return status;
    if (const int status = define(client, *surface, *req, rcvid); status != 0) {
        release_pool_sid(*surface);
        return status;
    }
    if (resource_add(RESOURCE_SURFACE, client, surface.get()) != 0) {
        surface_destroy(surface.get());
        return status_no_memory;
    }
    // The first for good, also when it has gone: the contract knows one shared surface.
    if (surface->shared && _globals.shared_sid == 0)
        _globals.shared_sid = surface->id;
    req->flags = surface.release()->id; // the reply's first word, whatever it was in the request
    return 0;
}

int vmw_surface_destroy_ioctl(client_record* client, surface_destroy_req* req)
{
    if (!client || !req)
        return status_invalid;
    surface_record* const surface = surface_held(*client, req->sid);
    if (!surface) {
        slogf(log_code, log_error, "kalix: vmw_surface_destroy_ioctl: surface %d is unknown",
              static_cast<int>(req->sid));
        return status_invalid;
    }
    resource_unref(RESOURCE_SURFACE, client, surface, surface_destroy, nullptr);
    return 0;
}

int vmw_surface_reference_ioctl(client_record* client, surface_reference_req* req)
{
    if (!client || !req)
        return status_invalid;
    surface_record* const surface = surface_named(*client, req->sid);
    if (!surface)
        return status_not_found;
    if (resource_ref(RESOURCE_SURFACE, client, surface) != 0)
        return status_no_memory;
    req->sid = surface->flags; // likewise: the word that named the surface brings its flags back
    req->format = surface->format;
    std::copy(std::begin(surface->face_mips), std::end(surface->face_mips), req->mip_levels);
    if (static_cast<int32_t>(_globals.shared_sid) >= 1 && _globals.shared_sid == surface->id)
        _globals.shared_sid_client = client;
    return 0;
}

} // namespace kalix
