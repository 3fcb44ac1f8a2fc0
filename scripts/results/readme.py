"""The tables of the README that are made from the results, between markers."""

import math
import re

from .markdown import markdown_table, wrapped
from .page import levels_of_memory, speed_text
from .speed import points_of
from .tables import ROOT

README = ROOT / "README.md"
SAME_MIB = 3  # levels that differ by at most this share a row of the memory table
SILESIA = {"dickens": 10192446, "mozilla": 51220480, "mr": 9970564, "nci": 33553445, "ooffice": 6152192,
           "osdb": 10085684, "reymont": 6627202, "samba": 21606400, "sao": 7251944, "webster": 41458703,
           "x-ray": 8474240, "xml": 5345280}  # sizes in bytes
PEERS = [("lz4", "1"), ("gzip", "6"), ("zstd", "1"), ("zstd", "3"), ("zstd", "19"), ("brotli", "11"), ("xz", "6")]


def presets():
    """Returns the cell of each preset, and the default preset, from the source of qrx."""
    source = (ROOT / "src/tool/presets.h").read_text(encoding="utf-8")
    cells = re.search(r"preset_cells\{([\d, ]+)\}", source).group(1).split(",")
    return {number: cell.strip() for number, cell in enumerate(cells) if number}, \
        int(re.search(r"default_preset = (\d)", source).group(1))


def files_text(rows):
    """Names the measured files or their corpus."""
    sizes = {row["file"]: int(row["original_bytes"]) for row in rows}
    total = f"{sum(sizes.values()) / 1e6:.1f} MB"
    if sizes == SILESIA:
        return f"the Silesia corpus ({total})"
    if sizes.items() <= SILESIA.items():
        return f"{len(sizes)} of the {len(SILESIA)} files of the Silesia corpus ({total})"
    return f"{len(sizes)} files ({total}: {', '.join(sizes)})"


def presets_table(tables):
    """The presets and some others, with the two plots."""
    measured = tables.read("speed")
    points = {(point.tool, point.setting): point for point in points_of(measured)}
    cells, default = presets()
    rows = [(f"`-{number}`" + (" (default)" if number == default else ""), f"`-{cell}`", points["qrx", cell])
            for number, cell in cells.items()]
    rows += [(points[key].name, "", points[key]) for key in PEERS if key in points]
    table = markdown_table(("preset", "cell", "ratio", "compress MB/s", "decompress MB/s"),
                           [(name, cell, f"{point.ratio:.3f}", speed_text(point.compress),
                             speed_text(point.decompress)) for name, cell, point in rows])
    plots = "".join(f"\n![Ratio against {name}ion speed](docs/results/{name}.svg)\n"
                    for name in ("compress", "decompress"))
    return table + plots + "\n" + wrapped(f"Measured in memory, with one thread, on {files_text(measured)}. MB are "
                                          "10^6 bytes of the original.") + "\n"


def memory_table(tables):
    """The measured peaks, rounded up; neighbouring levels that differ by little share a row."""
    rows = tables.read("memory")
    groups = []
    for level, columns in levels_of_memory(rows, "compress").items():
        figures = memory_figures(columns)
        if groups and all(abs(a - b) <= SAME_MIB for a, b in zip(groups[-1][1], figures)):
            groups[-1][0].append(level)
            groups[-1][1] = tuple(map(max, groups[-1][1], figures))
        else:
            groups.append([[level], figures])
    decompress = [memory_figures(columns) for columns in levels_of_memory(rows, "decompress").values()]
    lines = [(f"compress at {levels_text(levels)}", *figures) for levels, figures in groups]
    return markdown_table(("", "one worker", "two workers", "each further one"),
                          [*lines, ("decompress", *map(max, *decompress))])


def memory_figures(columns):
    """Peaks with one and two workers, and what a third adds to the bound; at level 9 the bound says little."""
    (_, one), (second_bound, two), (third_bound, _) = (columns[workers] for workers in (1, 2, 3))
    return math.ceil(one), math.ceil(two), math.ceil(min(third_bound - second_bound, two - one))


def levels_text(levels):
    if len(levels) == 1:
        return f"level {levels[0]}"
    return f"levels {levels[0]}{', ' if len(levels) == 2 else ' to '}{levels[-1]}"


PARTS = {"presets": ("speed", presets_table), "memory": ("memory", memory_table)}


def rendered(tables):
    """Returns the README with the tables that were measured."""
    text = README.read_text(encoding="utf-8")
    for name, (table, render) in PARTS.items():
        if tables.read(table) is None:
            continue
        first, last = f"<!-- scripts/report writes this table: {name} -->\n", f"<!-- end of {name} -->\n"
        if text.count(first) != 1 or text.count(last) != 1:
            raise SystemExit(f"README.md: no markers of {name}")
        before, rest = text.split(first)
        text = before + first + render(tables) + last + rest.split(last)[1]
    return text
