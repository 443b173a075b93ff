// Names of the interface's numbers, as people know them.
#pragma once

#include <cstdint>
#include <string>

namespace kalix::ctl {

std::string format_name(uint32_t format); // "A8R8G8B8", or "format 99"
std::string flags_text(uint32_t flags);   // "texture render-target", "-" for none
std::string command_name(uint32_t index); // of a 3D command, counted from 1040
std::string refusal_name(uint32_t kind);  // enum kalix_refused

} // namespace kalix::ctl
