#include "tools/view/web_pages.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace kalix::view {

namespace fs = std::filesystem;

namespace {

// Browsers are told not to guess, so each type must be right; files of other types are no part of the page.
constexpr std::array types{
    std::pair{".html", "text/html; charset=utf-8"},
    std::pair{".js", "text/javascript; charset=utf-8"},
    std::pair{".css", "text/css; charset=utf-8"},
    std::pair{".json", "application/json"},
    std::pair{".svg", "image/svg+xml"},
    std::pair{".png", "image/png"},
    std::pair{".ttf", "font/ttf"},
    std::pair{".woff", "font/woff"},
    std::pair{".oga", "audio/ogg"},
    std::pair{".mp3", "audio/mpeg"},
};

// The password stands in the page's address, behind the #: no other site may get it or frame the page.
std::string answer_of(const char* status, const std::string& fields, const std::string& body)
{
    return std::string{"HTTP/1.1 "} + status + "\r\n" + fields + "Content-Length: " + std::to_string(body.size()) +
           "\r\nConnection: close\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n"
           "Referrer-Policy: no-referrer\r\nX-Frame-Options: DENY\r\n\r\n" +
           body;
}

std::string refusal(const char* status)
{
    return answer_of(status, "Content-Type: text/plain\r\n", std::string{status} + "\n");
}

} // namespace

web_pages::web_pages(const fs::path& folder)
{
    std::error_code gone;
    for (fs::recursive_directory_iterator entry{folder, gone}, end; !gone && entry != end; entry.increment(gone)) {
        const auto type = std::ranges::find(types, entry->path().extension().string(),
                                            [](const auto& one) { return std::string{one.first}; });
        if (type != types.end() && entry->is_regular_file(gone))
            pages_.emplace("/" + entry->path().lexically_relative(folder).string(), page{entry->path(), type->second});
    }
    if (!pages_.contains(first))
        throw std::runtime_error{"cannot serve a page: there is no " + folder.string() + std::string{first} +
                                 "; the package novnc brings it (--pages names another place), and kalix-view --vnc "
                                 "does without"};
}

std::string web_pages::answer(std::string_view request_line) const
{
    constexpr std::string_view get = "GET ";
    if (!request_line.starts_with(get))
        return refusal("405 Method Not Allowed");
    const std::string_view target = request_line.substr(get.size());
    const std::string_view path = target.substr(0, target.find_first_of(" ?"));
    if (path == "/")
        return answer_of("302 Found", "Location: " + std::string{first} + "\r\n", "");
    const auto found = pages_.find(path);
    if (found == pages_.end())
        return refusal("404 Not Found");
    std::ifstream file{found->second.file, std::ios::binary};
    if (!file)
        return refusal("404 Not Found");
    return answer_of("200 OK", std::string{"Content-Type: "} + found->second.type + "\r\n",
                     {std::istreambuf_iterator<char>{file}, {}});
}

} // namespace kalix::view
