#include "platform/readiness.h"

#include "base/unique_fd.h"
#include "platform/log/log.h"
#include "platform/service_manager.h"
#include "platform/settings.h"

#include <atomic>
#include <cerrno>
#include <cstring>

namespace kalix::platform {
namespace {

// A warning alone: clients can be served, whoever waits to hear of it.
void told_nobody(const char* whom)
{
    slogf(log_code, log_warning, "kalix: cannot report readiness to %s: %s (%d)", whom, std::strerror(errno), errno);
}

} // namespace

void report_ready()
{
    static std::atomic<bool> reported{false};
    // Asked at every receive, so that the usual answer costs a load and no exchange.
    if (reported.load(std::memory_order_relaxed) || reported.exchange(true))
        return;
    if (!tell_manager("READY=1\nSTATUS=serving"))
        told_nobody("NOTIFY_SOCKET");
    const int ready_fd = current_settings().ready_fd;
    if (ready_fd < 0)
        return;
    const unique_fd ready{ready_fd}; // closed behind the byte: who reads to the end must not wait for ours
    if (::write(ready.get(), "\n", 1) != 1)
        told_nobody("KALIX_READY_FD");
}

} // namespace kalix::platform
