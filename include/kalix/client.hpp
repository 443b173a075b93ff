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
//
// Wants C++20; client.h wants C11 or C++20.
#pragma once

#include <kalix/client.h>

#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
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

class surface;

// Thrown by a connection that cannot be opened: its text says why in words, as kalix_explain_open() does.
class open_error : public std::system_error {
public:
    open_error(const char* run_directory, int error)
        : std::system_error{error, std::generic_category()}, text_{"connect to the server: "}
    {
        char why[4352];
        kalix_explain_open(run_directory, error, why, sizeof why);
        text_ += why;
    }
    // "connect to the server: ", and why not.
    const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

// A session with a server. What is not about an object of one of the types below is asked of it: the device's
// parameters, fences, the screen, and debugging.
class connection {
public:
    // The server that kalix_open() finds without a name. Throws open_error.
    connection() : connection{nullptr} {}
    explicit connection(const char* run_directory)
    {
        if (const int error = kalix_open(run_directory, &handle_))
            throw open_error{run_directory, -error};
    }
    connection(connection&& other) noexcept : handle_{std::exchange(other.handle_, nullptr)} {}
    connection& operator=(connection&& other) noexcept
    {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~connection() { kalix_close(handle_); }

    // The handle that the calls of client.h take.
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

    // 0 while the connection works, else the negative errno with which it was lost.
    int error() const { return kalix_connection_error(handle_); }
    // Gives back all that was made through the connection; objects of these types that made it must be gone.
    void release_all() const { check(kalix_disconnect(handle_), "release what a connection made"); }

    uint32_t fifo_register(uint32_t index) const
    {
        uint32_t value = 0;
        check(kalix_fifomap(handle_, index, &value), "read a FIFO register");
        return value;
    }
    // {length in words, type, pairs of index and value}, ended by a length of 0.
    fifomap_caps_rep capabilities() const
    {
        fifomap_caps_rep records{};
        check(kalix_fifomap_caps(handle_, &records), "read the device's capabilities");
        return records;
    }
    // An id to define a surface with later.
    uint32_t allocate_sid() const
    {
        uint32_t sid = 0;
        check(kalix_alloc_sid(handle_, &sid), "allocate a surface id");
        return sid;
    }

    // ---- The screen ----

    // Shows a surface, the whole of it or its upper left part, on all of the screen. It shows when the display is on,
    // and what commands submitted before have drawn; the call waits for neither.
    void present(const surface& picture) const;
    void present(uint32_t sid, int32_t width, int32_t height, int32_t x = 0, int32_t y = 0) const
    {
        check(kalix_present(handle_, sid, x, y, width, height), "present a surface");
    }
    // Copies a rectangle of a surface into the framebuffer, in rows of the surface's width.
    void present_physical(uint32_t sid, const svga3d_rect& rect, uint64_t address) const
    {
        check(kalix_present_phys(handle_, sid, rect.x, rect.y, rect.w, rect.h, address), "copy to the framebuffer");
    }
    // Pixels and bits per pixel; a mode that the device does not have changes nothing. Sets the display on.
    void set_mode(uint32_t width, uint32_t height, uint32_t bits_per_pixel = 32) const
    {
        check(kalix_set_mode(handle_, width, height, bits_per_pixel), "set a mode");
    }
    void enable_display(bool on) const { check(kalix_svga_enable(handle_, on), "turn the display on or off"); }
    void set_cursor(const kalix_cursor_image& image) const { check(kalix_set_cursor(handle_, &image), "set a cursor"); }
    void move_cursor(bool visible, uint32_t x, uint32_t y) const
    {
        check(kalix_move_cursor(handle_, visible, x, y), "move the cursor");
    }

    // ---- Debugging: for every surface of the server ----

    void debug_show(uint32_t sid) const { check(kalix_debug_show(handle_, sid), "show one surface alone"); }
    void debug_reset() const { check(kalix_debug_reset(handle_), "end debug display"); }
    void debug_fill(uint32_t sid, uint32_t pixel) const
    {
        check(kalix_debug_fill(handle_, sid, pixel), "fill a surface");
    }
    sid_info_req debug_info(uint32_t sid) const
    {
        sid_info_req information{};
        information.sid = sid;
        check(kalix_debug_info(handle_, &information), "ask about a surface");
        return information;
    }
    // All surfaces of the server.
    std::vector<sid_entry> debug_list() const
    {
        std::vector<sid_entry> all;
        list_sids_req part{};
        do {
            part.first = static_cast<int32_t>(all.size());
            check(kalix_debug_list(handle_, &part), "list surfaces");
            for (const sid_entry& each : part.entries)
                if (each.sid != 0)
                    all.push_back(each);
        } while (part.more != 0 && static_cast<size_t>(part.first) < all.size());
        return all;
    }
    void debug_dump(dump_sid_req& dump) const { check(kalix_debug_dump(handle_, &dump), "dump a surface"); }

private:
    kalix_connection* handle_ = nullptr;
};

// Memory that this process and the device share. Commands name it by at(), and the device reads or writes it while they
// run: it is written again, read, or given back only behind their fence.
class dma_buffer {
public:
    // So many bytes, zero at first. ENOMEM, ENOSPC when there is no room.
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

    // The memory itself, until the buffer's end.
    std::span<std::byte> bytes() const { return {static_cast<std::byte*>(buffer_.data), buffer_.size}; }
    // Where byte offset of the buffer is, as commands name it.
    svga_guest_pointer at(uint32_t offset) const { return {buffer_.gmr_id, buffer_.gmr_offset + offset}; }

private:
    kalix_connection* server_ = nullptr;
    kalix_dma_buffer buffer_{};
};

// A reference on a surface. It is this connection's; others may hold the surface longer. Width and height are of its
// first level, in pixels.
class surface {
public:
    // One image of one level. A buffer of n bytes is SVGA3D_BUFFER, n wide and 1 high.
    surface(const connection& server, uint32_t flags, uint32_t format, uint32_t width, uint32_t height)
        : server_{server.get()}, format_{format}, width_{width}, height_{height}
    {
        check(kalix_surface_define_2d(server_, flags, format, width, height, &sid_), "define a surface");
    }
    // Any surface: levels, faces, volumes, a sid of one's own choosing.
    surface(const connection& server, const kalix_surface_description& description)
        : server_{server.get()}, format_{description.format}
    {
        if (description.size_count != 0 && description.sizes)
            width_ = description.sizes[0].width, height_ = description.sizes[0].height;
        check(kalix_surface_define(server_, &description, &sid_), "define a surface");
    }
    // Another's surface. Its size does not come with it: who tells the sid tells the size.
    static surface refer(const connection& server, uint32_t sid, uint32_t width, uint32_t height)
    {
        surface other;
        surface_reference_req information{};
        check(kalix_surface_reference(server.get(), sid, &information), "refer to a surface");
        other.server_ = server.get();
        other.sid_ = sid;
        other.format_ = information.format;
        other.width_ = width;
        other.height_ = height;
        return other;
    }
    surface(surface&& other) noexcept { swap(other); }
    surface& operator=(surface&& other) noexcept
    {
        swap(other);
        return *this;
    }
    ~surface()
    {
        if (server_)
            kalix_surface_destroy(server_, sid_);
    }

    // The id by which commands and other clients name it.
    uint32_t sid() const { return sid_; }
    // Pixels of the first level.
    uint32_t width() const { return width_; }
    // Pixels of the first level.
    uint32_t height() const { return height_; }
    // Of enum svga3d_surface_format.
    uint32_t format() const { return format_; }
    // One image of the surface, as commands name it.
    svga3d_image image(uint32_t face = 0, uint32_t mipmap = 0) const { return {sid_, face, mipmap}; }

    // The whole picture, or a rectangle of it, its rows packed, in the surface's own format.
    std::vector<std::byte> read() const { return read({0, 0, width_, height_}); }
    std::vector<std::byte> read(const svga3d_rect& part) const
    {
        const size_t stride = size_t{part.w} * kalix_readback_pixel_bytes(format_);
        std::vector<std::byte> pixels(stride * part.h);
        const kalix_readback_area area{sid_, width_, height_, format_, part.x, part.y, part.w, part.h};
        check(kalix_readback(server_, &area, pixels.data(), stride), "read a surface back");
        return pixels;
    }

private:
    surface() = default;
    void swap(surface& other) noexcept
    {
        std::swap(server_, other.server_);
        std::swap(sid_, other.sid_);
        std::swap(format_, other.format_);
        std::swap(width_, other.width_);
        std::swap(height_, other.height_);
    }

    kalix_connection* server_ = nullptr;
    uint32_t sid_ = SVGA3D_INVALID_ID;
    uint32_t format_ = 0, width_ = 0, height_ = 0;
};

inline void connection::present(const surface& picture) const
{
    present(picture.sid(), static_cast<int32_t>(picture.width()), static_cast<int32_t>(picture.height()));
}

// A picture on top of every frame, at a place of the unzoomed screen. Its surfaces must outlive it.
class overlay {
public:
    // One buffer; what is drawn into it later shows with the next present.
    overlay(const connection& server, int32_t x, int32_t y, const surface& picture)
        : overlay{server, {x, y, picture.width(), picture.height(), 1, 0, picture.sid(), 0, 0, 0}}
    {
    }
    // Two buffers, of which the second is shown; flip() exchanges them.
    overlay(const connection& server, int32_t x, int32_t y, const surface& drawn, const surface& shown)
        : overlay{server, {x, y, shown.width(), shown.height(), 2, 0, drawn.sid(), shown.sid(), 0, 0}}
    {
    }
    // Any overlay: of another size, of pixels in the framebuffer.
    overlay(const connection& server, const overlay_define_req& record) : server_{server.get()}
    {
        check(kalix_overlay_define(server_, &record, &id_), "define an overlay");
    }
    overlay(overlay&& other) noexcept : server_{std::exchange(other.server_, nullptr)}, id_{other.id_} {}
    overlay& operator=(overlay&& other) noexcept
    {
        std::swap(server_, other.server_);
        std::swap(id_, other.id_);
        return *this;
    }
    ~overlay()
    {
        if (server_)
            kalix_overlay_destroy(server_, id_);
    }

    // Its number, 1 to 8.
    uint32_t id() const { return id_; }
    // From the next present on.
    void show(bool visible) { check(kalix_overlay_visible(server_, id_, visible), "show or hide an overlay"); }
    // Exchanges two buffers, and shows the last picture again; false when nothing has been presented yet.
    bool flip()
    {
        const int result = kalix_oob_present(server_, id_);
        if (result != -ENOENT)
            check(result, "flip an overlay");
        return result == 0;
    }

private:
    kalix_connection* server_ = nullptr;
    uint32_t id_ = 0;
};

// How the vertices of one surface lie: what is added lies behind what was added before, or at an offset of its own.
class vertex_layout {
public:
    // stride: bytes from vertex to vertex. The first vertex lies first_byte into the surface.
    vertex_layout(const surface& vertices, uint32_t stride, uint32_t first_byte = 0)
        : sid_{vertices.sid()}, stride_{stride}, next_{first_byte}
    {
    }
    // An element behind the one before. index tells elements of one usage apart.
    vertex_layout& add(svga3d_declaration_usage usage, svga3d_declaration_type type, uint32_t index = 0)
    {
        return add_at(next_, usage, type, index);
    }
    // The same at a byte of its own from the surface's beginning, that of the first vertex's element.
    vertex_layout& add_at(uint32_t byte, svga3d_declaration_usage usage, svga3d_declaration_type type,
                          uint32_t index = 0)
    {
        declarations_.push_back({type, 0, usage, index, {sid_, byte, stride_}, 0, 0});
        next_ = byte + bytes_of(type);
        return *this;
    }
    // As draw_primitives() takes them.
    std::span<const svga3d_vertex_declaration> declarations() const { return declarations_; }

    // Bytes of an element of that type.
    static constexpr uint32_t bytes_of(svga3d_declaration_type type)
    {
        switch (type) {
        case SVGA3D_DECLTYPE_FLOAT4:
            return 16;
        case SVGA3D_DECLTYPE_FLOAT3:
            return 12;
        case SVGA3D_DECLTYPE_FLOAT2:
        case SVGA3D_DECLTYPE_SHORT4:
        case SVGA3D_DECLTYPE_SHORT4N:
        case SVGA3D_DECLTYPE_USHORT4N:
        case SVGA3D_DECLTYPE_FLOAT16_4:
            return 8;
        default:
            return 4;
        }
    }

private:
    uint32_t sid_, stride_, next_;
    std::vector<svga3d_vertex_declaration> declarations_;
};

// The primitives of one draw: count triangles, lines or points.
inline svga3d_primitive_range primitives(svga3d_primitive type, uint32_t count)
{
    return {type, count, {SVGA3D_INVALID_ID, 0, 0}, 0, 0};
}

// The same, through indices of 2 or 4 bytes from a byte of a surface on; bias is added to each.
inline svga3d_primitive_range indexed_primitives(svga3d_primitive type, uint32_t count, const surface& indices,
                                                 uint32_t index_bytes, uint32_t first_byte = 0, int32_t bias = 0)
{
    return {type, count, {indices.sid(), first_byte, index_bytes}, index_bytes, bias};
}

// The command buffer of a context, which owns it: appends commands and submits them. The calls of
// client.h without a method here take list().
class command_buffer {
public:
    // Of a context of that connection; context has its own.
    command_buffer(kalix_connection* server, uint32_t cid) : server_{server}, cid_{cid}
    {
        check(kalix_command_buffer(server_, cid_, &list_), "make a command buffer");
    }
    command_buffer(const command_buffer&) = delete;
    command_buffer& operator=(const command_buffer&) = delete;
    // The list stays the context's.
    command_buffer(command_buffer&&) noexcept = default;
    // As the constructor.
    command_buffer& operator=(command_buffer&&) noexcept = default;

    // What the calls of client.h take as their list.
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
    // Any state that svga3d_types.h does not mark as float.
    void set_render_state(svga3d_render_state state, uint32_t value)
    {
        const svga3d_render_state_value one{state, value};
        set_render_states({&one, 1});
    }
    // A state that it does.
    void set_render_state(svga3d_render_state state, float value)
    {
        set_render_state(state, std::bit_cast<uint32_t>(value));
    }
    // One state of a stage, 0 to 7; a sid for SVGA3D_TS_BIND_TEXTURE.
    void set_texture_state(uint32_t stage, svga3d_texture_state name, uint32_t value)
    {
        const svga3d_texture_state_value one{stage, name, value};
        set_texture_states({&one, 1});
    }
    void unset_render_target(svga3d_render_target which)
    {
        append(kalix_cmd_set_render_target(list_, cid_, which, nullptr));
    }
    void set_material(svga3d_face face, const svga3d_material& material)
    {
        append(kalix_cmd_set_material(list_, cid_, face, &material));
    }
    void set_light(uint32_t index, const svga3d_light& light)
    {
        append(kalix_cmd_set_light_data(list_, cid_, index, &light));
    }
    void enable_light(uint32_t index, bool on) { append(kalix_cmd_set_light_enabled(list_, cid_, index, on)); }
    void set_clip_plane(uint32_t index, std::span<const float, 4> plane)
    {
        append(kalix_cmd_set_clip_plane(list_, cid_, index, plane.data()));
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
    void stretch(const svga3d_surface_stretchblt& blit) { append(kalix_cmd_surface_stretchblt(list_, &blit)); }
    // Copies all of a surface's first level from a buffer, or into it: packed rows, from first_byte of the buffer on. The
    // buffer is in use until the fence behind this has passed.
    void upload(const dma_buffer& from, const surface& to, uint32_t first_byte = 0)
    {
        whole_transfer(from, to, first_byte, SVGA3D_WRITE_HOST_VRAM);
    }
    // The other way; the buffer has the picture behind the fence.
    void download(const surface& from, const dma_buffer& to, uint32_t first_byte = 0)
    {
        whole_transfer(to, from, first_byte, SVGA3D_READ_HOST_VRAM);
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

    // One range of vertices.
    void draw(const vertex_layout& vertices, const svga3d_primitive_range& range)
    {
        draw_primitives(vertices.declarations(), {&range, 1});
    }
    // The samples that pass between begin and end are counted; after the fence behind end, the words at result are an
    // svga3d_query_result.
    void begin_query(svga3d_query_type type = SVGA3D_QUERYTYPE_OCCLUSION)
    {
        append(kalix_cmd_begin_query(list_, cid_, type));
    }
    void end_query(svga_guest_pointer result, svga3d_query_type type = SVGA3D_QUERYTYPE_OCCLUSION)
    {
        append(kalix_cmd_end_query(list_, cid_, type, result));
    }
    void wait_for_query(svga_guest_pointer result, svga3d_query_type type = SVGA3D_QUERYTYPE_OCCLUSION)
    {
        append(kalix_cmd_wait_for_query(list_, cid_, type, result));
    }
    void blit_to_screen(const svga3d_blit_to_screen& blit, std::span<const svga3d_signed_rect> clips = {})
    {
        append(kalix_cmd_blit_surface_to_screen(list_, &blit, clips.data(), count_of(clips)));
    }

private:
    void whole_transfer(const dma_buffer& guest, const surface& host, uint32_t first_byte, svga3d_transfer direction)
    {
        const svga3d_copy_box box{0, 0, 0, host.width(), host.height(), 1, 0, 0, 0};
        surface_dma({{guest.at(first_byte), 0}, host.image(), static_cast<uint32_t>(direction)}, {&box, 1});
    }
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

    // Its number, as the calls of client.h take it.
    uint32_t cid() const { return cid_; }
    // What draws in it.
    command_buffer& commands() { return *commands_; }

private:
    kalix_connection* server_ = nullptr;
    uint32_t cid_ = 0;
    std::optional<command_buffer> commands_;
};

} // namespace kalix::client
