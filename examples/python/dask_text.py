#!/usr/bin/env python3
"""Prints the most frequent words of a .qrx file, using a local cluster on all processors.

Usage: dask_text.py FILE [COUNT]
"""

import sys

from distributed import Client

import qrx.dask


def main() -> None:
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    count = int(sys.argv[2]) if len(sys.argv) == 3 else 10
    with Client(dashboard_address=None):  # or Client("scheduler:8786")
        words = qrx.dask.read_text(sys.argv[1]).map(str.split).flatten()
        for word, number in words.frequencies().topk(count, key=1).compute():
            print(f"{number:10} {word}")


if __name__ == "__main__":
    main()
