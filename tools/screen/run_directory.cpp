#include "tools/screen/run_directory.h"

#include <array>
#include <kalix/rundir.h>
#include <stdexcept>

namespace kalix::tools {

std::string run_directory()
{
    std::array<char, 4096> path;
    if (kalix_find_run_directory(path.data(), path.size()) < 0)
        throw std::runtime_error{"the run directory's name is too long"};
    return path.data();
}

} // namespace kalix::tools
