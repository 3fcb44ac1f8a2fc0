#!/usr/bin/env python3
"""Lists a compressed tar file, or prints one of its members.

Usage: tar_read.py FILE.tar.qrx [MEMBER]

To make such a file:

    with qrx.open("file.tar.qrx", "wb") as file, tarfile.open(fileobj=file, mode="w") as tar:
        tar.add("folder")
"""

import shutil
import sys
import tarfile

import qrx


def main() -> None:
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    with qrx.open(sys.argv[1]) as file, tarfile.open(fileobj=file) as tar:
        if len(sys.argv) == 2:
            for member in tar:
                print(f"{member.size:12} {member.name}")
            return
        try:
            content = tar.extractfile(sys.argv[2])
        except KeyError as error:
            sys.exit(f"{sys.argv[1]}: {error.args[0]}")
        if content is None:
            sys.exit(f"{sys.argv[2]} is not a regular file")
        shutil.copyfileobj(content, sys.stdout.buffer)


if __name__ == "__main__":
    main()
