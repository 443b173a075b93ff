// KALIX_DEBUG=1: each mistake is named once, and a draw that lacks nothing is silent.

#include "tests/unit/client/fake_server.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <kalix/client.hpp>

namespace kalix::test {
namespace {

using testing::HasSubstr;

class DrawCheck : public testing::Test {
protected:
    DrawCheck() { setenv("KALIX_DEBUG", "1", 1); }
    ~DrawCheck() override { unsetenv("KALIX_DEBUG"); }

    // What standard error has after one context's submission of a draw, prepared but for what is left out.
    std::string said_without(const std::string& left_out, bool twice = false)
    {
        const client::connection connection{server.path().c_str()};
        client::context context{connection};
        client::command_buffer& commands = context.commands();
        const auto wants = [&](const char* name) { return left_out != name; };
        testing::internal::CaptureStderr();
        kalix_cmd_update(commands.list(), 0, 0, 1, 1);
        if (wants("target"))
            commands.set_render_target(SVGA3D_RT_COLOR0, {6, 0, 0});
        if (wants("depth target"))
            commands.set_render_target(SVGA3D_RT_DEPTH, {7, 0, 0});
        if (left_out == "target")
            commands.unset_render_target(SVGA3D_RT_DEPTH);
        if (wants("viewport"))
            commands.set_viewport({0, 0, 8, 8});
        if (wants("texture"))
            commands.set_texture_state(0, SVGA3D_TS_COLOROP, SVGA3D_TC_SELECTARG2);
        if (wants("target"))
            commands.set_render_state(SVGA3D_RS_ZENABLE, 1u);
        commands.clear(wants("cleared") ? SVGA3D_CLEAR_DEPTH : SVGA3D_CLEAR_COLOR, 0, 1, 0, {0, 0, 8, 8});
        const svga3d_vertex_declaration one{SVGA3D_DECLTYPE_FLOAT3,
                                            0,
                                            wants("position") ? SVGA3D_DECLUSAGE_POSITION : SVGA3D_DECLUSAGE_COLOR,
                                            0,
                                            {},
                                            0,
                                            0};
        const svga3d_primitive_range range = client::primitives(SVGA3D_PRIMITIVE_TRIANGLELIST, 1);
        for (int i = 0; i < (twice ? 2 : 1); ++i) {
            commands.draw_primitives({&one, 1}, {&range, 1});
            commands.submit();
        }
        return testing::internal::GetCapturedStderr();
    }

    fake_server server{[](const received& request) {
        return request.command() == KALIX_CONTEXT_DEFINE ? reply(0, {4, 0}) : echo(request);
    }};
};

TEST_F(DrawCheck, EachMistakeIsNamedOnce)
{
    const std::pair<const char*, const char*> mistakes[] = {
        {"target", "has no target"},        {"viewport", "has no viewport"},     {"texture", "takes a texture"},
        {"position", "without a position"}, {"depth target", "without a depth"}, {"cleared", "never cleared"}};
    for (const auto& [left_out, text] : mistakes) {
        const std::string said = said_without(left_out, true);
        EXPECT_THAT(said, HasSubstr("libkalix: context 4: a draw or clear")) << left_out;
        EXPECT_THAT(said, HasSubstr(text));
        EXPECT_EQ(std::ranges::count(said, '\n'), 1) << said;
    }
}

TEST_F(DrawCheck, NothingIsSaidOfAWholeDrawNorUnasked)
{
    EXPECT_EQ(said_without("nothing"), "");
    setenv("KALIX_DEBUG", "0", 1);
    EXPECT_EQ(said_without("target"), "");
}

} // namespace
} // namespace kalix::test
