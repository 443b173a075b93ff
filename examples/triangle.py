#!/usr/bin/env python3
"""A triangle on the screen, in Python: kalix-run -- python3 triangle.py"""
import struct
import sys

import kalix

WIDTH, HEIGHT = 800, 600
VERTEX = struct.Struct("<3fI")  # x, y, z: -1 to 1 over the viewport, y upward; the colour 0xAARRGGBB
CORNERS = b"".join(VERTEX.pack(*corner) for corner in (
    (-0.8, -0.8, 0, 0xFFFF3030), (0, 0.8, 0, 0xFF30FF30), (0.8, -0.8, 0, 0xFF3030FF)))


def draw(server, drawing, staging, vertices, picture):
    """Draws the triangle, waits for the device, and shows it."""
    commands = drawing.commands
    commands.upload(staging, vertices)
    commands.set_render_target(kalix.SVGA3D_RT_COLOR0, picture.image())
    commands.set_viewport((0, 0, WIDTH, HEIGHT))
    commands.clear(kalix.SVGA3D_CLEAR_COLOR, 0xFF202030, 1, 0, (0, 0, WIDTH, HEIGHT))
    # The first stage multiplies with a texture, and nothing is bound: take the colours of the vertices alone.
    commands.set_texture_state(0, kalix.SVGA3D_TS_COLOROP, kalix.SVGA3D_TC_SELECTARG2)
    layout = kalix.VertexLayout(vertices, VERTEX.size)
    layout.add(kalix.SVGA3D_DECLUSAGE_POSITION, kalix.SVGA3D_DECLTYPE_FLOAT3)
    layout.add(kalix.SVGA3D_DECLUSAGE_COLOR, kalix.SVGA3D_DECLTYPE_D3DCOLOR)
    commands.draw(layout, kalix.primitives(kalix.SVGA3D_PRIMITIVE_TRIANGLELIST, 1))
    server.wait(commands.submit())  # then the staging buffer is free again
    server.present(picture)


try:
    with (kalix.Connection() as server,
          kalix.Context(server) as drawing,
          kalix.DmaBuffer(server, CORNERS) as staging,
          kalix.Surface(server, kalix.SVGA3D_SURFACE_HINT_VERTEXBUFFER, kalix.SVGA3D_BUFFER,
                        len(CORNERS), 1) as vertices,
          kalix.Surface(server, kalix.SVGA3D_SURFACE_HINT_RENDERTARGET, kalix.SVGA3D_A8R8G8B8,
                        WIDTH, HEIGHT) as picture):
        server.set_mode(WIDTH, HEIGHT)  # and the display is on
        draw(server, drawing, staging, vertices, picture)
except OSError as error:
    sys.exit(f"triangle: {error}")
