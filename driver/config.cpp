#include "driver/config.h"

#include "driver/screen/display.h"
#include "platform/store/store.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <string_view>

namespace kalix {
namespace {

constexpr int config_failed = 22;
constexpr int no_memory = 12;
constexpr char object_path[] = "/pps/services/mesa";
constexpr size_t object_bytes = 256; // of the object that count, which those who write it are told
constexpr std::string_view separator = "::";

// Written before a worker runs, and read on the main thread alone.
int32_t pps_fd = -1;
char pps_key[40]; // empty until the object is open and the machine's name known

// A terminated copy, zero-filled; null without memory.
std::unique_ptr<char[]> copy_of(std::string_view text)
{
    std::unique_ptr<char[]> copy{new (std::nothrow) char[text.size() + 1]{}};
    if (copy)
        std::memcpy(copy.get(), text.data(), text.size());
    return copy;
}

// One line; one that is no attribute is passed over, and so is an attribute of another name: the object is shared with
// other programs. Without a value it ends the text, and lines behind it are not looked at.
int process_line(std::string_view line)
{
    const size_t middle = line.find(separator);
    if (middle == std::string_view::npos)
        return 0;
    const std::unique_ptr<char[]> name = copy_of(line.substr(0, middle));
    if (!name)
        return no_memory;
    const std::string_view text = line.substr(middle + separator.size());
    if (text.empty())
        return config_failed;
    const std::unique_ptr<char[]> value = copy_of(text);
    if (!value)
        return no_memory;
    process_keyvalue(name.get(), value.get());
    return 0;
}

} // namespace

int pps_init()
{
    pps_fd = platform::open(object_path, platform::open_read_write | platform::open_create);
    platform::machine_name machine;
    if (pps_fd == -1 || platform::uname(&machine) != 0)
        return config_failed;
    static_assert(sizeof machine.machine == 65);
    char key[80]; // cut to the record's 39 characters
    std::snprintf(key, sizeof key, "%.64s_zoom_factor", machine.machine);
    std::snprintf(pps_key, sizeof pps_key, "%.*s", static_cast<int>(sizeof pps_key - 1), key);
    return 0;
}

// Arms, and applies whatever had changed before that, until arming finds nothing unread: a change between a read and
// the next arming is not lost, and the loop ends since every reading clears the condition.
void pps_monitor(int32_t coid)
{
    platform::sched_param scheduling{};
    platform::SchedGet(0, 0, &scheduling);
    const platform::pulse_event event{platform::notify_pulse | platform::notify_update, coid, scheduling.priority,
                                      pulse_code_config, 0};
    for (;;) {
        const int held = platform::ionotify(pps_fd, platform::notify_poll_arm, platform::notify_input, &event);
        if (held == -1 || !(static_cast<uint32_t>(held) & platform::notify_input))
            return;
        pps_load_config();
    }
}

int pps_load_config()
{
    if (pps_fd == -1)
        return config_failed;
    char text[object_bytes + 1] = {};
    const int64_t count = platform::read(pps_fd, std::as_writable_bytes(std::span{text, object_bytes}));
    return count <= 0 ? 0 : process_pps(text);
}

int process_pps(const char* text)
{
    std::string_view rest{text};
    while (!rest.empty()) {
        const size_t end = rest.find('\n');
        if (const int status = process_line(rest.substr(0, end)); status != 0)
            return status;
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    return 0;
}

int process_keyvalue(const char* name, const char* value)
{
    if (!name || !value || !*pps_key || std::strcmp(name, pps_key) != 0)
        return config_failed;
    // What is no number reads as 0, and becomes the least zoom.
    adapter_set_zoom_level(static_cast<float>(std::strtod(value, nullptr)));
    return 0;
}

int pps_save_config()
{
    if (pps_fd == -1 || !*pps_key)
        return config_failed;
    char text[80];
    // The qualifier asks for an attribute that persists.
    std::snprintf(text, sizeof text, "[-n]%s::%f", pps_key, static_cast<double>(_globals.svga_device->zoom));
    if (platform::write(pps_fd, std::as_bytes(std::span{text, std::strlen(text)})) == -1)
        return config_failed;
    platform::fsync(pps_fd);
    return 0;
}

void reset_config()
{
    if (pps_fd != -1)
        platform::close_object(pps_fd);
    pps_fd = -1;
    pps_key[0] = 0;
}

} // namespace kalix
