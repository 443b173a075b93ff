// The counters' way to the screen.

#include "device/state/state.h"

namespace kalix::device {

void publish_counters(device_state& device)
{
    // The numbers of objects are taken when they are shown: nobody has to keep them up to date.
    kalix_screen_statistics& values = device.counts.values;
    values.surfaces = device.surfaces.count();
    values.contexts = device.contexts.size();
    values.regions = device.guest.count();
    values.surface_bytes = device.surfaces.memory_used();
    device.display.publish(values);
}

} // namespace kalix::device
