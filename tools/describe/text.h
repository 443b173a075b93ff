// Words for the descriptions: joined, and put into a frame.
#pragma once

#include "tools/command_line.h"

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace kalix::tools {

inline bool is_option(const parameter& what)
{
    return what.name[0] == '-';
}

inline bool takes_value(const parameter& what)
{
    return is_option(what) && what.kind != value_kind::flag;
}

inline void append(std::string& list, std::string_view separator, std::string_view word)
{
    list.append(list.empty() ? "" : separator).append(word);
}

inline std::string choice_names(const parameter& what)
{
    std::string names;
    for (const choice& one : what.choices)
        append(names, " ", one.name);
    return names;
}

// A name that a shell takes for a function.
inline std::string function_name(const program& what)
{
    std::string name = std::string{"_"} + what.name;
    for (char& c : name)
        c = c == '-' ? '_' : c;
    return name;
}

// The frame, with each @NAME@ replaced.
inline std::string filled(std::string_view frame,
                          std::initializer_list<std::pair<std::string_view, std::string_view>> values)
{
    std::string text{frame};
    for (const auto& [name, value] : values)
        for (size_t at = 0; (at = text.find(name, at)) != std::string::npos; at += value.size())
            text.replace(at, name.size(), value);
    return text;
}

} // namespace kalix::tools
