"""Renders docs/results/README.md from the tables."""

import collections

from .front import front
from .markdown import markdown_table, wrapped
from .speed import points_of
from .trust import command_text

OURS = ("speed", "threads", "memory", "small_files")


def listed(items):
    """1, 2 and 4"""
    items = list(map(str, items))
    return " and ".join(filter(None, (", ".join(items[:-1]), *items[-1:])))


def speed_text(mb_s):
    """Three digits, or two below 10 MB/s."""
    if mb_s >= 1000:
        return f"{round(mb_s, -1):.0f}"
    return f"{mb_s:.0f}" if mb_s >= 10 else f"{mb_s:.1f}"


def mib_text(mib):
    return f"{mib:.0f}" if mib >= 10 else f"{mib:.1f}"


def share(part, whole):
    """A percentage; 0 % and 100 % are exact."""
    if part in (0, whole):
        return "100 %" if part else "0 %"
    return f"{min(max(100 * part / whole, 0.01), 99.99):.2f} %"


def plot(name, text):
    return f"![{text}]({name}.svg)\n"


# ----------------------------------------------------------------------------------- performance


def speed_section(rows):
    points = points_of(rows)
    files = {row["file"]: int(row["original_bytes"]) for row in rows}
    ours = [point for point in points if point.is_ours]
    peers = [point for point in points if not point.is_ours]
    fronts = {direction: {id(point) for group in (ours, peers) for point in front(
        group, lambda p, d=direction: getattr(p, d), lambda p: p.ratio)} for direction in ("compress", "decompress")}
    return f"""\
{len(files)} files, {sum(files.values()) / 1e6:.1f} MB: {', '.join(files)}. Everything is measured in memory with one \
thread: each file is compressed from one buffer into another and decompressed again, without checksums (bzip2 always \
has them). qrx and zstd reuse their memory from file to file, as their programs do. The compression times of qrx leave \
out two things more: the copy of each block into the buffer of the codec, into which the programs read files directly \
(it would add 7 % with `-10` and 3 % with `-20`, see [library.md](library.md)); and, up to level 7, the first use of \
the memory of the codec, which compresses a block before it is timed. qrx uses blocks of its default \
size; brotli has a window of 16 MiB; gzip stands for zlib with raw deflate. Speeds are MB (10^6 bytes) of the original \
per second of processor time, over all files. The fastest of several passes counts; settings that take more than 3 \
seconds run once.

{plot("compress", "Ratio against compression speed")}
{plot("decompress", "Ratio against decompression speed")}
A row is on the Pareto front of its table if no other row is at least as good in both ratio and speed, and better in \
one. `c` marks the front for compression, `d` that for decompression.

### All cells of qrx

{points_table(sorted(ours, key=lambda p: p.setting), fronts)}
### Other compressors

{points_table(peers, fronts)}
### Ratio by file

{files_table(rows, points)}"""


def points_table(points, fronts):
    def marks(point):
        return " ".join(mark for mark, direction in (("c", "compress"), ("d", "decompress"))
                        if id(point) in fronts[direction])
    return markdown_table(("", "ratio", "compress MB/s", "decompress MB/s", "front"),
                          [(point.name, f"{point.ratio:.3f}", speed_text(point.compress),
                            speed_text(point.decompress), marks(point)) for point in points])


def files_table(rows, points):
    """Ratios of the presets' cells and of some peers for each file."""
    from .readme import PEERS, presets
    wanted = [("qrx", cell) for cell in presets()[0].values()] + PEERS
    found = {(row["tool"], row["setting"], row["file"]): int(row["compressed_bytes"]) / int(row["original_bytes"])
             for row in rows}
    names = {(point.tool, point.setting): point.name for point in points}
    files = list(dict.fromkeys(row["file"] for row in rows))
    return markdown_table(("file", *(names[key] for key in wanted if key in names)),
                          [(file, *(f"{found[(*key, file)]:.3f}" for key in wanted if key in names))
                           for file in files])


def threads_section(rows):
    size = int(rows[0]["original_bytes"])
    counts = sorted({int(row["threads"]) for row in rows})
    lines = collections.defaultdict(dict)
    for row in rows:
        lines[row["tool"], row["setting"]][row["operation"], int(row["threads"])] = row
    table = []
    for (tool, setting), cells in lines.items():
        first = next(iter(cells.values()))
        seconds = [f"{float(cells[operation, count]['elapsed_s']):.2f}" for operation in ("compress", "decompress")
                   for count in counts]
        table.append((f"{tool} {setting}", f"{int(first['compressed_bytes']) / size:.3f}", *seconds))
    heads = [f"{operation}, {count}" for operation in ("compress", "decompress") for count in counts]
    return f"""\
Whole programs, elapsed seconds with {listed(counts)} threads. The input is one file of \
{size / 1e6:.0f} MB, the files above, concatenated and repeated. Input and output are in memory (tmpfs), so the \
times include program start and copying, but no disk access. The fastest of 3 runs counts; runs of more than 5 \
seconds are not repeated. \
pigz and zstd decompress with one thread.

{plot("threads", "Speed of whole programs against the number of threads")}
{markdown_table(("", "ratio", *heads), table)}"""


def levels_of_memory(rows, operation):
    """Returns {level: {workers: (bound, peak)}} of qrx in MiB, the largest of all methods; peak may be None."""
    levels = collections.defaultdict(dict)
    for row in rows:
        if row["tool"] != "qrx" or row["operation"] != operation:
            continue
        columns = levels[int(row["setting"]) % 10]
        workers = int(row["workers"])
        peak = float(row["peak_MiB"]) if row["peak_MiB"] else None
        bound, old = columns.get(workers, (0, None))
        columns[workers] = (max(bound, float(row["bound_MiB"])), max((old, peak), key=lambda each: each or 0))
    return dict(sorted(levels.items()))


def memory_section(rows):
    compress, decompress = (levels_of_memory(rows, operation) for operation in ("compress", "decompress"))

    def text(columns, workers):
        bound, peak = columns[workers]
        return f"{mib_text(peak)} of {mib_text(bound)}"

    table = [(level, *(text(each[level], workers) for each in (compress, decompress) for workers in (1, 2)))
             for level in compress]
    peers = collections.defaultdict(dict)
    for row in rows:
        if row["tool"] != "qrx":
            peers[row["tool"], row["setting"]][row["operation"]] = mib_text(float(row["peak_MiB"]))
    return f"""\
Memory of qrx in MiB for blocks of its default size (32 MiB; 16 MiB at levels 4 to 7): the measured peak, and the \
bound that the library states in advance (`qrx_compress_memory()`, `qrx_decompress_memory()`). The peak is that of the \
process. It includes about 5 MiB of program and libraries, which are not part of the bound. All figures are for method \
5; the bounds of the other methods differ from its by less than 1 MiB. The input is noise in which few bytes repeat, \
so it fills all buffers, and method 5 stores no block of it. At level 9 the bound includes the whole address range \
reserved for the trie, most of which is never used. Small files need less, \
and `-b` and `--memory-limit` reduce the memory.

{plot("memory", "Peak memory of qrx by level, one and two workers")}
{markdown_table(("level", "compress, 1 worker", "2 workers", "decompress, 1 worker", "2 workers"), table)}
### Other compressors, one thread

{markdown_table(("", "compress MiB", "decompress MiB"),
                [(f"{tool} {setting}", cost["compress"], cost["decompress"])
                 for (tool, setting), cost in peers.items()])}"""


def small_files_section(rows):
    def seconds(row, operation):
        return (f"{float(row[f'{operation}_s']):.2f}", f"{float(row[f'{operation}_processor_s']):.2f}")

    table = [(("tar with " if row["way"] == "tar" else "") + f"{row['tool']} {row['setting']}",
              f"{int(row['compressed_bytes']) / int(row['original_bytes']):.3f}", *seconds(row, "compress"),
              *seconds(row, "decompress")) for row in rows]
    return f"""\
A generated tree of {int(rows[0]['files']):,} text files, {int(rows[0]['original_bytes']) / 1e6:.1f} MB in all. Either \
each file is compressed separately (`-r`; xz gets the names from `find`), or the tree is packed with tar. All \
programs use their default number of threads. Files are in memory (tmpfs), where flushing to disk is free; elsewhere \
it takes much of the time of qrx, the only program that flushes (unless `--no-sync` is given). Commands run 3 times, \
or once if they take 5 seconds or more. The smallest elapsed and the smallest processor time count; they can be those \
of different runs.

{plot("small_files", "Elapsed and processor time for small files")}
{markdown_table(("", "ratio", "compress s", "processor s", "decompress s", "processor s"), table)}"""


# ----------------------------------------------------------------------------------------- trust


def damage_section(rows):
    counts = collections.defaultdict(collections.Counter)
    outcomes = ("edits", "noticed", "harmless", "silent", "crashed", "hung")
    for row in rows:
        kind = row["format"] + (f", method {row['method']}" if row["method"] else "")
        for outcome in outcomes:
            counts[kind, row["sealed"]][outcome] += int(row[outcome])
    table = [(kind, sealed, *(f"{count[outcome]:,}" for outcome in outcomes),
              share(count["silent"], count["edits"])) for (kind, sealed), count in counts.items()]
    by_edit = collections.defaultdict(collections.Counter)
    for row in rows:
        if row["format"] == "qrx":
            by_edit[row["edit"]][row["sealed"]] += int(row["silent"])
            by_edit[row["edit"]]["edits " + row["sealed"]] += int(row["edits"])
    edits = [(edit, *(share(count[sealed], count[f"edits {sealed}"]) for sealed in ("yes", "no")))
             for edit, count in by_edit.items()]
    return f"""\
Files are damaged by random edits and then checked by the test of their format (`qrx -t`, `zstd -t` and so on). \
*Noticed*: the test fails. *Harmless*: it passes, and the original is restored. *Silent*: it passes, but other bytes \
are restored. A file is sealed if it ends with a checksum, as files of qrx do by default; quarnex writes none. In \
other formats, *sealed* means that the file has a checksum.

A fifth of the edits changes a bit, a fifth a byte, and a fifth a sector of 512 bytes; a fifth cuts off the end, and a \
fifth swaps two chunks of 4 KiB. Files of qrx get 100 edits more, which swap two of five whole records: each pair at \
each level. The rows `qrx (quarnex)` are about the unsealed files of qrx, restored by `quarnex -d`. It has no test, \
so all its messages count as noticed, even if the exit status is 0.

{markdown_table(("format", "sealed", *outcomes, "silent share"), table)}
Share of edits to files of qrx that are silent, by kind of edit:

{markdown_table(("edit", "sealed", "unsealed"), edits)}"""


def faults_section(rows):
    columns = list(dict.fromkeys((row["program"], row["operation"]) for row in rows))
    cells = collections.defaultdict(collections.Counter)
    for row in rows:
        cells[row["fault"], row["program"], row["operation"]][row["result"]] += int(row["runs"] or 0)
    faults = list(dict.fromkeys(row["fault"] for row in rows))
    workers = sorted({int(row["workers"]) for row in rows if row["workers"].isdigit()})
    table = [(fault, *(fault_cell(cells[(fault, *column)]) for column in columns)) for fault in faults]
    wrong = [f"- {row['program']} {row['operation']}, {row['fault']}, {row['workers']} workers: `{row['note']}`"
             for row in rows if row["result"] == "wrong"]
    reasons = collections.defaultdict(dict)
    for row in rows:
        if row["note"] and row["result"] != "wrong":
            reasons[row["note"]][row["fault"]] = True
    notes = [f"- {', '.join(each)}: {note}" for note, each in reasons.items()]
    return f"""\
Each fault is injected in many runs, with {listed(workers)} workers. Allocating memory, reading, writing, closing and \
starting threads fail, files shrink or vanish, and the process is killed. Calls that open, rename, flush or remove \
files do not fail here; `tests/tool/faults_test.py` makes some of those of qrx fail. A run is good if it ends in time, \
leaves no partial file that isn't documented, prints the documented messages and ends with the documented status \
(`tests/faults/fault_expectations.py` has both), and changes no other file. The figures are \
numbers of good runs in which the fault happened; others, such as the repetition after each fault, aren't counted. \
`-` means that the fault can't happen there.

{markdown_table(("fault", *(f"{program} {operation}" for program, operation in columns)), table)}
{list_text("Wrong:", wrong)}{list_text("Notes:", notes)}"""


def list_text(title, items):
    return f"{title}\n\n" + "\n".join(items) + "\n\n" if items else ""


def fault_cell(counts):
    if counts["wrong"]:
        return f"**wrong: {counts['wrong']:,}** of {counts['wrong'] + counts['good']:,}"
    return f"{counts['good']:,}" if "good" in counts else "-"


def schedules_section(rows):
    return f"""\
Random schedules: threads yield at random (from a seed) where they lock, wait and signal; the thread sanitizer checks \
each run. Stress: 16 workers compress and restore files in blocks of 1 MiB for the time in the table.

{markdown_table(("kind", "runs", "seconds", "faults", "note"),
                [(row["kind"], f"{int(row['runs']):,}", f"{float(row['seconds']):,.0f}", row["faults"], row["note"])
                 for row in rows])}"""


def fuzz_coverage_section(rows, unlinked):
    rows = [row for row in rows if row["directory"] != "all"]  # their sum
    directories = list(dict.fromkeys(row["directory"] for row in rows))
    table = collections.defaultdict(collections.Counter)
    for row in rows:
        table[row["target"]]["reached", row["directory"]] += int(row["reached"])
        table[row["target"]]["regions", row["directory"]] += int(row["regions"])
    union = table["all"]
    targets = [(name, sum(value for (what, _), value in cells.items() if what == "reached"),
                sum(value for (what, _), value in cells.items() if what == "regions"))
               for name, cells in table.items()]
    files = listed(f"`{row['file']}`" for row in unlinked)
    left_out = f" Not counted, since no target links them: {files}." if unlinked else ""
    return f"""\
How many regions of `src/` the inputs in the source tree reach (the generated seeds and `fuzz/corpus/`, not what later \
runs found): first of all fuzz targets together, by directory, then of each target. Only code for Linux that is linked \
into a target counts. A region is a piece of code without branches, as counted by \
llvm-cov.{left_out}

{markdown_table(("directory", "regions", "reached", "share"),
                [(name, f"{union['regions', name]:,}", f"{union['reached', name]:,}",
                  share(union["reached", name], union["regions", name])) for name in directories])}
{markdown_table(("target", "regions", "reached", "share"),
                [(name, f"{regions:,}", f"{reached:,}", share(reached, regions))
                 for name, reached, regions in targets])}"""


def require_explanations(rows, faults):
    """Exits unless fuzz_faults.csv explains as many faults of each target as were counted."""
    counted = {row["target"]: int(row["faults"]) for row in rows if row["target"] != "all"}
    explained = collections.Counter()
    for fault in faults:
        explained[fault["target"]] += int(fault["runs"])
    for target in sorted(counted.keys() | explained.keys()):
        if explained[target] != counted.get(target, 0):
            raise SystemExit(f"fuzz_faults.csv explains {explained[target]} faults of the fuzz target {target}, but "
                             f"fuzz_hours.csv counts {counted.get(target, 0)}: explain each fault in fuzz_faults.csv, "
                             "and name the test that covers it")


def fuzz_hours_section(rows, faults):
    require_explanations(rows, faults)
    rows = sorted(rows, key=lambda row: row["target"] == "all")  # the sums at the end
    return """\
Sums of all recorded runs. A target with `.msan` is built with the memory sanitizer, one with `.32` for a 32-bit \
system, all others with the address and undefined-behaviour sanitizers. A fault counts once for each run that it \
ended. The date and commit below, and the machine and compiler at the end of this page, are those of the latest update \
of this table. Many of the runs are older and may be from other machines: [fuzz_runs.csv](fuzz_runs.csv) has their \
times and, where recorded, commits.

""" + markdown_table(
        ("target", "processor hours", "executions", "faults"),
        [("**all**" if row["target"] == "all" else row["target"], f"{float(row['processor_hours']):.2f}",
          f"{int(row['executions']):,}", row["faults"]) for row in rows]) + list_of_faults(faults)


def list_of_faults(faults):
    if not faults:
        return ""
    return "\nWhat the faults were:\n\n" + markdown_table(
        ("target", "runs", "fault"), [(fault["target"], fault["runs"], fault["note"]) for fault in faults])


def payloads_section(rows):
    return """\
Payloads depend only on the original and the parameters, not on the compiler, the optimization level, the system, the \
program or the number of workers. The digest covers all payloads. In each cell, 11 generated files are compressed in \
blocks of 1 MiB (`scripts/payloads`): an empty file, one byte, text, UTF-16 text, machine code, binary records, CSV, a \
sound, a picture, noise and a sparse file. Text and machine code have two blocks each, the others at most one.

""" + markdown_table(("variant", "cells", "files", "digest", "equal"),
                     [(row["variant"], row["cells"], row["files"], f"`{row['digest'][:16]}`", row["equal"])
                      for row in rows])


def reproducible_section(rows):
    return """\
A commit, built twice in different environments, gives the same bytes. The table has the first 16 digits of SHA-256.

""" + markdown_table(("artifact", "first", "second", "equal"),
                     [(f"`{row['artifact']}`", f"`{row['first'][:16]}`", f"`{row['second'][:16]}`",
                       row["equal"]) for row in rows])


# ------------------------------------------------------------------------------------------ page

# The name of a section, its title, its parts in `runs`, and what renders the rows of their tables
SECTIONS = [
    ("speed", "Ratio and speed", ("speed",), speed_section),
    ("threads", "Threads", ("threads",), threads_section),
    ("memory", "Memory", ("memory",), memory_section),
    ("small_files", "Small files", ("small_files",), small_files_section),
    ("damage", "Damaged files", ("damage",), damage_section),
    ("faults", "Faults of the system", ("faults",), faults_section),
    ("schedules", "Schedules and stress", ("schedules", "stress"), schedules_section),
    ("fuzz_coverage", "Fuzzing: coverage", ("fuzz_coverage",), fuzz_coverage_section),
    ("fuzz_hours", "Fuzzing: hours", ("fuzz_hours",), fuzz_hours_section),
    ("payloads", "Equal payloads", ("payloads",), payloads_section),
    ("reproducible", "Reproducible builds", ("reproducible",), reproducible_section),
]

# A second table that a section renders
SECOND_TABLES = {"fuzz_coverage": "fuzz_unlinked", "fuzz_hours": "fuzz_faults"}

HEAD = """\
# Results

`scripts/report all FOLDER` measures qrx and writes this page, its plots, and the tables in this directory as CSV \
files; `scripts/report performance FOLDER` measures only the first four sections. Each part can also be measured \
alone; [Machines and versions](#machines-and-versions) says when and where that was done. The overhead of the C \
interface over the codecs is measured by `scripts/bench --library` and described in [library.md](library.md).

- *Ratio* is compressed / original size: smaller is better. MB are 10^6 bytes, MiB are 2^20.
- A *cell* is a method and a level: `-35` is method 3 at level 5. The [presets](../../README.md#presets) are nine of \
them.

"""


def rendered(tables):
    """Returns the page.  A section that was not measured says how to measure it."""
    runs = {row["part"]: row for row in tables.read("runs") or []}
    text = HEAD
    for name, title, parts, render in SECTIONS:
        rows = [row for part in parts for row in tables.read(part) or []]
        text += f"## {title}\n\n"
        more = [tables.read(SECOND_TABLES[name]) or []] if name in SECOND_TABLES else []
        text += (render(rows, *more).rstrip("\n") if rows else "Not measured.") + "\n\n"
        names = [*filter(tables.read, parts), *(SECOND_TABLES[name] for each in more if each)] if rows else []
        text += source_text(name, parts, runs, names) + "\n"
    return wrapped(text + machines_section(runs))


def source_text(name, parts, runs, tables):
    """Returns when and how a section was measured, and the names of the tables that exist."""
    command = [f"`scripts/report {part}{' FOLDER' if part in ('speed', 'threads') else ''}`" for part in parts]
    verb = "run" if len(parts) > 1 else "runs"
    own = "" if name in OURS else f", which {verb} {' and '.join(f'`{command_text(part)}`' for part in parts)}"
    dates = dict.fromkeys(f"{runs[part]['date']} at commit {runs[part]['commit']}" for part in parts if part in runs)
    how = f"Command: {' and '.join(command)}{own}."
    found = listed(f"[{each}.csv]({each}.csv)" for each in tables)
    links = f" {'Tables' if len(tables) > 1 else 'Table'}: {found}." if tables else ""
    return (f"Measured on {'; '.join(dates)}. " if tables and dates else "") + how + links + "\n"


def machines_section(runs):
    if not runs:
        return "## Machines and versions\n\nNothing was measured.\n"
    groups = collections.defaultdict(list)
    for part, row in runs.items():
        groups[row["machine"]].append(part)
    machines = "".join(f"- {machine}: {', '.join(parts)}\n" for machine, parts in groups.items())
    table = markdown_table(("part", "date", "commit", "compiler", "minutes", "others"),
                           [(part, row["date"], row["commit"], row["compiler"], f"{float(row['seconds']) / 60:.1f}",
                             row["versions"]) for part, row in runs.items()])
    return f"## Machines and versions\n\n{machines}\n{table}"
