#include "tools/picture/screenshot.h"

#include "tools/picture/picture.h"

#include <cstring>
#include <stdexcept>

namespace kalix::tools {

screen_frame take_screenshot(const std::string& run_directory, cursor_drawing cursor)
{
    screen_reader reader{run_directory};
    screen_frame frame;
    if (!reader.read(frame, cursor))
        throw std::runtime_error{"cannot take a screenshot: the screen changes too fast"};
    // A device that has not started yet, or one that has stopped.
    if (frame.width == 0 || frame.height == 0)
        throw std::runtime_error{"cannot take a screenshot: the screen has no size"};
    return frame;
}

void write_screenshot(const screen_frame& frame, const std::string& file)
{
    picture image{frame.width, frame.height, std::vector<std::byte>(frame.pixels.size() * sizeof(uint32_t))};
    std::memcpy(image.pixels.data(), frame.pixels.data(), image.pixels.size());
    write_png(image, file);
}

} // namespace kalix::tools
