// kalix-bench: what a server's answers cost, seen by a client.
//
// Each figure is the median of several rounds, so that one round in which the machine did something else does not
// count; a round is long beside the clock's grain. One connection, one thread: nothing runs beside what is measured.

#include "tools/command_line.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <kalix/client.hpp>
#include <vector>

namespace {

using seconds = std::chrono::duration<double>;

using kalix::client::check;
using kalix::tools::parameter;
using kalix::tools::value_kind;

constexpr uint32_t width = 1024, height = 768; // of the surface that is presented, and of the screen

constexpr parameter parameters[] = {
    {.name = "--rounds",
     .kind = value_kind::number,
     .value = "COUNT",
     .help = "rounds of each measurement, of which the median is printed",
     .initial = "21",
     .least = 1,
     .most = 100'000},
    {.name = "--frames",
     .kind = value_kind::number,
     .value = "COUNT",
     .help = "presents in a round",
     .initial = "20",
     .least = 1,
     .most = 1'000'000},
};

constexpr kalix::tools::section sections[] = {
    {"ENVIRONMENT", "KALIX_RUN_DIR   run directory of the server to measure; its screen is drawn over"},
    {"EXAMPLES", R"(kalix-run -- kalix-bench              a server of its own
kalix-run -- kalix-bench --rounds 3   a quick look)"}};

// Median seconds of one call, over rounds of calls.
template <typename function>
double median(size_t rounds, size_t calls, function call)
{
    std::vector<double> times;
    for (size_t round = 0; round < rounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        for (size_t i = 0; i < calls; ++i)
            call();
        times.push_back(seconds{std::chrono::steady_clock::now() - start}.count() / static_cast<double>(calls));
    }
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(rounds / 2);
    std::ranges::nth_element(times, middle);
    return *middle;
}

void measure_requests(kalix::client::connection& server, size_t rounds)
{
    const double one = median(rounds, 1000, [&] { server.parameter(KALIX_PARAM_HAVE_3D); });
    std::printf("request round trip      %8.2f us\n", one * 1e6);
}

// A command buffer filled with state words, all of it, again and again; only the last one's end is waited for.
void measure_submits(kalix::client::connection& server, kalix::client::context& context, size_t rounds)
{
    const float identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    kalix_commands* const list = context.commands().list();
    while (kalix_cmd_set_transform(list, context.cid(), SVGA3D_TRANSFORM_WORLD, identity) == 0) {
    }
    const uint32_t bytes = list->used;
    execbuf_rep reply{};
    const double one = median(rounds, 200, [&] {
        check(kalix_execbuf(server.get(), context.cid(), bytes, 0, &reply), "submit a command buffer");
    });
    server.wait(reply.seqno);
    list->used = 0;
    std::printf("submits of %5u bytes   %8.0f a second\n", bytes, 1 / one);
}

// Presents of a surface as large as the screen, each shown before the next.
void measure_presents(kalix::client::connection& server, kalix::client::context& context, size_t rounds, size_t frames)
{
    check(kalix_set_mode(server.get(), width, height, 32), "set the mode");
    const kalix::client::surface shown{server, SVGA3D_SURFACE_HINT_TEXTURE, SVGA3D_X8R8G8B8, width, height};
    const double one = median(rounds, frames, [&] {
        check(kalix_present(server.get(), shown.sid(), 0, 0, width, height), "present a surface");
        server.wait(context.commands().submit());
    });
    std::printf("presents of %ux%u   %8.1f a second\n", width, height, 1 / one);
}

int measure(const kalix::tools::arguments& given)
{
    const auto rounds = given.number<size_t>("--rounds");
    kalix::client::connection server;
    kalix::client::context context{server};
    measure_requests(server, rounds);
    measure_submits(server, context, rounds);
    measure_presents(server, context, rounds, given.number<size_t>("--frames"));
    return 0;
}

constexpr kalix::tools::program kalix_bench{
    .name = "kalix-bench",
    .summary = "Measure what a request, a submission and a present cost a client of a running kalix server.",
    .usage = "kalix-bench [OPTIONS]",
    .parameters = parameters,
    .run = measure,
    .sections = sections,
    .asks_server = true,
};

} // namespace

int main(int argc, char** argv)
{
    return kalix::tools::run(kalix_bench, argc, argv);
}
