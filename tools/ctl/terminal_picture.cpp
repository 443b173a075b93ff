#include "tools/ctl/terminal_picture.h"

#if KALIX_HAS_CHAFA

#include <chafa.h>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kalix::ctl {
namespace {

template <auto release>
struct releaser {
    void operator()(auto* what) const { release(what); }
};
template <typename type, auto release>
using owned = std::unique_ptr<type, releaser<release>>;

struct cells {
    gint width, height;
};

// The screen's shape, in cells twice as high as wide; the prompt's line is kept.
cells cells_for(const tools::screen_frame& frame)
{
    winsize room{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &room) != 0 || room.ws_col == 0 || room.ws_row < 2)
        room = {25, 80, 0, 0};
    cells size{room.ws_col, room.ws_row - 1};
    chafa_calc_canvas_geometry(static_cast<gint>(frame.width), static_cast<gint>(frame.height), &size.width,
                               &size.height, 0.5f, TRUE, FALSE);
    return size;
}

// Named by the environment: what it does not know draws with 16 colours at least.
ChafaCanvasMode mode_of(const ChafaTermInfo* terminal)
{
    if (chafa_term_info_have_seq(terminal, CHAFA_TERM_SEQ_SET_COLOR_FGBG_DIRECT))
        return CHAFA_CANVAS_MODE_TRUECOLOR;
    if (chafa_term_info_have_seq(terminal, CHAFA_TERM_SEQ_SET_COLOR_FGBG_256))
        return CHAFA_CANVAS_MODE_INDEXED_240;
    return CHAFA_CANVAS_MODE_INDEXED_16;
}

} // namespace

std::string terminal_picture(const tools::screen_frame& frame)
{
    chafa_set_n_threads(1); // one picture is not worth starting threads for
    const owned<gchar*, g_strfreev> environment{g_get_environ()};
    const owned<ChafaTermInfo, chafa_term_info_unref> terminal{
        chafa_term_db_detect(chafa_term_db_get_default(), environment.get())};
    const owned<ChafaSymbolMap, chafa_symbol_map_unref> symbols{chafa_symbol_map_new()};
    chafa_symbol_map_add_by_tags(symbols.get(),
                                 static_cast<ChafaSymbolTags>(CHAFA_SYMBOL_TAG_HALF | CHAFA_SYMBOL_TAG_SPACE));
    const owned<ChafaCanvasConfig, chafa_canvas_config_unref> config{chafa_canvas_config_new()};
    const auto [width, height] = cells_for(frame);
    chafa_canvas_config_set_geometry(config.get(), width, height);
    chafa_canvas_config_set_canvas_mode(config.get(), mode_of(terminal.get()));
    chafa_canvas_config_set_symbol_map(config.get(), symbols.get());
    const owned<ChafaCanvas, chafa_canvas_unref> canvas{chafa_canvas_new(config.get())};
    chafa_canvas_draw_all_pixels(canvas.get(), CHAFA_PIXEL_BGRA8_UNASSOCIATED,
                                 reinterpret_cast<const guint8*>(frame.pixels.data()), static_cast<gint>(frame.width),
                                 static_cast<gint>(frame.height), static_cast<gint>(frame.width * 4));
    GString* const text = chafa_canvas_print(canvas.get(), terminal.get());
    const std::string out{text->str, text->len};
    g_string_free(text, TRUE);
    return out + "\n";
}

} // namespace kalix::ctl

#else

#include <stdexcept>

namespace kalix::ctl {

std::string terminal_picture(const tools::screen_frame&)
{
    throw std::runtime_error{"cannot draw in the terminal: this kalixctl was built without libchafa"};
}

} // namespace kalix::ctl

#endif
