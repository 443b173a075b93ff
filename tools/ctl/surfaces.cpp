// Surfaces of any client, looked at, shown, dumped and filled.
//
// Debug requests find a surface whoever holds it. Its pixels come over the way of every client: a reference, then a
// transfer into a buffer of one's own, which leaves the screen alone.

#include "tools/ctl/commands.h"
#include "tools/ctl/surface_picture.h"
#include "tools/ctl/svga_names.h"
#include "tools/picture/picture.h"
#include "tools/screen/run_directory.h"
#include "tools/screen/status_reader.h"

#include <cerrno>
#include <fmt/format.h>
#include <kalix/client.hpp>
#include <kalix/svga3d_formats.h>
#include <memory>
#include <span>
#include <stdexcept>

namespace kalix::ctl {
namespace {

std::vector<uint64_t> holders(std::span<const uint32_t> pids)
{
    std::vector<uint64_t> out;
    for (const uint32_t pid : pids)
        if (pid != 0)
            out.push_back(pid);
    return out;
}

// Asks about one surface; an unknown one has a message of its own.
void expect_surface(int result, uint32_t sid, const char* what)
{
    if (result == -EINVAL)
        throw std::runtime_error{fmt::format(
            "cannot {} surface {}: the server refused; kalixctl list shows its surfaces (under KALIX_STRICT=1 only its "
            "own user may ask)",
            what, sid)};
    client::check(result, what);
}

sid_info_req ask_about(const client::connection& server, uint32_t sid)
{
    sid_info_req info{};
    info.sid = sid;
    expect_surface(kalix_debug_info(server.get(), &info), sid, "describe");
    return info;
}

// Of a face. The debug requests do not say, and a reference, which does, would disturb who holds the surface; the
// status file has them for the ids that the server gives.
value levels_of(const kalix_status* status, uint32_t sid)
{
    if (!status || sid >= KALIX_STATUS_SURFACE_IDS || status->levels[sid] == 0)
        return unknown{};
    return uint64_t{status->levels[sid]};
}

// None where it cannot be read: a surface is described all the same.
std::unique_ptr<kalix_status> status_or_none()
{
    try {
        return tools::read_status(tools::run_directory());
    } catch (const std::exception&) {
        return nullptr;
    }
}

record row_of(const sid_entry& entry, const kalix_status* status)
{
    return {{"sid", uint64_t{entry.sid}},
            {"size", box{entry.width, entry.height, entry.depth}},
            {"levels", levels_of(status, entry.sid)},
            {"format", format_name(entry.format)},
            {"flags", flag_names(entry.flags)},
            {"references", uint64_t{entry.ref_count}},
            {"holders", holders(entry.pids)},
            {"more_holders", entry.more != 0}};
}

// The whole first level, its rows packed.
std::vector<std::byte> read_surface(const client::connection& server, const sid_info_req& info)
{
    const svga3d_block block = svga3d_block_of(info.format);
    const uint64_t bytes = svga3d_row_bytes(block, info.width) * svga3d_block_rows(block, info.height);
    // One buffer takes it whole, whose size is a word of 32 bits.
    constexpr uint64_t most = uint64_t{1} << 30;
    if (bytes == 0 || bytes > most)
        throw std::runtime_error{
            fmt::format("cannot dump surface {}: it has no pixels, or more than a gigabyte", info.sid)};
    // A reference keeps it, and lets commands name it; both go with the connection.
    client::check(kalix_surface_reference(server.get(), info.sid, nullptr), "take a reference on the surface");
    const client::dma_buffer buffer{server, static_cast<uint32_t>(bytes)};
    client::context context{server};
    const svga3d_copy_box all{0, 0, 0, info.width, info.height, 1, 0, 0, 0};
    context.commands().surface_dma({{buffer.at(0), 0}, {info.sid, 0, 0}, SVGA3D_READ_HOST_VRAM}, {&all, 1});
    server.wait(context.commands().submit());
    return {buffer.bytes().begin(), buffer.bytes().begin() + static_cast<ptrdiff_t>(bytes)};
}

} // namespace

report list_surfaces(const arguments&)
{
    const client::connection server;
    table surfaces{"surfaces", {}};
    list_sids_req list{};
    const auto status = status_or_none();
    // Ten at a time; the server goes on in between, so one that comes or goes meanwhile may be missed.
    do {
        client::check(kalix_debug_list(server.get(), &list),
                      "list surfaces (under KALIX_STRICT=1 only the server's user may)");
        for (const sid_entry& entry : list.entries)
            if (entry.sid != 0)
                surfaces.rows.push_back(row_of(entry, status.get()));
        list.first += KALIX_LIST_ENTRIES;
    } while (list.more);
    return {{}, {std::move(surfaces)}};
}

report describe_surface(const arguments& given)
{
    const client::connection server;
    const sid_info_req info = ask_about(server, given.number<uint32_t>("sid"));
    return {{{"sid", uint64_t{info.sid}},
             {"size", box{info.width, info.height, info.depth}},
             {"levels", levels_of(status_or_none().get(), info.sid)},
             {"format", format_name(info.format)},
             {"flags", flag_names(info.flags)},
             {"references", uint64_t{info.ref_count}},
             {"holders", holders(info.pids)}},
            {}};
}

report show_surface(const arguments& given)
{
    const auto sid = given.number<uint32_t>("sid");
    const client::connection server;
    expect_surface(kalix_debug_show(server.get(), sid), sid, "show");
    return {{{"debug_display", true}, {"surface", uint64_t{sid}}}, {}};
}

report reset_display(const arguments&)
{
    const client::connection server;
    client::check(kalix_debug_reset(server.get()), "end the debug display");
    return {{{"debug_display", false}}, {}};
}

report dump_surface(const arguments& given)
{
    const bool raw = given.has("--raw");
    const std::string file = given.text("file");
    const client::connection server;
    const sid_info_req info = ask_about(server, given.number<uint32_t>("sid"));
    if (!raw && !has_picture(info.format))
        throw std::runtime_error{
            fmt::format("cannot turn format {} into a picture; --raw writes its bytes", format_name(info.format))};
    const std::vector<std::byte> bytes = read_surface(server, info);
    if (raw)
        tools::write_bytes(bytes, file);
    else
        tools::write_png(picture_of(info.format, info.width, info.height, bytes), file, tools::alpha_channel::kept);
    return {{{"sid", uint64_t{info.sid}},
             {"size", box{info.width, info.height, info.depth}},
             {"format", format_name(info.format)},
             {"file", file},
             {"surface_bytes", uint64_t{bytes.size()}}},
            {},
            file == "-"};
}

report dump_bytes(const arguments& given)
{
    const auto sid = given.number<uint32_t>("sid");
    const auto offset = given.number<uint32_t>("--offset");
    const auto row_bytes = given.number<uint32_t>("--row-bytes");
    const auto stride = given.number<int32_t>("--stride");
    const auto count = given.number<uint32_t>("--rows");
    dump_sid_req dump{sid, offset, row_bytes, stride, count, 0, {}};
    if (uint64_t{row_bytes} * count > KALIX_DUMP_BYTES_MAX)
        throw std::runtime_error{fmt::format("cannot dump {} rows of {} bytes: a dump has at most {} bytes", count,
                                             row_bytes, static_cast<int>(KALIX_DUMP_BYTES_MAX))};
    const client::connection server;
    expect_surface(kalix_debug_dump(server.get(), &dump), sid, "dump");
    table rows{"rows", {}};
    // Packed, whatever the stride was.
    const std::span data{dump.data};
    for (uint32_t row = 0; row < count; ++row) {
        const auto bytes = data.subspan(size_t{row} * row_bytes, row_bytes);
        rows.rows.push_back(
            {{"offset", int64_t{offset} + int64_t{stride} * row}, {"bytes", octets{{bytes.begin(), bytes.end()}}}});
    }
    return {{}, {std::move(rows)}};
}

report fill_surface(const arguments& given)
{
    const auto sid = given.number<uint32_t>("sid");
    const auto word = given.number<uint32_t>("pixel");
    const client::connection server;
    expect_surface(kalix_debug_fill(server.get(), sid, word), sid, "fill");
    return {{{"filled", uint64_t{sid}}, {"pixel", pixel{word}}}, {}};
}

} // namespace kalix::ctl
