// What the device's work costs, beside a memcpy of the same frame in the same run.
//
// Everything goes through the library's public face, as the driver goes. Each round measures the copies and then
// the work, eight of each, awaited with one fence: the two wakes of idle cores that a fence costs have their own
// row. Medians of rounds, as ratios. SVGA_DEVICE_THREADS says how many draw.

#include "svga/svga.h"
#include "svga/svga3d.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr uint32_t cid = 1;
constexpr int repeats = 8; // of a work in one measurement
// Surfaces, by what they are for; each keeps its id through the run.
enum sid : uint32_t { target = 1, depth, frame_texture, small_texture, vertices, indices, other };

struct vertex { // of everything that is drawn here
    float x, y, z;
    float nx, ny, nz;
    uint32_t color;
    float u, v;
};
static_assert(sizeof(vertex) == 36);

double seconds(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values)
{
    std::ranges::nth_element(values, values.begin() + static_cast<ptrdiff_t>(values.size() / 2));
    return values[values.size() / 2];
}

// Until all that was sent has been done.
void wait()
{
    SVGA_SyncToFence(SVGA_InsertFence());
}

// A command into the FIFO, committed by itself: the device may begin while the next is being written.
void send(uint32_t id, const void* body, size_t bytes)
{
    const svga3d_command_header header{id, static_cast<uint32_t>(bytes)};
    auto* const space = static_cast<std::byte*>(SVGA_FIFOReserve(static_cast<uint32_t>(sizeof header + bytes)));
    std::memcpy(space, &header, sizeof header);
    std::memcpy(space + sizeof header, body, bytes);
    SVGA_FIFOCommitAll();
}

void define(uint32_t id, uint32_t format, uint32_t width, uint32_t height)
{
    const struct {
        svga3d_surface_define define;
        svga3d_size size;
    } command{{id, 0, format, {1, 0, 0, 0, 0, 0}}, {width, height, 1}};
    send(SVGA_3D_CMD_SURFACE_DEFINE, &command, sizeof command);
}

// Between a surface and the upper half of the framebuffer's memory, which no picture here reaches.
void transfer(const svga_device& device, uint32_t id, uint32_t direction, uint32_t width, uint32_t height)
{
    const svga3d_guest_image guest{{SVGA_GMR_FRAMEBUFFER, device.fb_bytes / 2}, 0};
    const svga3d_image host{id, 0, 0};
    svga3d_copy_box* box = nullptr;
    SVGA3D_BeginSurfaceDMA(&guest, &host, direction, &box, 1);
    *box = {0, 0, 0, width, height, 1, 0, 0, 0};
    SVGA_FIFOCommitAll();
}

// A buffer's bytes, there on return.
void fill(const svga_device& device, uint32_t id, const void* bytes, size_t count)
{
    std::memcpy(device.framebuffer + device.fb_bytes / 2, bytes, count);
    transfer(device, id, SVGA3D_WRITE_HOST_VRAM, static_cast<uint32_t>(count), 1);
    wait();
}

void set(std::initializer_list<svga3d_render_state_value> states)
{
    svga3d_render_state_value* out = nullptr;
    SVGA3D_BeginSetRenderState(cid, &out, static_cast<uint32_t>(states.size()));
    std::ranges::copy(states, out);
    SVGA_FIFOCommitAll();
}

void set_texture(uint32_t id, uint32_t filter, uint32_t operation = SVGA3D_TC_MODULATE)
{
    const svga3d_texture_state_value states[] = {{0, SVGA3D_TS_BIND_TEXTURE, id},
                                                 {0, SVGA3D_TS_COLOROP, operation},
                                                 {0, SVGA3D_TS_COLORARG1, SVGA3D_TA_TEXTURE},
                                                 {0, SVGA3D_TS_COLORARG2, SVGA3D_TA_DIFFUSE},
                                                 {0, SVGA3D_TS_ALPHAOP, SVGA3D_TC_SELECTARG1},
                                                 {0, SVGA3D_TS_ALPHAARG1, SVGA3D_TA_TEXTURE},
                                                 {0, SVGA3D_TS_MINFILTER, filter},
                                                 {0, SVGA3D_TS_MAGFILTER, filter},
                                                 {0, SVGA3D_TS_ADDRESSU, SVGA3D_TEX_ADDRESS_CLAMP},
                                                 {0, SVGA3D_TS_ADDRESSV, SVGA3D_TEX_ADDRESS_CLAMP}};
    svga3d_texture_state_value* out = nullptr;
    SVGA3D_BeginSetTextureState(cid, &out, std::size(states));
    std::ranges::copy(states, out);
    SVGA_FIFOCommitAll();
}

// All elements of a vertex are declared every time; states and texture decide what is made of them.
void draw(uint32_t primitive, uint32_t primitives, bool indexed)
{
    svga3d_vertex_declaration* out = nullptr;
    svga3d_primitive_range* range = nullptr;
    SVGA3D_BeginDrawPrimitives(cid, &out, 4, &range, 1);
    const auto element = [](uint32_t type, uint32_t usage, size_t offset) {
        return svga3d_vertex_declaration{type, 0, usage, 0, {vertices, static_cast<uint32_t>(offset), sizeof(vertex)},
                                         0,    0};
    };
    out[0] = element(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_POSITION, offsetof(vertex, x));
    out[1] = element(SVGA3D_DECLTYPE_FLOAT3, SVGA3D_DECLUSAGE_NORMAL, offsetof(vertex, nx));
    out[2] = element(SVGA3D_DECLTYPE_D3DCOLOR, SVGA3D_DECLUSAGE_COLOR, offsetof(vertex, color));
    out[3] = element(SVGA3D_DECLTYPE_FLOAT2, SVGA3D_DECLUSAGE_TEXCOORD, offsetof(vertex, u));
    *range = {primitive, primitives, {indexed ? uint32_t{indices} : SVGA3D_INVALID_ID, 0, 4}, 4, 0};
    SVGA_FIFOCommitAll();
}

// A frame's size, its surfaces, and the pieces of work over it.
class bench {
public:
    bench(svga_device& device, std::string_view part, uint32_t width, uint32_t height)
        : device_{device}, part_{part}, width_{width}, height_{height}
    {
        SVGA_SetMode(width, height, 32, 1);
        define(target, SVGA3D_X8R8G8B8, width, height);
        define(other, SVGA3D_X8R8G8B8, width, height);
        define(depth, SVGA3D_Z_D24X8, width, height);
        define(frame_texture, SVGA3D_A8R8G8B8, width, height);
        define(small_texture, SVGA3D_A8R8G8B8, 640, 480);
        for (const uint32_t id : {frame_texture, small_texture, target})
            paint(id, id == small_texture ? 640 : width, id == small_texture ? 480 : height);
        SVGA3D_DefineContext(cid);
        const svga3d_image color{target, 0, 0};
        const svga3d_image z{depth, 0, 0};
        SVGA3D_SetRenderTarget(cid, SVGA3D_RT_COLOR0, &color);
        SVGA3D_SetRenderTarget(cid, SVGA3D_RT_DEPTH, &z);
        const svga3d_rect all{0, 0, width, height};
        SVGA3D_SetViewport(cid, &all);
        const auto w = static_cast<float>(width);
        const auto h = static_cast<float>(height);
        const float pixels[16] = {2 / w, 0, 0, 0, 0, -2 / h, 0, 0, 0, 0, 1, 0, -1, 1, 0, 1}; // of the target
        SVGA3D_SetTransform(cid, SVGA3D_TRANSFORM_PROJECTION, pixels);
        set({{SVGA3D_RS_CULLMODE, SVGA3D_FACE_NONE},
             {SVGA3D_RS_ZFUNC, SVGA3D_CMP_LESSEQUAL},
             {SVGA3D_RS_SRCBLEND, SVGA3D_BLENDOP_SRCALPHA},
             {SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_INVSRCALPHA}});
    }

    void run()
    {
        std::printf("%ux%u\n", width_, height_);
        tell("clear colour and depth", [this] { clear(); });
        quad();
        set({{SVGA3D_RS_ZENABLE, 0}});
        const auto drawn = [] { draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, false); };
        set_texture(frame_texture, SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TC_SELECTARG1);
        tell("full-screen quad, nearest, 1:1", drawn);
        set_texture(small_texture, SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TC_SELECTARG1);
        tell("full-screen quad, nearest, scaled", drawn);
        set_texture(small_texture, SVGA3D_TEX_FILTER_LINEAR, SVGA3D_TC_SELECTARG1);
        tell("full-screen quad, bilinear", drawn);
        set_texture(frame_texture, SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TC_SELECTARG1);
        set({{SVGA3D_RS_BLENDENABLE, 1}});
        tell("full-screen quad, alpha-blended", drawn);
        set({{SVGA3D_RS_BLENDENABLE, 0}});
        set_texture(small_texture, SVGA3D_TEX_FILTER_NEAREST);
        small_triangles();
        tell("10,000 textured triangles of 8x8", [] { draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 10'000, false); });
        gouraud();
        set({{SVGA3D_RS_ZENABLE, 1}});
        set_texture(SVGA3D_INVALID_ID, SVGA3D_TEX_FILTER_NEAREST, SVGA3D_TC_DISABLE);
        tell("1,000 Gouraud triangles with depth, 100x100", [this] {
            clear_depth();
            draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 1000, false);
        });
        mesh();
        set({{SVGA3D_RS_LIGHTINGENABLE, 1}});
        set_texture(small_texture, SVGA3D_TEX_FILTER_LINEAR);
        tell("lit, textured, depth-tested mesh of 20,000", [this] {
            clear_depth();
            draw(SVGA3D_PRIMITIVE_TRIANGLELIST, 20'000, true);
        });
        set({{SVGA3D_RS_LIGHTINGENABLE, 0}});
        tell("surface DMA to a surface",
             [this] { transfer(device_, frame_texture, SVGA3D_WRITE_HOST_VRAM, width_, height_); });
        tell("surface DMA from a surface",
             [this] { transfer(device_, frame_texture, SVGA3D_READ_HOST_VRAM, width_, height_); });
        tell("surface copy", [this] {
            const svga3d_image from{target, 0, 0}, to{other, 0, 0};
            svga3d_copy_box* box = nullptr;
            SVGA3D_BeginSurfaceCopy(&from, &to, &box, 1);
            *box = {0, 0, 0, width_, height_, 1, 0, 0, 0};
            SVGA_FIFOCommitAll();
        });
        tell("present", [this] {
            svga3d_copy_rect* rect = nullptr;
            SVGA3D_BeginPresent(target, &rect, 1);
            *rect = {0, 0, width_, height_, 0, 0};
            SVGA_FIFOCommitAll();
        });
        one_small_draw();
    }

private:
    // A picture's worth of bytes copied, then the work, eight times each; the medians' ratio.
    void tell(const char* name, const std::function<void()>& work)
    {
        if (std::string_view{name}.find(part_) == std::string_view::npos)
            return;
        // Copies and work in turn, so that a machine that slows down slows both.
        std::vector<double> copies, works;
        std::vector<std::byte> from(size_t{width_} * height_ * 4), to(from.size());
        std::memset(from.data(), 1, from.size());
        wait();
        for (int round = 0; round < 31; ++round) {
            std::memcpy(to.data(), from.data(), to.size());
            copies.push_back(seconds([&] {
                for (int i = 0; i < repeats; ++i) {
                    std::memcpy(to.data(), from.data(), to.size());
                    // The copy is read by nobody, which the compiler must not know.
                    asm volatile("" : : "r"(to.data()) : "memory");
                }
            }));
            works.push_back(seconds([&] {
                for (int i = 0; i < repeats; ++i)
                    work();
                wait();
            }));
        }
        std::printf("  %-46s %8.3f ms %8.2f m\n", name, median(works) * 1e3 / repeats, median(works) / median(copies));
    }

    // Every texel another: nothing can be skipped for being the same as its neighbour.
    void paint(uint32_t id, uint32_t width, uint32_t height)
    {
        auto* const words = reinterpret_cast<uint32_t*>(device_.framebuffer + device_.fb_bytes / 2);
        for (uint32_t i = 0; i < width * height; ++i)
            words[i] = i * 2654435761u;
        transfer(device_, id, SVGA3D_WRITE_HOST_VRAM, width, height);
        wait();
    }

    void clear()
    {
        svga3d_rect* rect = nullptr;
        SVGA3D_BeginClear(cid, SVGA3D_CLEAR_COLOR | SVGA3D_CLEAR_DEPTH, 0xFF336699, 1, 0, &rect, 1);
        *rect = {0, 0, width_, height_};
        SVGA_FIFOCommitAll();
    }
    void clear_depth()
    {
        svga3d_rect* rect = nullptr;
        SVGA3D_BeginClear(cid, SVGA3D_CLEAR_DEPTH, 0, 1, 0, &rect, 1);
        *rect = {0, 0, width_, height_};
        SVGA_FIFOCommitAll();
    }

    void load(const std::vector<vertex>& list)
    {
        define(vertices, SVGA3D_BUFFER, static_cast<uint32_t>(list.size() * sizeof(vertex)), 1);
        fill(device_, vertices, list.data(), list.size() * sizeof(vertex));
    }

    // The whole frame, in pixels: the transform takes them as they are.
    void quad()
    {
        const auto w = static_cast<float>(width_);
        const auto h = static_cast<float>(height_);
        load({{0, 0, 0.5f, 0, 0, -1, ~0u, 0, 0},
              {w, 0, 0.5f, 0, 0, -1, ~0u, 1, 0},
              {w, h, 0.5f, 0, 0, -1, ~0u, 1, 1},
              {0, h, 0.5f, 0, 0, -1, ~0u, 0, 1}});
    }

    // Half squares of 8 pixels, scattered by strides that repeat late: set-up counts, not pixels.
    void small_triangles()
    {
        std::vector<vertex> list;
        for (uint32_t i = 0; i < 10'000; ++i) {
            const auto x = static_cast<float>(i * 97 % (width_ - 8));
            const auto y = static_cast<float>(i * 57 % (height_ - 8));
            const float u = x / static_cast<float>(width_), v = y / static_cast<float>(height_);
            list.push_back({x, y, 0.5f, 0, 0, -1, ~0u, u, v});
            list.push_back({x + 8, y, 0.5f, 0, 0, -1, ~0u, u + 0.02f, v});
            list.push_back({x, y + 8, 0.5f, 0, 0, -1, ~0u, u, v + 0.02f});
        }
        load(list);
    }

    // Half squares of 100 pixels at a thousand depths, over each other: pixels and their depth test count.
    void gouraud()
    {
        std::vector<vertex> list;
        for (uint32_t i = 0; i < 1000; ++i) {
            const auto x = static_cast<float>(i * 97 % (width_ - 100));
            const auto y = static_cast<float>(i * 57 % (height_ - 100));
            const float z = static_cast<float>(i * 37 % 1000) / 1000;
            list.push_back({x, y, z, 0, 0, -1, 0xFFFF0000, 0, 0});
            list.push_back({x + 100, y, z, 0, 0, -1, 0xFF00FF00, 0, 0});
            list.push_back({x, y + 100, z, 0, 0, -1, 0xFF0000FF, 0, 0});
        }
        load(list);
    }

    // A wavy sheet of 100 x 100 squares over the whole frame.
    void mesh()
    {
        constexpr uint32_t side = 100;
        std::vector<vertex> list;
        std::vector<uint32_t> order;
        for (uint32_t j = 0; j <= side; ++j)
            for (uint32_t i = 0; i <= side; ++i) {
                const float u = static_cast<float>(i) / side, v = static_cast<float>(j) / side;
                const float slope = 0.5f * std::sin(12 * u) * std::cos(9 * v);
                list.push_back({u * static_cast<float>(width_), v * static_cast<float>(height_), 0.5f + 0.2f * slope,
                                slope, slope / 2, -1, ~0u, u, v});
            }
        for (uint32_t j = 0; j < side; ++j)
            for (uint32_t i = 0; i < side; ++i) {
                const uint32_t at = j * (side + 1) + i;
                for (const uint32_t index : {at, at + 1, at + side + 2, at, at + side + 2, at + side + 1})
                    order.push_back(index);
            }
        load(list);
        define(indices, SVGA3D_BUFFER, static_cast<uint32_t>(order.size() * 4), 1);
        fill(device_, indices, order.data(), order.size() * 4);
        svga3d_set_light_data light{cid, 0, {}};
        light.light.type = SVGA3D_LIGHTTYPE_DIRECTIONAL;
        light.light.diffuse = {1, 1, 1, 1};
        light.light.direction[2] = 1;
        send(SVGA_3D_CMD_SETLIGHTDATA, &light, sizeof light);
        const svga3d_set_light_enabled on{cid, 0, 1};
        send(SVGA_3D_CMD_SETLIGHTENABLED, &on, sizeof on);
        svga3d_material material{};
        material.diffuse = {1, 1, 1, 1};
        SVGA3D_SetMaterial(cid, SVGA3D_FACE_FRONT_BACK, &material);
    }

    // What it costs to ask for anything at all: sixteen pixels, and the wake and the wait for them.
    void one_small_draw()
    {
        quad();
        const svga3d_rect few{0, 0, 4, 4};
        SVGA3D_SetViewport(cid, &few);
        std::vector<double> times;
        for (int round = 0; round < 2001; ++round)
            times.push_back(seconds([] {
                draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2, false);
                wait();
            }));
        std::printf("  %-46s %8.3f ms\n", "one small draw and its fence", median(times) * 1e3);
    }

    svga_device& device_;
    std::string_view part_; // of the names of what is measured
    uint32_t width_, height_;
};

} // namespace

int main(int argc, char** argv)
{
    char directory[] = "/tmp/kalix-bench.XXXXXX";
    if (!mkdtemp(directory) || setenv("KALIX_RUN_DIR", directory, 1) != 0) {
        std::perror("kalix: cannot make a run directory");
        return 1;
    }
    svga_device* const device = SVGA_Init();
    int status = 1;
    if (device && SVGA3D_Init() == 0) {
        const std::string_view part = argc > 1 ? argv[1] : "";
        bench{*device, part, 1024, 768}.run();
        bench{*device, part, 1920, 1080}.run();
        status = 0;
    }
    SVGA_Disable();
    std::filesystem::remove_all(directory);
    return status;
}
