#include "tests/unit/client/fake_server.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace kalix::test {

words received::as_words() const
{
    words result(message.size() / sizeof(uint32_t));
    std::memcpy(result.data(), message.data(), result.size() * sizeof(uint32_t));
    return result;
}

reaction reply(int32_t status, const words& data, uint32_t kind)
{
    const kalix_reply_frame frame{kind, status, static_cast<uint32_t>(data.size() * sizeof(uint32_t))};
    reaction result;
    result.bytes.resize(sizeof frame + frame.data_bytes);
    std::memcpy(result.bytes.data(), &frame, sizeof frame);
    if (!data.empty())
        std::memcpy(result.bytes.data() + sizeof frame, data.data(), frame.data_bytes);
    return result;
}

reaction echo(const received& request)
{
    words data = request.as_words();
    data.erase(data.begin(), data.begin() + 3);
    data.resize(request.room / sizeof(uint32_t));
    return reply(0, data);
}

fake_server::fake_server(script answers, const std::string& below)
    : path_{root_.path() / below}, script_{std::move(answers)}
{
    create_directories(path_ / "shm");
    const unique_fd directory{open(path_.c_str(), O_PATH | O_DIRECTORY)};
    listener_ = unique_fd{socket(AF_UNIX, SOCK_STREAM, 0)};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/svga_ch", directory.get());
    if (bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener_.get(), 16) != 0)
        std::abort();
    acceptor_ = std::thread{[this] { accept_all(); }};
}

fake_server::~fake_server()
{
    shutdown(listener_.get(), SHUT_RDWR);
    acceptor_.join();
    const std::lock_guard guard{lock_};
    for (const unique_fd& socket : sockets_)
        shutdown(socket.get(), SHUT_RDWR);
}

std::vector<received> fake_server::requests()
{
    const std::lock_guard guard{lock_};
    return requests_;
}

void fake_server::accept_all()
{
    for (;;) {
        const int socket = accept(listener_.get(), nullptr, nullptr);
        if (socket < 0)
            return;
        const std::lock_guard guard{lock_};
        sockets_.emplace_back(socket);
        threads_.emplace_back([this, socket] { serve(socket); });
    }
}

namespace {

void send_with(int socket, reaction& answer)
{
    iovec part{answer.bytes.data(), answer.bytes.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> beside{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (answer.descriptor >= 0) {
        message.msg_control = beside.data();
        message.msg_controllen = beside.size();
        cmsghdr* const rights = CMSG_FIRSTHDR(&message);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(rights), &answer.descriptor, sizeof(int));
    }
    sendmsg(socket, &message, MSG_NOSIGNAL);
}

} // namespace

void fake_server::serve(int socket)
{
    kalix_request_frame frame{};
    while (recv(socket, &frame, sizeof frame, MSG_WAITALL) == sizeof frame) {
        received request{frame.reply_room, std::vector<std::byte>(frame.message_bytes)};
        if (recv(socket, request.message.data(), frame.message_bytes, MSG_WAITALL) != ssize_t{frame.message_bytes})
            return;
        reaction answer = reply(0);
        if (request.message.size() == sizeof(kalix_io_connect) && request.word(0) == KALIX_IO_CONNECT) {
            ++connects_;
        } else {
            const std::lock_guard guard{lock_};
            requests_.push_back(request);
            answer = script_(request);
        }
        send_with(socket, answer);
        if (answer.hang_up)
            shutdown(socket, SHUT_RDWR);
    }
}

} // namespace kalix::test
