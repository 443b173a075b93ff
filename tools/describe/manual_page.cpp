// The page in the language of man(7). Only fonts and the macros that every reader of manual pages knows are used.

#include "tools/describe/describe.h"
#include "tools/describe/text.h"

#include <algorithm>
#include <cctype>

namespace kalix::tools {
namespace {

// A text as it is: nothing in it commands the formatter, and dashes stay what can be typed.
std::string plain(std::string_view text)
{
    std::string out;
    bool begins_line = true;
    for (const char c : text) {
        if (begins_line && (c == '.' || c == '\''))
            out += "\\&";
        begins_line = c == '\n';
        switch (c) {
        case '\\':
            out += "\\e";
            break;
        case '-':
            out += "\\-";
            break;
        case '\'':
            out += "\\(aq";
            break;
        case '`':
            out += "\\(ga";
            break;
        case '^':
            out += "\\(ha";
            break;
        case '~':
            out += "\\(ti";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string bold(std::string_view text)
{
    return "\\fB" + plain(text) + "\\fR";
}

std::string italic(std::string_view text)
{
    return "\\fI" + plain(text) + "\\fR";
}

std::string titled(std::string_view macro, std::string_view text)
{
    return "." + std::string{macro} + " " + std::string{text} + "\n";
}

// What stands behind the name in the list of pages: no sentence.
std::string whatis(std::string_view summary)
{
    std::string text{summary.substr(0, summary.find_last_not_of('.') + 1)};
    text.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(text.front())));
    return text;
}

std::string synopsis(std::string_view usage)
{
    std::string text;
    for (size_t at = 0; at < usage.size();) {
        at = usage.find_first_not_of(' ', at);
        const size_t end = std::min(usage.find('\n', at), usage.size());
        text += ".br\n" + plain(usage.substr(at, end - at)) + "\n";
        at = end + 1;
    }
    return text;
}

std::string entry(const parameter& what)
{
    std::string text = ".TP\n" + (is_option(what) ? bold(what.name) : italic(what.value));
    if (is_option(what) && *what.value)
        text += " " + italic(what.value);
    text += "\n" + plain(what.help);
    if (*what.initial)
        text += "; otherwise " + plain(what.initial);
    text += "\n";
    for (const choice& one : what.choices)
        text += ".RS\n.TP\n" + bold(one.name) + "\n" + plain(one.summary) + "\n.RE\n";
    return text;
}

std::string entries(std::span<const parameter> parameters)
{
    std::string text;
    for (const parameter& one : parameters)
        text += entry(one);
    return text;
}

std::string command_heading(const command& of)
{
    std::string text = bold(of.name);
    for (const parameter& one : of.parameters)
        if (!is_option(one))
            text += " " + (one.required ? italic(one.value) : "[" + italic(one.value) + "]");
    return text;
}

// A line of a help's section: a term, a gap of three blanks or more, and what it means.
std::string section_line(std::string_view line)
{
    const size_t gap = line.find("   ");
    if (gap == std::string_view::npos)
        return ".PP\n" + bold(line) + "\n";
    return ".TP\n" + bold(line.substr(0, gap)) + "\n" + plain(line.substr(line.find_first_not_of(' ', gap))) + "\n";
}

// Sentences are filled; what ends without a full stop is a list of lines.
std::string section_text(std::string_view text)
{
    if (text.ends_with('.'))
        return plain(text) + "\n";
    std::string lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        lines += section_line(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

} // namespace

std::string manual_page(const program& what)
{
    std::string page = titled("TH", plain(what.name) + " 1 \"\" \"kalix " KALIX_VERSION "\" \"User Commands\"");
    page += titled("SH", "NAME") + plain(what.name) + " \\- " + plain(whatis(what.summary)) + "\n";
    page += titled("SH", "SYNOPSIS") + synopsis(what.usage);
    page += titled("SH", "DESCRIPTION") + plain(*what.description ? what.description : what.summary) + "\n";
    page += titled("SH", "OPTIONS") + entries(what.parameters) + entries(common_parameters);
    if (!what.commands.empty())
        page += titled("SH", "COMMANDS");
    for (const command& one : what.commands)
        page += titled("SS", command_heading(one)) + plain(one.summary) + "\n" + entries(one.parameters);
    for (const section& one : what.sections)
        page += titled("SH", plain(one.title)) + section_text(one.text);
    return page + titled("SH", "SEE ALSO") + ".BR kalix (8)\n";
}

} // namespace kalix::tools
