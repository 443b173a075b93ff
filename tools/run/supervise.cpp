// One poll waits for the command, the server and signals together, each as a descriptor: no handler runs, and no
// signal slips in between a look and a wait.

#include "tools/run/supervise.h"

#include "tools/run/descendants.h"
#include "tools/run/last_picture.h"
#include "tools/run/private_server.h"
#include "tools/run/time_limit.h"

#include <array>
#include <cerrno>
#include <iostream>
#include <poll.h>
#include <sys/signalfd.h>
#include <system_error>

namespace kalix::run {

namespace {

// The signals that are meant for the command, taken as they come from a descriptor.
class signal_feed {
public:
    signal_feed()
    {
        sigset_t wanted;
        sigemptyset(&wanted);
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
            sigaddset(&wanted, number);
        // For the whole life of the process; children get the mask from before.
        sigprocmask(SIG_BLOCK, &wanted, &before_);
        feed_ = unique_fd{signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK)};
        if (!feed_)
            throw std::system_error{errno, std::generic_category(), "watch for signals"};
    }
    int fd() const { return feed_.get(); }
    const sigset_t* mask_before() const { return &before_; }

    struct arrival {
        int number = 0;             // 0: none has come
        bool from_terminal = false; // the whole foreground group has got it
    };
    arrival take() const
    {
        signalfd_siginfo info{};
        if (read(feed_.get(), &info, sizeof info) != sizeof info)
            return {};
        // The kernel itself sends what a key at the terminal asks for, to all of the foreground group.
        return {static_cast<int>(info.ssi_signo), info.ssi_code == SI_KERNEL};
    }

private:
    sigset_t before_{};
    unique_fd feed_;
};

// Before anything starts: a job of hours should not find out at its end.
void expect_writable(const std::filesystem::path& file, const char* what)
{
    const bool exists = std::filesystem::exists(file);
    const std::filesystem::path folder = file.has_parent_path() ? file.parent_path() : ".";
    int error = 0;
    if (std::filesystem::is_directory(file))
        error = EISDIR;
    else if (access((exists ? file : folder).c_str(), exists ? W_OK : W_OK | X_OK) != 0)
        error = errno;
    if (error != 0)
        throw std::system_error{error, std::generic_category(), "write the " + std::string{what} + " " + file.string()};
}

// What a command is watched for.
struct course {
    bool server_lived = true;
    bool timed_out = false;
};

// Waits for the command, passing signals on.
course watch(child& command, private_server& server, const signal_feed& signals, const descendants& others,
             time_limit limit)
{
    course seen;
    const std::array spared{server.process().pid()}; // of the limit
    const std::array owned{server.process().pid(), command.pid()};
    for (;;) {
        std::array<pollfd, 4> watched{{{command.watch_fd(), POLLIN, 0},
                                       {signals.fd(), POLLIN, 0},
                                       {seen.server_lived ? server.process().watch_fd() : -1, POLLIN, 0},
                                       {others.watch_fd(), POLLIN, 0}}};
        if (poll(watched.data(), watched.size(), limit.poll_ms()) < 0 && errno != EINTR)
            throw std::system_error{errno, std::generic_category(), "wait for the command"};
        if (const auto arrived = signals.take(); arrived.number != 0 && !arrived.from_terminal)
            command.signal(arrived.number);
        // The command may do without its server, or want to tell its own story, so it goes on.
        if (watched[2].revents & POLLIN) {
            seen.server_lived = false;
            std::cerr << "kalix-run: the server ended with " << description_of(server.process().wait())
                      << " while the command was running; its log:\n"
                      << server.log_tail() << std::flush;
        }
        seen.timed_out = limit.has_passed();
        if (watched[0].revents & POLLIN)
            return seen;
        others.reap(owned);
        limit.enforce(spared);
    }
}

bool write_picture(const private_server& server, bool server_lived, const std::string& file)
{
    try {
        if (!server_lived)
            throw failure{"cannot take a screenshot: the server has ended"};
        write_last_picture(server.run_directory(), file);
        return true;
    } catch (const std::system_error& error) {
        std::cerr << "kalix-run: cannot " << error.what() << '\n';
    } catch (const std::runtime_error& error) {
        std::cerr << "kalix-run: " << error.what() << '\n';
    }
    return false;
}

} // namespace

int supervise(const run_options& options)
{
    if (!options.log.empty())
        expect_writable(options.log, "log");
    const bool pictured = !options.screenshot.empty();
    if (pictured && options.screenshot != "-")
        expect_writable(options.screenshot, "screenshot");
    const signal_feed signals;
    const descendants others;
    sweep_dead_directories();
    private_server server{
        {options.server, options.log, options.run_directory, options.ready_within, signals.mask_before()}};
    if (!server.await_ready(signals.fd())) {
        constexpr int signal_base = 128;
        return signal_base + signals.take().number;
    }
    start_options start;
    start.command = options.command;
    start.environment = server.client_environment();
    start.signal_mask = signals.mask_before();
    // Made after the server, so it ends first, whatever happens.
    child command{start};
    const course seen = watch(command, server, signals, others, time_limit{options.time_limit});
    const int ended = command.wait(); // in any case: until then its number is its own
    const int status = seen.timed_out ? exit_timed_out : exit_status_of(ended);
    const bool written = !pictured || write_picture(server, seen.server_lived, options.screenshot);
    others.end(std::array{server.process().pid()}, signals.fd());
    return status == 0 && !(seen.server_lived && written) ? exit_failed : status;
}

} // namespace kalix::run
