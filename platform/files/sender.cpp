#include "platform/files/sender.h"

#include <unistd.h>

namespace kalix::platform {
namespace {

struct declared_sender {
    bool declared = false;
    uint32_t uid = 0;
};
// A thread's own, so that five workers serve five users at once; handed down by no argument, since it is the shared
// memory deep below a handler that asks.
thread_local declared_sender current;

} // namespace

sender_scope::sender_scope(uint32_t uid) : outer_declared_{current.declared}, outer_uid_{current.uid}
{
    current = {true, uid};
}

sender_scope::~sender_scope()
{
    current = {outer_declared_, outer_uid_};
}

uint32_t user_served()
{
    return current.declared ? current.uid : geteuid();
}

} // namespace kalix::platform
