#include "driver/screen/debug.h"

#include "driver/screen/postprocess.h"
#include "driver/screen/present.h"
#include "driver/screen/status_file.h"
#include "driver/state/framebuffer.h"
#include "svga/svga3d.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <kalix/svga3d_formats.h>

namespace kalix {
namespace {

constexpr uint32_t dump_pitch = 512; // bytes between a dumped surface's rows in the framebuffer, whatever its width
constexpr uint64_t pixel_bytes = 4;

// Under strict settings what every surface holds is for the server's own user alone.
bool may_debug(const client_record* client)
{
    return !_globals.settings.strict || (client && client->uid == platform::own_user());
}

// The surface, or null after the line, which takes the sid.
__attribute__((format(printf, 3, 0))) surface_record* known_surface(const client_record& client, uint32_t sid,
                                                                    const char* unknown)
    KALIX_REQUIRES(_globals.device_mutex)
{
    surface_record* const surface = surface_named(client, sid);
    if (!surface)
        slogf(log_code, log_error, unknown, static_cast<int>(sid));
    return surface;
}

// The first level's size, each side as it is: tools are shown what a surface was defined with, valid or not.
surface_size first_size(const surface_record& surface)
{
    return surface.mip_count != 0 ? surface.sizes[0] : surface_size{};
}

sid_entry describe(const surface_record& surface)
{
    const surface_size size = first_size(surface);
    sid_entry entry{
        surface.id, size.width, size.height, size.depth, surface.flags, surface.format, surface.total_ref_count, {}, 0};
    entry.more = static_cast<uint32_t>(get_surface_pids(surface, entry.pids));
    return entry;
}

// One transfer of a surface's whole first level between it and the framebuffer's start; waits for it, since the bytes
// are looked at or written again next. False when it could not be sent.
bool transfer(const surface_record& surface, uint32_t direction, uint32_t pitch) KALIX_REQUIRES(_globals.fifo_lock)
{
    const auto [width, height] = dimensions_of(surface);
    const svga3d_guest_image guest{{SVGA_GMR_FRAMEBUFFER, 0}, pitch};
    const svga3d_image host{surface.id, 0, 0};
    svga3d_copy_box* box = nullptr;
    if (SVGA3D_BeginSurfaceDMA(&guest, &host, direction, &box, 1) != 0)
        return false;
    *box = {0, 0, 0, width, height, 1, 0, 0, 0};
    SVGA_FIFOCommitAll();
    SVGA_SyncToFence(SVGA_InsertFence());
    return true;
}

// A surface of any client, or the pass's vertex or index buffer: those are in no registry, and hold what a tool that
// looks for a wrong quad wants to see.
const surface_record* dumped_surface(const client_record& client, uint32_t sid) KALIX_REQUIRES(_globals.device_mutex)
{
    if (const surface_record* const known = surface_named(client, sid))
        return known;
    for (const postprocess_surface place : {POSTPROCESS_VERTICES, POSTPROCESS_INDICES})
        if (const surface_record* const own = _globals.postprocess_surfaces[place]; own && own->id == sid)
            return own;
    slogf(log_code, log_error, "kalix: vmw_debug_dump_sid_msg: surface with sid %d is unknown!", static_cast<int>(sid));
    return nullptr;
}

// Whether the surface, laid out for a dump, and all rows asked for lie inside the framebuffer. The stride is signed:
// rows may be read upwards, so that either end may be the lowest.
bool dump_fits(const surface_record& surface, const dump_sid_req& req)
{
    const auto [width, height] = dimensions_of(surface);
    const svga3d_block block = svga3d_block_of(surface.format);
    const auto room = static_cast<int64_t>(framebuffer_bytes().size());
    if (width == 0 || block.bytes == 0 ||
        !rows_fit(framebuffer_bytes().size(), 0, svga3d_block_rows(block, height), dump_pitch,
                  svga3d_row_bytes(block, width)))
        return false;
    if (req.rows == 0 || req.row_bytes == 0)
        return true;
    // At most 511 rows here: the products fit.
    const int64_t first = req.offset;
    const int64_t last = first + int64_t{req.stride} * (req.rows - 1);
    return std::min(first, last) >= 0 && std::max(first, last) + req.row_bytes <= room;
}

void copy_rows(dump_sid_req& req)
{
    if (req.row_bytes == 0)
        return;
    const std::span<const std::byte> from = framebuffer_bytes();
    uint8_t* out = req.data;
    for (int64_t row = 0; row < req.rows; ++row, out += req.row_bytes)
        std::memcpy(out, from.data() + req.offset + row * req.stride, req.row_bytes);
}

bool fill_fits(const surface_record& surface)
{
    const auto [width, height] = dimensions_of(surface);
    // 32 bits each way: the product fits in 64, and four times it is compared by division.
    return width != 0 && uint64_t{width} * height <= framebuffer_bytes().size() / pixel_bytes;
}

// The device may still be writing the picture that lies there: the bytes would be mixed with it.
void wait_until_idle()
{
    SVGA_WriteReg(SVGA_REG_SYNC, 1);
}

void fill_framebuffer(uint64_t pixels, std::array<uint8_t, pixel_bytes> pixel)
{
    std::byte* out = framebuffer_bytes().data();
    for (uint64_t i = 0; i < pixels; ++i, out += pixel_bytes)
        std::memcpy(out, pixel.data(), pixel_bytes);
}

} // namespace

void reset_debug_state()
{
    _globals.debug_show_sid = 0;
    status_note_display();
    present_again();
}

int get_surface_pids(const surface_record& surface, std::span<uint32_t> pids)
{
    // The lock is for the table; what a client holds is guarded by the device mutex, which every caller has.
    hold lock{_globals.client_lock};
    size_t stored = 0;
    hashtable_iterator<client_record> walk;
    while (client_record* const client = hashtable_iterate(_globals.client_table, &walk)) {
        if (!resource_have_ref(RESOURCE_SURFACE, client, surface.id))
            continue;
        if (stored == pids.size())
            return 1;
        pids[stored++] = client->pid;
    }
    return 0;
}

// No request comes here. Made for modes of four bytes a pixel; in others it stays inside the framebuffer all the same.
void clear_screen(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3)
{
    const svga_device& device = *_globals.svga_device;
    const uint64_t room = framebuffer_bytes().size() / pixel_bytes;
    wait_until_idle();
    fill_framebuffer(std::min(uint64_t{device.width} * device.height, room), {b0, b1, b2, b3});
    SVGA_SyncToFence(SVGA_InsertFence());
    SVGA_Update(0, 0, device.width, device.height);
    SVGA_SyncToFence(SVGA_InsertFence());
}

int vmw_debug_reset_debug_state_msg(client_record* client)
{
    if (!may_debug(client))
        return status_invalid;
    reset_debug_state();
    return 0;
}

int vmw_debug_show_sid_msg(client_record* client, show_sid_req* req)
{
    if (!client || !req || !may_debug(client))
        return status_invalid;
    const surface_record* const surface =
        known_surface(*client, req->sid, "kalix: vmw_debug_show_sid: surface with sid %d is unknown!");
    if (!surface)
        return status_invalid;
    _globals.debug_show_sid = req->sid; // stays when the surface goes: presents then show nothing until a reset
    status_note_display();
    present_debug(surface);
    return 0;
}

int vmw_debug_get_sid_info_msg(client_record* client, sid_info_req* req)
{
    if (!client || !req || !may_debug(client))
        return status_invalid;
    const surface_record* const surface =
        known_surface(*client, req->sid, "kalix: vmw_debug_get_sid_info: surface with sid %d is unknown!");
    if (!surface)
        return status_invalid;
    std::ranges::fill(req->pids, 0u);
    get_surface_pids(*surface, req->pids);
    const surface_size size = first_size(*surface);
    req->width = size.width;
    req->height = size.height;
    req->depth = size.depth;
    req->flags = surface->flags;
    req->format = surface->format;
    req->ref_count = surface->total_ref_count;
    return 0;
}

int vmw_debug_list_sids_msg(client_record* client, list_sids_req* req)
{
    if (!client || !req || !may_debug(client))
        return status_invalid;
    // Paged by position in the table: while others define and destroy, the next page may repeat or miss a surface.
    std::ranges::fill(req->entries, sid_entry{});
    req->more = 0;
    int32_t position = 0;
    size_t filled = 0;
    hashtable_iterator<resource_object> walk;
    while (const resource_object* const each = hashtable_iterate(_globals.resource_tables[RESOURCE_SURFACE], &walk)) {
        if (filled == std::size(req->entries)) {
            req->more = 1;
            break;
        }
        if (position++ >= req->first)
            req->entries[filled++] = describe(*static_cast<const surface_record*>(each));
    }
    return 0;
}

int vmw_debug_dump_sid_msg(client_record* client, dump_sid_req* req)
{
    if (!client || !req || !may_debug(client))
        return status_invalid;
    if (uint64_t{req->row_bytes} * req->rows > KALIX_DUMP_BYTES_MAX)
        return status_invalid;
    const surface_record* const surface = dumped_surface(*client, req->sid);
    if (!surface || !dump_fits(*surface, *req))
        return status_invalid;
    // Until the rows are copied: a present in between would write its picture over them.
    hold lock{_globals.fifo_lock};
    if (!transfer(*surface, SVGA3D_READ_HOST_VRAM, dump_pitch))
        return status_invalid;
    copy_rows(*req);
    return 0;
}

int vmw_debug_fill_sid_msg(client_record* client, fill_sid_req* req)
{
    if (!client || !req || !may_debug(client))
        return status_invalid;
    const surface_record* const surface =
        known_surface(*client, req->sid, "kalix: vmw_debug_fill_sid_msg: surface with sid %d is unknown!");
    if (!surface)
        return status_invalid;
    if (surface->format != SVGA3D_X8R8G8B8 && surface->format != SVGA3D_A8R8G8B8) {
        slogf(log_code, log_error, "kalix: vmw_debug_fill_sid_msg: unsupported surface format %d for fill",
              static_cast<int>(surface->format));
        return status_invalid;
    }
    if (!fill_fits(*surface))
        return status_invalid;
    hold lock{_globals.fifo_lock};
    const auto [width, height] = dimensions_of(*surface);
    std::array<uint8_t, pixel_bytes> pixel;
    std::memcpy(pixel.data(), &req->pixel, sizeof pixel);
    wait_until_idle();
    fill_framebuffer(uint64_t{width} * height, pixel);
    if (!transfer(*surface, SVGA3D_WRITE_HOST_VRAM, width * static_cast<uint32_t>(pixel_bytes)))
        return status_invalid;
    slogf(log_code, log_information, "kalix: vmw_debug_fill_sid_msg: done fill on sid %d", static_cast<int>(req->sid));
    return 0;
}

} // namespace kalix
