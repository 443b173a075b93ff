// What the gallery's scenes are drawn with: a context with targets, a sphere, a square, and textures made on the spot.
//
// A scene sets states and draws; everything that it does not touch is as a new context has it, but for a view from
// three units away, a depth test and no texture.
#pragma once

#include "tools/demo/matrix.h"
#include "tools/picture/picture.h"

#include <initializer_list>
#include <kalix/client.hpp>
#include <vector>

namespace kalix::demo {

struct studio_vertex {
    float x, y, z;
    float nx = 0, ny = 0, nz = -1;
    uint32_t color = 0xFFFFFFFF;
    float s = 0, t = 0, r = 0;
};
static_assert(sizeof(studio_vertex) == 40);

class studio {
public:
    studio(const client::connection& server, uint32_t width, uint32_t height);

    client::command_buffer& commands() { return context_.commands(); }
    uint32_t cid() const { return context_.cid(); }
    uint32_t width() const { return color_.width(); }
    uint32_t height() const { return color_.height(); }

    void set(std::initializer_list<svga3d_render_state_value> states);
    void set(svga3d_render_state which, float value);
    void texture_state(uint32_t stage, std::initializer_list<std::pair<svga3d_texture_state, uint32_t>> states);
    // Turns and moves what is drawn from now on.
    void place(float around, float x = 0, float y = 0, float z = 0);

    // Textures: images face by face, level by level, in packed rows of the format. Bound to a stage, modulated
    // with what comes before.
    void texture(uint32_t stage, uint32_t format, std::vector<surface_size> sizes, uint32_t faces,
                 const std::vector<uint32_t>& words);
    void light(uint32_t index, const svga3d_light& light);
    void material(const svga3d_material& material);

    void sphere(float radius = 1);
    // A square over x and y of -size..size, its coordinates running from -repeat + 1 to repeat.
    void square(float size = 1, uint32_t color = 0xFFFFFFFF, float repeat = 1);
    void draw(svga3d_primitive type, uint32_t primitives, const std::vector<studio_vertex>& vertices);

    tools::picture finish();

private:
    client::surface upload(uint32_t hint, std::span<const std::byte> bytes);
    void submit();

    const client::connection& server_;
    client::context context_;
    client::surface color_, depth_;
    std::vector<client::surface> kept_; // until the picture is finished
    std::vector<uint32_t> textures_;
};

} // namespace kalix::demo
