// Whose request this thread is serving, as the sender_scope of channel.h declares it.
#pragma once

#include <cstdint>

namespace kalix::platform {

// The user whose shared memory a call on this thread is about: the declared sender's, else our own.
uint32_t user_served();

} // namespace kalix::platform
