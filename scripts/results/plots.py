"""Draws the plots of docs/results/ with matplotlib: SVG files with the same bytes for the same data.

Everything is black or grey on white, so that the plots can be printed and read in dark mode: markers and
dashes tell series apart, and every point or line has its name beside it.
"""

import collections
import itertools
import math
import operator
import re

from .front import front
from .page import levels_of_memory
from .readme import presets
from .speed import points_of
from .tables import digest_of

PLOTS = {"compress": "speed", "decompress": "speed", "threads": "threads", "memory": "memory",
         "small_files": "small_files"}  # the table of each plot
WIDTH, HEIGHT = 9.0, 7.0  # inches
DARK, GREY, LIGHT = "black", "0.35", "0.86"


def stored_digest(svg):
    """The digest of the table that a plot was drawn from; empty if there is none."""
    found = re.search(r"table sha256 ([0-9a-f]{16})", svg.read_text(encoding="utf-8")) if svg.exists() else None
    return found.group(1) if found else ""


def draw_all(tables):
    import matplotlib
    matplotlib.use("agg")  # measures texts; savefig() writes SVG
    matplotlib.rcParams.update({"svg.hashsalt": "quarnex", "font.size": 10.5, "axes.titlesize": 11.5,
                                "axes.titleweight": "bold", "axes.titlelocation": "left",
                                "figure.facecolor": "white", "axes.spines.top": False,
                                "axes.spines.right": False})
    for name, table in PLOTS.items():
        rows = tables.read(table)
        if rows is not None:
            DRAWERS[name](rows).savefig(tables.folder / f"{name}.svg", format="svg", metadata={
                "Date": None, "Description": f"table sha256 {digest_of(tables.path(table))}"})


def new_figure(title, subtitle, panels=1, height=HEIGHT, **options):
    from matplotlib import pyplot
    figure, axes = pyplot.subplots(1, panels, figsize=(WIDTH, height), squeeze=False, **options)
    top = 0.72 if panels == 1 else 1.0  # inches; panels have titles of their own
    figure.subplots_adjust(left=0.085, right=0.97, top=1 - top / height, bottom=0.62 / height, wspace=0.16)
    figure.text(0.02, 1 - 0.28 / height, title, size=13.5, weight="bold")
    figure.text(0.02, 1 - 0.52 / height, subtitle, color=GREY)
    for axis in axes[0]:
        axis.grid(color=LIGHT, linewidth=0.6)
        axis.set_axisbelow(True)
    return figure, axes[0]


def plain_numbers(scale, ticks):
    from matplotlib import ticker
    scale.set_major_locator(ticker.FixedLocator(ticks))
    scale.set_major_formatter(ticker.StrMethodFormatter("{x:,g}"))
    scale.set_minor_locator(ticker.NullLocator())


def steps_between(low, high, factors=(1, 2, 5)):
    """1, 2, 5, 10 and so on within a range."""
    return [factor * 10.0 ** power for power in range(-3, 6) for factor in factors
            if low <= factor * 10.0 ** power <= high]


# --------------------------------------------------------------------------------------- labels


class Labels:
    """Places labels beside points, so that none covers another label, a point or a line."""

    DISTANCES = [6, 11, 17, 24, 32, 42, 54]
    MARGIN = 1.5  # pixels

    def __init__(self, axis):
        self.axis = axis
        self.figure = axis.figure
        self.renderer = self.figure.canvas.get_renderer()
        self.taken = []  # boxes: x0, y0, x1, y1
        self.lines = []  # pieces of drawn lines: points

    def add_point(self, x, y, size=6):
        px, py = self.axis.transData.transform((x, y))
        half = size / 2 * self.figure.dpi / 72
        self.taken.append((px - half, py - half, px + half, py + half))

    def add_line(self, xs, ys):
        """Labels avoid the line where they can."""
        for start, end in itertools.pairwise(self.axis.transData.transform(list(zip(xs, ys)))):
            self.lines += pixels_between(start, end)

    def place(self, text, x, y, **style):
        """Tries places near the point first; far ones get a thin line to the point."""
        point = self.axis.transData.transform((x, y))
        best = None
        for distance in self.DISTANCES:
            for dx, dy in directions():
                ha = "left" if dx > 0.3 else "right" if dx < -0.3 else "center"
                va = "bottom" if dy > 0.3 else "top" if dy < -0.3 else "center"
                offset = (dx * distance, dy * distance)
                note = self.axis.annotate(text, (x, y), offset, textcoords="offset points", ha=ha, va=va, **style)
                box = note.get_window_extent(self.renderer)
                note.remove()
                pointer = self.pointer(point, offset)
                badness = self.badness(box, pointer) + distance / 1000
                if best is None or badness < best[0]:
                    best = (badness, offset, ha, va, box, pointer)
            if best[0] < 1:
                break
        _, offset, ha, va, box, pointer = best
        arrow = {"arrowstyle": "-", "color": "0.6", "linewidth": 0.6, "shrinkA": 0, "shrinkB": 3}
        self.axis.annotate(text, (x, y), offset, textcoords="offset points", ha=ha, va=va,
                           arrowprops=arrow if pointer else None, **style)
        self.taken.append((box.x0, box.y0, box.x1, box.y1))
        self.lines += pointer

    def pointer(self, point, offset):
        """The line from a distant label to its point."""
        if max(map(abs, offset)) <= 8:
            return []
        scale = self.figure.dpi / 72
        return pixels_between(point, (point[0] + offset[0] * scale, point[1] + offset[1] * scale))[4:]

    def badness(self, box, pointer):
        x0, y0, x1, y1 = (box.x0 - self.MARGIN, box.y0 - self.MARGIN, box.x1 + self.MARGIN, box.y1 + self.MARGIN)
        frame = self.axis.get_window_extent(self.renderer)
        outside = x0 < frame.x0 or x1 > self.figure.bbox.x1 - 4 or y0 < frame.y0 or y1 > frame.y1 + 6
        hits = sum(x0 < b[2] and b[0] < x1 and y0 < b[3] and b[1] < y1 for b in self.taken)
        crossed = any(x0 < px < x1 and y0 < py < y1 for px, py in self.lines)
        covered = any(b[0] < px < b[2] and b[1] < py < b[3] for px, py in pointer for b in self.taken)
        return 1000 * outside + 10 * hits + 2 * crossed + 3 * covered


def directions():
    """Where a label can be, best first: right, left, above, below, and between them."""
    degrees = [0, 180, 90, 270, 45, 135, 315, 225, *(angle + 22.5 for angle in range(0, 360, 45))]
    return [(math.cos(math.radians(angle)), math.sin(math.radians(angle))) for angle in degrees]


def pixels_between(start, end):
    """Points of a straight line, about three pixels apart."""
    (x0, y0), (x1, y1) = start, end
    steps = max(2, int(max(abs(x1 - x0), abs(y1 - y0)) / 3))
    return [(x0 + (x1 - x0) * i / steps, y0 + (y1 - y0) * i / steps) for i in range(steps + 1)]


# ------------------------------------------------------------------------------- ratio and speed


def draw_speed(rows, direction):
    """Ratio against speed: all cells of qrx, peers, and the front of each."""
    points = points_of(rows)
    verb = {"compress": "Compression", "decompress": "Decompression"}[direction]
    files = {row["file"]: int(row["original_bytes"]) for row in rows}
    figure, (axis,) = new_figure(
        f"{verb}: ratio against speed",
        f"{len(files)} files, {sum(files.values()) / 1e6:.0f} MB; in memory, one thread. "
        "Lower right is better.")
    speed, ratio = operator.attrgetter(direction), operator.attrgetter("ratio")
    ours, peers = [[p for p in points if p.is_ours is mine] for mine in (True, False)]
    fronts = [front(group, speed, ratio) for group in (ours, peers)]
    low, high = min(map(speed, points)), max(map(speed, points))
    axis.set(xscale="log", xlim=(low / 1.25, high * 1.6))
    axis.set_xlabel(f"{verb.lower()} speed, MB of the original per second (logarithmic)")
    axis.set_ylabel("ratio: compressed / original size")
    plain_numbers(axis.xaxis, steps_between(low / 1.25, high * 1.6))
    for line, style in zip(fronts, ({"color": DARK, "linewidth": 1.6}, {"color": GREY, "linewidth": 1.0,
                                                                       "linestyle": (0, (5, 3))})):
        axis.plot(list(map(speed, line)), list(map(ratio, line)), zorder=2, **style)
    if direction == "decompress":
        for levels in levels_of_methods(ours):
            axis.plot(list(map(speed, levels)), list(map(ratio, levels)), color="0.7", linewidth=0.9, zorder=1)
    on_front = {id(point) for point in fronts[0]}
    small = [point for point in ours if id(point) not in on_front]
    axis.plot(list(map(speed, small)), list(map(ratio, small)), "o", markersize=3.2, markerfacecolor="white",
              markeredgecolor=GREY, markeredgewidth=0.8, zorder=3)
    axis.plot(list(map(speed, peers)), list(map(ratio, peers)), "s", markersize=5, markerfacecolor="white",
              markeredgecolor=DARK, zorder=3)
    axis.plot(list(map(speed, fronts[0])), list(map(ratio, fronts[0])), "o", markersize=6, color=DARK, zorder=4)
    name_points(axis, points, fronts, on_front, direction)
    return figure


def levels_of_methods(cells):
    """Returns the cells of each method by level; a method decompresses all levels at about the same speed."""
    cells = sorted(cells, key=lambda point: point.setting)
    return [list(levels) for _, levels in itertools.groupby(cells, key=lambda point: point.setting[0])]


def name_points(axis, points, fronts, on_front, direction):
    speed = operator.attrgetter(direction)
    axis.figure.canvas.draw()
    labels = Labels(axis)
    for point in points:
        labels.add_point(speed(point), point.ratio, 4 if point.is_ours and id(point) not in on_front else 7)
    for line in fronts:
        labels.add_line([speed(point) for point in line], [point.ratio for point in line])
    if direction == "decompress":
        for levels in levels_of_methods([point for point in points if point.is_ours]):
            labels.add_line([speed(point) for point in levels], [point.ratio for point in levels])
            labels.place(f"method {levels[0].setting[0]}", speed(levels[0]), levels[0].ratio, size=9,
                         style="italic", color=GREY)
    for point in fronts[0]:
        labels.place(point.name, speed(point), point.ratio, weight="bold", size=9.5)
    for point in points:
        if not point.is_ours or point.setting in presets()[0].values() and id(point) not in on_front:
            labels.place(point.name, speed(point), point.ratio, size=8.5)
    note = ("● qrx, cells on its front (black line)\n○ qrx, other cells; presets have names\n"
            "□ others; dashed: their front")
    for text in place_note(axis, labels, note):
        axis.text(*text, transform=axis.transAxes, ha="left", va="top", size=9, linespacing=1.5,
                  bbox={"facecolor": "white", "edgecolor": "0.7", "linewidth": 0.6})


def place_note(axis, labels, note):
    """Yields the corner with the most room for the explanation of the markers."""
    frame = axis.get_window_extent(labels.renderer)
    corners = [(0.02, 0.98), (0.68, 0.98), (0.02, 0.15), (0.68, 0.15), (0.35, 0.98), (0.02, 0.6)]

    def crowd(corner):
        x, y = frame.x0 + corner[0] * frame.width, frame.y0 + corner[1] * frame.height
        box = (x, y - 0.14 * frame.height, x + 0.31 * frame.width, y)
        boxes = sum(box[0] < b[2] and b[0] < box[2] and box[1] < b[3] and b[1] < box[3] for b in labels.taken)
        return boxes + sum(box[0] < x < box[2] and box[1] < y < box[3] for x, y in labels.lines)

    yield (*min(corners, key=crowd), note)


# -------------------------------------------------------------------------------------- threads


def draw_threads(rows):
    """Speed of whole programs against the number of threads; each line is named at its right end."""
    counts = sorted({int(row["threads"]) for row in rows})
    size = int(rows[0]["original_bytes"])
    figure, axes = new_figure("Speed of whole programs with more threads",
                              f"One file of {size / 1e6:.0f} MB in memory (tmpfs), elapsed time. "
                              f"Solid: qrx; dashed: others. ×: speed with {counts[-1]} threads / with {counts[0]}.",
                              panels=2, height=6.6, sharey=True)
    speeds = [size / float(row["elapsed_s"]) / 1e6 for row in rows]
    for axis, operation in zip(axes, ("compress", "decompress")):
        axis.set(title=operation, xscale="log", yscale="log", xlabel="threads (logarithmic)",
                 xlim=(counts[0] / 1.1, counts[-1] * 1.1 * (counts[-1] / counts[0]) ** 0.75),
                 ylim=(min(speeds) / 1.3, max(speeds) * 1.3))
        plain_numbers(axis.xaxis, counts)
        plain_numbers(axis.yaxis, steps_between(min(speeds) / 1.3, max(speeds) * 1.3))
        draw_thread_lines(axis, [row for row in rows if row["operation"] == operation], size)
    axes[0].set_ylabel("MB of the original per second, elapsed (logarithmic)")
    return figure


def draw_thread_lines(axis, rows, size):
    lines = collections.defaultdict(list)
    for row in rows:
        lines[row["tool"], row["setting"]].append((int(row["threads"]), size / float(row["elapsed_s"]) / 1e6))
    ends = []
    for (tool, setting), line in lines.items():
        line.sort()
        mine = tool == "qrx"
        axis.plot(*zip(*line), "o-" if mine else "s--", color=DARK if mine else GREY, linewidth=1.4 if mine else 0.9,
                  markersize=5, markerfacecolor=DARK if mine else "white", zorder=3 if mine else 2)
        gain = line[-1][1] / line[0][1]
        ends.append((line[-1][1], f"{tool} {setting}   ×{gain:.1f}", mine, line[-1][0]))
    spread_labels(axis, ends)


def spread_labels(axis, ends):
    """Names lines at their right ends; labels keep a distance from each other and point to their line."""
    axis.figure.canvas.draw()
    gap = 12.5 * axis.figure.dpi / 72
    ends = sorted(ends)
    ys = [axis.transData.transform((end[3], end[0]))[1] for end in ends]
    wanted = list(ys)
    for _ in range(500):
        for i in range(len(ys) - 1):
            if ys[i + 1] - ys[i] < gap - 1e-6:
                middle = (ys[i] + ys[i + 1]) / 2
                ys[i], ys[i + 1] = middle - gap / 2, middle + gap / 2
    for (value, text, mine, x), y, old in zip(ends, ys, wanted):
        axis.annotate(text, (x, value), (16, (y - old) * 72 / axis.figure.dpi), textcoords="offset points",
                      va="center", size=9, weight="bold" if mine else "normal",
                      arrowprops={"arrowstyle": "-", "color": "0.6", "linewidth": 0.6, "shrinkA": 0, "shrinkB": 4})


# --------------------------------------------------------------------------------------- memory


def draw_memory(rows):
    """Measured peak and bound by level, for one and two workers."""
    figure, axes = new_figure("Peak memory of qrx by level", "Data that hardly compresses, in blocks of the default "
                              "size. Bars: measured peak; lines: the library's bound.", panels=2, height=4.8,
                              sharey=True)
    tallest = max(float(row["peak_MiB"] or 0) for row in rows if row["tool"] == "qrx") * 1.12
    for axis, operation in zip(axes, ("compress", "decompress")):
        draw_memory_bars(axis, levels_of_memory(rows, operation), tallest)
        axis.set(title=operation, xlabel="level", ylim=(0, tallest))
        axis.grid(axis="x", visible=False)
    axes[0].set_ylabel("MiB of the process")
    axes[1].text(0.03, 0.97, "dark, left: 1 worker\nlight, right: 2 workers\nline: bound of the library alone",
                 transform=axes[1].transAxes, va="top", linespacing=1.5)
    return figure


def draw_memory_bars(axis, data, tallest):
    for offset, workers, color in ((-0.2, 1, "0.25"), (0.2, 2, "0.7")):
        for level, columns in data.items():
            bound, peak = columns[workers]
            axis.bar(level + offset, peak, width=0.38, color=color, zorder=2)
            if bound < tallest:
                axis.plot([level + offset - 0.21, level + offset + 0.21], [bound, bound], color=DARK, linewidth=1.6,
                          zorder=3)
    axis.set_xticks(list(data))
    above = [level for level, columns in data.items() if columns[1][0] >= tallest]
    if above:
        axis.text(above[0] - 1.6, tallest * 0.97, f"level {above[0]}: the bound, above the plot,\n"
                  "includes reserved address space", size=9, va="top", ha="right", linespacing=1.4)


# ---------------------------------------------------------------------------------- small files


def draw_small_files(rows):
    """Elapsed and processor time of each tool, compression and decompression."""
    figure, axes = new_figure(f"Time for {int(rows[0]['files']):,} small files of "
                              f"{int(rows[0]['original_bytes']) / 1e6:.1f} MB in all",
                              "Dark: elapsed; light: processor time of all threads. In brackets: ratio. "
                              "Files in memory (tmpfs).",
                              panels=2, height=0.42 * len(rows) + 1.9, sharey=True)
    figure.subplots_adjust(left=0.23)
    names = [name_of_small(row) for row in rows]
    for axis, operation in zip(axes, ("compress", "decompress")):
        longest = max(float(row[f"{operation}{kind}"]) for row in rows for kind in ("_s", "_processor_s"))
        for index, row in enumerate(rows):
            for offset, column, color in ((-0.2, "_s", "0.25"), (0.2, "_processor_s", "0.7")):
                seconds = float(row[operation + column])
                axis.barh(index + offset, seconds, height=0.38, color=color, zorder=2)
                axis.text(seconds + longest / 80, index + offset, f"{seconds:.2f}", va="center", size=7.5)
        axis.set(title=operation, xlabel="seconds", xlim=(0, longest * 1.12))
        axis.set_yticks(range(len(rows)))
        axis.set_yticklabels(names)
        axis.grid(axis="y", visible=False)
    axes[0].invert_yaxis()
    return figure


def name_of_small(row):
    ratio = int(row["compressed_bytes"]) / int(row["original_bytes"])
    name = f"{row['tool']} {row['setting']}"
    return (f"tar + {name}" if row["way"] == "tar" else name) + f"  ({ratio:.2f})"


DRAWERS = {"compress": lambda rows: draw_speed(rows, "compress"),
           "decompress": lambda rows: draw_speed(rows, "decompress"), "threads": draw_threads,
           "memory": draw_memory, "small_files": draw_small_files}
