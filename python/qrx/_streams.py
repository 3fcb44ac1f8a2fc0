"""Python file objects as sources and sinks of the library, and file names."""

from __future__ import annotations

import builtins
import ctypes
import io
import os
import sys
import tempfile
from typing import IO, Any, Optional, Union

from ._calls import Calls
from ._library import READ, WRITE, Sink, Source

Path = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]
File = Union[Path, IO[bytes]]

BUFFER_SIZE = 1 << 17  # buffer size of file objects, in bytes
_PIECE = 1 << 20  # bytes written at once

# The library passes names to the C library, which limits them to the ANSI code page on Windows.
names_pass_through = sys.platform != "win32"


def is_path(file: object) -> bool:
    """True for a file name, False for a file object."""
    if isinstance(file, (str, bytes)):
        return True
    if isinstance(file, os.PathLike) and not hasattr(file, "seek"):  # open files can be path-like
        return True
    if hasattr(file, "read") or hasattr(file, "write"):
        return False
    raise TypeError(f"a file is a path or a binary file object, not {type(file).__name__}")


def name_of(file: Any) -> Any:
    """Returns the path, or the name of a file object: any object or None."""
    return os.fspath(file) if is_path(file) else getattr(file, "name", None)


def c_name(path: Path) -> bytes:
    """Returns a path as the library takes it."""
    name = os.fsencode(path)
    if b"\0" in name:
        raise ValueError("embedded null character")
    return name


# ---------------------------------------------------------------------------------------- reading


def make_source(file: Any, calls: Calls) -> Source:
    """Returns a source of the bytes of a file object from its current position to its end."""
    start = file.tell()
    size = file.seek(0, io.SEEK_END)
    if size is None:
        size = file.tell()

    def read(_context: int, offset: int, dest: int, room: int, got: Any) -> int:
        got[0] = 0
        file.seek(start + offset)
        got[0] = _read_fully(file, dest, room)
        return 0

    return Source(read=READ(calls.callback(read)), size=max(size - start, 0))


def _read_fully(file: Any, dest: int, room: int) -> int:
    """Reads `room` bytes to an address, or fewer at the end of the file."""
    done = 0
    if not hasattr(file, "readinto"):
        while done < room:
            data = file.read(room - done)
            if not data:
                break
            content = bytes(data)
            done += _check_count(len(content), "read", 1, room - done)
            ctypes.memmove(dest + done - len(content), content, len(content))
        return done
    array = (ctypes.c_ubyte * room).from_address(dest)
    with memoryview(array).cast("B") as memory:
        while done < room:
            count = file.readinto(memory[done:])
            if count is None:
                raise BlockingIOError("the file object has no data at the moment")
            if count == 0:
                break
            done += _check_count(count, "readinto", 1, room - done)
    return done


def _check_count(count: int, method: str, min_count: int, max_count: int) -> int:
    """Returns the number of bytes that a method of a file object has reported."""
    if not min_count <= count <= max_count:
        raise OSError(f"{method}() of the file object has processed {count} of {max_count} bytes")
    return count


# ---------------------------------------------------------------------------------------- writing


class Output:
    """A file object written from its current position on; out of order if it can seek."""

    def __init__(self, file: Any) -> None:
        self.file = file
        self.can_seek = can_seek(file)
        self._start: int = file.tell() if self.can_seek else 0
        self._position = self._start
        self._end = self._start

    def write(self, offset: int, source: int, size: int) -> None:
        """Writes bytes at an offset from the start of the output."""
        if self._start + offset != self._position:
            self._position = self.file.seek(self._start + offset)
        for done in range(0, size, _PIECE):
            # A copy, because the file object may keep a reference.
            self._write_fully(ctypes.string_at(source + done, min(_PIECE, size - done)))
        self._end = max(self._end, self._position)

    def _write_fully(self, data: bytes) -> None:
        rest = memoryview(data)
        while rest:
            count = self.file.write(data if len(rest) == len(data) else rest)
            if count is None:
                if isinstance(self.file, io.RawIOBase):
                    raise BlockingIOError("the file object takes no data at the moment")
                count = len(rest)
            _check_count(count, "write", 1, len(rest))
            self._position += count
            rest = rest[count:]

    def complete(self) -> None:
        """Moves to the end of the output."""
        if self._position != self._end:
            self.file.seek(self._end)


def can_seek(file: Any) -> bool:
    """True if a file object can seek while it is written."""
    if "a" in str(getattr(file, "mode", "")):  # all writes go to the end
        return False
    if hasattr(file, "seekable"):
        return bool(file.seekable())
    return hasattr(file, "seek") and hasattr(file, "tell")


def make_sink(output: Output, calls: Calls) -> Sink:
    """Returns a sink that writes to an output."""

    def write(_context: int, offset: int, source: int, size: int) -> int:
        output.write(offset, source, size)
        return 0

    return Sink(write=WRITE(calls.callback(write)))


class ReplacingFile:
    """A file that gets its name when it is complete, as files written by the library do."""

    def __init__(self, path: Path) -> None:
        self._path = os.path.abspath(os.fsdecode(path))  # the current directory may change
        number, self._temporary = tempfile.mkstemp(
            prefix=".qrx-", dir=os.path.dirname(self._path) or ".")
        self.file: Optional[io.BufferedWriter] = builtins.open(number, "wb")

    def complete(self) -> None:
        """Gives the file its name."""
        assert self.file is not None
        try:
            self.file.close()
            os.replace(self._temporary, self._path)
            self.file = None
        finally:
            self.discard()

    def discard(self) -> None:
        """Removes the file unless it is complete."""
        if self.file is not None:
            try:
                self.file.close()
            finally:
                self.file = None
                os.unlink(self._temporary)
