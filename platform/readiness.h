// Tells whoever started the server that it serves: whatever can fail before the first message is received
// has not.
#pragma once

namespace kalix::platform {

// READY=1 and a status to the service manager, and a newline on the descriptor KALIX_READY_FD, which is then
// closed. Once a process; later calls do nothing.
void report_ready();

} // namespace kalix::platform
