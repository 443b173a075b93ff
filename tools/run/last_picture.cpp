// A present is answered when its frame is queued, so that a command may end before its last frame shows. A fence behind
// it tells when; the wait for it is a process of its own, since a server that hangs would never let go of it.

#include "tools/run/last_picture.h"

#include "tools/picture/screenshot.h"
#include "tools/run/child.h"

#include <iostream>
#include <kalix/client.hpp>
#include <stdexcept>

namespace kalix::run {

namespace {

constexpr int settle_ms = 10'000; // the device never has more than some frames to draw

int settle(const std::string& run_directory)
{
    try {
        const client::connection server{run_directory.c_str()};
        client::context context{server};
        server.wait(context.commands().submit());
        return 0;
    } catch (const std::system_error&) {
        return 1;
    }
}

} // namespace

void write_last_picture(const std::filesystem::path& run_directory, const std::string& file)
{
    child settling{[&] { return settle(run_directory.string()); }};
    if (!settling.wait_for(settle_ms))
        std::cerr << "kalix-run: the server does not answer; the screenshot is its screen as it is\n";
    else if (settling.wait() != 0)
        throw std::runtime_error{"cannot take a screenshot: the server has ended or takes no client"};
    const tools::screen_frame frame = tools::take_screenshot(run_directory.string(), tools::cursor_drawing::with);
    tools::off_teller{"kalix-run"}.look(frame);
    tools::write_screenshot(frame, file);
}

} // namespace kalix::run
