#include "tools/demo/picture.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <png.h>
#include <stdexcept>

namespace kalix::demo {

namespace {

struct close_file {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

[[noreturn]] void fail(const std::string& path, const std::string& reason)
{
    throw std::runtime_error{"cannot write " + path + ": " + reason};
}

std::string reason_of(int error)
{
    return error ? std::strerror(error) : "unknown error";
}

} // namespace

void write_png(const picture& image, const std::string& path)
{
    std::unique_ptr<std::FILE, close_file> file{std::fopen(path.c_str(), "wbe")};
    if (!file)
        fail(path, reason_of(errno));
    // Without an alpha channel in its format the library would expect three bytes a pixel; so the
    // fourth byte is there, and is made opaque.
    std::vector<std::byte> opaque = image.pixels;
    for (size_t alpha = 3; alpha < opaque.size(); alpha += 4)
        opaque[alpha] = std::byte{0xFF};

    png_image header{};
    header.version = PNG_IMAGE_VERSION;
    header.width = image.width;
    header.height = image.height;
    header.format = PNG_FORMAT_BGRA;
    errno = 0;
    const bool written = png_image_write_to_stdio(&header, file.get(), 0, opaque.data(), 0, nullptr) != 0;
    const std::string reason = written ? "" : header.message;
    const bool closed = std::fclose(file.release()) == 0;
    if (written && closed)
        return;
    const int error = errno;
    std::remove(path.c_str());
    fail(path, written ? reason_of(error) : reason);
}

} // namespace kalix::demo
