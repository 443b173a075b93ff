"""Contexts, the command buffers that draw in them, and how vertices are described to a draw.

Where a record is asked for, a sequence of its fields does as well: (x, y, width, height) for a rectangle.
"""
import ctypes
import struct
from collections.abc import Iterable, Sequence

from kalix import c
from kalix._owner import Owner, Session, array, filled, record
from kalix.connection import Connection
from kalix.declarations import *  # pylint: disable=wildcard-import,unused-wildcard-import
from kalix.memory import DmaBuffer, Surface

_DECLARATION_BYTES = {
    SVGA3D_DECLTYPE_FLOAT4: 16, SVGA3D_DECLTYPE_FLOAT3: 12, SVGA3D_DECLTYPE_FLOAT2: 8, SVGA3D_DECLTYPE_SHORT4: 8,
    SVGA3D_DECLTYPE_SHORT4N: 8, SVGA3D_DECLTYPE_USHORT4N: 8, SVGA3D_DECLTYPE_FLOAT16_4: 8}


class VertexLayout:
    """How the vertices of a surface lie: what is added lies behind what was added before, or at a byte of its own.

    stride: bytes from vertex to vertex. The first vertex lies first_byte into the surface.
    """

    def __init__(self, vertices: Surface, stride: int, first_byte: int = 0) -> None:
        self._sid, self._stride, self._next = vertices.sid, stride, first_byte
        self.declarations: list[svga3d_vertex_declaration] = []

    def add(self, usage: int, type: int, index: int = 0, byte: int | None = None) -> "VertexLayout":
        """Adds an element, SVGA3D_DECLUSAGE_... of SVGA3D_DECLTYPE_..., and returns the layout."""
        at = self._next if byte is None else byte
        self.declarations.append(svga3d_vertex_declaration(type, 0, usage, index, (self._sid, at, self._stride)))
        self._next = at + _DECLARATION_BYTES.get(type, 4)
        return self


def primitives(type: int, count: int) -> svga3d_primitive_range:
    """What one draw draws: count triangles, lines or points, SVGA3D_PRIMITIVE_..."""
    return svga3d_primitive_range(type, count, (SVGA3D_INVALID_ID, 0, 0))


def indexed_primitives(type: int, count: int, indices: Surface, index_bytes: int, first_byte: int = 0,
                       bias: int = 0) -> svga3d_primitive_range:
    """The same through indices of 2 or 4 bytes from a byte of a surface on; bias is added to each."""
    return svga3d_primitive_range(type, count, (indices.sid, first_byte, index_bytes), index_bytes, bias)


class CommandBuffer:
    """The command buffer of a context, which owns it: appends commands and submits them.

    The functions kalix.c.kalix_cmd_... without a method here take list. ENOSPC when the list is full; then nothing was
    appended, and submit() makes room. One thread at a time.
    """

    def __init__(self, session: Session, cid: int) -> None:
        self._session, self.cid = session, cid
        self._list = filled(c.kalix_command_buffer, ctypes.POINTER(kalix_commands), session.handle, cid)

    @property
    def list(self):
        """The list of kalix.c's functions; None when the context or the connection has gone, and they then refuse."""
        return self._list if self._session.handle else None

    def forget(self) -> None:
        """The list has gone with its context."""
        self._list = None

    def submit(self) -> int:
        """Hands over what was appended and returns the fence behind it, without waiting for it.

        EINVAL: the server refused a command, its log says why, none has run, and the list is as it was. Otherwise the
        list is empty; what its commands point at is in use until the fence has passed.
        """
        return filled(c.kalix_submit, ctypes.c_uint32, self._session.handle, self.cid).value

    def set_transform(self, which: int, matrix: Sequence[float]) -> None:
        """Sets SVGA3D_TRANSFORM_...: 16 elements for row vectors, the translation in 12 to 14."""
        c.kalix_cmd_set_transform(self.list, self.cid, which, _floats(matrix, 16))

    def set_z_range(self, min: float, max: float) -> None:
        """Sets the depths that 0 and 1 become."""
        c.kalix_cmd_set_z_range(self.list, self.cid, min, max)

    def set_viewport(self, rect: svga3d_rect | tuple) -> None:
        """Sets where on the target positions from -1 to 1 lie."""
        c.kalix_cmd_set_viewport(self.list, self.cid, record(svga3d_rect, rect))

    def set_scissor_rect(self, rect: svga3d_rect | tuple) -> None:
        """Sets what of the target is drawn to, once SVGA3D_RS_SCISSORTESTENABLE is set."""
        c.kalix_cmd_set_scissor_rect(self.list, self.cid, record(svga3d_rect, rect))

    def set_render_target(self, which: int, target: svga3d_image | None) -> None:
        """Sets a surface's image as SVGA3D_RT_...; None for no target."""
        c.kalix_cmd_set_render_target(self.list, self.cid, which, target)

    def set_render_state(self, state: int, value: int | float) -> None:
        """Sets SVGA3D_RS_...: a float for the states that the header marks as float, an int for all others."""
        self.set_render_states([(state, value)])

    def set_render_states(self, states: Iterable[tuple[int, int | float]]) -> None:
        """Sets several render states in one command."""
        pairs = [(state, _word(value)) for state, value in states]
        c.kalix_cmd_set_render_states(self.list, self.cid, *array(svga3d_render_state_value, pairs))

    def set_texture_state(self, stage: int, name: int, value: int | float) -> None:
        """Sets SVGA3D_TS_... of a stage, 0 to 7; a float as for render states."""
        self.set_texture_states([(stage, name, value)])

    def set_texture_states(self, states: Iterable[tuple[int, int, int | float]]) -> None:
        """Sets several texture states in one command."""
        triples = [(stage, name, _word(value)) for stage, name, value in states]
        c.kalix_cmd_set_texture_states(self.list, self.cid, *array(svga3d_texture_state_value, triples))

    def set_material(self, face: int, material: svga3d_material) -> None:
        """Sets the material of SVGA3D_FACE_..., for lit vertices."""
        c.kalix_cmd_set_material(self.list, self.cid, face, material)

    def set_light(self, index: int, light: svga3d_light) -> None:
        """Sets a light, 0 to 7; enable_light() turns it on."""
        c.kalix_cmd_set_light_data(self.list, self.cid, index, light)

    def enable_light(self, index: int, on: bool) -> None:
        """Turns a light on or off."""
        c.kalix_cmd_set_light_enabled(self.list, self.cid, index, on)

    def set_clip_plane(self, index: int, plane: Sequence[float]) -> None:
        """Sets a plane, 0 to 5, by its four coefficients; SVGA3D_RS_CLIPPLANEENABLE turns it on."""
        c.kalix_cmd_set_clip_plane(self.list, self.cid, index, _floats(plane, 4))

    # pylint: disable-next=too-many-arguments
    def clear(self, flags: int, color: int, depth: float, stencil: int, rect: svga3d_rect | tuple) -> None:
        """Fills a rectangle of the targets that SVGA3D_CLEAR_... name. color is 0xAARRGGBB, depth 0 to 1."""
        c.kalix_cmd_clear(self.list, self.cid, flags, color, depth, stencil, record(svga3d_rect, rect), 1)

    def draw(self, vertices: VertexLayout, range: svga3d_primitive_range) -> None:
        """Draws primitives() or indexed_primitives() of the vertices."""
        self.draw_primitives(vertices.declarations, [range])

    def draw_primitives(self, declarations: Iterable[svga3d_vertex_declaration],
                        ranges: Iterable[svga3d_primitive_range]) -> None:
        """Draws several ranges with one layout."""
        c.kalix_cmd_draw_primitives(self.list, self.cid, *array(svga3d_vertex_declaration, declarations),
                                    *array(svga3d_primitive_range, ranges), None)

    def upload(self, source: DmaBuffer, target: Surface, first_byte: int = 0) -> None:
        """Copies packed rows, from a byte of the buffer on, into all of a surface's first level."""
        self._whole_transfer(source, target, first_byte, SVGA3D_WRITE_HOST_VRAM)

    def download(self, source: Surface, target: DmaBuffer, first_byte: int = 0) -> None:
        """Copies all of a surface's first level into the buffer, which has it behind the fence."""
        self._whole_transfer(target, source, first_byte, SVGA3D_READ_HOST_VRAM)

    def _whole_transfer(self, guest: DmaBuffer, host: Surface, first_byte: int, direction: int) -> None:
        transfer = svga3d_surface_dma((guest.at(first_byte), 0), host.image(), direction)
        self.surface_dma(transfer, [(0, 0, 0, host.width, host.height, 1)])

    def surface_dma(self, transfer: svga3d_surface_dma, boxes: Iterable[svga3d_copy_box | tuple]) -> None:
        """Copies boxes between a buffer and an image of a surface."""
        c.kalix_cmd_surface_dma(self.list, transfer, *array(svga3d_copy_box, boxes), None)

    def surface_copy(self, source: svga3d_image, target: svga3d_image,
                     boxes: Iterable[svga3d_copy_box | tuple]) -> None:
        """Copies boxes from image to image byte by byte, between formats whose blocks have one size."""
        c.kalix_cmd_surface_copy(self.list, source, target, *array(svga3d_copy_box, boxes))

    def stretch(self, blit: svga3d_surface_stretchblt) -> None:
        """Copies a box of one image onto a box of another, of any size."""
        c.kalix_cmd_surface_stretchblt(self.list, blit)

    def present(self, surface: Surface, rects: Iterable[svga3d_copy_rect | tuple]) -> None:
        """Copies rectangles of a surface to the screen, past the server's composing; Connection.present() is usual."""
        c.kalix_cmd_present(self.list, surface.sid, *array(svga3d_copy_rect, rects))

    def blit_to_screen(self, blit: svga3d_blit_to_screen, clips: Iterable[svga3d_signed_rect | tuple] = ()) -> None:
        """Copies a rectangle of an image onto one of the screen, only where the clips are, when there are any."""
        c.kalix_cmd_blit_surface_to_screen(self.list, blit, *array(svga3d_signed_rect, clips))

    def begin_query(self, type: int = SVGA3D_QUERYTYPE_OCCLUSION) -> None:
        """Counts the samples that pass from here on."""
        c.kalix_cmd_begin_query(self.list, self.cid, type)

    def end_query(self, result: svga_guest_pointer, type: int = SVGA3D_QUERYTYPE_OCCLUSION) -> None:
        """Ends counting; behind the fence a svga3d_query_result lies at result (DmaBuffer.at())."""
        c.kalix_cmd_end_query(self.list, self.cid, type, result)

    def wait_for_query(self, result: svga_guest_pointer, type: int = SVGA3D_QUERYTYPE_OCCLUSION) -> None:
        """Writes the last ended query's result once more."""
        c.kalix_cmd_wait_for_query(self.list, self.cid, type, result)


class Context(Owner):
    """A rendering context, which has the states of drawing, and its command buffer."""

    def __init__(self, server: Connection) -> None:
        self.cid = filled(c.kalix_context_define, ctypes.c_uint32, server.handle).value
        self._owns_of(server.session, c.kalix_context_destroy, self.cid)
        self.commands = CommandBuffer(server.session, self.cid)

    def close(self) -> None:
        """Destroys the context; its command buffer is void."""
        super().close()
        self.commands.forget()


def _word(value: int | float) -> int:
    """The 32 bits of a state."""
    return struct.unpack("<I", struct.pack("<f", value))[0] if isinstance(value, float) else value


def _floats(values: Sequence[float], count: int) -> object:
    """Exactly count floats, for a C array."""
    if len(values) != count:
        raise ValueError(f"{len(values)} elements where {count} are due")
    return (ctypes.c_float * count)(*values)
