"""libkalix for Python: draw with a kalix server, show pictures, read them back.

The objects are those of client.hpp: Connection, Context with its CommandBuffer, Surface, DmaBuffer, Overlay,
VertexLayout. Each owns one thing of the server's and gives it back at the end of its with block. The constants and
records of the C headers are here under their own names; kalix.c has the C functions. Errors are OSError, with the
errno and the name of the function that failed. docs/client.md walks through a first program, examples/triangle.py.

Needs libkalix.so.0 where the loader finds it, or KALIX_LIBRARY with its path, and nothing else.
"""
from kalix import c
from kalix.connection import Connection
from kalix.declarations import *
from kalix.drawing import CommandBuffer, Context, VertexLayout, indexed_primitives, primitives
from kalix.memory import DmaBuffer, Overlay, Surface

__version__ = c.kalix_version().decode()
