// The viewer's pointer as the server's cursor.
#pragma once

#include <cstdint>
#include <kalix/client.hpp>
#include <optional>
#include <string>

namespace kalix::view {

// Connects at the first move that it is asked for. A server that has gone ends the control, not the viewer.
class cursor_control {
public:
    cursor_control(std::string run_directory, bool enabled)
        : run_directory_{std::move(run_directory)}, enabled_{enabled}
    {
    }

    // Screen pixels; those that lie outside are cut.
    void move(int32_t x, int32_t y)
    {
        if (!enabled_)
            return;
        if (!server_)
            server_.emplace(run_directory_.c_str());
        enabled_ = kalix_move_cursor(server_->get(), 1, static_cast<uint32_t>(x < 0 ? 0 : x),
                                     static_cast<uint32_t>(y < 0 ? 0 : y)) == 0;
    }

private:
    std::string run_directory_;
    bool enabled_;
    std::optional<client::connection> server_;
};

} // namespace kalix::view
