// Shaders: kept as they come, in bounds.
//
// Shader programs are not announced and do not run; a stream that defines them all the same costs bounded
// memory and gets them refused where it draws with one.

#include "device/commands/commands.h"

#include <numeric>

namespace kalix::device {
namespace {

constexpr size_t shader_tokens_max = 16384;   // of one shader: 64 KiB
constexpr size_t context_tokens_max = 262144; // of all shaders of a context: 1 MiB
constexpr size_t context_shaders_max = 4096;
constexpr uint32_t constant_registers = 256; // of each type

constexpr bool is_shader_type(uint32_t type)
{
    return type == SVGA3D_SHADERTYPE_VS || type == SVGA3D_SHADERTYPE_PS;
}

// Summed anew each time, over 4096 numbers at most: a sum that is kept would have to follow every replacement.
size_t tokens_in(const context& of)
{
    return std::accumulate(of.shaders.begin(), of.shaders.end(), size_t{0},
                           [](size_t sum, const auto& each) { return sum + each.second.size(); });
}

bool has_room(const context& in, const std::pair<uint32_t, uint32_t>& key, size_t tokens)
{
    const auto old = in.shaders.find(key);
    // A shader that takes another one's place is counted without that.
    const size_t given_back = old == in.shaders.end() ? 0 : old->second.size();
    return tokens <= shader_tokens_max && tokens_in(in) - given_back + tokens <= context_tokens_max &&
           (old != in.shaders.end() || in.shaders.size() < context_shaders_max);
}

outcome shader_define(device_state& device, command_reader body)
{
    svga3d_shader_define command;
    std::vector<uint32_t> tokens;
    if (!body.take(command) || !body.take_rest(tokens))
        return KALIX_REFUSED_SHORT_COMMAND;
    const auto in = device.contexts.find(command.cid);
    if (in == device.contexts.end())
        return KALIX_REFUSED_NO_CONTEXT;
    if (!is_shader_type(command.type) || command.shid == SVGA3D_INVALID_ID)
        return KALIX_REFUSED_BAD_VALUE;
    const std::pair key{command.type, command.shid};
    if (!has_room(in->second, key, tokens.size()))
        return KALIX_REFUSED_NO_MEMORY;
    in->second.shaders.insert_or_assign(key, std::move(tokens));
    return executed;
}

outcome shader_destroy(device_state& device, command_reader body)
{
    svga3d_shader_destroy command;
    if (!body.take(command))
        return KALIX_REFUSED_SHORT_COMMAND;
    const auto in = device.contexts.find(command.cid);
    if (in == device.contexts.end())
        return KALIX_REFUSED_NO_CONTEXT;
    if (in->second.shaders.erase({command.type, command.shid}) == 0)
        return KALIX_REFUSED_BAD_VALUE;
    // What was found has a type that exists, so that this index lies in the array.
    if (in->second.bound_shaders[command.type] == command.shid)
        in->second.bound_shaders[command.type] = SVGA3D_INVALID_ID;
    return executed;
}

outcome shader_set(device_state& device, command_reader body)
{
    svga3d_set_shader command;
    if (!body.take(command))
        return KALIX_REFUSED_SHORT_COMMAND;
    const auto in = device.contexts.find(command.cid);
    if (in == device.contexts.end())
        return KALIX_REFUSED_NO_CONTEXT;
    if (!is_shader_type(command.type))
        return KALIX_REFUSED_BAD_VALUE;
    // Bound whether it is defined or not, as surfaces are: a draw with any shader is refused.
    in->second.bound_shaders[command.type] = command.shid;
    return executed;
}

outcome shader_set_constant(device_state& device, command_reader body)
{
    svga3d_set_shader_const command;
    if (!body.take(command))
        return KALIX_REFUSED_SHORT_COMMAND;
    const auto in = device.contexts.find(command.cid);
    if (in == device.contexts.end())
        return KALIX_REFUSED_NO_CONTEXT;
    if (!is_shader_type(command.type) || command.reg >= constant_registers || command.constant_type > 2)
        return KALIX_REFUSED_BAD_VALUE;
    in->second.shader_constants[{command.type, command.reg}] = {
        command.constant_type, command.values[0], command.values[1], command.values[2], command.values[3]};
    return executed;
}

constexpr command_row rows[] = {
    {SVGA_3D_CMD_SHADER_DEFINE, sizeof(svga3d_shader_define), shader_define},
    {SVGA_3D_CMD_SHADER_DESTROY, sizeof(svga3d_shader_destroy), shader_destroy},
    {SVGA_3D_CMD_SET_SHADER, sizeof(svga3d_set_shader), shader_set},
    {SVGA_3D_CMD_SET_SHADER_CONST, sizeof(svga3d_set_shader_const), shader_set_constant},
};

} // namespace

std::span<const command_row> shader_commands()
{
    return rows;
}

} // namespace kalix::device
