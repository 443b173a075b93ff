// A port that browsers open: it gives them the viewer's page, and lets the page's own connection in as a viewer.
//
// One port for both, so that one is forwarded and one is opened. One thread; no visitor can hold it up for longer than a second.
#pragma once

#include "tools/view/viewer_listener.h"
#include "tools/view/web_pages.h"

#include <chrono>
#include <vector>

namespace kalix::view {

class web_door : public viewer_door {
public:
    web_door(viewer_listener listener, web_pages pages);

    std::string name() const override { return listener_.name(); }
    // Gives out pages on the way.
    unique_fd accept() override;
    void wait(int milliseconds) const override;

private:
    struct visitor {
        unique_fd socket;
        std::chrono::steady_clock::time_point until; // its connection is closed then
        std::string answer{};                        // what is still to be sent; empty: its request is awaited
        bool began = false;                          // a part of its request is there
    };
    enum class step { stays, leaves, views };
    step listen_to(visitor& one) const;
    static step send_to(visitor& one);

    viewer_listener listener_;
    web_pages pages_;
    std::vector<visitor> visitors_;
};

} // namespace kalix::view
