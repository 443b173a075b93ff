// Completion for bash: one function, which finds what the word under the cursor is (an option, the value of one, or
// the n-th word of a command) and offers what the tables have there. It needs no other function; behind "--" it asks
// bash-completion, where that is loaded, for the command's own.

#include "tools/describe/describe.h"
#include "tools/describe/text.h"

namespace kalix::tools {
namespace {

// bash takes the "=" of --option=value for a word of its own. An option that takes the cursor's word leaves i behind
// the cursor.
constexpr std::string_view frame = R"(# Completion of @PROGRAM@ for bash, made of the program's own tables.
@FUNCTION@()
{
    local cur=${COMP_WORDS[COMP_CWORD]} command= option= place=0 options='@OPTIONS@' i
    COMPREPLY=()
    [[ $cur != = ]] || cur=
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
@WALK@        -*) ;;
        *) @WORD@ ;;
        esac
    done
    if ((i > COMP_CWORD)); then
        place=$option
    elif [[ $cur == -* ]]; then
        case $command in
@COMMAND_OPTIONS@        *) ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
        return
    fi
    case $command:$place in
@OFFERS@    *) ;;
    esac
}
complete -F @FUNCTION@ @PROGRAM@
)";

constexpr std::string_view behind_dashes = R"(        --)
            if declare -F _command_offset >/dev/null; then
                _command_offset $((i + 1))
            else
                mapfile -t COMPREPLY < <(compgen -c -- "$cur")
            fi
            return
            ;;
)";

constexpr std::string_view option_with_value = R"(        @OPTIONS@)
            option=${COMP_WORDS[i]}
            [[ ${COMP_WORDS[i + 1]} != = ]] || ((++i))
            ((++i))
            ;;
)";

std::string offer(std::string_view row, std::string_view words, std::string_view files = "")
{
    return filled("    @ROW@)@FILES@ mapfile -t COMPREPLY < <(compgen @WORDS@ -- \"$cur\") ;;\n",
                  {{"@ROW@", row}, {"@FILES@", files}, {"@WORDS@", words}});
}

// Nothing where anything may stand.
std::string offer_value(const std::string& row, const parameter& what)
{
    constexpr std::string_view as_files = " compopt -o filenames;";
    if (!what.choices.empty())
        return offer(row, "-W '" + choice_names(what) + "'");
    switch (what.kind) {
    case value_kind::file:
        return offer(row, "-f", as_files);
    case value_kind::directory:
        return offer(row, "-d", as_files);
    default:
        return "";
    }
}

// Values go by their option, positionals by their number.
std::string offers(const std::string& command, std::span<const parameter> parameters)
{
    std::string rows;
    int place = 0;
    for (const parameter& one : parameters)
        if (takes_value(one))
            rows += offer_value((command.empty() ? "*" : command) + ":" + one.name, one);
        else if (!is_option(one))
            rows += offer_value(command + ":" + std::to_string(place++), one);
    return rows;
}

std::string all_offers(const program& what)
{
    std::string names, rows = offers("", what.parameters);
    for (const command& one : what.commands) {
        append(names, " ", one.name);
        rows += offers(one.name, one.parameters);
    }
    return names.empty() ? rows : rows + offer(":0", "-W '" + names + "'");
}

std::string option_names(std::span<const parameter> parameters)
{
    std::string names;
    for (const parameter& one : parameters)
        if (is_option(one))
            append(names, " ", one.name);
    return names;
}

std::string command_options(const program& what)
{
    std::string rows;
    for (const command& one : what.commands)
        if (const std::string names = option_names(one.parameters); !names.empty())
            rows +=
                filled("        @COMMAND@) options+=' @NAMES@' ;;\n", {{"@COMMAND@", one.name}, {"@NAMES@", names}});
    return rows;
}

void append_options_with_value(std::string& pattern, std::span<const parameter> parameters)
{
    for (const parameter& one : parameters)
        if (takes_value(one) && !one.value_optional)
            append(pattern, " | ", one.name);
}

std::string walk(const program& what)
{
    std::string pattern;
    append_options_with_value(pattern, what.parameters);
    for (const command& one : what.commands)
        append_options_with_value(pattern, one.parameters);
    std::string rows{what.words ? behind_dashes : ""};
    return pattern.empty() ? rows : rows + filled(option_with_value, {{"@OPTIONS@", pattern}});
}

} // namespace

std::string bash_completion(const program& what)
{
    std::string options = option_names(common_parameters);
    append(options, " ", option_names(what.parameters));
    const char* const word = what.commands.empty()
                                 ? "((++place))"
                                 : "if [[ $command ]]; then ((++place)); else command=${COMP_WORDS[i]}; fi";
    return filled(frame, {{"@FUNCTION@", function_name(what)},
                          {"@PROGRAM@", what.name},
                          {"@OPTIONS@", options},
                          {"@WALK@", walk(what)},
                          {"@WORD@", word},
                          {"@COMMAND_OPTIONS@", command_options(what)},
                          {"@OFFERS@", all_offers(what)}});
}

} // namespace kalix::tools
