// Names of the interface's numbers, as people know them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kalix::ctl {

std::string format_name(uint32_t format);            // "A8R8G8B8", or "format 99"
std::vector<std::string> flag_names(uint32_t flags); // "texture", "render-target"
std::string command_name(uint32_t index);            // of a 3D command, counted from 1040
std::string refusal_name(uint32_t kind);             // enum kalix_refused
std::string request_name(uint32_t request);          // enum kalix_command, "surface define"
std::string reason_name(uint32_t reason);            // enum kalix_status_reason
std::string bound_name(uint32_t bound);              // enum kalix_status_bound
std::string event_name(uint32_t kind);               // enum kalix_event_kind

} // namespace kalix::ctl
