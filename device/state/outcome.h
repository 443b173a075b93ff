// What a command's execution comes to: executed, or the reason why it did nothing.
//
// A command that is refused has changed nothing. The executor counts the reason; handlers return it.
#pragma once

#include <kalix/screen.h>
#include <optional>

namespace kalix::device {

using outcome = std::optional<kalix_refused>;

inline constexpr outcome executed = std::nullopt;

} // namespace kalix::device
