// The order of making is that of the members: directory, store, log, pipe, process; the end goes the other way, so that
// the server is gone before its directory is.

#include "tools/run/private_server.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <sys/stat.h>
#include <system_error>

namespace kalix::run {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr int stop_ms = 5'000; // an orderly end takes none
constexpr std::streamoff log_tail_bytes = 65'536;

fs::path absolute_or(const fs::path& given, const fs::path& otherwise)
{
    return given.empty() ? otherwise : fs::absolute(given);
}

} // namespace

private_server::private_server(const server_options& options)
    : directory_{options.run_directory}, pps_{directory_.path() / "pps"},
      log_{absolute_or(options.log, directory_.path() / "server.log")}, program_{options.program},
      ready_within_{options.ready_within}
{
    fs::create_directory(pps_);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::system_error{errno, std::generic_category(), "make a pipe"};
    ready_ = unique_fd{ends[0]};
    const unique_fd told{ends[1]};
    start_options start;
    start.command = {program_.string()};
    start.environment = client_environment();
    start.environment.emplace_back("KALIX_FOREGROUND", "1");
    start.environment.emplace_back("KALIX_READY_FD", std::to_string(told.get()));
    start.environment.emplace_back("KALIX_LOG", log_.string());
    start.environment.emplace_back("KALIX_GROUP", "none"); // a private server shares with nobody
    // A service that kalix-run is part of hears of kalix-run alone.
    start.removed = {"NOTIFY_SOCKET", "WATCHDOG_USEC", "KALIX_SOCKET_MODE"};
    start.signal_mask = options.signal_mask;
    start.inherited_fd = told.get();
    start.background = true;
    // This process's writing end closes on return; the pipe ends when the server's does.
    process_.emplace(start);
}

private_server::~private_server()
{
    if (process_->running())
        process_->signal(SIGTERM);
    process_->wait_for(stop_ms); // one that stays is killed at the process's end
    process_.reset();
}

bool private_server::await_ready(int interrupt_fd)
{
    std::array<pollfd, 2> watched{{{ready_.get(), POLLIN, 0}, {interrupt_fd, POLLIN, 0}}};
    // Signals come through interrupt_fd, so an interrupted wait is rare, and starting it anew does no harm.
    int events = 0;
    do
        events = poll(watched.data(), watched.size(), static_cast<int>(ready_within_ / 1ms));
    while (events < 0 && errno == EINTR);
    if (events == 0)
        throw failure{"cannot start the server " + program_.string() + ": it is not ready after " +
                      std::to_string(ready_within_.count()) + " s; its log:\n" + log_tail()};
    if (watched[1].revents)
        return false;
    char byte = 0;
    if (read(ready_.get(), &byte, 1) == 1)
        return true;
    // Its end of the pipe is closed, so it has ended or never will be ready.
    process_->signal(SIGTERM);
    if (!process_->wait_for(stop_ms))
        process_->signal(SIGKILL);
    throw failure{"cannot start the server " + program_.string() + ": it ended with " +
                  description_of(process_->wait()) + " before it was ready; its log:\n" + log_tail()};
}

std::vector<std::pair<std::string, std::string>> private_server::client_environment() const
{
    return {{"KALIX_RUN_DIR", directory_.path().string()}, {"KALIX_PPS_DIR", pps_.string()}};
}

std::string private_server::log_tail() const
{
    std::ifstream file{log_, std::ios::binary};
    if (!file.seekg(0, std::ios::end))
        return "(no log)";
    const std::streamoff length = file.tellg();
    // The end says why it ended; a server that wrote for hours would fill the terminal.
    file.seekg(std::max<std::streamoff>(0, length - log_tail_bytes));
    std::string text{std::istreambuf_iterator<char>{file}, {}};
    return text.empty() ? "(empty)" : text;
}

} // namespace kalix::run
