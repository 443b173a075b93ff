// kalix-bench: what a request costs. Prints medians; run it through kalix-run.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <kalix/client.h>
#include <vector>

namespace {

using seconds = std::chrono::duration<double>;

// Median seconds of one call, over rounds of calls.
template <typename function>
double median(int rounds, int calls, function call)
{
    std::vector<double> times;
    for (int round = 0; round < rounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < calls; ++i)
            if (call() != 0)
                return -1;
        times.push_back(seconds{std::chrono::steady_clock::now() - start}.count() / calls);
    }
    std::ranges::nth_element(times, times.begin() + rounds / 2);
    return times[static_cast<size_t>(rounds) / 2];
}

int fail(const char* what, int status)
{
    std::fprintf(stderr, "kalix-bench: cannot %s: %s\n", what, std::strerror(-status));
    return 1;
}

// Fills a command buffer with state words, all of it.
void fill(kalix_commands* list, uint32_t cid)
{
    const float identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    while (kalix_cmd_set_transform(list, cid, SVGA3D_TRANSFORM_WORLD, identity) == 0) {
    }
}

// Presents of a screen-sized surface a second, each shown before the next; negative when one fails.
double presents(kalix_connection* connection, uint32_t cid)
{
    constexpr uint32_t width = 1024;
    constexpr uint32_t height = 768;
    uint32_t sid = 0;
    kalix_set_mode(connection, width, height, 32);
    if (kalix_surface_define_2d(connection, SVGA3D_SURFACE_HINT_TEXTURE, SVGA3D_X8R8G8B8, width, height, &sid) != 0)
        return -1;
    const double one = median(5, 20, [&] {
        uint32_t fence = 0;
        const int shown = kalix_present(connection, sid, 0, 0, width, height);
        return shown != 0 || kalix_submit(connection, cid, &fence) != 0 ? -1 : kalix_fence_wait(connection, fence);
    });
    kalix_surface_destroy(connection, sid);
    return 1 / one;
}

int run(kalix_connection* connection)
{
    uint64_t value = 0;
    const double trip = median(21, 1000, [&] { return kalix_getparam(connection, KALIX_PARAM_HAVE_3D, &value); });
    uint32_t cid = 0;
    kalix_commands* list = nullptr;
    if (const int status = kalix_context_define(connection, &cid); status != 0)
        return fail("define a context", status);
    if (const int status = kalix_command_buffer(connection, cid, &list); status != 0)
        return fail("make a command buffer", status);
    fill(list, cid);
    const uint32_t bytes = list->used;
    execbuf_rep reply{};
    const double submit = median(21, 200, [&] { return kalix_execbuf(connection, cid, bytes, 0, &reply); });
    kalix_fence_wait(connection, reply.seqno);
    list->used = 0;
    const double shown = presents(connection, cid);
    if (trip < 0 || submit < 0 || shown < 0)
        return fail("get an answer", kalix_connection_error(connection));
    std::printf("request round trip      %8.2f us\n", trip * 1e6);
    std::printf("submits of %5u bytes   %8.0f a second\n", bytes, 1 / submit);
    std::printf("presents of 1024x768   %8.1f a second\n", shown);
    return 0;
}

} // namespace

int main()
{
    kalix_connection* connection = nullptr;
    if (const int status = kalix_open(nullptr, &connection); status != 0)
        return fail("connect to a server (start it with kalix-run -- kalix-bench)", status);
    const int status = run(connection);
    kalix_close(connection);
    return status;
}
