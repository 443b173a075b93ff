// The screen as a viewer sees it, out of the screen file: no request, so it works while the server is stuck.

#include "tools/picture/screenshot.h"
#include "tools/ctl/commands.h"
#include "tools/ctl/terminal_picture.h"
#include "tools/screen/run_directory.h"
#include "tools/screen/server_state.h"

#include <iostream>

namespace kalix::ctl {
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
        tools::take_screenshot(directory, cursor ? tools::cursor_drawing::with : tools::cursor_drawing::without);
    if (!given.has("--json")) // which says so in a field
        tools::off_teller{"kalixctl"}.look(frame);
    if (in_terminal)
        std::cout << terminal_picture(frame) << std::flush;
    if (!file.empty())
        tools::write_screenshot(frame, file);
    return {{{"file", file.empty() ? value{unknown{}} : file},
             {"size", extent{frame.width, frame.height}},
             {"bits_per_pixel", uint64_t{frame.bits_per_pixel}},
             {"display", frame.enabled},
             {"cursor", cursor}},
            {},
            file == "-" || in_terminal};
}

} // namespace kalix::ctl
