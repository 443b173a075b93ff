// One poll waits for the command, the server and signals together, each as a descriptor: no handler runs, and no
// signal slips in between a look and a wait.

#include "tools/run/supervise.h"

#include "tools/run/private_server.h"

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

// Waits for the command, passing signals on; returns false when the server has ended before it did.
bool watch(child& command, private_server& server, const signal_feed& signals)
{
    bool server_lives = true;
    for (;;) {
        std::array<pollfd, 3> watched{{{command.watch_fd(), POLLIN, 0},
                                       {signals.fd(), POLLIN, 0},
                                       {server_lives ? server.process().watch_fd() : -1, POLLIN, 0}}};
        if (poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR)
            throw std::system_error{errno, std::generic_category(), "wait for the command"};
        if (const auto arrived = signals.take(); arrived.number != 0 && !arrived.from_terminal)
            command.signal(arrived.number);
        // The command may do without its server, or want to tell its own story, so it goes on.
        if (watched[2].revents & POLLIN) {
            server_lives = false;
            std::cerr << "kalix-run: the server ended with " << description_of(server.process().wait())
                      << " while the command was running; its log:\n"
                      << server.log_tail() << std::flush;
        }
        if (watched[0].revents & POLLIN)
            return server_lives;
    }
}

} // namespace

int supervise(const run_options& options)
{
    const signal_feed signals;
    private_server server{{options.server, options.log, options.run_directory, signals.mask_before()}};
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
    const bool server_lived = watch(command, server, signals);
    const int status = exit_status_of(command.wait());
    return status == 0 && !server_lived ? exit_failed : status;
}

} // namespace kalix::run
