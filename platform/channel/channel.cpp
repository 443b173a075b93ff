#include "platform/channel/channel.h"

#include "base/never_destroyed.h"
#include "platform/channel/listener.h"
#include "platform/channel/message_table.h"
#include "platform/channel/pulse_queue.h"
#include "platform/channel/receive_loop.h"
#include "platform/channel/returned_connections.h"
#include "platform/files/run_directory.h"
#include "platform/log/log.h"
#include "platform/readiness.h"
#include "platform/settings.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>

namespace kalix::platform {
namespace {

// The one channel of the process. Its receive loop belongs to the receiving thread, and is made and
// ended while no other thread uses the channel; the rest has locks of its own.
struct channel {
    std::atomic<int32_t> chid{0}; // 0: none is open
    std::atomic<int32_t> self_connections{0};
    name_attach_t attached{};
    message_table messages;
    pulse_queue pulses;
    returned_connections returned;
    std::unique_ptr<receive_loop> loop;
};

// Never destroyed: workers answer until the process is gone.
channel& the_channel()
{
    static never_destroyed<channel> only;
    return *only;
}

int fail_with(int error)
{
    errno = error;
    return -1;
}

// A name that stays a file of the run directory: no path, and nothing hidden.
bool is_plain_name(const char* name)
{
    return name != nullptr && *name != '\0' && *name != '.' && std::strlen(name) < 64 &&
           std::strchr(name, '/') == nullptr;
}

bool open_channel(channel& ours, const char* name)
{
    // The lock comes first: what follows removes the socket that it finds, which must be a dead server's.
    const settings& given = current_settings();
    const bool passed = given.listen_fd >= 0;
    const socket_place place = take_run_directory(name, passed ? socket_origin::passed : socket_origin::bound);
    if (!place.directory)
        return false;
    unique_fd listener = passed ? take_listener(given.listen_fd) : open_listener(place, given.socket_mode);
    if (!listener || !ours.pulses.open() || !ours.returned.open(connections_max))
        return false;
    ours.loop = std::make_unique<receive_loop>(std::move(listener), ours.messages, ours.pulses, ours.returned);
    if (!ours.loop->open())
        return false;
    ours.messages.set_poll(ours.loop->poll_descriptor());
    return true;
}

// Also undoes an opening that failed half-way, whose error errno still holds. The id goes first, so that calls fail
// from now on; the messages go before the loop, since they point to its connections; the directory's lock goes last,
// so that no new server meets our socket.
void close_channel(channel& ours)
{
    const int kept = errno;
    ours.chid = 0;
    ours.self_connections = 0;
    ours.messages.set_poll(-1);
    ours.loop.reset();
    ours.pulses.close();
    ours.returned.close();
    leave_run_directory();
    errno = kept;
}

// The same, with a line when there is no memory for it.
bool open_in_memory(channel& ours, const char* name)
{
    try {
        return open_channel(ours, name);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        slogf(log_code, log_error, "kalix: no memory for a channel");
        return false;
    }
}

// Fills the parts from the bytes, as far as both go; returns the bytes copied.
size_t fill(std::span<const std::span<std::byte>> parts, std::span<const std::byte> bytes)
{
    size_t copied = 0;
    for (const std::span<std::byte> part : parts) {
        const auto piece = bytes.subspan(copied, std::min(part.size(), bytes.size() - copied));
        std::ranges::copy(piece, part.begin());
        copied += piece.size();
    }
    return copied;
}

} // namespace

name_attach_t* name_attach(void* /*dispatch*/, const char* name, unsigned /*flags*/)
{
    static std::atomic<int32_t> last_chid{0}; // rises, so that the id of a channel that is closed reaches no other
    channel& ours = the_channel();
    if (ours.chid != 0 || !is_plain_name(name)) {
        errno = ours.chid != 0 ? EBUSY : EINVAL;
        slogf(log_code, log_error, "kalix: cannot attach a channel: %s (%d)", std::strerror(errno), errno);
        return nullptr;
    }
    if (!open_in_memory(ours, name)) {
        close_channel(ours);
        return nullptr;
    }
    ours.attached.chid = ++last_chid;
    ours.chid = ours.attached.chid;
    return &ours.attached;
}

void name_detach(name_attach_t* attached)
{
    channel& ours = the_channel();
    if (attached != nullptr && attached->chid == ours.chid)
        close_channel(ours);
}

int32_t ConnectAttach(uint32_t node, int32_t process, int32_t chid, uint32_t index, int /*flags*/)
{
    channel& ours = the_channel();
    if (node != 0 || process != 0 || chid == 0 || chid != ours.chid)
        return fail_with(ESRCH);
    if (index != 0 && index != side_channel)
        return fail_with(EINVAL);
    // A pulse needs nothing kept for its connection: the id alone, apart from those of clients, says that there is one.
    return static_cast<int32_t>(side_channel) + ++ours.self_connections;
}

int ConnectDetach(uint32_t scoid)
{
    return the_channel().returned.put(scoid);
}

int MsgSendPulse(int32_t coid, int /*priority*/, int8_t code, int64_t value)
{
    channel& ours = the_channel();
    const int32_t first = static_cast<int32_t>(side_channel) + 1;
    if (coid < first || coid - first >= ours.self_connections)
        return fail_with(EBADF);
    _pulse pulse{};
    pulse.code = code;
    pulse.value = value;
    pulse.scoid = coid;
    return ours.pulses.put(pulse);
}

int32_t MsgReceivev(int32_t chid, std::span<const std::span<std::byte>> parts, _msg_info* info)
{
    for (const std::span<std::byte> part : parts)
        std::ranges::fill(part, std::byte{0});
    channel& ours = the_channel();
    if (chid == 0 || chid != ours.chid)
        return fail_with(ESRCH);
    report_ready(); // here and not at the attaching: the start goes on behind that, and can still fail
    const std::optional<delivery> given = ours.loop->receive();
    if (!given)
        return -1;
    if (info != nullptr)
        *info = given->sender;
    if (given->rcvid == 0)
        fill(parts, std::as_bytes(std::span{&given->pulse, 1}));
    else
        fill(parts, *given->message);
    return given->rcvid;
}

int64_t MsgRead(int32_t rcvid, std::span<std::byte> buffer, uint64_t offset)
{
    return MsgReadv(rcvid, std::span{&buffer, 1}, offset);
}

int64_t MsgReadv(int32_t rcvid, std::span<const std::span<std::byte>> parts, uint64_t offset)
{
    // The bytes are held for the copy, though another thread should answer the message meanwhile.
    const std::shared_ptr<const message_bytes> message = the_channel().messages.find(rcvid);
    if (!message)
        return fail_with(ESRCH);
    if (offset >= message->size())
        return 0;
    return static_cast<int64_t>(fill(parts, std::span{*message}.subspan(offset)));
}

int MsgReply(int32_t rcvid, int32_t status, std::span<const std::byte> data)
{
    return the_channel().messages.give(rcvid, {KALIX_REPLY_STATUS, status, data});
}

int MsgError(int32_t rcvid, int error)
{
    return the_channel().messages.give(rcvid, {KALIX_REPLY_ERROR, error, {}});
}

void set_gather_timeout_ms(int milliseconds)
{
    set_gather_timeout(milliseconds);
}

} // namespace kalix::platform
