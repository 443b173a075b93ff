#include "platform/files/sender.h"

#include "platform/channel/channel.h"

#include <unistd.h>

namespace kalix::platform {
namespace {

struct declared_sender {
    bool declared = false;
    uint32_t uid = 0;
};
thread_local declared_sender current;

} // namespace

sender_scope::sender_scope(const _msg_info& sender) : outer_declared_{current.declared}, outer_uid_{current.uid}
{
    current = {true, sender.uid};
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
