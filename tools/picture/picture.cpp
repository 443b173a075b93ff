#include "tools/picture/picture.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <png.h>
#include <stdexcept>

namespace kalix::tools {
namespace {

[[noreturn]] void fail(const std::string& path, const std::string& reason)
{
    throw std::runtime_error{"cannot write " + path + ": " + reason};
}

std::string reason_of(int error)
{
    return error ? std::strerror(error) : "unknown error";
}

// A file being written, or standard output; unless it is finished well, nothing stays of it.
class output {
public:
    explicit output(const std::string& path)
        : path_{path == "-" ? "standard output" : path},
          removable_{path != "-"}, file_{removable_ ? std::fopen(path.c_str(), "wbe") : stdout}
    {
        if (!file_)
            fail(path_, reason_of(errno));
    }
    ~output()
    {
        if (file_ && removable_)
            give_up();
    }
    output(const output&) = delete;
    output& operator=(const output&) = delete;

    std::FILE* file() const { return file_; }

    // The last bytes leave here, and with them the last chance to hear that the disk is full.
    void finish()
    {
        const bool whole = (removable_ ? std::fclose(file_) : std::fflush(file_)) == 0;
        const int error = errno;
        file_ = nullptr;
        if (whole)
            return;
        if (removable_)
            std::remove(path_.c_str());
        fail(path_, reason_of(error));
    }

    [[noreturn]] void refuse(const std::string& reason) const { fail(path_, reason); }

private:
    void give_up()
    {
        std::fclose(file_);
        std::remove(path_.c_str());
    }

    std::string path_;
    bool removable_;
    std::FILE* file_;
};

} // namespace

void write_png(const picture& image, const std::string& path, alpha_channel alpha)
{
    output out{path};
    // Without an alpha channel in its format the library would expect three bytes a pixel; so the
    // fourth byte is there, and is made opaque.
    std::vector<std::byte> pixels = image.pixels;
    for (size_t at = 3; alpha == alpha_channel::opaque && at < pixels.size(); at += 4)
        pixels[at] = std::byte{0xFF};
    png_image header{};
    header.version = PNG_IMAGE_VERSION;
    header.width = image.width;
    header.height = image.height;
    header.format = PNG_FORMAT_BGRA;
    if (png_image_write_to_stdio(&header, out.file(), 0, pixels.data(), 0, nullptr) == 0)
        out.refuse(header.message);
    out.finish();
}

void write_bytes(const std::vector<std::byte>& bytes, const std::string& path)
{
    output out{path};
    if (std::fwrite(bytes.data(), 1, bytes.size(), out.file()) != bytes.size())
        out.refuse(reason_of(errno));
    out.finish();
}

} // namespace kalix::tools
