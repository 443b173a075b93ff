// The screen as a viewer sees it, out of the screen file: no request, so it works while the server is stuck.

#include "tools/ctl/commands.h"
#include "tools/picture/picture.h"
#include "tools/screen/run_directory.h"
#include "tools/screen/screen_reader.h"
#include "tools/screen/server_state.h"

#include <cstring>
#include <stdexcept>

namespace kalix::ctl {

report take_screenshot(const arguments& given)
{
    const std::string file = given.text("file");
    const bool cursor = !given.has("--no-cursor");
    const std::string directory = tools::run_directory();
    if (!given.has("--last"))
        tools::expect_server(directory);
    tools::screen_reader reader{directory};
    tools::screen_frame frame;
    if (!reader.read(frame, cursor ? tools::cursor_drawing::with : tools::cursor_drawing::without))
        throw std::runtime_error{"cannot take a screenshot: the screen changes too fast"};
    // A device that has not started yet, or one that has stopped.
    if (frame.width == 0 || frame.height == 0)
        throw std::runtime_error{"cannot take a screenshot: the screen has no size"};
    tools::off_teller{"kalixctl"}.look(frame);
    tools::picture image{frame.width, frame.height, std::vector<std::byte>(frame.pixels.size() * 4)};
    std::memcpy(image.pixels.data(), frame.pixels.data(), image.pixels.size());
    tools::write_png(image, file);
    return {{{"file", file},
             {"width", uint64_t{frame.width}},
             {"height", uint64_t{frame.height}},
             {"bits_per_pixel", uint64_t{frame.bits_per_pixel}},
             {"display", std::string{frame.enabled ? "on" : "off"}},
             {"cursor", cursor}},
            {},
            file == "-"};
}

} // namespace kalix::ctl
