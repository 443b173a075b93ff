// Channels: synchronous messages from clients, pulses, and who sent what.
//
// One process serves one channel. Its receive loop (one thread) calls MsgReceivev; any thread may
// read from and answer a message that it was handed, by its receive id. The channel owns all
// connections; nothing here ever blocks on a client.
//
// A message that is handed out is complete: what its sender declared has arrived. A receive id names
// one message from MsgReceivev until MsgReply or MsgError; any later use of it fails with ESRCH. A
// message may be shorter than any header, down to 0 bytes: it is handed out like every other.
//
// The connections of one process follow one another: what a connection that has ended held is given back
// (ConnectDetach) before a later one gets its first answer, so that names made from the process id mean
// the later one's objects from then on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kalix::platform {

struct _msg_info {      // who sent a message
    uint32_t pid;       // process id, as the kernel vouches
    uint32_t uid;       // user, likewise
    uint32_t scoid;     // the connection; never 0 or all ones, not used again while it lives
    uint32_t srcmsglen; // bytes of the whole message, all of which can be read
};

struct _pulse {       // what MsgReceivev writes when it returns 0
    uint16_t type;    // 0
    uint16_t subtype; // 0
    int8_t code;
    uint8_t zero[3];
    int64_t value;
    int32_t scoid; // for a disconnect, the connection that went
    uint32_t zero1;
};
static_assert(sizeof(_pulse) == 24 && offsetof(_pulse, code) == 4 && offsetof(_pulse, scoid) == 16);

inline constexpr int8_t pulse_code_disconnect = -33; // a connection has gone, once each
inline constexpr int8_t pulse_code_unblock = -32;
inline constexpr uint32_t side_channel = 0x40000000; // index of a connection to oneself

inline constexpr int error_no_function = 89;  // ENOSYS as it travels
inline constexpr int error_message_size = 90; // EMSGSIZE as it travels

struct name_attach_t { // one for the process: a later attaching fills it anew
    int32_t chid;      // the channel's id, above 0
};

// Opens the channel of that name in the run directory, making the directory when missing, taking its
// lock, replacing the socket of a dead server and emptying shm/; a socket that this process was passed
// (settings.h) takes the place of one of its own, and stays at the end. Returns the record, owned by the platform,
// or null with errno set after one line saying what failed (another server runs: "cannot lock").
name_attach_t* name_attach(void* dispatch, const char* name, unsigned flags);

// Closes every connection, removes the socket and what shm/ holds, and forgets the channel. No other
// thread may be receiving or sending pulses; a late answer finds its message gone (ESRCH).
void name_detach(name_attach_t* attached);

// A connection from this process to its own channel, over which pulses come; node and process are 0.
// Returns its id, or -1 with errno.
int32_t ConnectAttach(uint32_t node, int32_t process, int32_t chid, uint32_t index, int flags);

// Gives back a connection whose disconnect pulse was received, once all that its client held is gone; any
// thread, once a pulse. Until then no message of another connection of the same process is handed out,
// and the id and its place among the connections stay taken. Returns 0, or -1 with errno (EBADF).
int ConnectDetach(uint32_t scoid);

// Delivers one pulse over such a connection; any thread. Returns 0, or -1 with errno.
int MsgSendPulse(int32_t coid, int priority, int8_t code, int64_t value);

// Waits for a message or pulse. Fills the parts from the start of what came, up to their sum (the
// parts are zeroed first), and *info. Returns the receive id (above 0) of a message, 0 for a pulse
// (parts hold a _pulse), or -1 with errno. A SIGTERM or SIGINT ends the process here (process.h).
int32_t MsgReceivev(int32_t chid, std::span<const std::span<std::byte>> parts, _msg_info* info);

// Copies bytes of the sender's message, starting at offset, into the buffer or parts, as far as the
// message goes. Never blocks. Returns the bytes copied (0 behind the message's end), or -1 with errno.
int64_t MsgRead(int32_t rcvid, std::span<std::byte> buffer, uint64_t offset);
int64_t MsgReadv(int32_t rcvid, std::span<const std::span<std::byte>> parts, uint64_t offset);

// Answers a message and ends its receive id: a status with data (cut to the room that the sender
// gave), or one of the wire's error numbers. Never blocks: a client that does not read is
// disconnected. Returns 0, or -1 with errno (ESRCH: no such message; EAGAIN, EPIPE: the client did not
// take the answer, which has ended its receive id all the same).
int MsgReply(int32_t rcvid, int32_t status, std::span<const std::byte> data);
int MsgError(int32_t rcvid, int error);

// How long a message may take from its first byte to its last, before its connection is closed;
// 5000 ms unless a test says otherwise.
void set_gather_timeout_ms(int milliseconds);

} // namespace kalix::platform
