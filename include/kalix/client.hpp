// libkalix for C++: owning types over the C calls of client.h, in namespace kalix::client.
//
// Header-only. Each type is move-only, owns one thing of the server's and gives it back at its end; a
// moved-from object owns nothing. The connection outlives what was made through it. Threads: as
// client.h says of the C calls, and one thread at a time for each object here.
//
// Errors are thrown, as std::system_error with a positive errno of the generic category and the name
// of what failed. Constructors that cannot half succeed and code that reads as a list of steps are what
// these types are for; whoever wants to look at each result calls the C functions, which these types
// mix with freely. Destructors report nothing: a lost server has released everything already.
#pragma once

#include <kalix/client.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <system_error>
#include <utility>
#include <vector>

namespace kalix::client {

// Throws when result, of a C call, is an error.
inline void check(int result, const char* what)
{
    if (result < 0)
        throw std::system_error{-result, std::generic_category(), what};
}

// A span's length as the C calls take it; one that no command could hold throws.
template <typename type>
uint32_t count_of(std::span<type> elements)
{
    if (elements.size() > UINT32_MAX)
        throw std::system_error{ENOSPC, std::generic_category(), "count elements"};
    return static_cast<uint32_t>(elements.size());
}

class connection {
public:
    // The server of KALIX_RUN_DIR or of the host's custom.
    connection() { check(kalix_open(nullptr, &handle_), "connect to the server"); }
    explicit connection(const char* run_directory)
    {
        check(kalix_open(run_directory, &handle_), "connect to the server");
    }
    connection(connection&& other) noexcept : handle_{std::exchange(other.handle_, nullptr)} {}
    connection& operator=(connection&& other) noexcept
    {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~connection() { kalix_close(handle_); }

    kalix_connection* get() const { return handle_; }

    uint64_t parameter(kalix_param which) const
    {
        uint64_t value = 0;
        check(kalix_getparam(handle_, which, &value), "read a device parameter");
        return value;
    }
    void wait(uint32_t fence) const { check(kalix_fence_wait(handle_, fence), "wait for a fence"); }
    bool passed(uint32_t fence) const
    {
        int signalled = 0;
        check(kalix_fence_signalled(handle_, fence, &signalled, nullptr), "test a fence");
        return signalled != 0;
    }

private:
    kalix_connection* handle_ = nullptr;
};

// Memory that this process and the device share. Commands name it by at(), and the device reads or writes it while they
// run: it is written again, read, or given back only behind their fence.
class dma_buffer {
public:
    dma_buffer(const connection& server, uint32_t bytes) : server_{server.get()}
    {
        check(kalix_dmabuf_alloc(server_, bytes, &buffer_), "allocate a DMA buffer");
    }
    dma_buffer(dma_buffer&& other) noexcept
        : server_{std::exchange(other.server_, nullptr)}, buffer_{std::exchange(other.buffer_, {})}
    {
    }
    dma_buffer& operator=(dma_buffer&& other) noexcept
    {
        std::swap(server_, other.server_);
        std::swap(buffer_, other.buffer_);
        return *this;
    }
    ~dma_buffer()
    {
        if (server_)
            kalix_dmabuf_unref(server_, &buffer_);
    }

    std::span<std::byte> bytes() const { return {static_cast<std::byte*>(buffer_.data), buffer_.size}; }
    // Where byte offset of the buffer is, as commands name it.
    svga_guest_pointer at(uint32_t offset) const { return {buffer_.gmr_id, buffer_.gmr_offset + offset}; }

private:
    kalix_connection* server_ = nullptr;
    kalix_dma_buffer buffer_{};
};

// A reference on a surface of one image and one level. It is this connection's; others may hold the surface longer.
class surface {
public:
    surface(const connection& server, uint32_t flags, uint32_t format, uint32_t width, uint32_t height)
        : server_{server.get()}, format_{format}, width_{width}, height_{height}
    {
        check(kalix_surface_define_2d(server_, flags, format, width, height, &sid_), "define a surface");
    }
    surface(surface&& other) noexcept
        : server_{std::exchange(other.server_, nullptr)}, sid_{other.sid_}, format_{other.format_},
          width_{other.width_}, height_{other.height_}
    {
    }
    surface& operator=(surface&& other) noexcept
    {
        std::swap(server_, other.server_);
        std::swap(sid_, other.sid_);
        std::swap(format_, other.format_);
        std::swap(width_, other.width_);
        std::swap(height_, other.height_);
        return *this;
    }
    ~surface()
    {
        if (server_)
            kalix_surface_destroy(server_, sid_);
    }

    uint32_t sid() const { return sid_; }
    uint32_t width() const { return width_; }
    uint32_t height() const { return height_; }
    svga3d_image image() const { return {sid_, 0, 0}; }

    // The whole picture, its rows packed, in the surface's own format.
    std::vector<std::byte> read() const
    {
        const size_t stride = size_t{width_} * kalix_readback_pixel_bytes(format_);
        std::vector<std::byte> pixels(stride * height_);
        const kalix_readback_area area{sid_, width_, height_, format_, 0, 0, width_, height_};
        check(kalix_readback(server_, &area, pixels.data(), stride), "read a surface back");
        return pixels;
    }

private:
    kalix_connection* server_ = nullptr;
    uint32_t sid_ = SVGA3D_INVALID_ID;
    uint32_t format_ = 0, width_ = 0, height_ = 0;
};

// The command buffer of a context, which owns it: appends commands and submits them. The calls of
// client.h without a method here take list().
class command_buffer {
public:
    command_buffer(kalix_connection* server, uint32_t cid) : server_{server}, cid_{cid}
    {
        check(kalix_command_buffer(server_, cid_, &list_), "make a command buffer");
    }
    command_buffer(const command_buffer&) = delete;
    command_buffer& operator=(const command_buffer&) = delete;
    command_buffer(command_buffer&&) noexcept = default;
    command_buffer& operator=(command_buffer&&) noexcept = default;

    kalix_commands* list() const { return list_; }

    // Hands over what has been appended and returns the fence behind it, without waiting for it. The list is empty
    // afterwards; what its commands point at is still in use until the fence has passed.
    uint32_t submit()
    {
        uint32_t fence = 0;
        check(kalix_submit(server_, cid_, &fence), "submit commands");
        return fence;
    }

    void set_transform(svga3d_transform which, std::span<const float, 16> matrix)
    {
        append(kalix_cmd_set_transform(list_, cid_, which, matrix.data()));
    }
    void set_z_range(float min, float max) { append(kalix_cmd_set_z_range(list_, cid_, min, max)); }
    void set_viewport(const svga3d_rect& rect) { append(kalix_cmd_set_viewport(list_, cid_, &rect)); }
    void set_scissor_rect(const svga3d_rect& rect) { append(kalix_cmd_set_scissor_rect(list_, cid_, &rect)); }
    void set_render_target(svga3d_render_target which, const svga3d_image& target)
    {
        append(kalix_cmd_set_render_target(list_, cid_, which, &target));
    }
    void set_render_states(std::span<const svga3d_render_state_value> states)
    {
        append(kalix_cmd_set_render_states(list_, cid_, states.data(), count_of(states)));
    }
    void set_texture_states(std::span<const svga3d_texture_state_value> states)
    {
        append(kalix_cmd_set_texture_states(list_, cid_, states.data(), count_of(states)));
    }
    void clear(uint32_t flags, uint32_t color, float depth, uint32_t stencil, const svga3d_rect& rect)
    {
        append(kalix_cmd_clear(list_, cid_, flags, color, depth, stencil, &rect, 1));
    }
    void surface_dma(const svga3d_surface_dma& transfer, std::span<const svga3d_copy_box> boxes)
    {
        append(kalix_cmd_surface_dma(list_, &transfer, boxes.data(), count_of(boxes), nullptr));
    }
    void surface_copy(const svga3d_image& source, const svga3d_image& destination,
                      std::span<const svga3d_copy_box> boxes)
    {
        append(kalix_cmd_surface_copy(list_, &source, &destination, boxes.data(), count_of(boxes)));
    }
    void present(uint32_t sid, std::span<const svga3d_copy_rect> rects)
    {
        append(kalix_cmd_present(list_, sid, rects.data(), count_of(rects)));
    }
    void draw_primitives(std::span<const svga3d_vertex_declaration> declarations,
                         std::span<const svga3d_primitive_range> ranges)
    {
        append(kalix_cmd_draw_primitives(list_, cid_, declarations.data(), count_of(declarations), ranges.data(),
                                         count_of(ranges), nullptr));
    }

private:
    // -ENOSPC: the list is full, nothing was appended, and a submit makes room.
    static void append(int result) { check(result, "append a command"); }

    kalix_connection* server_;
    uint32_t cid_;
    kalix_commands* list_ = nullptr;
};

// A rendering context with its command buffer.
class context {
public:
    explicit context(const connection& server) : server_{server.get()}
    {
        check(kalix_context_define(server_, &cid_), "define a context");
        // Without a destructor yet, since no object is made: given back by hand.
        try {
            commands_.emplace(server_, cid_);
        } catch (...) {
            kalix_context_destroy(server_, cid_);
            throw;
        }
    }
    context(context&& other) noexcept
        : server_{std::exchange(other.server_, nullptr)}, cid_{other.cid_}, commands_{std::move(other.commands_)}
    {
    }
    context& operator=(context&& other) noexcept
    {
        std::swap(server_, other.server_);
        std::swap(cid_, other.cid_);
        std::swap(commands_, other.commands_);
        return *this;
    }
    ~context()
    {
        if (server_)
            kalix_context_destroy(server_, cid_);
    }

    uint32_t cid() const { return cid_; }
    command_buffer& commands() { return *commands_; }

private:
    kalix_connection* server_ = nullptr;
    uint32_t cid_ = 0;
    std::optional<command_buffer> commands_;
};

} // namespace kalix::client
