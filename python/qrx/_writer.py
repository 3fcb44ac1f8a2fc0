"""Writing .qrx files piece by piece."""

from __future__ import annotations

import io
import warnings
from ctypes import byref
from types import TracebackType
from typing import TYPE_CHECKING, Optional, Type

from ._calls import Calls, Handle, in_range
from ._library import UNKNOWN_SIZE, Params, lib
from ._memory import View
from . import _streams
from ._streams import (
    BUFFER_SIZE, File, Output, ReplacingFile, c_name, is_path, make_sink, name_of,
)

if TYPE_CHECKING:
    from _typeshed import ReadableBuffer


class RawWriter(io.RawIOBase):
    """A writer of the library as an unbuffered file object."""

    mode = "wb"

    def __init__(self, file: File, params: Params, calls: Calls, threads: int, flags: int,
                 memory_limit: int, size: Optional[int]) -> None:
        super().__init__()
        self._position = 0
        self._size = size
        self.failure: Optional[BaseException] = None
        self.is_discarded = False
        self.has_start = False
        self._replacing: Optional[ReplacingFile] = None
        self._output: Optional[Output] = None
        original_size = UNKNOWN_SIZE if size is None else in_range("size", size, UNKNOWN_SIZE)
        options = calls.options(threads, flags, memory_limit)
        self.name = name_of(file)
        if is_path(file):
            calls.name = self.name
        try:
            if is_path(file) and _streams.names_pass_through:
                self._handle = Handle(calls, lib.qrx_writer_close, (options,))
                self._handle.close_with(self)
                self._handle.open(lib.qrx_writer_open, c_name(self.name), original_size,
                                  byref(params), byref(options))
                return
            if is_path(file):
                self._replacing = ReplacingFile(self.name)
                assert self._replacing.file is not None
                file = self._replacing.file
            self._output = Output(file)
            if size is None and not self._output.can_seek:
                raise ValueError("an output that can't seek needs the size of the original (size=)")
            sink = make_sink(self._output, calls)
            self._handle = Handle(calls, lib.qrx_writer_close, (options, sink))
            self._handle.close_with(self)
            self._handle.open(lib.qrx_writer_open_sink, byref(sink), original_size,
                              byref(params), byref(options))
        except BaseException:
            self.discard()
            self.close()
            raise

    def discard(self) -> None:
        """Makes close() remove the file, and ignores further writes."""
        self.is_discarded = True

    def close(self) -> None:
        if self.closed:
            return
        try:
            if not self.is_discarded and self.failure is None:
                self._finish()
        finally:
            try:
                if hasattr(self, "_handle"):  # else opening failed early
                    self._handle.close()
                if self._replacing is not None:
                    self._replacing.discard()
            finally:
                super().close()

    def _finish(self) -> None:
        if self._size is not None and self._position != self._size:
            raise ValueError(f"{self._position} bytes were written, not size={self._size}")
        self._handle.call(lib.qrx_writer_finish)
        if self._output is not None:
            self._output.complete()
        if self._replacing is not None:
            self._replacing.complete()

    def writable(self) -> bool:
        self._check_open()
        return True

    def seekable(self) -> bool:
        self._check_open()
        return self.has_start

    def tell(self) -> int:
        self._check_open()
        return self._position

    def write(self, data: ReadableBuffer) -> int:
        self._check_open()
        with View(data) as view:
            if self.is_discarded:
                return view.size
            if self.failure is not None:
                raise self.failure
            if self._size is not None and self._position + view.size > self._size:
                self.failure = ValueError(f"more bytes are written than size={self._size}")
                raise self.failure
            if view.size:
                try:
                    self._handle.call(lib.qrx_writer_write, view.address, view.size)
                except BaseException as error:
                    self.failure = error
                    raise
            self._position += view.size
            return view.size

    def _check_open(self) -> None:
        if self.closed:
            raise ValueError("I/O operation on closed file")


class QrxWriter(io.BufferedWriter):
    """A .qrx file open for writing: a binary file object.

    close() completes it.  Only then a file opened by path appears or replaces another one.  It is
    removed instead after discard(), if the with block ends by an exception, or if the object is
    collected before close().
    """

    raw: RawWriter

    def __init__(self, raw: RawWriter) -> None:
        """Use open()."""
        super().__init__(raw, BUFFER_SIZE)

    def discard(self) -> None:
        """Closes the file without completing it.

        A file opened by path is removed.  A file object keeps what was written to it, which isn't
        a valid .qrx file.
        """
        if not self.closed:
            self.raw.discard()
            self.close()

    def close(self) -> None:
        """Completes the file.  If a write failed, raises its exception again."""
        if not self.closed:
            super().close()
            if self.raw.failure is not None and not self.raw.is_discarded:
                raise self.raw.failure

    def __enter__(self) -> QrxWriter:
        super().__enter__()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        if kind is not None:
            self.discard()
        else:
            self.close()

    def __del__(self) -> None:
        try:
            is_open = not self.closed
        except ValueError:  # detached, or __init__() failed
            return
        if is_open:
            name = self.raw.name
            self.discard()
            warnings.warn(f"{name!r} was not closed and is discarded", ResourceWarning,
                          stacklevel=2)


class TextWriter(io.TextIOWrapper):
    """Text written to a .qrx file, which is discarded if this is not closed."""

    def __init__(self, file: QrxWriter, encoding: Optional[str], errors: Optional[str],
                 newline: Optional[str]) -> None:
        # TextIOWrapper writes the byte-order mark of UTF-16 only if tell() works and returns 0.
        file.raw.has_start = True
        super().__init__(file, encoding, errors, newline)
        file.raw.has_start = False

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        if kind is not None:
            self._discard()
        else:
            self.close()

    def __del__(self) -> None:
        try:
            is_open = not self.closed
        except ValueError:  # __init__() failed
            return
        if is_open:
            self._discard()
            warnings.warn("a text file was not closed and is discarded", ResourceWarning,
                          stacklevel=2)

    def _discard(self) -> None:
        if not self.closed:
            self.buffer.raw.discard()  # type: ignore[attr-defined]
            self.close()
