#include "tools/describe/describe.h"

#include <algorithm>

namespace kalix::tools {
namespace {

struct language {
    std::string_view name;
    std::string (*of)(const program& what);
};

constexpr language languages[] = {
    {"man", manual_page}, {"bash", bash_completion}, {"zsh", zsh_completion}, {"fish", fish_completion}};

} // namespace

std::optional<std::string> describe(const program& what, std::string_view language)
{
    const auto found = std::ranges::find(languages, language, &language::name);
    if (found == std::end(languages))
        return std::nullopt;
    return found->of(what);
}

} // namespace kalix::tools
