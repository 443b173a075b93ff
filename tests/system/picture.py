"""Pictures that tools write, and what is to be seen on one."""
import struct
import zlib


class Picture:
    """An 8-bit RGB or RGBA PNG; pixel(x, y) is its colour."""

    def __init__(self, data):
        chunks, at = {}, 8
        while at < len(data):
            length, kind = struct.unpack(">I4s", data[at:at + 8])
            chunks[kind] = chunks.get(kind, b"") + data[at + 8:at + 8 + length]
            at += length + 12
        self.width, self.height, _, colours = struct.unpack(">IIBB", chunks[b"IHDR"][:10])
        self.size = {2: 3, 6: 4}[colours]
        packed, stride = zlib.decompress(chunks[b"IDAT"]), self.width * self.size
        self.rows, above = [], bytes(stride)
        for y in range(self.height):
            method, row = packed[y * (stride + 1)], bytearray(packed[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
            for i in range(stride):
                left, up, corner = (row[i - self.size], above[i], above[i - self.size]) if i >= self.size \
                    else (0, above[i], 0)
                row[i] = row[i] + (0, left, up, (left + up) // 2, self.nearest(left, up, corner))[method] & 0xFF
            self.rows.append(row)
            above = row

    @staticmethod
    def nearest(left, up, corner):
        guess = left + up - corner
        return min((left, up, corner), key=lambda each: abs(guess - each))

    def pixel(self, x, y):
        return tuple(self.rows[y][x * self.size:x * self.size + 3])

    def rgb(self):
        """All rows, three bytes a pixel."""
        return b"".join(bytes(row[i] for i in range(len(row)) if i % self.size < 3) for row in self.rows)


def expect_triangle(case, screen):
    """The screen that the first examples leave, asserted by a test case."""
    case.assertEqual((screen.width, screen.height), (800, 600))
    case.assertEqual(screen.pixel(2, 2), (0x20, 0x20, 0x30))
    for (x, y), strongest in {(400, 80): 1, (100, 530): 0, (700, 530): 2}.items():
        colour = screen.pixel(x, y)
        case.assertEqual(max(range(3), key=colour.__getitem__), strongest, colour)
