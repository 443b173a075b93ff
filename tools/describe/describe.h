// A program's tables in other languages than its help: a manual page, and completion for shells.
//
// The build asks every program for them (run() answers "--describe-as LANGUAGE", which is for that alone and in no
// help), so that whatever a table gains stands in all of them.
#pragma once

#include "tools/command_line.h"

#include <optional>
#include <string>
#include <string_view>

namespace kalix::tools {

inline constexpr std::string_view describe_option = "--describe-as";

// What run() gives to every program.
inline constexpr parameter common_parameters[] = {
    {.name = "--help", .help = "print help, of a command when behind its name, and exit"},
    {.name = "--version", .help = "print the version and exit"},
};

// What the program says of itself in "man", "bash", "zsh" or "fish"; nothing in another language.
std::optional<std::string> describe(const program& what, std::string_view language);

std::string manual_page(const program& what);
std::string bash_completion(const program& what);
std::string zsh_completion(const program& what);
std::string fish_completion(const program& what);

} // namespace kalix::tools
