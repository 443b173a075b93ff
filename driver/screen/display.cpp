#include "driver/screen/display.h"

#include "driver/screen/capability_probe.h"
#include "driver/screen/present.h"
#include "driver/screen/scaling.h"
#include "driver/screen/status_file.h"
#include "driver/screen/zoom.h"
#include "driver/state/device_hold.h"

#include <cmath>
#include <cstring>

namespace kalix {
namespace {

constexpr int payload_missing = 22;
constexpr uint64_t cursor_pixel_bytes = 4;
constexpr float zoom_least = 0.1f;
constexpr float zoom_most = 1.0f;

uint32_t once; // 1 after the first mode set

// The factor of the software pass that lies nearest; of two, the one named first.
float snapped(float zoom)
{
    float best = zoom_most;
    float distance = 10000.0f;
    for (const float factor : {zoom_most, zoom_third, zoom_half, zoom_two_thirds, zoom_three_quarters})
        if (const float from = std::fabs(zoom - factor); from < distance) {
            best = factor;
            distance = from;
        }
    return best;
}

// Whether the device shows that mode: it keeps the one before when it refuses one.
bool is_mode(const set_mode_req& asked)
{
    const svga_device& device = *_globals.svga_device;
    return device.mode_width == asked.width && device.mode_height == asked.height && device.bits_per_pixel == asked.bpp;
}

} // namespace

int nebo_adapter_svga_enable(client_record* client, svga_enable_req* req)
{
    if (!req)
        return payload_missing;
    SVGA_WriteReg(SVGA_REG_ENABLE, req->enable);
    status_note_enabled(client, req->enable != 0);
    return 0;
}

int nebo_adapter_set_mode(client_record* client, set_mode_req* req)
{
    if (!req)
        return payload_missing;
    SVGA_SetMode(req->width, req->height, req->bpp, 1);
    // Once in a process, and at the first mode only, also when that was refused or the test left out.
    if (!once && !_globals.software_mode)
        gpu_cap_test();
    once = 1;
    if (!is_mode(*req))
        return 0;
    status_note_mode(client, *req);
    // The device has cleared the screen: what was shown last fills the new one, until its client presents again.
    if (surface_record* const surface = last_presented())
        present(surface, 0, 0, static_cast<int32_t>(req->width), static_cast<int32_t>(req->height));
    return 0;
}

int nebo_adapter_set_cursor(client_record*, set_cursor_req* req, std::span<const std::byte> image)
{
    // 32 bits each way: the product fits in 64, and four times it is compared by division.
    if (!req || uint64_t{req->width} * req->height > image.size() / cursor_pixel_bytes)
        return payload_missing;
    const size_t bytes = uint64_t{req->width} * req->height * cursor_pixel_bytes;
    const svga_alpha_cursor header{req->id, req->hotspot_x, req->hotspot_y, req->width, req->height};
    void* area = nullptr;
    if (SVGA_BeginDefineAlphaCursor(&header, &area) != 0)
        return 0; // too large for the device, which counts it
    if (bytes != 0)
        std::memcpy(area, image.data(), bytes);
    SVGA_FIFOCommitAll();
    NEBO_SVGA_PreserveCursor(image.data(), &header); // for the mode set of a zoom, after which it is defined again
    _globals.svga_device->cursor = 0;                // the library's word, which it wants cleared
    return 0;
}

int nebo_adapter_move_cursor(client_record*, move_cursor_req* req)
{
    if (!req)
        return payload_missing;
    const bool scales = _globals.software_mode != 0; // the hardware pass leaves the cursor to the device
    const uint32_t x = scales ? zoomed_unsigned(req->x) : req->x;
    const uint32_t y = scales ? zoomed_unsigned(req->y) : req->y;
    SVGA_MoveCursor(req->visible, x, y, req->screen_id);
    return 0;
}

void adapter_set_zoom_level(float zoom)
{
    // A factor that is not a number passes both comparisons.
    if (zoom < zoom_least)
        zoom = zoom_least;
    if (zoom > zoom_most)
        zoom = zoom_most;
    svga_device& device = *_globals.svga_device;
    if (zoom == device.zoom) // without the mutex: this function alone writes it, on one thread
        return;
    device_hold lock;
    if (_globals.software_mode && zoom != zoom_most)
        zoom = snapped(zoom);
    device.zoom = zoom;
    slogf(log_code, log_information, "kalix: setting zoom level to %1.0f%%", static_cast<double>(100 * zoom));
    SVGA_SetMode(device.mode_width, device.mode_height, device.bits_per_pixel, 1);
    NEBO_SVGA_RestoreCursor();
    status_note_display();
}

void reset_adapter()
{
    once = 0;
}

} // namespace kalix
