"""A session with a server, and what is asked of it rather than of an object: fences, the screen, debugging."""
import ctypes
import os

from kalix import c
from kalix._owner import Owner, Session, filled, record
from kalix.declarations import (dump_sid_req, fifomap_caps_rep, kalix_connection, kalix_cursor_image, list_sids_req,
                                sid_entry, sid_info_req, svga3d_rect)


class Connection(Owner):
    """A session with a server. What is made through it goes with it, and keeps it alive until then.

    run_directory: the server's; None for that of KALIX_RUN_DIR, else the user's own, else the host's. FileNotFoundError
    when there is no server, ConnectionRefusedError when it was killed, PermissionError when its group would be needed,
    each with a text that says where and what would help; BrokenPipeError and ConnectionResetError, here and in every
    call, when it has gone.

    Any number of threads may use a connection; their requests follow one another.
    """

    def __init__(self, run_directory: str | os.PathLike | None = None) -> None:
        path = None if run_directory is None else os.fsencode(run_directory)
        handle = _opened(path)
        self.session = Session(self, handle)
        self._owns(c.kalix_close, handle)

    def close(self) -> None:
        """Ends the session: the server releases all that was made through it."""
        super().close()
        self.session.handle = None

    def release_all(self) -> None:
        """Gives back all that was made through the connection; objects made by it are void."""
        c.kalix_disconnect(self.handle)
        ended, self.session = self.session, Session(self, self.handle)
        ended.handle = None

    @property
    def handle(self) -> object:
        """What the functions of kalix.c take as their connection."""
        return self.session.handle

    @property
    def error(self) -> int:
        """0 while the connection works, else the negative errno with which it was lost."""
        return c.kalix_connection_error(self.handle)

    def parameter(self, which: int) -> int:
        """A device parameter, KALIX_PARAM_..."""
        return filled(c.kalix_getparam, ctypes.c_uint64, self.handle, which).value

    def fifo_register(self, index: int) -> int:
        """A FIFO register by its number, 0 to 1024."""
        return filled(c.kalix_fifomap, ctypes.c_uint32, self.handle, index).value

    def capabilities(self) -> list[int]:
        """The capability records: {length in words, type, pairs of index and value}, ended by a length of 0."""
        return list(filled(c.kalix_fifomap_caps, fifomap_caps_rep, self.handle).words)

    def allocate_sid(self) -> int:
        """An id to define a surface with later."""
        return filled(c.kalix_alloc_sid, ctypes.c_uint32, self.handle).value

    def wait(self, fence: int) -> None:
        """Returns when the device has passed the fence: what was submitted up to it has run."""
        c.kalix_fence_wait(self.handle, fence)

    def passed(self, fence: int) -> bool:
        """Whether the device has passed the fence."""
        signalled = ctypes.c_int()
        c.kalix_fence_signalled(self.handle, fence, ctypes.byref(signalled), None)
        return signalled.value != 0

    # The screen

    def present(self, surface, width: int | None = None, height: int | None = None, x: int = 0, y: int = 0) -> None:
        """Shows a surface on all of the screen, or its upper left part of width x height pixels.

        The frame is queued behind what was submitted before; the call does not wait for it. With the display off
        nothing shows, and nothing says so here. x and y: where on the unzoomed screen, pixels.
        """
        c.kalix_present(self.handle, surface.sid, x, y, surface.width if width is None else width,
                        surface.height if height is None else height)

    def present_physical(self, surface, rect: svga3d_rect | tuple, address: int) -> None:
        """Copies a rectangle into the framebuffer, in rows of the surface's width from a guest physical address on."""
        part = record(svga3d_rect, rect)
        c.kalix_present_phys(self.handle, surface.sid, part.x, part.y, part.w, part.h, address)

    def set_mode(self, width: int, height: int, bits_per_pixel: int = 32) -> None:
        """Sets the screen's size in pixels and turns the display on. A mode that the device lacks changes nothing."""
        c.kalix_set_mode(self.handle, width, height, bits_per_pixel)

    def enable_display(self, on: bool) -> None:
        """Turns the display on or off."""
        c.kalix_svga_enable(self.handle, on)

    def set_cursor(self, pixels, width: int, height: int, hotspot: tuple[int, int] = (0, 0)) -> None:
        """Sets the cursor's picture: a buffer of packed rows of 0xAARRGGBB, premultiplied, at most 256 pixels a side.

        hotspot: the pixel that points.
        """
        words = (ctypes.c_uint32 * (width * height)).from_buffer_copy(pixels)
        c.kalix_set_cursor(self.handle, kalix_cursor_image(width, height, *hotspot, words))

    def move_cursor(self, visible: bool, x: int, y: int) -> None:
        """Places the cursor's hot spot, in screen pixels."""
        c.kalix_move_cursor(self.handle, visible, x, y)

    # Debugging: for every surface of the server

    def debug_show(self, sid: int) -> None:
        """Shows one surface alone, instead of all that is presented, until debug_reset()."""
        c.kalix_debug_show(self.handle, sid)

    def debug_reset(self) -> None:
        """Ends debug_show()."""
        c.kalix_debug_reset(self.handle)

    def debug_fill(self, sid: int, pixel: int) -> None:
        """Fills a surface of 32-bit colours with a pixel; uses the framebuffer's beginning."""
        c.kalix_debug_fill(self.handle, sid, pixel)

    def debug_info(self, sid: int) -> sid_info_req:
        """Size, format and holders of a surface. EINVAL when there is none."""
        information = sid_info_req(sid=sid)
        c.kalix_debug_info(self.handle, information)
        return information

    def debug_list(self) -> list[sid_entry]:
        """All surfaces of the server, the first two holders of each."""
        found: list[sid_entry] = []
        while True:
            part = list_sids_req(first=len(found))
            c.kalix_debug_list(self.handle, part)
            entries = [entry for entry in part.entries if entry.sid != 0]
            found += entries
            if not part.more or not entries:
                return found

    def debug_dump(self, dump: dump_sid_req) -> bytes:
        """Rows of a surface, packed, as the record asks for them; uses the framebuffer's beginning."""
        c.kalix_debug_dump(self.handle, dump)
        return bytes(dump.data[:dump.row_bytes * dump.rows])


def _opened(path: bytes | None) -> object:
    """The handle of a new connection, or an OSError whose text says why there is none."""
    try:
        return filled(c.kalix_open, ctypes.POINTER(kalix_connection), path)
    except OSError as error:
        why = ctypes.create_string_buffer(4352)
        c.kalix_explain_open(path, error.errno, why, len(why))
        raise OSError(error.errno, f"connect to the server: {os.fsdecode(why.value)}") from None
