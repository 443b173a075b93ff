#include "tools/picture/screenshot.h"

#include "tools/picture/picture.h"

#include <cstring>
#include <stdexcept>

namespace kalix::tools {

screen_frame write_screenshot(const std::string& run_directory, const std::string& file, cursor_drawing cursor,
                              const char* program)
{
    screen_reader reader{run_directory};
    screen_frame frame;
    if (!reader.read(frame, cursor))
        throw std::runtime_error{"cannot take a screenshot: the screen changes too fast"};
    // A device that has not started yet, or one that has stopped.
    if (frame.width == 0 || frame.height == 0)
        throw std::runtime_error{"cannot take a screenshot: the screen has no size"};
    off_teller{program}.look(frame);
    picture image{frame.width, frame.height, std::vector<std::byte>(frame.pixels.size() * sizeof(uint32_t))};
    std::memcpy(image.pixels.data(), frame.pixels.data(), image.pixels.size());
    write_png(image, file);
    return frame;
}

} // namespace kalix::tools
