#!/usr/bin/env python3
"""Prints a range of the original of a .qrx file; decodes only the blocks that contain it.

Usage: range.py FILE OFFSET SIZE
"""

import sys

import qrx


def main() -> None:
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    name, offset, size = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    with qrx.open(name) as file:
        file.seek(offset)
        while size > 0:
            piece = file.read1(min(size, 1 << 20))  # unlike read(), returns the bytes before damage
            if not piece:  # the end of the original
                break
            sys.stdout.buffer.write(piece)
            size -= len(piece)


if __name__ == "__main__":
    main()
