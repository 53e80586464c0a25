"""Draws Kelvane's logo (Logo.png), its application icon (Icon.png) and the desktop icons.

The window's header shows the logo at 52 by 52 pixels, scaled down without smoothing. The logo is therefore drawn on a
grid of 52 by 52 cells: each cell becomes one pixel on the screen, or two by two pixels at double scale. Small icons
have too few pixels for this grid, so they are simpler drawings, not scaled copies of the large one.
"""

import struct
import zlib
from dataclasses import dataclass
from itertools import pairwise
from pathlib import Path

Canvas = list[list[str | None]]  # rows of cells: a colour as RRGGBB, or None for transparent

IMAGE_SIZE = 1024

FRAME, CASE, FOOT = "2E2E2E", "434343", "575757"
RED, BRICK, CORAL, ORANGE, APRICOT = "AC0404", "CC4125", "E45938", "E69138", "E78F45"
AMBER, GREEN, BLUE, PURPLE = "EEAF3C", "3F7429", "507ECE", "674EA7"
TILE_AMBER, TILE_RED, TILE_BROWN = "DF7705", "A03310", "721B00"

LEVELS = (GREEN, GREEN, GREEN, AMBER, AMBER, APRICOT, CORAL, BRICK, RED, RED)  # of the highest bar, bottom to top

# How far each row of a stepped corner is indented, in cells, from the outermost row inwards.
PANEL_CORNER = (1,)


@dataclass(frozen=True)
class Design:
    """The logo's dimensions and positions, in cells from the upper left corner."""

    cells: int
    pitch: int  # from one stripe to the next, and from one bar to the next
    stripes: tuple[str, ...]  # colours from left to right; each stripe is a column of diamonds
    stripe_rows: int
    bar_heights: tuple[int, ...]
    case: tuple[int, int, int, int]  # left, top, width, height
    case_corner: tuple[int, ...]
    panel: tuple[int, int, int, int]
    screen: tuple[int, int, int, int] | None  # including its rim
    screen_rows: tuple[str, ...]  # colours from top to bottom
    slots: tuple[tuple[int, int, int], ...]  # left, top, width
    foot_rows: int
    tile_corner: tuple[int, ...]

    @property
    def stripes_width(self) -> int:
        return self.pitch * (len(self.stripes) - 1) + 2 * (self.pitch - 1)

    @property
    def stripes_left(self) -> int:
        left, _, width, _ = self.panel
        return left + (width - self.stripes_width) // 2


SEVEN = (RED, CORAL, ORANGE, AMBER, GREEN, BLUE, PURPLE)

LARGE = Design(
    cells=52,
    pitch=5,
    stripes=SEVEN,
    stripe_rows=23,
    bar_heights=(5, 8, 6, 10, 4, 9, 7),
    case=(2, 12, 48, 39),
    case_corner=(2, 1),
    panel=(5, 21, 42, 25),
    screen=(17, 14, 18, 5),
    screen_rows=(AMBER, APRICOT, BRICK),
    slots=tuple((left, top, 7) for top in (14, 16, 18) for left in (7, 38)),
    foot_rows=3,
    tile_corner=(8, 6, 4, 3, 2, 2, 1, 1),
)
MEDIUM = Design(
    cells=40,
    pitch=4,
    stripes=SEVEN,
    stripe_rows=17,
    bar_heights=(4, 6, 5, 8, 3, 7, 5),
    case=(1, 9, 38, 30),
    case_corner=(2, 1),
    panel=(3, 16, 34, 19),
    screen=(13, 11, 14, 4),
    screen_rows=(AMBER, BRICK),
    slots=tuple((left, top, 5) for top in (11, 13) for left in (5, 30)),
    foot_rows=2,
    tile_corner=(6, 4, 3, 2, 1, 1),
)
SMALL = Design(
    cells=28,
    pitch=3,
    stripes=SEVEN,
    stripe_rows=11,
    bar_heights=(3, 4, 3, 6, 2, 5, 4),
    case=(0, 7, 28, 20),
    case_corner=(1,),
    panel=(2, 11, 24, 13),
    screen=(9, 8, 10, 2),
    screen_rows=(AMBER,),
    slots=(),
    foot_rows=2,
    tile_corner=(4, 2, 1, 1),
)
TINY = Design(
    cells=20,
    pitch=3,
    stripes=(RED, ORANGE, GREEN, BLUE, PURPLE),
    stripe_rows=7,
    bar_heights=(3, 4, 2, 5, 3),
    case=(0, 6, 20, 13),
    case_corner=(1,),
    panel=(1, 8, 18, 9),
    screen=None,
    screen_rows=(),
    slots=(),
    foot_rows=1,
    tile_corner=(3, 2, 1),
)
TINIEST = Design(
    cells=14,
    pitch=3,
    stripes=(RED, AMBER, BLUE),
    stripe_rows=5,
    bar_heights=(3, 4, 2),
    case=(0, 5, 14, 9),
    case_corner=(1,),
    panel=(1, 6, 12, 7),
    screen=None,
    screen_rows=(),
    slots=(),
    foot_rows=1,
    tile_corner=(2, 1),
)

# For each size of the desktop icon: its design, and its width in cells. The size is a whole multiple of that width.
DESKTOP_ICONS = {
    16: (TINIEST, 16),
    22: (TINY, 22),
    24: (TINY, 24),
    32: (SMALL, 32),
    48: (MEDIUM, 48),
    64: (LARGE, 64),
    96: (MEDIUM, 48),
    128: (LARGE, 64),
    192: (MEDIUM, 48),
    256: (LARGE, 64),
    512: (LARGE, 64),
}


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
    """Returns how many cells a row is indented at each end, in a shape with stepped corners."""
    depth = min(row, height - 1 - row)
    return corner[depth] if depth < len(corner) else 0


def rounded_box(
    canvas: Canvas, left: int, top: int, width: int, height: int, corner: tuple[int, ...], colour: str
) -> None:
    for row in range(height):
        step = inset(corner, row, height)
        box(canvas, left + step, top + row, width - 2 * step, 1, colour)


def diamond(canvas: Canvas, left: int, middle: int, pitch: int, colour: str) -> None:
    """Draws a diamond centred on the row `middle`, clipped to the canvas. At a pitch of 5, it is 8 by 7 cells."""
    reach = pitch - 2
    for row in range(max(middle - reach, 0), min(middle + reach + 1, len(canvas))):
        step = abs(row - middle)
        box(canvas, left + step, row, 2 * (pitch - 1 - step), 1, colour)


def diamond_stripes(design: Design) -> Canvas:
    """Returns the panel's stripes. Every second stripe is shifted by half a diamond, so that they interlock."""
    pitch = design.pitch
    stripes = blank(design.stripes_width, design.stripe_rows)
    for index, colour in enumerate(design.stripes):
        for middle in range(-1 if index % 2 else pitch - 2, design.stripe_rows + pitch - 2, 2 * (pitch - 1)):
            diamond(stripes, pitch * index, middle, pitch, colour)
    return stripes


def bar(canvas: Canvas, left: int, bottom: int, width: int, height: int, highest: int) -> None:
    """Draws a level bar, with a dark rim that sets its warm colours off against a warm background."""
    box(canvas, left - 1, bottom - height, width + 2, height + 1, FRAME)
    for level in range(height):
        box(canvas, left, bottom - level, width, 1, LEVELS[level * len(LEVELS) // highest])


def logo(design: Design) -> Canvas:
    canvas = blank(design.cells, design.cells)
    left, top, width, height = design.case
    rounded_box(canvas, left, top, width, height, design.case_corner, CASE)
    for row in canvas[top + height - design.foot_rows : top + height]:
        row[:] = [cell and FOOT for cell in row]
    bar_width = design.pitch - 1
    for index, bar_height in enumerate(design.bar_heights):
        bar_left = design.stripes_left + bar_width // 2 + design.pitch * index
        bar(canvas, bar_left, top - 1, bar_width, bar_height, max(design.bar_heights))
    for slot_left, slot_top, slot_width in design.slots:
        box(canvas, slot_left, slot_top, slot_width, 1, FRAME)
    if design.screen:
        left, top, width, height = design.screen
        rounded_box(canvas, left, top, width, height, PANEL_CORNER, FRAME)
        for row, colour in enumerate(design.screen_rows, top + 1):
            box(canvas, left + 1, row, width - 2, 1, colour)
    rounded_box(canvas, *design.panel, PANEL_CORNER, FRAME)
    paste(canvas, diamond_stripes(design), design.stripes_left, design.panel[1] + 1)
    return canvas


def tile(cells: int, corner: tuple[int, ...]) -> Canvas:
    """Returns the icon's background: stripes that darken from the upper left and lower right corners inwards."""
    canvas = blank(cells, cells)
    for y, row in enumerate(canvas):
        step = inset(corner, y, cells)
        for x in range(step, cells - step):
            distance = min(x + y, 2 * (cells - 1) - x - y) * 64 / cells
            row[x] = TILE_AMBER if distance < 32 else TILE_RED if distance < 44 else TILE_BROWN
    return canvas


def icon(design: Design, cells: int) -> Canvas:
    canvas = tile(cells, design.tile_corner)
    margin = (cells - design.cells) // 2
    paste(canvas, logo(design), margin, margin)
    return canvas


def png_chunk(name: bytes, data: bytes) -> bytes:
    return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))


def write_png(path: Path, canvas: Canvas, size: int) -> None:
    """Writes a square canvas as an RGBA image, with the cells' edges rounded to whole pixels."""
    edges = [round(cell * size / len(canvas)) for cell in range(len(canvas) + 1)]
    sizes = [end - start for start, end in pairwise(edges)]
    lines = bytearray()
    for row, height in zip(canvas, sizes, strict=True):
        line = bytearray(1)  # filter type: none
        for cell, width in zip(row, sizes, strict=True):
            line += bytes.fromhex(f"{cell}FF" if cell else "00000000") * width
        lines += line * height
    header = struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0)
    chunks = ((b"IHDR", header), (b"IDAT", zlib.compress(lines, 9)), (b"IEND", b""))
    path.write_bytes(b"\x89PNG\r\n\x1a\n" + b"".join(png_chunk(name, data) for name, data in chunks))


def main() -> None:
    folder = Path(__file__).resolve().parent
    write_png(folder / "Logo.png", logo(LARGE), IMAGE_SIZE)
    write_png(folder / "Icon.png", icon(LARGE, 64), IMAGE_SIZE)
    icons = folder.parent / "packaging" / "icons"
    icons.mkdir(parents=True, exist_ok=True)
    for size, (design, cells) in DESKTOP_ICONS.items():
        write_png(icons / f"{size}.png", icon(design, cells), size)


if __name__ == "__main__":
    main()
