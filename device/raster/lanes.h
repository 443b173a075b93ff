// Lanes: neighbouring pixels of a row drawn together, as many as the machine's instructions take at once.
//
// The pixel work of the states that span.h chooses, built for each of the machine's instruction sets. Coverage,
// depths and texels are the general way's, worked out by the same operations in double precision; colours are in
// single precision from a span's first pixel on and may lie a level away. The bytes are the same with every set.
#pragma once

#include "device/raster/span.h"

namespace kalix::device::raster {

// What draws spans for the setup's state with the instruction set in use. The state is one that span.cpp has found to
// fit; plain draws have functions of their own, one for each way of sampling.
spans_function lanes_for(const draw_setup& setup);

} // namespace kalix::device::raster
