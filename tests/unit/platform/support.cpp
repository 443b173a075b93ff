#include "tests/unit/platform/support.h"

#include "platform/log/logger.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <kalix/protocol.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace kalix::platform {
private_run_directory::private_run_directory() : path_{root_.path() / "run"}
{
    std::filesystem::permissions(root_.path(), std::filesystem::perms{0755}); // a client may be another user's
    setenv("KALIX_RUN_DIR", path_.c_str(), 1);
}

void private_run_directory::lengthen(size_t wanted)
{
    while (path_.size() < wanted)
        path_ += "/" + std::string(40, 'd');
    std::filesystem::create_directories(path_);
    setenv("KALIX_RUN_DIR", path_.c_str(), 1);
}

captured_log::captured_log()
{
    setenv("KALIX_LOG", path_.c_str(), 1);
    log_open();
}

captured_log::~captured_log()
{
    setenv("KALIX_LOG", "stderr", 1);
    log_open();
}

std::vector<std::string> captured_log::lines() const
{
    std::ifstream file{path_};
    std::vector<std::string> all;
    for (std::string line; std::getline(file, line);)
        all.push_back(line);
    return all;
}

size_t captured_log::count(const std::string& text) const
{
    const auto all = lines();
    return static_cast<size_t>(
        std::ranges::count_if(all, [&](const std::string& line) { return line.find(text) != std::string::npos; }));
}

bytes text_bytes(const std::string& text)
{
    const auto view = std::as_bytes(std::span{text});
    return {view.begin(), view.end()};
}

bytes header_only(uint32_t message_bytes, uint32_t reply_room)
{
    const kalix_request_frame header{message_bytes, reply_room};
    const auto view = std::as_bytes(std::span{&header, 1});
    return {view.begin(), view.end()};
}

bytes frame(const bytes& message, uint32_t reply_room)
{
    bytes whole = header_only(static_cast<uint32_t>(message.size()), reply_room);
    whole.insert(whole.end(), message.begin(), message.end());
    return whole;
}

raw_client::raw_client(const std::string& run_directory) : socket_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)}
{
    const unique_fd directory{::open(run_directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
    const std::string path = "/proc/self/fd/" + std::to_string(directory.get()) + "/svga_ch";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::ranges::copy(path, address.sun_path);
    if (connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        socket_.reset();
}

bool raw_client::send(std::span<const std::byte> data)
{
    while (!data.empty()) {
        const ssize_t sent = ::send(fd(), data.data(), data.size(), MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        data = data.subspan(static_cast<size_t>(sent));
    }
    return true;
}

size_t raw_client::send_some(std::span<const std::byte> data)
{
    return static_cast<size_t>(
        std::max<ssize_t>(::send(fd(), data.data(), data.size(), MSG_NOSIGNAL | MSG_DONTWAIT), 0));
}

std::optional<reply> raw_client::receive()
{
    kalix_reply_frame head{};
    if (recv(fd(), &head, sizeof head, MSG_WAITALL) != ssize_t{sizeof head})
        return std::nullopt;
    reply got{head.kind, head.value, bytes(head.data_bytes)};
    if (head.data_bytes != 0 && recv(fd(), got.data.data(), got.data.size(), MSG_WAITALL) != ssize_t{head.data_bytes})
        return std::nullopt;
    return got;
}

bool raw_client::ended()
{
    std::byte any{};
    return recv(fd(), &any, 1, 0) <= 0;
}

void raw_client::close()
{
    shutdown(fd(), SHUT_RDWR); // forked children may hold duplicates
    socket_.reset();
}

own_channel::own_channel() : attached{name_attach(nullptr, "svga_ch", 0)}
{
    set_gather_timeout_ms(60'000); // a busy machine is no fault
    if (attached != nullptr)
        self = ConnectAttach(0, 0, attached->chid, side_channel, 0);
}

own_channel::~own_channel()
{
    name_detach(attached);
}

received own_channel::next()
{
    received got;
    got.head.assign(24, std::byte{0xAA});
    const std::span<std::byte> part{got.head};
    got.rcvid = MsgReceivev(attached->chid, std::span{&part, 1}, &got.info);
    std::memcpy(&got.pulse, got.head.data(), sizeof got.pulse);
    if (detaches && got.rcvid == 0 && got.pulse.code == pulse_code_disconnect) {
        EXPECT_EQ(ConnectDetach(static_cast<uint32_t>(got.pulse.scoid)), 0);
    }
    return got;
}

std::vector<received> own_channel::settle()
{
    constexpr int8_t fence = 99;
    std::vector<received> all;
    // Again and again: what was read before a fence may have had the loop poll again.
    for (int idle = 0; idle < 3; ++idle) {
        EXPECT_EQ(MsgSendPulse(self, 0, fence, 0), 0);
        for (received got = next(); got.rcvid != 0 || got.pulse.code != fence; got = next()) {
            all.push_back(got);
            idle = -1;
        }
    }
    return all;
}

bytes own_channel::read(const received& message)
{
    bytes whole(message.info.srcmsglen + 1);
    const int64_t count = MsgRead(message.rcvid, whole, 0);
    EXPECT_EQ(count, int64_t{message.info.srcmsglen});
    whole.resize(message.info.srcmsglen);
    return whole;
}

} // namespace kalix::platform
