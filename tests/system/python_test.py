#!/usr/bin/env python3
"""The Python module against a server: kalix-run -- python_test.py, with PYTHONPATH and KALIX_LIBRARY set."""
import gc
import struct
import threading
import unittest
from array import array

import kalix
from kalix import c

RED, BLUE = 0xFFFF0000, 0xFF0000FF
ALL = (0, 0, 16, 16)


class Module(unittest.TestCase):
    def setUp(self):
        self.server = kalix.Connection()
        self.addCleanup(self.server.close)
        self.drawing = kalix.Context(self.server)
        self.commands = self.drawing.commands
        self.target = self.surface(kalix.SVGA3D_SURFACE_HINT_RENDERTARGET, kalix.SVGA3D_A8R8G8B8, 16, 16)

    def surface(self, flags, format, width, height):
        return kalix.Surface(self.server, flags, format, width, height)

    def filled_surface(self, flags, format, width, height, contents):
        made = self.surface(flags, format, width, height)
        with kalix.DmaBuffer(self.server, contents) as staging:
            self.commands.upload(staging, made)
            self.server.wait(self.commands.submit())
        return made

    def aim(self):
        """Target, viewport, a blue ground, and the vertices' colours alone."""
        self.commands.set_render_target(kalix.SVGA3D_RT_COLOR0, self.target.image())
        self.commands.set_viewport(ALL)
        self.commands.clear(kalix.SVGA3D_CLEAR_COLOR, BLUE, 1, 0, ALL)
        self.commands.set_texture_states([(0, kalix.SVGA3D_TS_COLORARG2, kalix.SVGA3D_TA_DIFFUSE),
                                          (0, kalix.SVGA3D_TS_COLOROP, kalix.SVGA3D_TC_SELECTARG2)])

    def corners(self):
        """A red triangle over the left half of the target's diagonal, and its layout."""
        packed = b"".join(struct.pack("<3fI", *at, 0.5, RED) for at in ((-1, -1), (-1, 1), (1, -1)))
        made = self.filled_surface(kalix.SVGA3D_SURFACE_HINT_VERTEXBUFFER, kalix.SVGA3D_BUFFER, len(packed), 1, packed)
        return made, kalix.VertexLayout(made, 16).add(
            kalix.SVGA3D_DECLUSAGE_POSITION, kalix.SVGA3D_DECLTYPE_FLOAT3).add(
            kalix.SVGA3D_DECLUSAGE_COLOR, kalix.SVGA3D_DECLTYPE_D3DCOLOR)

    def pixel(self, x, y):
        return struct.unpack("<I", self.target.read((x, y, 1, 1)))[0]

    def test_an_indexed_draw_is_counted_and_read_back(self):
        self.aim()
        _vertices, layout = self.corners()
        indices = self.filled_surface(kalix.SVGA3D_SURFACE_HINT_INDEXBUFFER, kalix.SVGA3D_BUFFER, 6, 1,
                                      array("H", [0, 1, 2]))
        counted = kalix.DmaBuffer(self.server, struct.pack("<3I", 12, 0, 0))
        self.commands.begin_query()
        self.commands.draw(layout, kalix.indexed_primitives(kalix.SVGA3D_PRIMITIVE_TRIANGLELIST, 1, indices, 2))
        self.commands.end_query(counted.at())
        self.server.wait(self.commands.submit())
        self.assertEqual((self.pixel(1, 14), self.pixel(14, 1)), (RED, BLUE))
        pixels = self.target.read()
        red = sum(word == RED for word, in struct.iter_unpack("<I", pixels))
        result = kalix.svga3d_query_result.from_buffer(counted.bytes)
        self.assertEqual((result.state, result.result), (kalix.SVGA3D_QUERYSTATE_SUCCEEDED, red))

    def test_a_light_shines_and_a_matrix_moves(self):
        self.aim()
        _vertices, layout = self.corners()
        self.commands.set_render_states([(kalix.SVGA3D_RS_LIGHTINGENABLE, 1), (kalix.SVGA3D_RS_AMBIENT, 0xFFFFFFFF)])
        self.commands.set_material(kalix.SVGA3D_FACE_FRONT_BACK, kalix.svga3d_material(ambient=(0, 1, 0, 1)))
        lamp = kalix.svga3d_light(type=kalix.SVGA3D_LIGHTTYPE_POINT, range=10, position=(0, 0, 0, 1))
        self.commands.set_light(0, lamp)
        self.commands.enable_light(0, True)
        moved = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 0, 0, 1]
        self.commands.set_transform(kalix.SVGA3D_TRANSFORM_WORLD, moved)
        self.commands.draw(layout, kalix.primitives(kalix.SVGA3D_PRIMITIVE_TRIANGLELIST, 1))
        self.commands.submit()
        self.assertEqual((self.pixel(9, 14) & 0xFFFFFF, self.pixel(1, 14)), (0x00FF00, BLUE))
        with self.assertRaises(ValueError):
            self.commands.set_transform(kalix.SVGA3D_TRANSFORM_WORLD, moved[:12])

    def test_download_brings_what_upload_took(self):
        texels = bytes(range(256))
        board = self.filled_surface(kalix.SVGA3D_SURFACE_HINT_TEXTURE, kalix.SVGA3D_A8R8G8B8, 8, 8, texels)
        back = kalix.DmaBuffer(self.server, 256)
        self.commands.download(board, back)
        self.server.wait(fence := self.commands.submit())
        self.assertTrue(self.server.passed(fence))
        self.assertEqual(bytes(back.bytes), texels)

    def test_errors_name_the_call(self):
        with self.assertRaisesRegex(FileNotFoundError, "no server: .*svga_ch is missing"):
            kalix.Connection("/nowhere/at/all")
        self.commands.set_render_target(kalix.SVGA3D_RT_COLOR0, kalix.svga3d_image(40000, 0, 0))
        with self.assertRaisesRegex(OSError, "kalix_submit: Invalid argument"):
            self.commands.submit()
        with self.assertRaisesRegex(FileNotFoundError, "kalix_surface_reference"):
            kalix.Surface.refer(self.server, 40000, 1, 1)

    def test_what_is_closed_goes_and_refuses(self):
        def sids():
            return {entry.sid for entry in self.server.debug_list()}

        with self.surface(0, kalix.SVGA3D_A8R8G8B8, 4, 4) as inner:
            self.assertIn(inner.sid, sids())
            self.assertEqual(self.server.debug_info(inner.sid).width, 4)
        inner.close()
        self.assertNotIn(inner.sid, sids())
        dropped = self.surface(0, kalix.SVGA3D_A8R8G8B8, 4, 4).sid
        gc.collect()
        self.assertNotIn(dropped, sids())
        self.drawing.close()
        with self.assertRaisesRegex(OSError, "kalix_cmd_set_viewport: Invalid"):
            self.commands.set_viewport(ALL)

    def test_nothing_reaches_into_memory_that_is_gone(self):
        staging = kalix.DmaBuffer(self.server, b"kept")
        view = staging.bytes
        other = kalix.Context(self.server)
        self.server.release_all()
        staging.close()
        del staging
        gc.collect()
        self.assertEqual(bytes(view), b"kept")
        with self.assertRaises(OSError):
            other.commands.set_z_range(0, 1)
        with kalix.Context(self.server) as anew:
            anew.commands.set_z_range(0, 1)
            self.server.close()
            self.assertIsNone(anew.commands.list)
        with self.assertRaises(OSError):
            self.server.set_mode(64, 64)

    def test_overlays_show_on_what_is_presented(self):
        self.server.set_mode(64, 48)
        with kalix.Overlay(self.server, 1, 2, self.target) as badge, \
                kalix.Overlay(self.server, 3, 4, self.target, self.target) as double:
            badge.show(False)
            self.server.present(self.target)
            self.assertTrue(double.flip())
        self.server.enable_display(True)
        self.server.set_cursor(array("I", [RED] * 16), 4, 4, (1, 1))
        self.server.move_cursor(True, 5, 5)

    def test_levels_are_defined_in_their_order(self):
        with kalix.Surface.of_levels(self.server, kalix.SVGA3D_SURFACE_HINT_TEXTURE, kalix.SVGA3D_A8R8G8B8,
                                     [[(8, 4, 1), (4, 2, 1)]], sid=self.server.allocate_sid()) as levels:
            with kalix.Surface.refer(self.server, levels.sid, 8, 4) as other:
                self.assertEqual((levels.width, levels.height, other.format), (8, 4, kalix.SVGA3D_A8R8G8B8))

    def test_a_wait_lets_other_threads_run(self):
        waiting = threading.Thread(target=self.server.wait, args=[self.commands.submit()])
        waiting.start()
        waiting.join(60)
        self.assertFalse(waiting.is_alive())
        self.assertEqual(self.server.error, 0)

    def test_parameters_are_numbers(self):
        self.assertEqual(self.server.parameter(kalix.KALIX_PARAM_HAVE_3D), 1)
        self.assertGreater(self.server.capabilities()[0], 0)
        self.assertRegex(c.kalix_version().decode(), r"^\d+\.\d+\.\d+$")


if __name__ == "__main__":
    unittest.main()
