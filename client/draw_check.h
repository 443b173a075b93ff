// KALIX_DEBUG=1: what a draw lacks, said once a context on standard error.
//
// Draws that show nothing are legal for the server, which cannot know what was meant. The library sees the same
// commands beside the program's own output. It looks at what was submitted and changes nothing; without the variable
// it does not look. Each context's command buffer has one, under the connection's lock; states that another buffer's
// commands set are not seen.
#pragma once

#include <cstddef>
#include <cstdint>
#include <kalix/svga3d_types.h>
#include <span>

namespace kalix::client_library {

class draw_check {
public:
    draw_check(); // reads KALIX_DEBUG

    // Follows the commands of one context, which the server has accepted.
    void look_at(uint32_t cid, std::span<const std::byte> commands);

private:
    enum class lack : uint32_t { target, viewport, texture, position, depth_target, depth_clear };

    void follow(uint32_t id, std::span<const std::byte> body);
    void set_target(std::span<const std::byte> body);
    void set_render_states(std::span<const std::byte> body);
    void set_texture_states(std::span<const std::byte> body);
    void clear(std::span<const std::byte> body);
    void draw(std::span<const std::byte> body);
    void ask_for_place();
    bool takes_missing_texture() const;
    void say(lack what, const char* text);

    bool asked_;
    uint32_t cid_ = 0;
    uint32_t said_ = 0;    // a bit for each lack
    uint32_t targets_ = 0; // a bit for each enum svga3d_render_target that is set
    bool has_viewport_ = false;
    bool tests_depth_ = false;
    bool cleared_depth_ = false;
    // Of stage 0, as a context begins with them.
    uint32_t texture_ = SVGA3D_INVALID_ID;
    uint32_t operation_ = SVGA3D_TC_MODULATE;
    uint32_t first_ = SVGA3D_TA_TEXTURE;
    uint32_t second_ = SVGA3D_TA_PREVIOUS;
};

} // namespace kalix::client_library
