// A server with a client that paints, presents, and looks at what the screen shows.
#pragma once

#include "tests/system/server.h"
#include "tools/screen/screen_reader.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <kalix/client.hpp>
#include <optional>
#include <random>

namespace kalix::test {

using tools::cursor_drawing;
using tools::screen_frame;

// A surface with pixels of its own.
struct painting {
    client::surface surface;
    std::vector<uint32_t> pixels;

    uint32_t at(uint32_t x, uint32_t y) const { return pixels[size_t{y} * surface.width() + x]; }
};

class screen_test : public testing::Test {
protected:
    screen_test() : server_{directory_}
    {
        ::setenv("KALIX_RUN_DIR", directory_.path().c_str(), 1);
        ::setenv("KALIX_PPS_DIR", (directory_.path() + "/pps").c_str(), 1);
        EXPECT_TRUE(server_.is_ready());
        connection_.emplace();
        context_.emplace(*connection_);
    }

    // Random in all channels unless the pixels are given.
    painting paint(uint32_t width, uint32_t height, uint32_t format = SVGA3D_X8R8G8B8,
                   std::vector<uint32_t> pixels = {})
    {
        for (uint32_t left = pixels.empty() ? width * height : 0; left > 0; --left)
            pixels.push_back(static_cast<uint32_t>(random_()));
        painting made{{*connection_, SVGA3D_SURFACE_HINT_TEXTURE, format, width, height}, std::move(pixels)};
        const client::dma_buffer staging{*connection_, width * height * 4};
        std::ranges::copy(std::as_bytes(std::span{made.pixels}), staging.bytes().begin());
        const svga3d_copy_box all{0, 0, 0, width, height, 1, 0, 0, 0};
        context_->commands().surface_dma({{staging.at(0), 0}, made.surface.image(), SVGA3D_WRITE_HOST_VRAM}, {&all, 1});
        connection_->wait(context_->commands().submit());
        return made;
    }
    void set_mode(uint32_t width, uint32_t height, uint32_t bits = 32)
    {
        EXPECT_EQ(kalix_set_mode(handle(), width, height, bits), 0);
    }
    void present(const client::surface& what)
    {
        const auto width = static_cast<int32_t>(what.width()), height = static_cast<int32_t>(what.height());
        EXPECT_EQ(kalix_present(handle(), what.sid(), 0, 0, width, height), 0);
    }
    // A picture on a screen of its size.
    painting show(uint32_t width, uint32_t height)
    {
        set_mode(width, height);
        painting picture = paint(width, height);
        present(picture.surface);
        return picture;
    }
    void settle() { connection_->wait(context_->commands().submit()); }
    // The screen once all that was asked for shows.
    screen_frame look(cursor_drawing cursor = cursor_drawing::without)
    {
        settle();
        screen_frame frame;
        EXPECT_TRUE(tools::screen_reader{directory_.path()}.read(frame, cursor));
        return frame;
    }
    kalix_connection* handle() const { return connection_->get(); }

    run_directory directory_;
    server server_;
    std::optional<client::connection> connection_;
    std::optional<client::context> context_;
    std::mt19937 random_{test_seed()};
    testing::ScopedTrace trace_{__FILE__, __LINE__, "KALIX_TEST_SEED=" + std::to_string(test_seed())};
};

} // namespace kalix::test
