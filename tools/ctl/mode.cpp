// The display mode: asked for by a request whose status does not say whether the device took it, so the screen
// is looked at afterwards.

#include "tools/ctl/commands.h"
#include "tools/screen/run_directory.h"
#include "tools/screen/screen_reader.h"
#include "tools/screen/status_reader.h"

#include <algorithm>
#include <fmt/format.h>
#include <kalix/client.hpp>
#include <stdexcept>

namespace kalix::ctl {

report set_mode(const arguments& given)
{
    const auto [width, height] = given.extent("size");
    const auto bits_per_pixel = given.number<uint32_t>("--bpp");
    const client::connection server;
    client::check(kalix_set_mode(server.get(), width, height, bits_per_pixel), "set the mode");
    tools::screen_reader reader{tools::run_directory()};
    tools::screen_frame frame;
    if (!reader.read(frame, tools::cursor_drawing::without))
        throw std::runtime_error{"the mode was asked for, but the screen changes too fast to tell"};
    const float zoom = tools::read_status(tools::run_directory())->zoom;
    const auto side = [zoom](uint32_t of) {
        return std::max(1u, static_cast<uint32_t>(static_cast<float>(of) * zoom));
    };
    if (frame.width != side(width) || frame.height != side(height) || frame.bits_per_pixel != bits_per_pixel)
        throw std::runtime_error{fmt::format("the device has no mode {}x{} of {} bits; the screen stays {}x{} of {}",
                                             width, height, bits_per_pixel, frame.width, frame.height,
                                             frame.bits_per_pixel)};
    return {{{"mode", ctl::extent{width, height}},
             {"bits_per_pixel", uint64_t{bits_per_pixel}},
             {"screen", ctl::extent{frame.width, frame.height}}},
            {}};
}

} // namespace kalix::ctl
