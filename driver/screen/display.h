// Display adapter: enable, mode, cursor and zoom.
//
// Any client may drive the display. The requests run on workers under the device mutex; the zoom is set
// from the message loop's thread, which takes that mutex itself, so that it never meets a request half way.
#pragma once

#include "driver/objects/client.h"

#include <span>

namespace kalix {

// Requests 241 to 244: 0, or 22 without a payload. A cursor's image is what follows its record; a payload
// that ends before the image does counts as none.
int nebo_adapter_svga_enable(client_record* client, svga_enable_req* req) KALIX_REQUIRES(_globals.device_mutex);
int nebo_adapter_set_mode(client_record* client, set_mode_req* req) KALIX_REQUIRES(_globals.device_mutex);
int nebo_adapter_set_cursor(client_record* client, set_cursor_req* req, std::span<const std::byte> image);
int nebo_adapter_move_cursor(client_record* client, move_cursor_req* req);

// Sets the factor, held between 0.1 and 1, by which presented pictures shrink, and the mode again with it;
// the next present shows it. Nothing happens when it is in force already. In software mode the nearest
// factor that has a kernel is taken. The device mutex must not be held.
void adapter_set_zoom_level(float zoom) KALIX_EXCLUDES(_globals.device_mutex);

// Makes the next mode set the first again; for a fresh driver state record.
void reset_adapter();

} // namespace kalix
