#include "tools/view/window.h"

#include "tools/screen/screen_reader.h"
#include "tools/view/cursor_control.h"
#include "tools/view/rate_meter.h"
#include "tools/view/server_watch.h"

#include <SDL.h>
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace kalix::view {
namespace {

constexpr uint32_t rest_ms = 4; // between two looks at a screen that does not move

[[noreturn]] void fail(const char* what)
{
    throw std::runtime_error{std::string{"cannot "} + what + ": " + SDL_GetError()};
}

struct sdl_session {
    static constexpr const char* without_display =
        "open a display (kalix-view --vnc and --web serve the screen without one)";
    sdl_session()
    {
        SDL_SetHint(SDL_HINT_APP_NAME, "kalix-view");
        if (SDL_Init(SDL_INIT_VIDEO) != 0)
            fail(without_display);
        // Without a display the library falls back on drivers that show their picture to nobody.
        const std::string_view driver = SDL_GetCurrentVideoDriver();
        if (!std::getenv("SDL_VIDEODRIVER") && (driver == "offscreen" || driver == "dummy")) {
            SDL_SetError("there is none");
            fail(without_display);
        }
    }
    ~sdl_session() { SDL_Quit(); }
    sdl_session(const sdl_session&) = delete;
    sdl_session& operator=(const sdl_session&) = delete;
};

struct sdl_deleter {
    void operator()(SDL_Window* window) const { SDL_DestroyWindow(window); }
    void operator()(SDL_Renderer* renderer) const { SDL_DestroyRenderer(renderer); }
    void operator()(SDL_Texture* texture) const { SDL_DestroyTexture(texture); }
};
template <typename type>
using owned = std::unique_ptr<type, sdl_deleter>;

class window {
public:
    explicit window(const view_options& options)
        : options_{options}, reader_{options.run_directory}, control_{options.run_directory, options.control},
          window_{SDL_CreateWindow("kalix", SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, 640, 480,
                                   SDL_WINDOW_RESIZABLE)}
    {
        if (!window_)
            fail("open a window");
        // In step with the display where it can be, which also bounds the rate; else on the processor.
        renderer_.reset(SDL_CreateRenderer(window_.get(), -1, SDL_RENDERER_PRESENTVSYNC));
        if (!renderer_)
            renderer_.reset(SDL_CreateRenderer(window_.get(), -1, SDL_RENDERER_SOFTWARE));
        if (!renderer_)
            fail("draw into the window");
    }

    // Polls, for the screen file tells nobody that it changed; a look costs one load.
    void run()
    {
        while (handle_events() && !has_shown_enough()) {
            watch_.expect_alive();
            if (reader_.changed() && reader_.read(frame_, tools::cursor_drawing::with))
                show();
            else
                SDL_Delay(rest_ms);
        }
    }

private:
    // What the window shows is gone, or was drawn for another size.
    static bool spoils_picture(uint8_t event)
    {
        return event == SDL_WINDOWEVENT_EXPOSED || event == SDL_WINDOWEVENT_SIZE_CHANGED;
    }

    bool has_shown_enough() const { return options_.frames != 0 && shown_ >= options_.frames; }

    bool handle_events()
    {
        SDL_Event event;
        while (SDL_PollEvent(&event)) {
            if (event.type == SDL_QUIT)
                return false;
            if (event.type == SDL_MOUSEMOTION) // in the screen's pixels: the renderer's size is the screen's
                control_.move(event.motion.x, event.motion.y);
            else if (event.type == SDL_WINDOWEVENT && texture_ && spoils_picture(event.window.event))
                draw();
        }
        return true;
    }

    // A texture and a window of the screen's size, when that has changed.
    void fit()
    {
        const int width = static_cast<int>(frame_.width);
        const int height = static_cast<int>(frame_.height);
        if (texture_ && width == width_ && height == height_)
            return;
        width_ = width;
        height_ = height;
        texture_.reset(
            SDL_CreateTexture(renderer_.get(), SDL_PIXELFORMAT_ARGB8888, SDL_TEXTUREACCESS_STREAMING, width, height));
        if (!texture_)
            fail("make a texture of the screen's size");
        // A window that its user has resized shows the picture scaled; a new mode gives it its own size again.
        SDL_SetWindowSize(window_.get(), width, height);
        SDL_RenderSetLogicalSize(renderer_.get(), width, height);
    }

    void draw()
    {
        SDL_RenderClear(renderer_.get());
        SDL_RenderCopy(renderer_.get(), texture_.get(), nullptr, nullptr);
        SDL_RenderPresent(renderer_.get());
    }

    void show()
    {
        if (frame_.width == 0 || frame_.height == 0)
            return;
        teller_.look(frame_);
        fit();
        SDL_UpdateTexture(texture_.get(), nullptr, frame_.pixels.data(), width_ * 4);
        draw();
        ++shown_;
        const std::optional<double> rate = meter_.count();
        if (!rate)
            return;
        const std::string title = "kalix " + std::to_string(width_) + "x" + std::to_string(height_) + ", " +
                                  std::to_string(static_cast<int>(*rate + 0.5)) + " frames a second";
        SDL_SetWindowTitle(window_.get(), title.c_str());
        if (options_.print_rate)
            std::cout << title << std::endl;
    }

    const view_options& options_;
    server_watch watch_{options_.run_directory};
    tools::screen_reader reader_;
    tools::screen_frame frame_;
    tools::off_teller teller_{"kalix-view"};
    cursor_control control_;
    rate_meter meter_;
    uint64_t shown_ = 0;
    int width_ = 0, height_ = 0;
    // In this order: what was made last ends first.
    owned<SDL_Window> window_;
    owned<SDL_Renderer> renderer_;
    owned<SDL_Texture> texture_;
};

} // namespace

int show_window(const view_options& options)
{
    const sdl_session session;
    window{options}.run();
    return 0;
}

} // namespace kalix::view
