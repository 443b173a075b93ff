// The publish/subscribe store: small persistent objects of attribute lines, and news of their changes.
//
// The object "/pps/a/b" is the file a/b below the store's directory (KALIX_PPS_DIR; else
// /var/lib/kalix/pps for root; else $XDG_STATE_HOME/kalix/pps, ~/.local/state when unset): a first line
// "@b", then lines "name:encoding:value". Anything may change the file, in place or by renaming another
// over it. Descriptors belong to whoever opened them; all functions are safe on any thread and set errno.
#pragma once

#include "platform/files/shared_memory.h" // open_read_write, open_create

#include <cstddef>
#include <cstdint>
#include <span>

namespace kalix::platform {

inline constexpr uint32_t notify_poll_arm = 3;        // action of ionotify
inline constexpr uint32_t notify_input = 0x10000000;  // condition: the object changed since it was read
inline constexpr uint32_t notify_pulse = 0x04;        // what an event does
inline constexpr uint32_t notify_update = 0x80;       // replaces an event that was armed before

struct pulse_event {
    uint32_t notify;
    int32_t coid; // connection to the own channel (channel.h)
    int priority;
    int8_t code;
    int64_t value;
};

struct machine_name {
    char machine[65]; // x86_64, aarch64, ...
};

struct sched_param {
    int priority;
};

// The store's directory, absolute, for who wants to change it from another process. False when it does not exist or its
// path does not fit.
bool store_directory(std::span<char> path);

// Opens an object; with open_create it is made (mode 0644, directories 0755) when missing. Returns a
// descriptor, or -1: EINVAL for no path of an object, and what is there is no regular file.
int32_t open(const char* path, unsigned flags);
void close_object(int32_t fd);

// The object's beginning, as far as there is room, with its change seen; what lies behind is dropped.
// Returns the bytes read, or -1; after that no change waits either.
int64_t read(int32_t fd, std::span<std::byte> buffer);

// Merges attribute lines into the object in one step: a line of the same name takes the old one's place.
// A qualifier such as "[-n]" before a name is not part of it; every attribute persists. Returns the bytes
// taken, or -1, and then the object is as it was.
int64_t write(int32_t fd, std::span<const std::byte> lines);

// Makes what was written survive a power failure: 0, or -1.
int fsync(int32_t fd);

// Returns notify_input when the object changed since it was last read; else arms the event, which the next
// change sets off once, and returns 0. -1 when changes cannot be watched.
int ionotify(int32_t fd, uint32_t action, uint32_t conditions, const pulse_event* event);

// The machine's name: 0, or -1.
int uname(machine_name* name);
// The priority of a thread (0, 0: the calling one), which this host's pulses do not use: 0, or -1.
int SchedGet(int32_t process, int32_t thread, sched_param* scheduling);

} // namespace kalix::platform
