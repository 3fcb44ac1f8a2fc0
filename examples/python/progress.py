#!/usr/bin/env python3
"""Compresses a file and shows the progress.  Ctrl-C cancels and leaves no file.

Usage: progress.py SOURCE DEST.qrx [THREADS]
"""

import os
import shutil
import sys
import time

import qrx


class Meter:
    """Writes the percentage and the speed to standard error."""

    def __init__(self, total: int) -> None:
        self._total = total
        self._started = time.monotonic()

    def __call__(self, done: int, total: "int | None") -> None:
        seconds = max(time.monotonic() - self._started, 1e-9)
        print(f"\r{100 * done // self._total:3} %, {done / seconds / 2**20:.0f} MiB/s",
              end="", file=sys.stderr, flush=True)


def main() -> None:
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    threads = int(sys.argv[3]) if len(sys.argv) == 4 else min(os.cpu_count() or 0, qrx.MAX_THREADS)
    meter = Meter(max(os.path.getsize(sys.argv[1]), 1))
    try:
        with open(sys.argv[1], "rb") as source:
            with qrx.open(sys.argv[2], "wb", threads=threads, progress=meter) as dest:
                shutil.copyfileobj(source, dest, 1 << 20)
    except KeyboardInterrupt:
        sys.exit("\ncancelled")
    print(file=sys.stderr)
    info = qrx.info(sys.argv[2])
    print(f"{info.size} bytes to {info.file_size} in {info.blocks} blocks")


if __name__ == "__main__":
    main()
