// kalix-demo: an example client. Draws a scene through a running server: a still one into a PNG file, an
// animated one onto the screen.

#include "tools/demo/scenes.h"
#include "tools/size.h"
#include "tools/usage.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <iostream>
#include <optional>

namespace {

using kalix::demo::scene;
using kalix::demo::scenes;
using kalix::tools::picture;

constexpr int exit_failed = 1;
constexpr int exit_usage = 2;
constexpr uint32_t extent_min = 16;
constexpr uint32_t extent_max = KALIX_READBACK_EXTENT_MAX;

struct size {
    uint32_t width = 0, height = 0;
};
constexpr size still_size{960, 600}, animated_size{1024, 768};

struct options {
    std::string scene_name;
    std::string output;
    std::string size_text;
    std::optional<size> extent; // none: the scene's own
    uint64_t frames = 0;
    bool list = false;
};

std::string scene_list()
{
    std::string text;
    for (const scene& one : scenes)
        text += std::string{"  "} + one.name + std::string(16 - std::strlen(one.name), ' ') + one.summary + "\n";
    return text;
}

// The size that "WxH" names; none when it names none within the bounds.
std::optional<size> parse_size(const std::string& text)
{
    size read;
    const auto fits = [](uint32_t extent) { return extent >= extent_min && extent <= extent_max; };
    if (!kalix::tools::parse_size(text, read.width, read.height) || !fits(read.width) || !fits(read.height))
        return std::nullopt;
    return read;
}

void declare(CLI::App& app, options& chosen)
{
    kalix::tools::set_usage(app, "kalix-demo SCENE [--size WxH] [--output FILE.png | --frames N]");
    app.set_version_flag("--version", "kalix-demo " KALIX_VERSION);
    app.add_flag("--list", chosen.list, "list the scenes and exit");
    app.add_option("scene", chosen.scene_name, "the scene to draw")->type_name("SCENE");
    app.add_option("--output", chosen.output, "a still scene: the file to write; otherwise SCENE.png")
        ->type_name("FILE");
    app.add_option("--size", chosen.size_text,
                   "pixels of the picture or the screen, each side 16 to 2048; otherwise 960x600 and 1024x768")
        ->type_name("WxH");
    app.add_option("--frames", chosen.frames, "an animated scene: end after so many frames; otherwise with ctrl-C")
        ->type_name("N");
    app.footer("\nSCENES\n" + scene_list() + R"(
EXIT STATUS
  0 when the scene was drawn (an animated one: until its end, or ctrl-C), 1 when it could not be drawn or
  written, 2 for a wrong command line.

ENVIRONMENT
  KALIX_RUN_DIR   run directory of the server to draw with

EXAMPLES
  kalix-run -- kalix-demo triangle --output triangle.png      with a server of its own
  KALIX_RUN_DIR=/run/kalix kalix-demo triangle --size 640x400
  kalix-demo mesh & kalix-view                                the animated scene in a window)");
}

kalix::client::connection connect()
{
    try {
        return {};
    } catch (const std::system_error& error) {
        throw std::runtime_error{"cannot connect to a server: " + error.code().message() +
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

void draw(const scene& what, const options& chosen)
{
    const auto server = connect_to_3d();
    const size extent = chosen.extent.value_or(still_size);
    const picture image = what.draw(server, extent.width, extent.height);
    expect_content(image);
    const std::string path = chosen.output.empty() ? std::string{what.name} + ".png" : chosen.output;
    kalix::tools::write_png(image, path);
    std::cout << "kalix-demo: wrote " << path << " (" << image.width << "x" << image.height << ")\n";
}

void animate(const scene& what, const options& chosen)
{
    connect_to_3d(); // tells what is wrong, and is closed again: the scene starts a second process
    const size extent = chosen.extent.value_or(animated_size);
    kalix::demo::catch_interrupts();
    what.animate({extent.width, extent.height, chosen.frames});
}

int usage_error(const std::string& message)
{
    std::cerr << "kalix-demo: " << message << "\nTry kalix-demo --help.\n";
    return exit_usage;
}

int run(int argc, char** argv)
{
    options chosen;
    CLI::App app{"An example client of kalix: draws a scene, into a PNG file or, animated, onto the screen.",
                 "kalix-demo"};
    declare(app, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : exit_usage;
    }
    if (chosen.list) {
        std::cout << scene_list();
        return 0;
    }
    if (chosen.scene_name.empty())
        return usage_error("no scene given");
    if (!chosen.size_text.empty()) {
        chosen.extent = parse_size(chosen.size_text);
        if (!chosen.extent)
            return usage_error("cannot draw at size " + chosen.size_text + ": give it as WxH, each side 16 to 2048");
    }
    const auto found = std::ranges::find_if(scenes, [&](const scene& one) { return one.name == chosen.scene_name; });
    if (found == scenes.end())
        return usage_error("no scene " + chosen.scene_name + "; there are:\n" + scene_list());
    if (found->animate && !chosen.output.empty())
        return usage_error("an animated scene is not written to a file; kalixctl screenshot writes the screen");
    found->animate ? animate(*found, chosen) : draw(*found, chosen);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::system_error& error) {
        std::cerr << "kalix-demo: cannot " << error.what() << '\n';
    } catch (const std::exception& error) {
        std::cerr << "kalix-demo: " << error.what() << '\n';
    }
    return exit_failed;
}
