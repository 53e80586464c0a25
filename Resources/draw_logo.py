"""Draws Kelvane's logo (Logo.png) and application icon (Icon.png) beside this file.

The header shows the logo at 52 by 52 pixels and takes one point of it for each pixel, without smoothing.
So the logo is drawn on 52 by 52 cells: a cell is exactly one pixel on the screen, or two by two at double scale.
"""

import struct
import zlib
from itertools import pairwise
from pathlib import Path

Canvas = list[list[str | None]]  # rows of cells; a cell is a colour as RRGGBB, or None where nothing is drawn

IMAGE_SIZE = 1024
LOGO_CELLS = 52
ICON_CELLS = 64

FRAME, CASE, FOOT = "2E2E2E", "434343", "575757"
RED, BRICK, CORAL, ORANGE, APRICOT = "AC0404", "CC4125", "E45938", "E69138", "E78F45"
AMBER, GREEN, BLUE, PURPLE = "EEAF3C", "3F7429", "507ECE", "674EA7"
TILE_AMBER, TILE_RED, TILE_BROWN = "DF7705", "A03310", "721B00"

STRIPES = (RED, CORAL, ORANGE, AMBER, GREEN, BLUE, PURPLE)  # left to right, a column of diamonds each
STRIPE_PITCH = 5
SCREEN = (AMBER, APRICOT, BRICK)  # top to bottom
LEVELS = (GREEN, GREEN, GREEN, AMBER, AMBER, APRICOT, CORAL, BRICK, RED, RED)  # a bar's cells from the bottom up
BAR_HEIGHTS = (5, 8, 6, 10, 4, 9, 7)

# How many cells each row of a stepped corner is set in, from the outermost row inwards.
PANEL_CORNER = (1,)
CASE_CORNER = (2, 1)
TILE_CORNER = (8, 6, 4, 3, 2, 2, 1, 1)


def blank(width: int, height: int) -> Canvas:
    return [[None] * width for _ in range(height)]


def paste(canvas: Canvas, picture: Canvas, left: int, top: int) -> None:
    for y, row in enumerate(picture, top):
        for x, colour in enumerate(row, left):
            if colour:
                canvas[y][x] = colour


def box(canvas: Canvas, left: int, top: int, width: int, height: int, colour: str) -> None:
    for row in canvas[top : top + height]:
        row[left : left + width] = [colour] * width


def inset(corner: tuple[int, ...], row: int, height: int) -> int:
    """How far a row of a shape with stepped corners is set in at both ends."""
    depth = min(row, height - 1 - row)
    return corner[depth] if depth < len(corner) else 0


def rounded_box(
    canvas: Canvas, left: int, top: int, width: int, height: int, corner: tuple[int, ...], colour: str
) -> None:
    for row in range(height):
        step = inset(corner, row, height)
        box(canvas, left + step, top + row, width - 2 * step, 1, colour)


def diamond(canvas: Canvas, left: int, middle: int, colour: str) -> None:
    """A diamond 8 cells wide and 7 high around the row `middle`; what lies above or below the canvas is cut off."""
    for row in range(max(middle - 3, 0), min(middle + 4, len(canvas))):
        step = abs(row - middle)
        box(canvas, left + step, row, 8 - 2 * step, 1, colour)


def diamond_stripes() -> Canvas:
    """The panel's stripes; every second one is shifted by half a diamond, so that they interlock one cell apart."""
    stripes = blank(38, 23)
    for index, colour in enumerate(STRIPES):
        for middle in range(-1 if index % 2 else 3, 26, 8):
            diamond(stripes, STRIPE_PITCH * index, middle, colour)
    return stripes


def bar(canvas: Canvas, left: int, bottom: int, height: int) -> None:
    """A level bar 4 cells wide; its dark rim keeps the warm colours apart from a warm background."""
    box(canvas, left - 1, bottom - height, 6, height + 1, FRAME)
    for level, colour in enumerate(LEVELS[:height]):
        box(canvas, left, bottom - level, 4, 1, colour)


def logo() -> Canvas:
    canvas = blank(LOGO_CELLS, LOGO_CELLS)
    rounded_box(canvas, 2, 12, 48, 39, CASE_CORNER, CASE)
    for row in canvas[48:51]:
        row[:] = [cell and FOOT for cell in row]
    for index, height in enumerate(BAR_HEIGHTS):
        bar(canvas, 9 + STRIPE_PITCH * index, 11, height)
    for slot in (14, 16, 18):
        box(canvas, 7, slot, 7, 1, FRAME)
        box(canvas, 38, slot, 7, 1, FRAME)
    rounded_box(canvas, 17, 14, 18, 5, PANEL_CORNER, FRAME)
    for row, colour in enumerate(SCREEN, 15):
        box(canvas, 18, row, 16, 1, colour)
    rounded_box(canvas, 5, 21, 42, 25, PANEL_CORNER, FRAME)
    paste(canvas, diamond_stripes(), 7, 22)
    return canvas


def tile() -> Canvas:
    """The icon's ground: diagonal stripes from the upper left corner, mirrored at the lower right one."""
    canvas = blank(ICON_CELLS, ICON_CELLS)
    for y, row in enumerate(canvas):
        step = inset(TILE_CORNER, y, ICON_CELLS)
        for x in range(step, ICON_CELLS - step):
            distance = min(x + y, 2 * (ICON_CELLS - 1) - x - y)
            row[x] = TILE_AMBER if distance < 32 else TILE_RED if distance < 44 else TILE_BROWN
    return canvas


def icon() -> Canvas:
    canvas = tile()
    margin = (ICON_CELLS - LOGO_CELLS) // 2
    paste(canvas, logo(), margin, margin)
    return canvas


def png_chunk(name: bytes, data: bytes) -> bytes:
    return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))


def write_png(path: Path, canvas: Canvas) -> None:
    """Writes the square canvas as an RGBA image, each cell's edges rounded to whole pixels."""
    edges = [round(cell * IMAGE_SIZE / len(canvas)) for cell in range(len(canvas) + 1)]
    sizes = [end - start for start, end in pairwise(edges)]
    lines = bytearray()
    for row, height in zip(canvas, sizes, strict=True):
        line = bytearray(1)  # the line's filter: none
        for cell, width in zip(row, sizes, strict=True):
            line += bytes.fromhex(f"{cell}FF" if cell else "00000000") * width
        lines += line * height
    header = struct.pack(">IIBBBBB", IMAGE_SIZE, IMAGE_SIZE, 8, 6, 0, 0, 0)
    chunks = ((b"IHDR", header), (b"IDAT", zlib.compress(lines, 9)), (b"IEND", b""))
    path.write_bytes(b"\x89PNG\r\n\x1a\n" + b"".join(png_chunk(name, data) for name, data in chunks))


def main() -> None:
    folder = Path(__file__).resolve().parent
    write_png(folder / "Logo.png", logo())
    write_png(folder / "Icon.png", icon())


if __name__ == "__main__":
    main()
