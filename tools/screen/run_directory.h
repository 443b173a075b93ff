// Where the server that a tool looks at keeps its files.
#pragma once

#include <string>

namespace kalix::tools {

// The run directory of the server that libkalix talks to without a name (kalix/rundir.h), which need not exist. Throws std::runtime_error
// for a name that is too long.
std::string run_directory();

} // namespace kalix::tools
