// The vector library's own list of sets.

#include "device/raster/processor.h"

#include <hwy/highway.h>

namespace kalix::device::raster {

std::vector<int64_t> instruction_sets()
{
    return hwy::SupportedAndGeneratedTargets();
}

std::string instruction_set_name(int64_t set)
{
    return hwy::TargetName(set);
}

void force_instruction_set(int64_t set)
{
    hwy::SetSupportedTargetsForTest(set);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

} // namespace kalix::device::raster
