"""Measures ratio and speed of every cell and of peers, in memory on one processor.

bench/codec_bench.cpp measures.  It runs several passes over all compressors, so that a disturbance doesn't
hit all runs of one; slow compressors take part only in the first.  The fastest pass counts.
"""

import collections
import json
import os
import pathlib
import shutil
import subprocess
import tempfile

from .tables import ROOT

PROGRAM = ROOT / "build" / "bench" / "bench" / "codec_bench"
PEERS = ("lz4", "zlib", "zstd", "brotli", "bzip2", "xz")
PASSES = 3
LONG_ENOUGH = 3    # seconds to compress all files; a slower compressor runs only once
REPEAT_FOR = 0.05  # seconds; shorter runs are repeated, and the mean counts
SKIPPED_IF_QUICK = "qrx-.[789]|zstd-1.|brotli-(9|11)|lz4-(9|12)|gzip-9|xz-(3|6|9e)"


def run_pass(files, name_filter):
    """Returns {(encode or decode, contender, file): (seconds, ratio)} of one pass."""
    pin = ["taskset", "-c", str(max(os.sched_getaffinity(0)))] if shutil.which("taskset") else []
    with tempfile.NamedTemporaryFile("r", suffix=".json") as report:
        subprocess.run([*pin, PROGRAM, f"--benchmark_filter={name_filter}", f"--benchmark_min_time={REPEAT_FOR}",
                        f"--benchmark_out={report.name}", "--benchmark_out_format=json", *files],
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        results = {}
        for row in json.load(report)["benchmarks"]:
            if row.get("error_occurred"):
                raise SystemExit(f"{row['name']}: {row['error_message']}")
            results[tuple(row["name"].split("/", 2))] = (row["cpu_time"] / 1e3, row["ratio"])
        return results


def contenders_within(results, seconds):
    """The names of the contenders that compress all files in less than `seconds`."""
    totals = collections.Counter()
    for (operation, name, _), (spent, _) in results.items():
        totals[name] += spent if operation == "encode" else 0
    return [name for name, total in totals.items() if total < seconds]


def measure(files, quick=False):
    """Returns the rows of the table `speed`."""
    files = [pathlib.Path(name) for name in files]
    if len({name.name for name in files}) != len(files):
        raise SystemExit("two files have the same name")
    print("pass 1: all compressors", flush=True)
    passes = [run_pass(files, f"-/({SKIPPED_IF_QUICK})/" if quick else "/")]
    while len(passes) < (1 if quick else PASSES):
        names = contenders_within(passes[0], LONG_ENOUGH)
        print(f"pass {len(passes) + 1}: {len(names)} compressors", flush=True)
        passes.append(run_pass(files, f"/({'|'.join(names)})/"))
    return rows_of(passes, {name.name: name.stat().st_size for name in files})


def rows_of(passes, sizes):
    rows = []
    for operation, name, file in passes[0]:
        if operation != "encode":
            continue
        tool, setting = name.split("-", 1)
        runs = [each for each in passes if (operation, name, file) in each]
        fastest = {what: min(each[what, name, file][0] for each in runs) for what in ("encode", "decode")}
        rows.append({"tool": tool, "setting": setting, "file": file, "original_bytes": sizes[file],
                     "compressed_bytes": round(passes[0][operation, name, file][1] * sizes[file]),
                     "compress_s": f"{fastest['encode']:.6f}", "decompress_s": f"{fastest['decode']:.6f}",
                     "runs": len(runs)})
    return rows


class Point:
    """A compressor with a setting: ratio and speeds over all files."""

    def __init__(self, tool, setting, rows):
        self.tool, self.setting = tool, setting
        self.is_ours = tool == "qrx"
        self.original = sum(int(row["original_bytes"]) for row in rows)
        self.compressed = sum(int(row["compressed_bytes"]) for row in rows)
        self.compress_s = sum(float(row["compress_s"]) for row in rows)
        self.decompress_s = sum(float(row["decompress_s"]) for row in rows)
        self.ratio = self.compressed / self.original
        self.compress = self.original / self.compress_s / 1e6
        self.decompress = self.original / self.decompress_s / 1e6

    @property
    def name(self):
        return f"-{self.setting}" if self.is_ours else f"{self.tool} -{self.setting}"


def points_of(rows):
    """Sums the rows of the table over the files."""
    groups = collections.defaultdict(list)
    for row in rows:
        groups[row["tool"], row["setting"]].append(row)
    return [Point(*key, group) for key, group in groups.items()]
