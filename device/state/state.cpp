#include "device/state/state.h"

namespace kalix::device {

void publish_counters(device_state& device)
{
    kalix_screen_statistics& values = device.counts.values;
    values.surfaces = device.surfaces.count();
    values.contexts = device.contexts.size();
    values.regions = device.guest.count();
    values.surface_bytes = device.surfaces.memory_used();
    device.display.publish(values);
}

} // namespace kalix::device
