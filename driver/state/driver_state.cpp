#include "driver/state/driver_state.h"

namespace kalix {

driver_state _globals;

} // namespace kalix
