#include "tools/ctl/terminal.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kalix::ctl {
namespace {

volatile std::sig_atomic_t asked_to_end;

constexpr std::array end_signals = {SIGINT, SIGTERM, SIGHUP};

// Sleeping calls are to come back, so that the loop sees what was asked.
void handle(int signal, void (*handler)(int))
{
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(signal, &action, nullptr);
}

void say(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

winsize room()
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
        return {24, 80, 0, 0};
    return size;
}

} // namespace

full_screen::full_screen() : has_keys_{tcgetattr(STDIN_FILENO, &before_) == 0}
{
    asked_to_end = 0;
    for (const int signal : end_signals)
        handle(signal, [](int) { asked_to_end = 1; });
    handle(SIGWINCH, [](int) {});
    if (has_keys_) {
        termios raw = before_;
        raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO | ISIG));
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    say("\033[?1049h\033[?25l"); // the other screen, without a cursor
}

full_screen::~full_screen()
{
    say("\033[?25h\033[?1049l");
    if (has_keys_)
        tcsetattr(STDIN_FILENO, TCSANOW, &before_);
    for (const int signal : end_signals)
        handle(signal, SIG_DFL);
    handle(SIGWINCH, SIG_DFL);
}

// Each line is cleared behind its end, not the screen before all of them, which would flicker.
void full_screen::draw(std::string_view text) const
{
    const winsize size = room();
    std::string out = "\033[H";
    for (uint16_t row = 0; row < size.ws_row && !text.empty(); ++row) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
        if (row != 0)
            out += "\r\n";
        out.append(line.substr(0, size.ws_col)).append("\033[K");
    }
    say(out + "\033[J");
}

bool full_screen::ends_within(std::chrono::milliseconds wait) const
{
    pollfd keys{has_keys_ ? STDIN_FILENO : -1, POLLIN, 0};
    if (poll(&keys, 1, static_cast<int>(wait.count())) > 0) {
        std::array<char, 64> typed;
        const ssize_t count = ::read(STDIN_FILENO, typed.data(), typed.size());
        const std::string_view text{typed.data(), static_cast<size_t>(count > 0 ? count : 0)};
        if (count <= 0 || text.find_first_of(std::string_view{"qQ\003", 3}) != std::string_view::npos)
            return true; // also when there is nobody to type any more
    }
    return asked_to_end != 0;
}

} // namespace kalix::ctl
