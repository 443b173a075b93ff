"""Memory that commands name: DMA buffers, which the process shares with the device, surfaces, and overlays of them."""
import ctypes
import weakref
from collections.abc import Sequence

from kalix import c
from kalix._owner import Owner, filled, record
from kalix.connection import Connection
from kalix.declarations import (kalix_dma_buffer, kalix_readback_area, kalix_surface_description, overlay_define_req,
                                surface_reference_req, surface_size, svga3d_image, svga3d_rect, svga_guest_pointer)


class DmaBuffer(Owner):
    """Memory that this process and the device share.

    contents: its size in bytes, or a buffer that it begins as a copy of (bytes, array, memoryview, what numpy has).
    The device reads or writes it while commands run: write it again, read it, or give it back only behind their fence.
    ENOMEM, ENOSPC when there is no room.
    """

    def __init__(self, server: Connection, contents) -> None:
        source = None if isinstance(contents, int) else memoryview(contents).cast("B")
        size = contents if source is None else source.nbytes
        buffer = filled(c.kalix_dmabuf_alloc, kalix_dma_buffer, server.handle, size)
        # Whoever holds a view of the bytes can still reach them when the server has the buffer back: what is mapped
        # goes with the last view, so unref is given a record that has nothing mapped.
        self._bytes = (ctypes.c_ubyte * size).from_address(buffer.data)
        self._place = buffer.gmr_id, buffer.gmr_offset
        weakref.finalize(self._bytes, c.kalix_dmabuf_unmap, buffer).atexit = False
        self._owns_of(server.session, c.kalix_dmabuf_unref, kalix_dma_buffer(handle=buffer.handle))
        if source is not None:
            self.bytes[:] = source

    @property
    def bytes(self) -> memoryview:
        """The bytes themselves, to read and write."""
        return memoryview(self._bytes).cast("B")

    def at(self, offset: int = 0) -> svga_guest_pointer:
        """Where a byte of the buffer is, as commands name it."""
        return svga_guest_pointer(self._place[0], self._place[1] + offset)


class Surface(Owner):
    """A reference on memory of the device's: a picture, a texture, a target, or, of format SVGA3D_BUFFER, plain bytes.

    flags are SVGA3D_SURFACE_..., width and height pixels of its one level; a buffer of n bytes is n wide and 1 high.
    Others may hold the surface longer.
    """

    # pylint: disable-next=too-many-arguments
    def __init__(self, server: Connection, flags: int, format: int, width: int, height: int) -> None:
        sid = filled(c.kalix_surface_define_2d, ctypes.c_uint32, server.handle, flags, format, width, height).value
        self._holds(server, sid, format, width, height)

    @classmethod
    def of_levels(cls, server: Connection, flags: int, format: int, sizes: Sequence[Sequence[tuple]],
                  *, sid: int = 0, shared: bool = False) -> "Surface":
        """A surface of levels, faces or depth: for each face its levels' sizes (width, height, depth).

        One face, or six for a cube map. sid: one from allocate_sid(), 0 for any. shared: it is the candidate for the
        server's shared surface.
        """
        levels = [surface_size(*size) for face in sizes for size in face]
        description = kalix_surface_description(
            flags=flags, format=format, mip_levels=tuple(len(face) for face in sizes),
            sizes=(surface_size * len(levels))(*levels), size_count=len(levels), shared=shared, sid=sid)
        made = cls.__new__(cls)
        defined = filled(c.kalix_surface_define, ctypes.c_uint32, server.handle, description).value
        made._holds(server, defined, format, *((levels[0].width, levels[0].height) if levels else (0, 0)))
        return made

    @classmethod
    def refer(cls, server: Connection, sid: int, width: int, height: int) -> "Surface":
        """Another's surface. Its size does not come with it: who tells the sid tells the size. ENOENT: none there."""
        information = filled(c.kalix_surface_reference, surface_reference_req, server.handle, sid)
        other = cls.__new__(cls)
        other._holds(server, sid, information.format, width, height)
        return other

    def _holds(self, server: Connection, sid: int, format: int, width: int, height: int) -> None:
        self._session = server.session
        self.sid, self.format, self.width, self.height = sid, format, width, height
        self._owns_of(self._session, c.kalix_surface_destroy, sid)

    def image(self, face: int = 0, mipmap: int = 0) -> svga3d_image:
        """One image of the surface, as commands name it."""
        return svga3d_image(self.sid, face, mipmap)

    def read(self, part: svga3d_rect | tuple | None = None) -> bytearray:
        """The whole picture, or a rectangle (x, y, width, height) of it: packed rows in the surface's own format.

        What was submitted before has been drawn. ENOTSUP for a format without pixels. A surface's pixels go to the
        process that reads it first.
        """
        rect = record(svga3d_rect, (0, 0, self.width, self.height) if part is None else part)
        stride = rect.w * c.kalix_readback_pixel_bytes(self.format)
        area = kalix_readback_area(self.sid, self.width, self.height, self.format, rect.x, rect.y, rect.w, rect.h)
        pixels = bytearray(stride * rect.h)
        c.kalix_readback(self._session.handle, area, (ctypes.c_ubyte * len(pixels)).from_buffer(pixels), stride)
        return pixels


class Overlay(Owner):
    """A picture on top of every frame, whoever presents it, from the next present until it is given back.

    x and y: where on the unzoomed screen, pixels. With a second surface there are two buffers: draw into drawn, and
    flip(). Its surfaces must outlive it. EINVAL when the server's KALIX_OVERLAYS_MAX are in use.
    """

    def __init__(self, server: Connection, x: int, y: int, shown: Surface, drawn: Surface | None = None) -> None:
        sids = (shown.sid, 0) if drawn is None else (drawn.sid, shown.sid)
        self._holds(server, overlay_define_req(x, y, shown.width, shown.height, 1 if drawn is None else 2, 0, *sids))

    @classmethod
    def of(cls, server: Connection, overlay: overlay_define_req) -> "Overlay":
        """An overlay of a record's place, buffers and surfaces."""
        made = cls.__new__(cls)
        made._holds(server, overlay)
        return made

    def _holds(self, server: Connection, overlay: overlay_define_req) -> None:
        self._session = server.session
        self.id = filled(c.kalix_overlay_define, ctypes.c_uint32, server.handle, overlay).value
        self._owns_of(self._session, c.kalix_overlay_destroy, self.id)

    def show(self, visible: bool) -> None:
        """Shows or hides it, from the next present on."""
        c.kalix_overlay_visible(self._session.handle, self.id, visible)

    def flip(self) -> bool:
        """Exchanges two buffers and shows the last picture again; False when nothing has been presented yet."""
        try:
            c.kalix_oob_present(self._session.handle, self.id)
        except FileNotFoundError:
            return False
        return True
