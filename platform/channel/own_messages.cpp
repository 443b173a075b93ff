#include "platform/channel/own_messages.h"

#include "base/environment.h"
#include "platform/channel/channel.h"
#include "platform/files/handed_objects.h"
#include "platform/files/sender.h"
#include "platform/files/shared_memory.h"
#include "platform/log/log.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <linux/sockios.h>
#include <optional>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kalix::platform {
namespace {

// The record behind the header; none when the message does not hold it.
template <typename record>
std::optional<record> record_of(std::span<const std::byte> message, size_t offset)
{
    record read;
    if (message.size() < offset + sizeof read)
        return std::nullopt;
    std::memcpy(&read, message.data() + offset, sizeof read);
    return read;
}

bool give(const connection& to, const whole_message& message, const answer& given)
{
    if (send_answer(to.socket.get(), given, message.reply_room))
        return true;
    end_untaken(to, errno);
    return false;
}

bool answer_who(const connection& from, const whole_message& message)
{
    const kalix_who_rep who{from.pid, from.uid, static_cast<uint32_t>(getpid()), 0};
    return give(from, message, {KALIX_REPLY_STATUS, 0, std::as_bytes(std::span{&who, 1})});
}

// Whether text is the prefix and, behind it, a number as the driver writes them: one name an object.
bool is_numbered(std::string_view text, std::string_view prefix)
{
    if (!text.starts_with(prefix))
        return false;
    const std::string_view number = text.substr(prefix.size());
    return number_in(number, 0, UINT32_MAX) && (number == "0" || !number.starts_with('0'));
}

// A name that the sender may make an object under, with the size that goes with it.
bool may_be_made(const connection& by, std::string_view name, uint32_t bytes)
{
    std::array<char, 32> prefix{};
    std::snprintf(prefix.data(), prefix.size(), "execbuf_%u_", by.pid);
    if (is_numbered(name, prefix.data()))
        return bytes == KALIX_COMMAND_BUFFER_BYTES;
    std::snprintf(prefix.data(), prefix.size(), "vm_svga:%u:", by.pid);
    return is_numbered(name, prefix.data()) && bytes >= 1 && bytes <= KALIX_OBJECT_BYTES_MAX;
}

// One without a file, or the file that a root server has made for this user.
unique_fd find_object(const object_owner& asking, std::string_view name)
{
    unique_fd found = find_handed_object(asking, name);
    if (found || errno != ENOENT || !is_numbered(name, "svga_dma_"))
        return found;
    std::array<char, sizeof(kalix_object_req::name) + 1> path{};
    std::snprintf(path.data(), path.size(), "/%.*s", static_cast<int>(name.size()), name.data());
    const sender_scope scope{asking.user};
    return unique_fd{shm_open_file(path.data())};
}

// A descriptor that is on its way counts for nobody until it is received: one at a time, so that a client which
// does not read its answers cannot pile them up in the host.
bool has_read_all(const connection& of)
{
    int unread = 0;
    return ioctl(of.socket.get(), SIOCOUTQ, &unread) == 0 && unread == 0;
}

// The object that is asked for; -1 with errno.
unique_fd object_for(const connection& from, const kalix_object_req& wanted)
{
    errno = EINVAL;
    const char* const end = std::find(std::begin(wanted.name), std::end(wanted.name), '\0');
    if (end == std::end(wanted.name) || wanted.make > 1)
        return unique_fd{};
    const std::string_view name{wanted.name, static_cast<size_t>(end - wanted.name)};
    const object_owner sender{from.uid, from.pid, from.scoid};
    if (wanted.make == 0)
        return find_object(sender, name);
    return may_be_made(from, name, wanted.bytes) ? make_handed_object(sender, name, wanted.bytes) : unique_fd{};
}

// Of the host's errors a client learns those that are about its object.
int32_t status_of(int error)
{
    return error == EINVAL || error == ENOENT || error == EACCES ? -error : -ENOMEM;
}

bool answer_object(const connection& from, const whole_message& message)
{
    const auto wanted = record_of<kalix_object_req>(*message.bytes, sizeof(kalix_platform_header));
    if (!wanted)
        return give(from, message, {KALIX_REPLY_STATUS, -EINVAL, {}});
    if (!has_read_all(from)) {
        slogf(log_code, log_warning, "kalix: process %u asks for objects and does not read its replies", from.pid);
        return give(from, message, {KALIX_REPLY_STATUS, -ENOMEM, {}});
    }
    const unique_fd object = object_for(from, *wanted);
    const int32_t status = object ? 0 : status_of(errno);
    return give(from, message, {KALIX_REPLY_STATUS, status, {}, object.get()});
}

} // namespace

bool is_own_message(std::span<const std::byte> message)
{
    const auto header = record_of<kalix_platform_header>(message, 0);
    return header && header->magic == KALIX_PLATFORM_MAGIC;
}

bool answer_own_message(const connection& from, const whole_message& message)
{
    switch (record_of<kalix_platform_header>(*message.bytes, 0)->message) {
    case KALIX_WHO:
        return answer_who(from, message);
    case KALIX_OBJECT:
        return answer_object(from, message);
    default:
        return give(from, message, {KALIX_REPLY_ERROR, error_no_function, {}});
    }
}

} // namespace kalix::platform
