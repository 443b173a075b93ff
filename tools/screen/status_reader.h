// What a server's driver tells its tools.
#pragma once

#include "tools/screen/mapped_file.h"

#include <kalix/status.h>
#include <memory>
#include <string>

namespace kalix::tools {

// A consistent copy of the status file of a run directory. Throws std::system_error or std::runtime_error.
std::unique_ptr<kalix_status> read_status(const std::string& directory);

} // namespace kalix::tools
