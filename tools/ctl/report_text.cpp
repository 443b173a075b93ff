// Reports for people: fields below each other, tables in columns as wide as their widest cell. Scripts take JSON; this
// text may change from release to release.

#include "tools/ctl/report.h"

#include <algorithm>
#include <fmt/format.h>

namespace kalix::ctl {
namespace {

struct printer {
    std::string operator()(uint64_t number) const { return fmt::format("{}", number); }
    std::string operator()(int64_t number) const { return fmt::format("{}", number); }
    std::string operator()(double number) const { return fmt::format("{:.6g}", number); }
    std::string operator()(bool yes) const { return yes ? "yes" : "no"; }
    std::string operator()(const std::string& text) const { return text; }
    std::string operator()(const std::vector<uint64_t>& numbers) const
    {
        return numbers.empty() ? "-" : fmt::format("{}", fmt::join(numbers, " "));
    }
    std::string operator()(const std::vector<std::string>& words) const
    {
        return words.empty() ? "-" : fmt::format("{}", fmt::join(words, " "));
    }
    std::string operator()(const extent& of) const { return fmt::format("{}x{}", of.width, of.height); }
    std::string operator()(const box& of) const
    {
        return of.depth > 1 ? fmt::format("{}x{}x{}", of.width, of.height, of.depth)
                            : (*this)(extent{of.width, of.height});
    }
    std::string operator()(const rectangle& of) const
    {
        return fmt::format("{}x{} at ({}, {})", of.width, of.height, of.x, of.y);
    }
    std::string operator()(const pixel& of) const { return fmt::format("0x{:08X}", of.word); }
    std::string operator()(const octets& of) const { return fmt::format("{:02x}", fmt::join(of.bytes, " ")); }
    std::string operator()(unknown) const { return "-"; }
};

std::string text_of(const value& content)
{
    return std::visit(printer{}, content);
}

std::string title(std::string name)
{
    std::ranges::replace(name, '_', ' ');
    return name;
}

// The first three kinds of a value: whole numbers with and without sign, and fractions.
bool is_number(const value& content)
{
    return content.index() <= 2;
}

void print_head(const record& head, std::string& out)
{
    size_t width = 0;
    for (const field& each : head)
        width = std::max(width, each.name.size());
    for (const field& each : head)
        out += fmt::format("{:<{}}  {}\n", title(each.name), width, text_of(each.content));
}

// Numbers to the right, words to the left; the last column is not padded.
void print_table(const table& what, std::string& out)
{
    out += fmt::format("{}:{}\n", title(what.name), what.rows.empty() ? " none" : "");
    if (what.rows.empty())
        return;
    std::vector<size_t> widths;
    for (size_t column = 0; column < what.rows[0].size(); ++column) {
        size_t width = what.rows[0][column].name.size();
        for (const record& row : what.rows)
            width = std::max(width, text_of(row[column].content).size());
        widths.push_back(width);
    }
    const auto line = [&](const record& row, const auto& cell) {
        std::string text;
        for (size_t column = 0; column < row.size(); ++column)
            text += is_number(row[column].content) ? fmt::format("  {:>{}}", cell(row[column]), widths[column])
                                                   : fmt::format("  {:<{}}", cell(row[column]), widths[column]);
        text.erase(text.find_last_not_of(' ') + 1);
        out += text + "\n";
    };
    line(what.rows[0], [](const field& each) { return title(each.name); });
    for (const record& row : what.rows)
        line(row, [](const field& each) { return text_of(each.content); });
}

} // namespace

double plain(float number)
{
    return std::stod(fmt::format("{}", number));
}

std::string as_text(const report& what)
{
    std::string out;
    print_head(what.head, out);
    for (const table& each : what.tables) {
        if (!out.empty())
            out += "\n";
        print_table(each, out);
    }
    return out;
}

} // namespace kalix::ctl
