// Completion for zsh: the tables as _arguments wants them.

#include "tools/describe/describe.h"
#include "tools/describe/text.h"

namespace kalix::tools {
namespace {

// Brackets end an explanation and colons a message; a quote would end the word.
std::string explained(std::string_view text)
{
    std::string out;
    for (const char c : text)
        if (c == '\'')
            out += "'\\''";
        else
            out.append(c == '[' || c == ']' || c == ':' || c == '\\' ? "\\" : "").append(1, c);
    return out;
}

// The message, and what may stand there.
std::string value(const parameter& what)
{
    std::string message = ":" + explained(what.value) + ":";
    if (!what.choices.empty())
        return message + "(" + choice_names(what) + ")";
    switch (what.kind) {
    case value_kind::file:
        return message + "_files";
    case value_kind::directory:
        return message + "_files -/";
    default:
        return message;
    }
}

std::string specifications(std::string_view indent, std::span<const parameter> parameters)
{
    std::string text;
    for (const parameter& one : parameters) {
        std::string spec;
        if (is_option(one))
            spec = std::string{one.name} + (takes_value(one) && !one.value_optional ? "=" : "") + "[" +
                   explained(one.help) + "]" + (one.value_optional ? ":" : "");
        else
            spec = one.required ? "" : ":";
        text.append(" \\\n").append(indent).append("'").append(spec);
        text += (is_option(one) && !takes_value(one) ? "" : value(one)) + "'";
    }
    return text;
}

std::string commands_of(const program& what, const std::string& common)
{
    std::string names, rows;
    for (const command& one : what.commands) {
        names.append("\n        '").append(one.name).append(":").append(explained(one.summary)).append("'");
        rows +=
            filled("    @NAME@) _arguments @COMMON@@OWN@ ;;\n",
                   {{"@NAME@", one.name}, {"@COMMON@", common}, {"@OWN@", specifications("        ", one.parameters)}});
    }
    return filled(R"(    local -a commands=(@NAMES@
    )
    local state line
    _arguments -C@COMMON@ ': :->command' '*:: :->arguments'
    [[ $state != command ]] || _describe command commands
    [[ $state == arguments ]] || return
    case $words[1] in
@ROWS@    esac
)",
                  {{"@NAMES@", names}, {"@COMMON@", common}, {"@ROWS@", rows}});
}

} // namespace

std::string zsh_completion(const program& what)
{
    const std::string common =
        specifications("        ", common_parameters) + specifications("        ", what.parameters);
    const std::string words = what.words ? " \\\n        '*:::COMMAND:_normal'" : "";
    const std::string body =
        what.commands.empty() ? "    _arguments" + common + words + "\n" : commands_of(what, common);
    return filled(
        "#compdef @PROGRAM@\n# Made of the program's own tables.\n@FUNCTION@()\n{\n@BODY@}\n@FUNCTION@ \"$@\"\n",
        {{"@PROGRAM@", what.name}, {"@FUNCTION@", function_name(what)}, {"@BODY@", body}});
}

} // namespace kalix::tools
