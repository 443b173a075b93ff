// The platform's own messages: who a client is here, and shared objects without files (protocol.h).
//
// Answered on the receive loop's thread and never seen by the driver. Nothing here waits, and what is refused is an
// answer: a client's connection ends only when it does not take one.
#pragma once

#include "platform/channel/message_table.h"

#include <cstddef>
#include <span>

namespace kalix::platform {

bool is_own_message(std::span<const std::byte> message);

// Answers one; false when the client did not take the answer, and its stream is then ended.
bool answer_own_message(const connection& from, const whole_message& message);

} // namespace kalix::platform
