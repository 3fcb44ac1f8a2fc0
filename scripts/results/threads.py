"""Measures whole programs with one and more threads: elapsed and processor time."""

import os
import pathlib

from . import commands

PEERS = ("zstd", "xz", "pigz", "lbzip2", "7-Zip")
SETTINGS = [("qrx", "-1"), ("qrx", "-3"), ("qrx", "-5"), ("qrx", "-7"), ("zstd", "-1"), ("zstd", "-3"),
            ("zstd", "-12"), ("xz", "-1"), ("pigz", "-6"), ("lbzip2", "-9"), ("7zip", "-mx=1")]
BLOCK = 32 << 20
QUICK_BYTES = 4 << 20


def thread_counts(processors=None):
    """1, 2, 4 and so on, up to the number of processors, which is always included."""
    processors = processors or len(os.sched_getaffinity(0))
    return sorted({1 << n for n in range(processors.bit_length()) if 1 << n <= processors} | {processors})


def write_input(files, size, target):
    """Concatenates the files, repeatedly, up to `size` bytes."""
    with open(target, "wb") as output:
        while output.tell() < size:
            for name in files:
                output.write(pathlib.Path(name).read_bytes()[:size - output.tell()])


def measure(files, quick=False):
    """Returns the rows of the table `threads`."""
    counts = thread_counts()
    # A multiple of all numbers of threads, so that no thread waits for the last block of another.
    size = QUICK_BYTES if quick else BLOCK * max(8, 4 * counts[-1])
    rows = []
    with commands.work_folder() as folder:
        source = pathlib.Path(folder) / "input"
        write_input(files, size, source)
        for tool, setting in commands.installed(SETTINGS):
            for threads in counts:
                print(f"{tool} {setting}, {threads} threads", flush=True)
                rows += measure_one(tool, setting, threads, source, 1 if quick else commands.RUNS)
    return rows


def measure_one(tool, setting, threads, source, runs):
    packed, restored = source.with_name("packed.7z" if tool == "7zip" else "packed"), source.with_name("restored")
    command, output = commands.compress_command(tool, setting, threads, source, packed)
    there = commands.measure(command, lambda: commands.remove(packed), runs, output=output)
    size = packed.stat().st_size
    command, output = commands.decompress_command(tool, threads, packed, restored)
    back = commands.measure(command, lambda: commands.remove(restored), runs, output=output)
    if restored.read_bytes() != source.read_bytes():
        raise SystemExit(f"{tool} {setting} restores wrong bytes")
    original = source.stat().st_size
    commands.remove(packed, restored)
    return [{"tool": tool, "setting": setting, "operation": operation, "threads": threads,
             "original_bytes": original, "compressed_bytes": size, "elapsed_s": f"{cost.elapsed_s:.3f}",
             "processor_s": f"{cost.processor_s:.3f}", "runs": cost.runs}
            for operation, cost in (("compress", there), ("decompress", back))]
