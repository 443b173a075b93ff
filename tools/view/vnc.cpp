#include "tools/view/vnc.h"

#include "tools/screen/screen_reader.h"
#include "tools/view/cursor_control.h"
#include "tools/view/rate_meter.h"
#include "tools/view/server_watch.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <iostream>
#include <map>
#include <rfb/rfb.h>
#include <stdexcept>

namespace kalix::view {
namespace {

constexpr long busy_us = 8'000;    // between two looks while somebody watches
constexpr int idle_ms = 50;        // while nobody does
constexpr int patience_ms = 1'000; // for the rest of a message
constexpr size_t viewers_most = 32;
constexpr auto greeting_time = std::chrono::seconds{10}; // people type the password before, not meanwhile

std::atomic<bool> stopped;

void quiet(const char*, ...) {}

// Rows that differ between two pictures of one size; first > last when none does.
struct rows {
    int first, last;
};

rows difference(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b, size_t width, size_t height)
{
    const auto same = [&](size_t row) {
        return std::equal(a.begin() + static_cast<ptrdiff_t>(row * width),
                          a.begin() + static_cast<ptrdiff_t>((row + 1) * width),
                          b.begin() + static_cast<ptrdiff_t>(row * width));
    };
    size_t first = 0;
    while (first < height && same(first))
        ++first;
    size_t last = height;
    while (last > first && same(last - 1))
        --last;
    return {static_cast<int>(first), static_cast<int>(last)};
}

// The server of one screen to remote viewers. The library keeps pointers to it.
class vnc_server {
public:
    // An empty password: none is asked for.
    vnc_server(const view_options& options, std::string password)
        : options_{options}, reader_{options.run_directory}, password_{std::move(password)}, control_{
                                                                                                 options.run_directory,
                                                                                                 options.control}
    {
        reader_.read(frame_, tools::cursor_drawing::with);
        shown_ = frame_;
        pixels_ = shown_.pixels;
        screen_ = rfbGetScreen(nullptr, nullptr, width(), height(), 8, 3, 4);
        if (!screen_)
            throw std::runtime_error{"cannot start: out of memory"};
        screen_->desktopName = "kalix";
        screen_->alwaysShared = TRUE;
        screen_->httpDir = nullptr; // the library's web server stays off: web_door is smaller and on one port
        screen_->httpPort = 0;
        screen_->autoPort = FALSE;
        screen_->port = screen_->ipv6port = -1;
        // A shape of its own would be drawn by viewers at once, but not where the server has it.
        screen_->cursor = nullptr; // it is in the picture
        screen_->screenData = this;
        screen_->maxClientWait = patience_ms; // in the middle of a message: the library waits on the only thread
        screen_->newClientHook = [](rfbClientPtr client) { return this_of(client).welcome(client); };
        screen_->displayHook = [](rfbClientPtr client) { keep_exact(client); };
        if (!password_.empty()) {
            screen_->authPasswdData = passwords_.data();
            screen_->authPasswdFirstViewOnly = 1; // what a viewer may do is not the password's to say
            screen_->passwordCheck = rfbCheckPasswordByList;
        }
        screen_->ptrAddEvent = [](int, int x, int y, rfbClientPtr client) { this_of(client).control_.move(x, y); };
        describe_pixels();
        rfbInitServer(screen_);
    }
    ~vnc_server()
    {
        rfbShutdownServer(screen_, TRUE);
        rfbScreenCleanup(screen_);
    }
    vnc_server(const vnc_server&) = delete;
    vnc_server& operator=(const vnc_server&) = delete;

    void run(viewer_door& door)
    {
        while (!stopped && !has_sent_enough()) {
            watch_.expect_alive();
            turn_silent_ones_away();
            while (unique_fd client = door.accept())
                rfbNewClient(screen_, client.release()); // the library's from here on
            if (screen_->clientHead)
                update();
            // The library waits for its sockets so long; without viewers there are none.
            rfbProcessEvents(screen_, screen_->clientHead ? busy_us : 0);
            if (!screen_->clientHead)
                door.wait(idle_ms);
        }
    }

private:
    static vnc_server& this_of(rfbClientPtr client) { return *static_cast<vnc_server*>(client->screen->screenData); }

    int width() const { return static_cast<int>(std::max(shown_.width, 1u)); }
    int height() const { return static_cast<int>(std::max(shown_.height, 1u)); }
    bool has_sent_enough() const { return options_.frames != 0 && sent_ >= options_.frames; }
    rfbNewClientAction welcome(rfbClientPtr client)
    {
        client->clientGoneHook = [](rfbClientPtr gone) { this_of(gone).arrivals_.erase(gone); };
        arrivals_.emplace(client, std::chrono::steady_clock::now());
        client->viewOnly = options_.control ? FALSE : TRUE;
        return arrivals_.size() > viewers_most ? RFB_CLIENT_REFUSE : RFB_CLIENT_ACCEPT;
    }

    // Places are few, and who has not said who he is in time gives his back.
    void turn_silent_ones_away()
    {
        const auto now = std::chrono::steady_clock::now();
        for (const auto& [client, since] : arrivals_)
            if (client->state != rfbClientRec::RFB_NORMAL && now - since > greeting_time)
                rfbCloseClient(client); // the library lets go of it when it next looks at its viewers
    }

    // Called before each update. Many viewers ask for pictures that lost a little and travel faster; what a viewer shows
    // is the screen, to the last bit.
    static void keep_exact(rfbClientPtr client)
    {
        client->tightQualityLevel = -1;
        client->turboQualityLevel = -1;
    }

    // Words of 0xAARRGGBB, whose address the library keeps.
    void describe_pixels()
    {
        // One more, so that there is an address even for a screen without pixels.
        pixels_.resize(size_t{shown_.width} * shown_.height + 1);
        screen_->frameBuffer = reinterpret_cast<char*>(pixels_.data());
        screen_->serverFormat.redShift = 16;
        screen_->serverFormat.greenShift = 8;
        screen_->serverFormat.blueShift = 0;
    }

    void update()
    {
        if (!reader_.changed() || !reader_.read(frame_, tools::cursor_drawing::with))
            return;
        teller_.look(frame_);
        const bool resized = frame_.width != shown_.width || frame_.height != shown_.height;
        const rows changed = resized ? rows{0, static_cast<int>(frame_.height)}
                                     : difference(frame_.pixels, shown_.pixels, frame_.width, frame_.height);
        // The old frame's memory is read into next time.
        std::swap(frame_, shown_);
        if (resized)
            resize();
        else if (changed.first < changed.last)
            std::copy(shown_.pixels.begin(), shown_.pixels.end(), pixels_.begin());
        if (changed.first >= changed.last)
            return;
        rfbMarkRectAsModified(screen_, 0, changed.first, width(), changed.last);
        ++sent_;
        const std::optional<double> rate = meter_.count();
        if (rate && options_.print_rate)
            std::cout << "kalix " << width() << "x" << height() << ", " << static_cast<int>(*rate + 0.5)
                      << " frames a second" << std::endl;
    }

    void resize()
    {
        pixels_ = shown_.pixels;
        pixels_.resize(pixels_.size() + 1);
        rfbNewFramebuffer(screen_, reinterpret_cast<char*>(pixels_.data()), width(), height(), 8, 3, 4);
        describe_pixels();
    }

    const view_options& options_;
    server_watch watch_{options_.run_directory};
    tools::screen_reader reader_;
    tools::screen_frame frame_, shown_;
    tools::off_teller teller_{"kalix-view"};
    std::vector<uint32_t> pixels_; // what viewers are sent from
    std::string password_;
    std::array<char*, 2> passwords_{password_.data(), nullptr}; // the library's list
    cursor_control control_;
    rate_meter meter_;
    uint64_t sent_ = 0;
    std::map<rfbClientPtr, std::chrono::steady_clock::time_point> arrivals_; // of every viewer
    rfbScreenInfoPtr screen_ = nullptr;
};

} // namespace

int serve_vnc(const view_options& options, viewer_door& door, const std::string& password,
              const std::string& announcement)
{
    rfbLog = quiet;
    rfbErr = quiet; // viewers come and go; what keeps the server from serving is an exception
    for (const int signal : {SIGINT, SIGTERM})
        std::signal(signal, [](int) { stopped = true; });
    std::signal(SIGPIPE, SIG_IGN);
    vnc_server server{options, password};
    std::cout << announcement << std::flush;
    server.run(door);
    return 0;
}

} // namespace kalix::view
