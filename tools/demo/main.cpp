// kalix-demo: an example client. Draws a scene through a running server: a still one into a PNG file, an
// animated one onto the screen.

#include "tools/command_line.h"
#include "tools/demo/scenes.h"

#include <algorithm>
#include <chrono>
#include <iostream>

namespace {

using kalix::demo::scene;
using kalix::demo::scenes;
using kalix::tools::arguments;
using kalix::tools::choice;
using kalix::tools::parameter;
using kalix::tools::picture;
using kalix::tools::value_kind;

constexpr auto scene_choices = [] {
    std::array<choice, scenes.size()> choices{};
    std::ranges::transform(scenes, choices.begin(), [](const scene& one) { return choice{one.name, one.summary}; });
    return choices;
}();

constexpr parameter parameters[] = {
    {.name = "--list", .help = "list the scenes and exit"},
    {.name = "scene",
     .kind = value_kind::text,
     .value = "SCENE",
     .help = "the scene to draw",
     .choices = scene_choices},
    {.name = "--output",
     .kind = value_kind::file,
     .value = "FILE",
     .help = "a still scene: the file to write; otherwise SCENE.png"},
    {.name = "--size",
     .kind = value_kind::size,
     .value = "WxH",
     .help = "pixels of the picture or the screen, each side 16 to 2048; otherwise 960x600 and 1024x768",
     .least = 16,
     .most = KALIX_READBACK_EXTENT_MAX},
    {.name = "--frames",
     .kind = value_kind::number,
     .value = "N",
     .help = "an animated scene: end after so many frames; 0: with ctrl-C",
     .initial = "0",
     .most = INT64_MAX},
    {.name = "--reconnect",
     .kind = value_kind::number,
     .value = "SECONDS",
     .help = "an animated scene: wait so long for the next server when this one has gone, and go on; 0: end",
     .initial = "30",
     .most = 1'000'000},
};

constexpr kalix::tools::section sections[] = {
    {"EXIT STATUS",
     R"(0 when the scene was drawn (an animated one: until its end, or ctrl-C), 1 when it could not be drawn or
written, 2 for a wrong command line.)"},
    {"ENVIRONMENT", "KALIX_RUN_DIR   run directory of the server to draw with"},
    {"EXAMPLES", R"(kalix-run -- kalix-demo triangle --output triangle.png      with a server of its own
KALIX_RUN_DIR=/run/kalix kalix-demo triangle --size 640x400
kalix-demo mesh & kalix-view                                the animated scene in a window)"}};

kalix::client::connection connect()
{
    try {
        return {};
    } catch (const std::system_error& error) {
        throw std::runtime_error{std::string{"cannot "} + error.what() +
                                 "\nStart one, or give the demo one of its own: kalix-run -- kalix-demo ..."};
    }
}

// A picture in one colour means that the server took the commands and drew nothing.
void expect_content(const picture& image)
{
    const auto begin = image.pixels.begin();
    const bool uniform = std::equal(begin + 4, image.pixels.end(), begin); // each pixel equal to the one before
    if (uniform)
        throw std::runtime_error{"cannot draw: the picture came back in one colour; the server's log may say why"};
}

kalix::client::connection connect_to_3d()
{
    auto server = connect();
    if (server.parameter(KALIX_PARAM_HAVE_3D) == 0)
        throw std::runtime_error{"cannot draw: the server's device offers no 3D; see the server's log"};
    return server;
}

void draw(const scene& what, const arguments& given)
{
    const auto server = connect_to_3d();
    const auto [width, height] = given.has("--size") ? given.extent("--size") : kalix::tools::size{960, 600};
    const picture image = what.draw(server, width, height);
    expect_content(image);
    const std::string path = given.has("--output") ? given.text("--output") : std::string{what.name} + ".png";
    kalix::tools::write_png(image, path);
    std::cout << "kalix-demo: wrote " << path << " (" << image.width << "x" << image.height << ")\n";
}

void animate(const scene& what, const arguments& given)
{
    if (given.has("--output"))
        throw kalix::tools::usage_error{
            "an animated scene is not written to a file; kalixctl screenshot writes the screen"};
    connect_to_3d(); // tells what is wrong, and is closed again: the scene starts a second process
    const auto [width, height] = given.has("--size") ? given.extent("--size") : kalix::tools::size{1024, 768};
    kalix::demo::catch_interrupts();
    what.animate(
        {width, height, given.number<uint64_t>("--frames"), std::chrono::seconds{given.number("--reconnect")}});
}

int show(const arguments& given)
{
    if (given.has("--list")) {
        std::cout << kalix::tools::listed(scene_choices);
        return 0;
    }
    if (!given.has("scene"))
        throw kalix::tools::usage_error{"no scene given"};
    const scene& wanted = *std::ranges::find(scenes, given.text("scene"), &scene::name);
    wanted.animate ? animate(wanted, given) : draw(wanted, given);
    return 0;
}

constexpr kalix::tools::program kalix_demo{
    .name = "kalix-demo",
    .summary = "An example client of kalix: draws a scene, into a PNG file or, animated, onto the screen.",
    .usage = "kalix-demo SCENE [--size WxH] [--output FILE.png | --frames N --reconnect SECONDS]",
    .parameters = parameters,
    .run = show,
    .sections = sections,
};

} // namespace

int main(int argc, char** argv)
{
    return kalix::tools::run(kalix_demo, argc, argv);
}
