// Whose request this thread is serving.
#pragma once

#include <cstdint>

namespace kalix::platform {

// Declares, on this thread and for a scope, whose request is being served: shared memory that is
// opened or made meanwhile is that sender's (shared_memory.h).
class sender_scope {
public:
    explicit sender_scope(uint32_t uid);
    ~sender_scope();
    sender_scope(const sender_scope&) = delete;
    sender_scope& operator=(const sender_scope&) = delete;

private:
    bool outer_declared_; // the scope around this one
    uint32_t outer_uid_;
};

// The user whose shared memory a call on this thread is about: the declared sender's, else our own.
uint32_t user_served();

} // namespace kalix::platform
