// The service manager that has started this process, where there is one.
#pragma once

#include <string_view>

namespace kalix::platform {

// Sends it lines of "NAME=value", over the socket NOTIFY_SOCKET, without waiting; true also where there is no
// manager. False with errno. Any thread, once the settings are read.
bool tell_manager(std::string_view lines);

} // namespace kalix::platform
