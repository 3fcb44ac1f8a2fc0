"""Measures the peak memory of qrx by level and worker against the library's bound, and that of peers.

The input is noise in which few bytes repeat.  It fills all buffers of qrx, and method 5 stores no block of it.
"""

import json
import pathlib
import random
import subprocess

from . import commands

PEERS = ("lz4", "zstd", "gzip", "bzip2", "brotli", "xz", "7-Zip")
LEVELS = range(10)
METHOD = 5            # the bounds of the methods differ by less than 1 MiB
MIB = 1 << 20
WORKERS = (1, 2)      # measured; the bound is also listed for one more
PEER_SETTINGS = [("lz4", "-1"), ("gzip", "-6"), ("bzip2", "-9"), ("zstd", "-1"), ("zstd", "-3"), ("zstd", "-19"),
                 ("brotli", "-11"), ("xz", "-0"), ("xz", "-6"), ("xz", "-9e"), ("7zip", "-mx=9")]


def bounds(workers, folder, quick):
    """Returns {(cell, operation): MiB} for a number of workers; `qrx bench` prints what the library states."""
    sample = pathlib.Path(folder) / "sample"
    sample.write_bytes(b"sample")
    done = subprocess.run([commands.QRX, "bench", "--seconds", "0.001", "--threads", str(workers), "--json",
                           *(["-b1"] if quick else []), str(sample)], capture_output=True, check=True)
    return {(cell["cell"], operation): cell[f"{operation}_memory"] / MIB
            for cell in json.loads(done.stdout)["cells"] for operation in ("compress", "decompress")}


def noise_of(mib):
    """Each 32 KiB ends with a repetition of its previous 1 KiB."""
    source = random.Random(1)
    pieces = (source.randbytes(31 << 10) for _ in range(mib << 5))
    return b"".join(piece + piece[-1024:] for piece in pieces)


def block_mib(level, quick):
    return 1 if quick else 16 if 4 <= level <= 7 else 32


def measure(quick=False):
    """Returns the rows of the table `memory`."""
    rows = []
    with commands.work_folder() as folder:
        folder = pathlib.Path(folder)
        noise = folder / "noise"
        for workers in (*WORKERS, WORKERS[-1] + 1):
            known = bounds(workers, folder, quick)
            for level in LEVELS:
                rows += measure_cell(METHOD * 10 + level, workers, known, noise, quick)
        rows += measure_peers(noise, quick)
    return rows


def measure_cell(cell, workers, known, noise, quick):
    """Compression has two blocks more than workers, so that all buffers are in use."""
    peaks = {"compress": "", "decompress": ""}
    if workers in WORKERS:
        print(f"qrx -{cell}, {workers} workers", flush=True)
        size = block_mib(cell % 10, quick)
        noise.write_bytes(noise_of((workers + 2) * size))
        packed = noise.with_name("packed")
        there = commands.run_once([commands.QRX, "-c", "-q", f"-T{workers}", f"-b{size}", f"-{cell}", noise],
                                  output=packed)
        back = commands.run_once([commands.QRX, "-d", "-c", "-q", f"-T{workers}", packed])
        peaks = {"compress": f"{there.peak_mib:.1f}", "decompress": f"{back.peak_mib:.1f}"}
        commands.remove(noise, packed)
    return [{"tool": "qrx", "setting": cell, "operation": operation, "workers": workers,
             "bound_MiB": f"{known[cell, operation]:.1f}", "peak_MiB": peaks[operation]}
            for operation in peaks]


def measure_peers(noise, quick):
    rows = []
    noise.write_bytes(noise_of(1 if quick else 72))
    for tool, setting in commands.installed(PEER_SETTINGS):
        print(f"{tool} {setting}", flush=True)
        packed = noise.with_name("packed.7z" if tool == "7zip" else "packed")
        command, output = commands.compress_command(tool, setting, 1, noise, packed)
        there = commands.run_once(command, output=output)
        command, output = commands.decompress_command(tool, 1, packed, noise.with_name("restored"))
        back = commands.run_once(command, output=output)
        commands.remove(packed, noise.with_name("restored"))
        rows += [{"tool": tool, "setting": setting, "operation": operation, "workers": 1, "bound_MiB": "",
                  "peak_MiB": f"{cost.peak_mib:.1f}"}
                 for operation, cost in (("compress", there), ("decompress", back))]
    return rows
