#!/usr/bin/env python3
"""Draws the application icon and writes it as an .icns file, with the standard library only.

The icon follows the macOS 11 grid: a rounded square (824 of 1024 points, corner radius 185) with a
soft shadow below, filled with a teal-to-indigo gradient, carrying a white gauge: a track ring, a
three-quarter arc of load and a needle. PNG images of 32, 64, 128, 256 and 512 pixels go into the
icns container, which Finder and the Dock scale from.

    python3 tools/make_icon.py app/darwin/KestrowBrimlet.icns
"""

import math
import struct
import sys
import zlib

MASTER = 512          # pixels of the largest image
SUPERSAMPLE = 3       # samples per pixel side for smooth edges


def lerp(a, b, t):
    return a + (b - a) * t


def rounded_square_distance(x, y, half, radius):
    """Signed distance (negative inside) from the centred rounded square."""
    qx = abs(x) - (half - radius)
    qy = abs(y) - (half - radius)
    outside = math.hypot(max(qx, 0.0), max(qy, 0.0))
    inside = min(max(qx, qy), 0.0)
    return outside + inside - radius


def over(dst, src, alpha):
    """Source-over compositing of an opaque colour with coverage `alpha` onto premultiplied RGBA."""
    r, g, b, a = dst
    return (lerp(r, src[0], alpha), lerp(g, src[1], alpha), lerp(b, src[2], alpha), a + (1.0 - a) * alpha)


def sample(u, v):
    """Colour at a point of the 1024-point canvas, as premultiplied RGBA in 0..1."""
    x, y = u - 512.0, v - 512.0
    pixel = (0.0, 0.0, 0.0, 0.0)

    # Shadow: the body's shape, lowered and blurred by a smooth falloff.
    shadow = rounded_square_distance(x, y - 12.0, 412.0, 185.0)
    if shadow < 28.0:
        pixel = over(pixel, (0.0, 0.0, 0.0), 0.30 * min(1.0, (28.0 - shadow) / 28.0) ** 2)

    body = rounded_square_distance(x, y, 412.0, 185.0)
    if body >= 0.5:
        return pixel
    t = (v - 100.0) / 824.0
    top, bottom = (0.16, 0.72, 0.74), (0.20, 0.22, 0.62)
    fill = tuple(lerp(top[i], bottom[i], min(max(t, 0.0), 1.0)) for i in range(3))
    pixel = over(pixel, fill, 1.0)

    # The gauge: centred a little low; angles run clockwise from the bottom-left end.
    gx, gy = x, y - 40.0
    distance = math.hypot(gx, gy)
    angle = (math.degrees(math.atan2(gx, -gy)) + 360.0) % 360.0  # 0 at the top, clockwise
    sweep = (angle + 135.0) % 360.0                              # 0 at the arc's start
    ring = abs(distance - 250.0) <= 42.0
    if ring and sweep <= 270.0:
        pixel = over(pixel, (1.0, 1.0, 1.0), 0.28)               # the track
        if sweep <= 200.0:
            pixel = over(pixel, (1.0, 1.0, 1.0), 1.0)            # the load
    # The needle: a tapered bar from the hub towards 200 degrees of the sweep, and the hub.
    needle = math.radians(200.0 - 135.0)
    nx, ny = math.sin(needle), -math.cos(needle)
    along = gx * nx + gy * ny
    across = abs(gx * -ny + gy * nx)
    if 0.0 <= along <= 190.0 and across <= 22.0 - along * 0.08:
        pixel = over(pixel, (1.0, 1.0, 1.0), 1.0)
    if distance <= 46.0:
        pixel = over(pixel, (1.0, 1.0, 1.0), 1.0)
    return pixel


def render(size):
    """Rows of premultiplied RGBA floats, averaged over SUPERSAMPLE² samples per pixel."""
    scale = 1024.0 / size
    rows = []
    for py in range(size):
        row = []
        for px in range(size):
            acc = [0.0, 0.0, 0.0, 0.0]
            for sy in range(SUPERSAMPLE):
                for sx in range(SUPERSAMPLE):
                    u = (px + (sx + 0.5) / SUPERSAMPLE) * scale
                    v = (py + (sy + 0.5) / SUPERSAMPLE) * scale
                    r, g, b, a = sample(u, v)
                    acc[0] += r * a
                    acc[1] += g * a
                    acc[2] += b * a
                    acc[3] += a
            n = SUPERSAMPLE * SUPERSAMPLE
            row.append([c / n for c in acc])
        rows.append(row)
    return rows


def downscale(rows):
    """Halves an image with a 2×2 box filter (on premultiplied values)."""
    size = len(rows) // 2
    return [[[(rows[2 * y][2 * x][c] + rows[2 * y][2 * x + 1][c] + rows[2 * y + 1][2 * x][c] +
               rows[2 * y + 1][2 * x + 1][c]) / 4.0 for c in range(4)] for x in range(size)] for y in range(size)]


def png(rows):
    """An RGBA PNG (straight alpha) of the image."""
    size = len(rows)
    raw = bytearray()
    for row in rows:
        raw.append(0)  # filter: none
        for r, g, b, a in row:
            if a > 0.0:
                r, g, b = r / a, g / a, b / a
            raw.extend(int(round(min(max(c, 0.0), 1.0) * 255.0)) for c in (r, g, b, a))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)

    header = struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(bytes(raw), 9)) +
            chunk(b"IEND", b""))


# icns element types holding PNG data, by pixel size.
TYPES = {512: b"ic09", 256: b"ic08", 128: b"ic07", 64: b"icp6", 32: b"icp5"}


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: make_icon.py OUTPUT.icns")
    images = {}
    rows = render(MASTER)
    size = MASTER
    while size >= 32:
        images[size] = png(rows)
        rows = downscale(rows)
        size //= 2
    elements = b"".join(TYPES[s] + struct.pack(">I", 8 + len(data)) + data for s, data in sorted(images.items()))
    with open(sys.argv[1], "wb") as out:
        out.write(b"icns" + struct.pack(">I", 8 + len(elements)) + elements)


if __name__ == "__main__":
    main()
