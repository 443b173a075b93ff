// The screen as a viewer sees it, out of the screen file: no request, so it works while the server is stuck.

#include "tools/ctl/commands.h"
#include "tools/ctl/terminal_picture.h"
#include "tools/picture/picture.h"
#include "tools/screen/run_directory.h"
#include "tools/screen/screen_reader.h"
#include "tools/screen/server_state.h"

#include <cstring>
#include <iostream>
#include <stdexcept>

namespace kalix::ctl {
namespace {

tools::screen_frame read_screen(const std::string& directory, tools::cursor_drawing cursor)
{
    tools::screen_reader reader{directory};
    tools::screen_frame frame;
    if (!reader.read(frame, cursor))
        throw std::runtime_error{"cannot take a screenshot: the screen changes too fast"};
    // A device that has not started yet.
    if (frame.width == 0 || frame.height == 0)
        throw std::runtime_error{"cannot take a screenshot: the screen has no size"};
    return frame;
}

void write_picture(const tools::screen_frame& frame, const std::string& file)
{
    tools::picture image{frame.width, frame.height, std::vector<std::byte>(frame.pixels.size() * 4)};
    std::memcpy(image.pixels.data(), frame.pixels.data(), image.pixels.size());
    tools::write_png(image, file);
}

} // namespace

report take_screenshot(const arguments& given)
{
    const std::string file = given.text("file");
    const bool in_terminal = given.has("--term");
    if (file.empty() && !in_terminal)
        throw tools::usage_error{"where to? Give a FILE, or --term"};
    const bool cursor = !given.has("--no-cursor");
    const std::string directory = tools::run_directory();
    if (!given.has("--last"))
        tools::expect_server(directory);
    const tools::screen_frame frame =
        read_screen(directory, cursor ? tools::cursor_drawing::with : tools::cursor_drawing::without);
    if (!given.has("--json")) // which says so in a field
        tools::off_teller{"kalixctl"}.look(frame);
    if (in_terminal)
        std::cout << terminal_picture(frame) << std::flush;
    if (!file.empty())
        write_picture(frame, file);
    return {{{"file", file.empty() ? value{unknown{}} : file},
             {"size", extent{frame.width, frame.height}},
             {"bits_per_pixel", uint64_t{frame.bits_per_pixel}},
             {"display", frame.enabled},
             {"cursor", cursor}},
            {},
            file == "-" || in_terminal};
}

} // namespace kalix::ctl
