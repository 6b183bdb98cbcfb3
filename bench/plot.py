"""Draws the results of the benchmarks as an SVG: for each program, and for the mean of all, how many
times a peer's CPU time dovrelscript takes, on a logarithmic axis with 1 as the line to begin from.
"""

import math
from xml.sax.saxutils import escape

COLOURS = ("#2b6cb0", "#6b8e23", "#c05621")  # one for each peer
FASTEST = -3  # as a power of 2; a bar beyond it would leave the rest of the axis empty, and is cut
LEFT = 170  # of the axis, with the names in front of it
RIGHT = 40  # behind the axis, for the numbers of the longest bars
WIDTH = 590  # of the axis
TOP = 112  # of the first row
BAR = 12
STEP = BAR + 1  # from one bar of a row to the next
GAP = 8  # between two rows


def text(x, y, content, **attributes):
    more = "".join(f' {name.replace("_", "-")}="{value}"' for name, value in attributes.items())
    return f'<text x="{x:.1f}" y="{y:.1f}"{more}>{escape(content)}</text>'


def bar(axis, peer, top, ratio):
    """One bar from 1 to the ratio, with its number at the end. A bar that is cut has a gap in it, and
    its number inside. A ratio of None is told in words."""
    if ratio is None:
        yield text(axis(1) + 4, top + 10, "cannot run it", font_size=10, fill=COLOURS[peer])
        return
    start, end = axis(1), max(axis(ratio), LEFT)
    slower = ratio >= 1
    yield (
        f'<rect x="{min(start, end):.1f}" y="{top}" width="{abs(end - start):.1f}" '
        f'height="{BAR}" fill="{COLOURS[peer]}"/>'
    )
    if axis(ratio) < LEFT:
        yield f'<path d="M{end + 16:.1f} {top + BAR + 1} l6 -14 h4 l-6 14 z" fill="white"/>'
        yield text(end + 32, top + 10, f"{ratio:.2f}", font_size=10, fill="white")
        return
    at = end + 4 if slower else end - 4
    yield text(at, top + 10, f"{ratio:.2f}", font_size=10, text_anchor="start" if slower else "end")


def grid(axis, lowest, highest, bottom):
    """A line for each power of 2, with its factor below, and what its sides mean above."""
    for step in range(lowest, highest + 1):
        x = axis(2.0**step)
        line = "#444" if step == 0 else "#ddd"
        label = f"{2**step}x" if step >= 0 else f"1/{2**-step}x"
        yield f'<line x1="{x:.1f}" y1="{TOP - 8}" x2="{x:.1f}" y2="{bottom}" stroke="{line}"/>'
        yield text(x, bottom + 18, label, text_anchor="middle")
    one = axis(1)
    yield text(one - 8, TOP - 16, "← dovrelscript is faster", text_anchor="end", fill="#444")
    yield text(one + 8, TOP - 16, "slower →", fill="#444")


def plot(rows, mean, peers, conditions):
    """`rows` maps each benchmark to its ratios, one for each name in `peers` and None where that peer does
    not run it, and `mean` has those of all together. `conditions` tells where and when they were
    measured."""
    ratios = [ratio for row in (*rows.values(), mean) for ratio in row if ratio is not None]
    lowest = max(FASTEST, min(-1, math.floor(math.log2(min(ratios)))))
    highest = max(1, math.ceil(math.log2(max(ratios))))

    def axis(ratio):
        return LEFT + WIDTH * (math.log2(ratio) - lowest) / (highest - lowest)

    height_of_row = STEP * len(peers) + GAP
    rule = TOP + height_of_row * len(rows)  # between the programs and their mean
    bottom = rule + GAP + height_of_row
    width, height = LEFT + WIDTH + RIGHT, bottom + 32
    title = "CPU time of dovrelscript as a multiple of each peer's"
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
        f'viewBox="0 0 {width} {height}" role="img" font-family="sans-serif" font-size="12">',
        f"<title>{escape(title)}</title>",
        '<rect width="100%" height="100%" fill="white"/>',
        text(LEFT, 22, f"{title} (logarithmic)", font_size=14),
        text(LEFT, 42, conditions, font_size=11, fill="#666"),
    ]
    for number, peer in enumerate(peers):
        x = LEFT + number * 120
        parts.append(f'<rect x="{x}" y="56" width="{BAR}" height="{BAR}" fill="{COLOURS[number]}"/>')
        parts.append(text(x + 18, 67, f"to {peer}"))
    parts += grid(axis, lowest, highest, bottom)
    parts.append(f'<line x1="20" y1="{rule}" x2="{LEFT + WIDTH}" y2="{rule}" stroke="#999"/>')
    tops = [
        (name, TOP + height_of_row * number, row) for number, (name, row) in enumerate(rows.items())
    ]
    for name, top, row in [*tops, ("geometric mean", rule + GAP, mean)]:
        weight = {"font_weight": "bold"} if row is mean else {}
        middle = top + height_of_row / 2
        parts.append(text(LEFT - 10, middle, name, text_anchor="end", **weight))
        for peer, ratio in enumerate(row):
            parts += bar(axis, peer, top + peer * STEP, ratio)
    return "\n".join([*parts, "</svg>", ""])
