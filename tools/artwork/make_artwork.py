#!/usr/bin/env python3
"""Draws the installer's window icon (256x256) and side image (158x286).

Both are written as XPM with 256 colours and two characters per pixel, ready
to be compiled into the program:

    python3 tools/artwork/make_artwork.py ui/

The pictures are plain geometry: a calm blue-teal gradient and an emblem of
three stacked template sheets above a tray, drawn with 3x3 supersampling and
reduced to 256 colours by median cut. Standard library only.
"""
import math
import os
import sys

SAMPLES = 3  # supersampling per axis

# Palette of the artwork (RGB 0..1).
TOP = (0.067, 0.204, 0.329)      # deep blue
BOTTOM = (0.114, 0.478, 0.545)   # teal
SHEET = (0.965, 0.976, 0.984)    # almost white
SHEET_EDGE = (0.741, 0.816, 0.863)
LINE = (0.573, 0.671, 0.741)
ACCENT = (0.961, 0.706, 0.341)   # warm amber


def mix(a, b, t):
    return tuple(a[i] + (b[i] - a[i]) * t for i in range(3))


def smooth(t):
    t = min(1.0, max(0.0, t))
    return t * t * (3 - 2 * t)


def rounded_rect(x, y, x0, y0, x1, y1, r):
    """True when (x, y) lies inside the rounded rectangle."""
    if x < x0 or x > x1 or y < y0 or y > y1:
        return False
    cx = min(max(x, x0 + r), x1 - r)
    cy = min(max(y, y0 + r), y1 - r)
    return (x - cx) ** 2 + (y - cy) ** 2 <= r * r


class Emblem:
    """Three stacked sheets with text lines and a folded corner, an amber
    arrow and a tray below them. Coordinates are in emblem units (0..100),
    placed by scale and offset."""

    def __init__(self, ox, oy, scale):
        self.ox, self.oy, self.s = ox, oy, scale

    def colour(self, px, py, base):
        x = (px - self.ox) / self.s
        y = (py - self.oy) / self.s
        c = base
        # Two sheets behind, lighter and offset up-right.
        for i, alpha in ((2, 0.28), (1, 0.5)):
            dx, dy = 7 * i, -7 * i
            if rounded_rect(x, y, 18 + dx, 6 + dy, 70 + dx, 72 + dy, 4):
                c = mix(c, SHEET, alpha)
        # Front sheet with a folded top-right corner.
        x0, y0, x1, y1, fold = 18, 6, 70, 72, 14
        if rounded_rect(x, y, x0, y0, x1, y1, 4) and not (x - (x1 - fold)) > (y - y0):
            edge = (x - x0 < 1.6 or x1 - x < 1.6 or y - y0 < 1.6 or y1 - y < 1.6)
            c = SHEET_EDGE if edge else SHEET
            # Lines of "template" text; the first is the heading, in amber.
            for row, (lx0, lx1, col) in enumerate(((26, 48, ACCENT), (26, 60, LINE), (26, 56, LINE),
                                                   (26, 62, LINE), (26, 50, LINE))):
                ly = 22 + row * 9
                if lx0 <= x <= lx1 and abs(y - ly) <= 1.8:
                    c = col
        # The folded corner itself.
        if x1 - fold <= x <= x1 and y0 <= y <= y0 + fold and (x - (x1 - fold)) >= (y - y0):
            c = mix(SHEET_EDGE, SHEET, 0.35)
        # Arrow into the tray.
        if 40 <= x <= 48 and 66 <= y <= 82:
            c = ACCENT
        if 82 <= y <= 94 and abs(x - 44) <= (94 - y) * 0.95:
            c = ACCENT
        # Tray: a U shape.
        in_outer = rounded_rect(x, y, 12, 84, 76, 102, 4)
        in_inner = rounded_rect(x, y, 18, 78, 70, 96, 3)
        if in_outer and not in_inner:
            c = mix(SHEET, SHEET_EDGE, 0.25)
        return c


def render(width, height, pixel):
    """pixel(x, y) -> (r, g, b, a) in 0..1 at a sample point; averaged over
    SAMPLES x SAMPLES points per pixel."""
    rows = []
    n = SAMPLES * SAMPLES
    for py in range(height):
        row = []
        for px in range(width):
            r = g = b = a = 0.0
            for sy in range(SAMPLES):
                for sx in range(SAMPLES):
                    cr, cg, cb, ca = pixel(px + (sx + 0.5) / SAMPLES, py + (sy + 0.5) / SAMPLES)
                    r += cr * ca
                    g += cg * ca
                    b += cb * ca
                    a += ca
            if a > 0:
                row.append((r / a, g / a, b / a, a / n))
            else:
                row.append((0.0, 0.0, 0.0, 0.0))
        rows.append(row)
    return rows


def side_image():
    w, h = 158, 286
    emblem = Emblem(26, 52, 1.05)

    def pixel(x, y):
        t = y / h
        base = mix(TOP, BOTTOM, smooth(t * 1.1))
        # A soft diagonal band of light.
        d = (x * 0.55 + y) / h
        base = mix(base, (1, 1, 1), 0.06 * math.exp(-((d - 0.62) / 0.12) ** 2))
        # Thin arcs around the bottom-left corner.
        radius = math.hypot(x + 20, h + 30 - y)
        for k in range(4):
            if abs(radius - (120 + 26 * k)) < 0.7:
                base = mix(base, (1, 1, 1), 0.12)
        # A thin light rule on the right edge separates the picture from the page.
        if x >= w - 1.5:
            base = mix(base, (1, 1, 1), 0.25)
        return emblem.colour(x, y, base) + (1.0,)

    return render(w, h, pixel)


def window_icon():
    w = h = 256
    emblem = Emblem(46, 50, 1.6)

    def pixel(x, y):
        if not rounded_rect(x, y, 8, 8, 248, 248, 44):
            return (0.0, 0.0, 0.0, 0.0)
        t = (x * 0.35 + y) / (1.35 * h)
        base = mix(TOP, BOTTOM, smooth(t))
        base = mix(base, (1, 1, 1), 0.07 * math.exp(-((t - 0.35) / 0.15) ** 2))
        return emblem.colour(x, y, base) + (1.0,)

    return render(w, h, pixel)


def median_cut(counts, boxes_wanted):
    """counts: {(r, g, b): n}. Returns the palette and a map colour -> index."""
    boxes = [list(counts)]
    while len(boxes) < boxes_wanted:
        best, best_score, best_axis = None, -1, 0
        for i, box in enumerate(boxes):
            if len(box) < 2:
                continue
            for axis in range(3):
                vals = [c[axis] for c in box]
                score = (max(vals) - min(vals)) * math.log2(1 + sum(counts[c] for c in box))
                if score > best_score:
                    best, best_score, best_axis = i, score, axis
        if best is None:
            break
        box = sorted(boxes.pop(best), key=lambda c: c[best_axis])
        total = sum(counts[c] for c in box)
        acc, cut = 0, 1
        for j, c in enumerate(box):
            acc += counts[c]
            if acc * 2 >= total:
                cut = min(max(j, 1), len(box) - 1)
                break
        boxes += [box[:cut], box[cut:]]
    palette, index = [], {}
    for i, box in enumerate(boxes):
        total = sum(counts[c] for c in box)
        palette.append(tuple(round(sum(c[k] * counts[c] for c in box) / total) for k in range(3)))
        for c in box:
            index[c] = i
    return palette, index


CODE_CHARS = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789#$%&*+-=@^~<>|/()[]{}!?"


def to_xpm(name, rows, colours=256):
    """XPM text with exactly `colours` colours, two characters per pixel;
    transparent pixels (alpha < 0.5) use the colour None."""
    h, w = len(rows), len(rows[0])
    transparent = any(p[3] < 0.5 for row in rows for p in row)
    counts = {}
    quant = []
    for row in rows:
        qrow = []
        for r, g, b, a in row:
            if a < 0.5:
                qrow.append(None)
                continue
            c = (round(r * 255), round(g * 255), round(b * 255))
            counts[c] = counts.get(c, 0) + 1
            qrow.append(c)
        quant.append(qrow)
    wanted = colours - (1 if transparent else 0)
    palette, index = median_cut(counts, wanted)
    # Pad with unused shades if the picture has fewer colours than wanted.
    while len(palette) < wanted:
        palette.append((len(palette) % 256, 0, 0))
    codes = [a + b for a in CODE_CHARS for b in CODE_CHARS]
    out = ["/* XPM */", f"static const char* {name}[] = {{",
           f'"{w} {h} {colours} 2",']
    if transparent:
        out.append('"   c None",')
        codes = [c for c in codes if c != "  "]
    for i, (r, g, b) in enumerate(palette):
        out.append(f'"{codes[i]} c #{r:02X}{g:02X}{b:02X}",')
    for y, qrow in enumerate(quant):
        line = "".join("  " if c is None else codes[index[c]] for c in qrow)
        out.append(f'"{line}"' + ("," if y < h - 1 else ""))
    out.append("};")
    return "\n".join(out) + "\n"


def main():
    outdir = sys.argv[1] if len(sys.argv) > 1 else "ui"
    for name, rows in (("window_icon_xpm", window_icon()), ("side_image_xpm", side_image())):
        path = os.path.join(outdir, name.replace("_xpm", ".xpm"))
        with open(path, "w") as f:
            f.write(to_xpm(name, rows))
        print(path)


if __name__ == "__main__":
    main()
