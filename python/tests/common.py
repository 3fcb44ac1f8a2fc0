"""Originals, .qrx files and their records, for all tests."""

import functools
import importlib
import os
import random
import struct
import tempfile
import unittest
from typing import List, NamedTuple

import qrx

MIB = 1 << 20
HEADER_SIZE = 32

# Programs that tests start run in other folders.
os.environ["PYTHONPATH"] = os.path.dirname(os.path.dirname(os.path.abspath(qrx.__file__)))
if os.path.exists(os.environ.get("QRX_LIBRARY", "")):
    os.environ["QRX_LIBRARY"] = os.path.abspath(os.environ["QRX_LIBRARY"])


@functools.lru_cache(maxsize=None)
def text(size: int, seed: int = 1) -> bytes:
    """Returns lines of words."""
    source = random.Random(seed)
    words = ["".join(source.choices("etaoinshrdlu", k=source.randint(2, 9))) for _ in range(500)]
    lines = (" ".join(source.choices(words, k=12)) for _ in range(size // 40 + 1))
    return "\n".join(lines).encode("ascii")[:size]


@functools.lru_cache(maxsize=None)
def noise(size: int, seed: int = 1) -> bytes:
    """Returns bytes that don't compress."""
    return random.Random(seed).randbytes(size)


@functools.lru_cache(maxsize=None)
def image(size: int = 3 * MIB + 1000, **options: object) -> bytes:
    """Returns a .qrx file of text in blocks of 1 MiB."""
    return qrx.compress(text(size), block_mib=1, level=1, **options)


class Record(NamedTuple):
    offset: int
    payload: int  # its offset
    size: int  # of the payload

    @property
    def end(self) -> int:
        return self.payload + self.size


def records(data: bytes, count: int = 4) -> List[Record]:
    """Finds the first `count` records of a .qrx file."""
    found, offset = [], HEADER_SIZE
    for _ in range(count):
        size = struct.unpack_from("<I", data, offset)[0]
        found.append(Record(offset, offset + 5, size))
        offset += 5 + size
    return found


def with_short_block(data: bytes, index: int) -> bytes:
    """Cuts the payload of a record, so that its block becomes shorter."""
    record = records(data, index + 1)[index]
    size = record.size - 100
    return (data[:record.offset] + struct.pack("<I", size) + data[record.offset + 4:record.payload]
            + data[record.payload:record.payload + size] + data[record.end:])


def need_packages(*names: str) -> None:
    """Skips a test, or a module of tests, unless the packages can be imported.

    With QRX_NEED_PACKAGES set in the environment, as in builds with CMake, the test fails instead.
    """
    for name in names:
        try:
            importlib.import_module(name)
        except ImportError as error:
            if os.environ.get("QRX_NEED_PACKAGES"):
                raise
            raise unittest.SkipTest(f"{name} can't be imported: {error}") from error


def open_descriptors() -> int:
    return len(os.listdir("/proc/self/fd"))


class InFolder(unittest.TestCase):
    """A test with an empty folder."""

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name: str = "file.qrx", content: "bytes | None" = None) -> str:
        """Returns a path in the folder, of a file with `content` unless that is None."""
        path = os.path.join(self.folder, name)
        if content is not None:
            with open(path, "wb") as file:
                file.write(content)
        return path
