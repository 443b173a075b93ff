// Completion for fish: a line for each word.

#include "tools/describe/describe.h"
#include "tools/describe/text.h"

namespace kalix::tools {
namespace {

std::string quoted(std::string_view text)
{
    std::string out = "'";
    for (const char c : text)
        out.append(c == '\'' || c == '\\' ? "\\" : "").append(1, c);
    return out + "'";
}

std::string words(std::string_view name, std::string_view summary)
{
    return " -a " + quoted(name) + " -d " + quoted(summary) + "\n";
}

// A value that is one of some words, a file, or anything.
std::string value(const parameter& what)
{
    if (!what.choices.empty())
        return " -x -a " + quoted(choice_names(what));
    const bool is_path = what.kind == value_kind::file || what.kind == value_kind::directory;
    return is_path ? " -r -F" : what.value_optional ? "" : " -x";
}

std::string lines(const std::string& begin, std::span<const parameter> parameters)
{
    std::string text;
    for (const parameter& one : parameters) {
        if (is_option(one))
            text += begin + " -l " + std::string{one.name}.substr(2) + (takes_value(one) ? value(one) : "") + " -d " +
                    quoted(one.help) + "\n";
        for (const choice& word : one.choices)
            text += is_option(one) ? "" : begin + words(word.name, word.summary);
        if (!is_option(one) && one.kind == value_kind::file)
            text += begin + " -F\n";
    }
    return text;
}

} // namespace

std::string fish_completion(const program& what)
{
    const std::string begin = std::string{"complete -c "} + what.name;
    std::string text =
        filled("# Completion of @PROGRAM@ for fish, made of the program's own tables.\n", {{"@PROGRAM@", what.name}});
    if (what.words)
        text += begin + " -n '__fish_seen_subcommand_from --' -x -a '(__fish_complete_subcommand --commandline)'\n";
    text += begin + " -f\n" + lines(begin, common_parameters) + lines(begin, what.parameters);
    for (const command& one : what.commands)
        text += begin + " -n __fish_use_subcommand" + words(one.name, one.summary) +
                lines(begin + " -n '__fish_seen_subcommand_from " + one.name + "'", one.parameters);
    return text;
}

} // namespace kalix::tools
