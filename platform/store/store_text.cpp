#include "platform/store/store_text.h"

#include <algorithm>
#include <vector>

namespace kalix::platform {
namespace {

// Views into the text, which outlives them. Qualifiers are dropped here: the file knows none, as everything persists.
std::vector<std::string_view> attributes_of(std::string_view text)
{
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = without_qualifier(text.substr(0, end));
        if (!attribute_name(line).empty())
            lines.push_back(line);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

// A replaced line keeps its place, so that writing an attribute leaves the order of a file that people edit.
void put(std::vector<std::string_view>& lines, std::string_view line)
{
    const auto held = std::ranges::find(lines, attribute_name(line), attribute_name);
    if (held == lines.end())
        lines.push_back(line);
    else
        *held = line;
}

} // namespace

std::string_view without_qualifier(std::string_view line)
{
    const size_t end = line.starts_with('[') ? line.find(']') : std::string_view::npos;
    return end == std::string_view::npos ? line : line.substr(end + 1);
}

std::string_view attribute_name(std::string_view line)
{
    const std::string_view bare = without_qualifier(line);
    const size_t end = bare.find(':');
    const bool named = end != std::string_view::npos && !bare.starts_with('@');
    // An attribute has a second colon, behind its encoding.
    return named && bare.find(':', end + 1) != std::string_view::npos ? bare.substr(0, end) : std::string_view{};
}

std::string merge_attributes(std::string_view object, std::string_view held, std::string_view written)
{
    std::vector<std::string_view> lines;
    for (const std::string_view text : {held, written})
        for (const std::string_view line : attributes_of(text))
            put(lines, line);
    std::string merged = "@" + std::string{object} + "\n";
    for (const std::string_view line : lines)
        merged.append(line).push_back('\n');
    return merged;
}

} // namespace kalix::platform
