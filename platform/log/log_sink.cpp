#include "platform/log/log_sink.h"

#include "platform/log/log.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

namespace kalix::platform {
namespace {

constexpr int finish_step_ms = 5; // between two tries, while the process ends

const char* system_log_socket = "/dev/log";

// The log's scale has no alert, so that its 2 is the system's 3; its two finest levels are both debugging.
int system_priority(int severity)
{
    constexpr std::array priorities{LOG_EMERG,  LOG_CRIT, LOG_ERR,   LOG_WARNING,
                                    LOG_NOTICE, LOG_INFO, LOG_DEBUG, LOG_DEBUG};
    return LOG_DAEMON | priorities[static_cast<size_t>(std::clamp(severity, 0, 7))];
}

// Writes "2026-01-31T12:00:00.123456Z 2 " and returns its length.
size_t write_stamp(std::span<char> line, int severity)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    const size_t seconds = std::strftime(line.data(), line.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    const int rest =
        std::snprintf(line.data() + seconds, line.size() - seconds, ".%06ldZ %d ", now.tv_nsec / 1000, severity);
    return seconds + static_cast<size_t>(rest);
}

// Writes "<27>Jan 31 12:00:00 kalix[4711]: ", as the system log's socket has it, and returns its length. The time is
// local, since that form names no zone and readers of the system log take it so.
size_t write_system_stamp(std::span<char> line, int severity)
{
    const time_t now = std::time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    const auto head = static_cast<size_t>(std::snprintf(line.data(), line.size(), "<%d>", system_priority(severity)));
    const size_t seconds = std::strftime(line.data() + head, line.size() - head, "%b %e %H:%M:%S", &local);
    const int rest = std::snprintf(line.data() + head + seconds, line.size() - head - seconds,
                                   " kalix[%d]: ", static_cast<int>(getpid()));
    return head + seconds + static_cast<size_t>(rest);
}

// Opens a file to append to. A named pipe without a reader is opened for both sides, so that its reader,
// when it comes, finds the lines.
unique_fd open_file(const char* path)
{
    constexpr int flags = O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    unique_fd file{::open(path, O_WRONLY | flags, 0640)};
    if (!file && errno == ENXIO)
        file.reset(::open(path, O_RDWR | flags, 0640));
    return file;
}

// A socket that is connected to the system log; none, with errno, while nobody listens there.
unique_fd connect_to_system_log()
{
    unique_fd socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", system_log_socket);
    if (socket && connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        socket.reset();
    return socket;
}

// A full disk counts too: what waits in the backlog goes when somebody has made room.
bool passes_with_time(int error)
{
    return error == EAGAIN || error == ENOBUFS || error == ENOSPC || error == EDQUOT;
}

bool can_be_written(int fd)
{
    pollfd asked{fd, POLLOUT, 0};
    return poll(&asked, 1, 0) == 1;
}

} // namespace

void set_system_log_socket(const char* path)
{
    system_log_socket = path;
}

void log_sink::open()
{
    const char* wanted = std::getenv("KALIX_LOG");
    catch_up();
    // What still waits was rendered for the old target, whose stamp and ending the new one may not have: it is lost.
    for (size_t at = 0; at < used_; ++lost_) {
        uint16_t length;
        std::memcpy(&length, &backlog_[at], sizeof length);
        at += sizeof length + length;
    }
    used_ = 0;
    own_.reset();
    fd_ = -1;
    may_block_ = false;
    const bool named = wanted != nullptr && *wanted != '\0';
    if (named ? std::strcmp(wanted, "stderr") == 0 : isatty(STDERR_FILENO) != 0)
        return use_standard_error();
    target_ = target::system_log;
    if (!named)
        return;
    own_ = open_file(wanted);
    if (own_) {
        target_ = target::stream;
        fd_ = own_.get();
        return;
    }
    std::array<char, 512> line;
    const int length = std::snprintf(line.data(), line.size(), "kalix: cannot open KALIX_LOG file %s: %s (%d)", wanted,
                                     std::strerror(errno), errno);
    if (isatty(STDERR_FILENO) != 0)
        use_standard_error();
    write(log_warning, {line.data(), std::min(static_cast<size_t>(length), line.size() - 1)});
}

// Pipes and terminals can be opened again by way of /proc, which gives a description with flags of our own. Sockets
// cannot, but are sent to without waiting; a regular file never makes a writer wait for a reader.
void log_sink::use_standard_error()
{
    struct stat facts {};
    fstat(STDERR_FILENO, &facts);
    target_ = S_ISSOCK(facts.st_mode) ? target::socket : target::stream;
    if (S_ISFIFO(facts.st_mode) || S_ISCHR(facts.st_mode))
        own_.reset(::open("/proc/self/fd/2", O_WRONLY | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    fd_ = own_ ? own_.get() : STDERR_FILENO;
    may_block_ = !own_ && target_ == target::stream && !S_ISREG(facts.st_mode);
}

void log_sink::write(int severity, std::string_view text, line_class what)
{
    line_room room;
    const std::string_view line = render(room, severity, text);
    catch_up();
    // Behind lines that were lost come only those that end the process, until the loss is told.
    if ((lost_ != 0 && what == line_class::ordinary) || !put(line, what))
        ++lost_;
}

std::string_view log_sink::render(line_room& room, int severity, std::string_view text) const
{
    const bool system = target_ == target::system_log;
    const size_t stamp = system ? write_system_stamp(room, severity) : write_stamp(room, severity);
    const size_t length = std::min(text.size(), room.size() - stamp - 1);
    std::copy_n(text.begin(), length, room.begin() + static_cast<std::ptrdiff_t>(stamp));
    if (system)
        return {room.data(), stamp + length};
    room[stamp + length] = '\n';
    return {room.data(), stamp + length + 1};
}

// One write a line: with O_APPEND whole lines stay whole, also beside other processes. A target that takes
// a line's beginning gets the rest of it before anything else; taken says how many bytes it has taken.
log_sink::outcome log_sink::deliver(std::string_view line, size_t& taken)
{
    if (target_ == target::system_log)
        return deliver_to_system(line);
    ssize_t count;
    do {
        if (may_block_ && !can_be_written(fd_))
            return outcome::later;
        count = target_ == target::socket ? send(fd_, line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL)
                                          : ::write(fd_, line.data(), line.size());
    } while (count < 0 && errno == EINTR);
    if (count < 0)
        return passes_with_time(errno) ? outcome::later : outcome::failed;
    taken = static_cast<size_t>(count);
    return taken == line.size() ? outcome::taken : outcome::later;
}

// The daemon may have been started anew since the last line.
log_sink::outcome log_sink::deliver_to_system(std::string_view line)
{
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (!own_)
            own_ = connect_to_system_log();
        if (!own_)
            return outcome::failed;
        if (send(own_.get(), line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
            return outcome::taken;
        if (passes_with_time(errno))
            return outcome::later;
        own_.reset();
    }
    return outcome::failed;
}

// Writes the line or keeps it; false when it is lost.
bool log_sink::put(std::string_view line, line_class what)
{
    size_t taken = 0;
    if (used_ == 0) { // else it would overtake those that wait
        const outcome result = deliver(line, taken);
        if (result != outcome::later)
            return result == outcome::taken;
    }
    return keep(line.substr(taken), what);
}

// Lengths are copied, as no record is aligned.
bool log_sink::keep(std::string_view line, line_class what)
{
    const size_t room = backlog_.size() - (what == line_class::ordinary ? log_backlog_kept_back : 0);
    const auto length = static_cast<uint16_t>(line.size());
    if (used_ + sizeof length + line.size() > room)
        return false;
    std::memcpy(&backlog_[used_], &length, sizeof length);
    std::memcpy(&backlog_[used_ + sizeof length], line.data(), line.size());
    used_ += sizeof length + line.size();
    return true;
}

// Writes what waits, the oldest first, until the target is full again; then closes the gap in front.
void log_sink::catch_up()
{
    size_t done = 0;
    while (done < used_) {
        uint16_t length;
        std::memcpy(&length, &backlog_[done], sizeof length);
        size_t taken = 0;
        const outcome result = deliver({&backlog_[done + sizeof length], length}, taken);
        if (result == outcome::later) {
            // What was taken makes room for the length of the rest, right before the rest.
            done += taken;
            length = static_cast<uint16_t>(length - taken);
            std::memcpy(&backlog_[done], &length, sizeof length);
            break;
        }
        lost_ += result == outcome::failed ? 1 : 0;
        done += sizeof length + length;
    }
    std::copy(backlog_.begin() + static_cast<std::ptrdiff_t>(done),
              backlog_.begin() + static_cast<std::ptrdiff_t>(used_), backlog_.begin());
    used_ -= done;
    if (used_ == 0 && lost_ != 0)
        tell_lost();
}

// Only once nothing waits, so that the line stands where the lost ones would have stood.
void log_sink::tell_lost()
{
    std::array<char, 96> text;
    const int length =
        std::snprintf(text.data(), text.size(), "kalix: %u lines lost, the log could not be written", lost_);
    line_room room;
    if (put(render(room, log_warning, {text.data(), static_cast<size_t>(length)}), line_class::ordinary))
        lost_ = 0;
}

void log_sink::finish(int milliseconds)
{
    catch_up();
    for (int waited = 0; waits() && waited < milliseconds; waited += finish_step_ms) {
        poll(nullptr, 0, finish_step_ms);
        catch_up();
    }
}

} // namespace kalix::platform
