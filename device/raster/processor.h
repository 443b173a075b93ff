// Instruction sets: which ones the device's pixel work was built for, and which this machine takes.
//
// The best that the machine offers is chosen by itself; the pictures are the same bytes with every one, which tests
// compare by this module.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kalix::device::raster {

// Sets that this machine can run and the device was built for, best first; each a number of the library's. While
// one is forced, that one alone.
std::vector<int64_t> instruction_sets();
std::string instruction_set_name(int64_t set);

// Takes one of them and no other; 0 chooses again. For comparing them: not while a device draws.
void force_instruction_set(int64_t set);

} // namespace kalix::device::raster
