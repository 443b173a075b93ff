// The files of noVNC, a VNC viewer that runs in a browser, as the distribution's package brings them.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

namespace kalix::view {

class web_pages {
public:
    // Lists the folder once; nothing but what is listed is ever given out, so that no request can name another file.
    // Throws std::runtime_error when the viewer's page is not there.
    explicit web_pages(const std::filesystem::path& folder);

    // The whole HTTP answer to a request's first line.
    std::string answer(std::string_view request_line) const;

    static constexpr std::string_view first = "/vnc.html";

private:
    struct page {
        std::filesystem::path file;
        const char* type;
    };
    std::map<std::string, page, std::less<>> pages_; // by their path in the URL
};

} // namespace kalix::view
