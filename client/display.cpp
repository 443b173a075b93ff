// The typed calls of the display: presents, overlays, mode and cursor.
//
// Coordinates and sizes are pixels of the mode, before the zoom; those of the cursor are the screen's, after it. To
// judge them is the server's work; here is refused only what would make the message itself wrong.

#include "client/connection.h"

#include <cstdlib>

using namespace kalix::client_library;

int kalix_present(kalix_connection* connection, uint32_t sid, int32_t x, int32_t y, int32_t width, int32_t height)
{
    present_req req{sid, x, y, width, height};
    return call(connection, KALIX_PRESENT, req, 0);
}

int kalix_present_phys(kalix_connection* connection, uint32_t sid, uint32_t x, uint32_t y, uint32_t width,
                       uint32_t height, uint64_t phys_addr)
{
    present_phys_req req{sid, x, y, width, height, 0, phys_addr};
    return call(connection, KALIX_PRESENT_PHYS, req, 0);
}

int kalix_overlay_define(kalix_connection* connection, const overlay_define_req* overlay, uint32_t* id)
{
    if (!overlay || !id)
        return -EINVAL;
    overlay_define_req req = *overlay;
    if (const int error = call(connection, KALIX_OVERLAY_DEFINE, req, sizeof req))
        return error;
    *id = req.id;
    return 0;
}

int kalix_overlay_destroy(kalix_connection* connection, uint32_t id)
{
    overlay_destroy_req req{id};
    return call(connection, KALIX_OVERLAY_DESTROY, req, sizeof req);
}

int kalix_overlay_visible(kalix_connection* connection, uint32_t id, uint32_t visible)
{
    overlay_visible_req req{id, visible};
    return call(connection, KALIX_OVERLAY_VISIBLE, req, 0);
}

// Status 1, elsewhere an unknown request, says here that there is nothing to show.
int kalix_oob_present(kalix_connection* connection, uint32_t overlay_id)
{
    oob_present_req req{overlay_id};
    int32_t status = 0;
    if (const int error = kalix_request(connection, KALIX_OOB_PRESENT, &req, sizeof req, nullptr, 0, nullptr, &status))
        return error;
    return status == 1 ? -ENOENT : result_of_status(status);
}

int kalix_svga_enable(kalix_connection* connection, uint32_t enable)
{
    svga_enable_req req{enable};
    return call(connection, KALIX_SVGA_ENABLE, req, 0);
}

int kalix_set_mode(kalix_connection* connection, uint32_t width, uint32_t height, uint32_t bits_per_pixel)
{
    set_mode_req req{width, height, bits_per_pixel};
    return call(connection, KALIX_SET_MODE, req, 0);
}

int kalix_set_cursor(kalix_connection* connection, const kalix_cursor_image* image)
{
    constexpr uint32_t extent_max = 256; // pixels a side, the device's bound
    if (!image || image->width > extent_max || image->height > extent_max)
        return -EINVAL;
    const size_t pixel_bytes = size_t{image->width} * image->height * sizeof *image->pixels;
    if (pixel_bytes && !image->pixels)
        return -EINVAL;
    const set_cursor_req req{0, image->hotspot_x, image->hotspot_y, image->width, image->height, 0};
    // Header and pixels are one payload; at most 256 KiB, too much for a caller's stack.
    auto* const payload = static_cast<std::byte*>(std::malloc(sizeof req + pixel_bytes));
    if (!payload)
        return -ENOMEM;
    std::memcpy(payload, &req, sizeof req);
    if (pixel_bytes)
        std::memcpy(payload + sizeof req, image->pixels, pixel_bytes);
    int32_t status = 0;
    const int error = kalix_request(connection, KALIX_SET_CURSOR, payload,
                                    static_cast<uint32_t>(sizeof req + pixel_bytes), nullptr, 0, nullptr, &status);
    std::free(payload);
    return error ? error : result_of_status(status);
}

int kalix_move_cursor(kalix_connection* connection, uint32_t visible, uint32_t x, uint32_t y)
{
    move_cursor_req req{visible, x, y, 0};
    return call(connection, KALIX_MOVE_CURSOR, req, 0);
}
