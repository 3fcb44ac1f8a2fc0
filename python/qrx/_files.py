"""Files: reading any range, writing, information and test."""

from __future__ import annotations

import builtins
import io
import warnings
from ctypes import byref, c_size_t
from dataclasses import dataclass
from types import TracebackType
from typing import (
    IO, TYPE_CHECKING, Iterator, List, Literal, Optional, Type, Union, overload,
)

from ._calls import Calls, Handle, OnDamage, Progress
from ._errors import DAMAGE, Damage, make_error
from ._library import (
    KEEP_DAMAGED, SEAL, UNKNOWN_SIZE, Params, RawBlockInfo, RawInfo, Status, lib,
)
from ._memory import NewBytes, View
from ._params import filter_name, make_params
from . import _streams
from ._streams import (
    Output, Path, ReplacingFile, c_name, is_path, make_sink, make_source, name_of,
)

if TYPE_CHECKING:
    from _typeshed import ReadableBuffer, WriteableBuffer

File = Union[Path, IO[bytes]]

_BUFFER_SIZE = 1 << 17  # buffer size of file objects, in bytes

# -------------------------------------------------------------------------------------- information


@dataclass(frozen=True)
class Info:
    """What the header and the record heads of a .qrx file say."""

    size: int
    """Of the original, in bytes."""
    file_size: int
    """Of the .qrx file, in bytes."""
    method: int
    level: int
    context_bits: int
    filter: Optional[str]
    """None, "x86" or "delta"."""
    hash_bits: int
    chain_bits: int
    block_size: int
    """Of every block but the last, in bytes."""
    blocks: int
    """Number of blocks of the original; 0 if it is empty."""
    blocks_found: int
    """Number of blocks that have a record."""
    stored_blocks: int
    """Number of those that are not compressed."""
    sealed: bool
    """Whether the file ends with a CRC-32 of the original."""
    seal: Optional[int]
    """That CRC-32, or None."""
    layout: Status
    """OK, or the first fault: TRUNCATED, CORRUPT, BLOCK_MISSING, BLOCK_REPEATED, TRAILING_BYTES."""


@dataclass(frozen=True)
class BlockInfo:
    """A block of a .qrx file."""

    index: int
    original_offset: int
    """Offset of the block in the original."""
    length: int
    """Of the block, in bytes."""
    offset: Optional[int]
    """Offset of the payload in the .qrx file; None if the file has no record of the block."""
    payload_size: Optional[int]
    """Of the payload, in bytes; None if the file has no record of the block."""
    stored: bool
    """Whether the payload is the (filtered) block itself."""

    @property
    def found(self) -> bool:
        """Whether the file has a record of the block."""
        return self.offset is not None


def _make_info(raw: RawInfo, params: Params) -> Info:
    return Info(
        size=raw.original_size, file_size=raw.file_size, method=params.method, level=params.level,
        context_bits=params.context_bits, filter=filter_name(params.filter),
        hash_bits=params.hash_bits, chain_bits=params.chain_bits, block_size=raw.block_size,
        blocks=raw.block_count, blocks_found=raw.blocks_found, stored_blocks=raw.stored_blocks,
        sealed=bool(raw.is_sealed), seal=raw.seal if raw.is_sealed else None,
        layout=Status(raw.layout),
    )


# ------------------------------------------------------------------------------------------ reading


class _RawReader(io.RawIOBase):
    """A reader of the library as an unbuffered file object."""

    mode = "rb"

    def __init__(self, file: File, calls: Calls, threads: int, flags: int,
                 memory_limit: int) -> None:
        super().__init__()
        self._position = 0
        self._owned: Optional[IO[bytes]] = None
        options = calls.options(threads, flags, memory_limit)
        self.name = name_of(file)
        if is_path(file):
            calls.name = self.name
            if not _streams.names_pass_through:
                self._owned = file = builtins.open(self.name, "rb")
        try:
            if is_path(file):
                self._handle = Handle(calls, lib.qrx_reader_close, (options,))
                self._handle.close_with(self)
                self._handle.open(lib.qrx_reader_open, c_name(self.name), byref(options))
            else:
                source = make_source(file, calls)
                self._handle = Handle(calls, lib.qrx_reader_close, (options, source))
                self._handle.close_with(self)
                self._handle.open(lib.qrx_reader_open_source, byref(source), byref(options))
            self.info = self._read_info()
        except BaseException:
            self.close()
            raise

    def _read_info(self) -> Info:
        raw, params = RawInfo(), Params()
        self._handle.call(lib.qrx_reader_info, byref(raw))
        self._handle.call(lib.qrx_reader_params, byref(params))
        return _make_info(raw, params)

    def close(self) -> None:
        if not self.closed:
            try:
                if hasattr(self, "_handle"):  # else opening failed early
                    self._handle.close()
                if self._owned is not None:
                    self._owned.close()
            finally:
                super().close()

    def readable(self) -> bool:
        self._check_open()
        return True

    def seekable(self) -> bool:
        self._check_open()
        return True

    def tell(self) -> int:
        self._check_open()
        return self._position

    def seek(self, offset: int, whence: int = io.SEEK_SET) -> int:
        self._check_open()
        starts = {io.SEEK_SET: 0, io.SEEK_CUR: self._position, io.SEEK_END: self.info.size}
        if whence not in starts:
            raise ValueError(f"invalid whence: {whence}")
        position = starts[whence] + offset
        if position < 0:
            raise ValueError(f"negative seek position: {position}")
        self._position = position
        return position

    def readinto(self, buffer: WriteableBuffer) -> int:
        with View(buffer, writable=True) as view:
            return self._read(view.address, view.size)

    def readall(self) -> bytes:
        with NewBytes(max(self.info.size - self._position, 0)) as result:
            done = 0
            while True:
                room = self.info.size - self._position
                got = self._read(result.address + done, room) if room > 0 else 0
                if got == 0:
                    return result.finish(done)
                done += got

    def _read(self, dest: Optional[int], size: int) -> int:
        """Reads up to damage, which the next call raises because it reads no byte."""
        self._check_open()
        if self._position >= self.info.size or size == 0:
            return 0
        got = c_size_t()
        status = self._handle.call(lib.qrx_reader_read, self._position, dest, size, byref(got),
                                   accept=DAMAGE)
        if status != Status.OK and (got.value == 0 or status == Status.CHECKSUM_MISMATCH):
            raise make_error(status, self._handle.calls.events, self._handle.calls.name)
        self._position += got.value
        return got.value

    def block_info(self, index: int) -> BlockInfo:
        """Describes one block."""
        raw = RawBlockInfo()
        self._handle.call(lib.qrx_reader_block_info, index, byref(raw))
        found = bool(raw.is_found)
        return BlockInfo(index, raw.original_offset, raw.length, raw.offset if found else None,
                         raw.payload_size if found else None, bool(raw.is_stored))

    def test(self) -> List[Damage]:
        """Decodes and checks everything.  Returns the faults."""
        calls = self._handle.calls
        status = self._handle.call(lib.qrx_reader_test, accept=DAMAGE)
        faults = [event for event in calls.events if event.what in DAMAGE]
        if status != Status.OK and not faults:
            raise make_error(status, calls.events, calls.name)
        return faults

    def _check_open(self) -> None:
        if self.closed:
            raise ValueError("I/O operation on closed file")


class QrxFile(io.BufferedReader):
    """The original of a .qrx file, open for reading: a binary file object that can seek.

    Only the blocks that contain the bytes read are decoded.  Damage raises an exception when the
    position reaches it; the bytes before it can be read.  The call after which every block of a
    sealed file has been read raises ChecksumError if the content doesn't match the seal.
    """

    raw: _RawReader

    def __init__(self, raw: _RawReader, damage: List[Damage]) -> None:
        """Use open()."""
        super().__init__(raw, _BUFFER_SIZE)
        self._damage = damage

    @property
    def size(self) -> int:
        """Number of bytes of the original."""
        return self.raw.info.size

    @property
    def info(self) -> Info:
        """What the header and the record heads of the file say."""
        return self.raw.info

    @property
    def damage(self) -> List[Damage]:
        """The faults found so far."""
        return self._damage

    def blocks(self) -> Iterator[BlockInfo]:
        """Iterates over the blocks of the file."""
        for index in range(self.raw.info.blocks):
            yield self.raw.block_info(index)

    def __enter__(self) -> QrxFile:
        super().__enter__()
        return self


def _open_reader(file: File, threads: int, memory_limit: int, progress: Optional[Progress],
                 keep_damaged: bool = False, on_damage: Optional[OnDamage] = None) -> QrxFile:
    damage: List[Damage] = []

    def note(fault: Damage) -> None:
        damage.append(fault)
        if on_damage is not None:
            on_damage(fault)

    calls = Calls(progress, note)
    flags = KEEP_DAMAGED if keep_damaged else 0
    return QrxFile(_RawReader(file, calls, threads, flags, memory_limit), damage)


def info(file: File) -> Info:
    """Returns what the header and the record heads of a .qrx file say.

    `file` is a path or a binary file object that can seek, as for open().
    """
    with _open_reader(file, 0, 0, None) as reader:
        return reader.info


def blocks(file: File) -> Iterator[BlockInfo]:
    """Iterates over the blocks of a .qrx file.

    `file` is a path or a binary file object that can seek, as for open().
    """
    with _open_reader(file, 0, 0, None) as reader:
        yield from reader.blocks()


def test(file: File, *, threads: int = 0, memory_limit: int = 0,
         progress: Optional[Progress] = None) -> List[Damage]:
    """Decodes a .qrx file, checks everything that can be checked, and returns the faults found.

    The result is empty if the file is intact.  Raises an exception only if the test can't be done:
    the file can't be opened or read, its header isn't that of a .qrx file, memory is exhausted, or
    `progress` cancels.  The arguments are those of open().
    """
    with _open_reader(file, threads, memory_limit, progress) as reader:
        return reader.raw.test()


test.__test__ = False  # type: ignore[attr-defined]  # or pytest would collect it

# ------------------------------------------------------------------------------------------ writing


class _RawWriter(io.RawIOBase):
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
        options = calls.options(threads, flags, memory_limit)
        self.name = name_of(file)
        if is_path(file):
            calls.name = self.name
        try:
            if is_path(file) and _streams.names_pass_through:
                self._handle = Handle(calls, lib.qrx_writer_close, (options,))
                self._handle.close_with(self)
                self._handle.open(lib.qrx_writer_open, c_name(self.name), byref(params),
                                  byref(options))
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
            self._handle.open(lib.qrx_writer_open_sink, byref(sink),
                              UNKNOWN_SIZE if size is None else size, byref(params),
                              byref(options))
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

    raw: _RawWriter

    def __init__(self, raw: _RawWriter) -> None:
        """Use open()."""
        super().__init__(raw, _BUFFER_SIZE)

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
        if not self.closed:
            name = self.raw.name
            self.discard()
            warnings.warn(f"{name!r} was not closed and is discarded", ResourceWarning,
                          stacklevel=2)


class _TextWriter(io.TextIOWrapper):
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


# --------------------------------------------------------------------------------------------- open


@overload
def open(file: File, mode: Literal["r", "rb"] = "rb", *, threads: int = 0, memory_limit: int = 0,
         progress: Optional[Progress] = None, keep_damaged: bool = False,
         on_damage: Optional[OnDamage] = None) -> QrxFile: ...


@overload
def open(file: File, mode: Literal["w", "wb"], *, threads: int = 0, memory_limit: int = 0,
         progress: Optional[Progress] = None, size: Optional[int] = None, method: int = 3,
         level: int = 3, context_bits: int = 0, filter: Optional[str] = None, hash_bits: int = 0,
         chain_bits: int = 0, block_mib: int = 0, seal: bool = True) -> QrxWriter: ...


@overload
def open(file: File, mode: Literal["rt", "wt"], *, threads: int = 0, memory_limit: int = 0,
         progress: Optional[Progress] = None, keep_damaged: bool = False,
         on_damage: Optional[OnDamage] = None, size: Optional[int] = None, method: int = 3,
         level: int = 3, context_bits: int = 0, filter: Optional[str] = None, hash_bits: int = 0,
         chain_bits: int = 0, block_mib: int = 0, seal: bool = True,
         encoding: Optional[str] = None, errors: Optional[str] = None,
         newline: Optional[str] = None) -> io.TextIOWrapper: ...


def open(file: File, mode: str = "rb", *, threads: int = 0, memory_limit: int = 0,
         progress: Optional[Progress] = None, keep_damaged: bool = False,
         on_damage: Optional[OnDamage] = None, size: Optional[int] = None, method: int = 3,
         level: int = 3, context_bits: int = 0, filter: Optional[str] = None, hash_bits: int = 0,
         chain_bits: int = 0, block_mib: int = 0, seal: bool = True,
         encoding: Optional[str] = None, errors: Optional[str] = None,
         newline: Optional[str] = None) -> Union[QrxFile, QrxWriter, io.TextIOWrapper]:
    """Opens a .qrx file and returns a file object of its original.

    file: a path, or a binary file object.  A file object is used from its current position, to its
        end when reading.  It is not closed, and must not be used otherwise meanwhile.
    mode: "r" or "rb" to read, "w" or "wb" to write, "rt" or "wt" for text.

    threads: worker threads, at most MAX_THREADS; 0: the calling thread does the work.
    memory_limit: bytes that the library may allocate; 0: unlimited.
    progress: called as progress(done, total) after each block, with bytes of the original; total is
        None if it is unknown.  It cancels the call by returning False or by raising an exception.

    When reading:
    keep_damaged: replaces what can't be decoded with zeros, instead of raising an exception.
    on_damage: called with a Damage for each fault found.

    When writing:
    size: size of the original in bytes.  Required for a file object that can't seek.
    method, level, context_bits, filter, hash_bits, chain_bits, block_mib, seal: as for compress().

    For text:
    encoding, errors, newline: as for the built-in open().
    """
    if mode not in ("r", "rb", "rt", "w", "wb", "wt"):
        raise ValueError(f"invalid mode: {mode!r}")
    is_text = mode.endswith("t")
    if not is_text and (encoding, errors, newline) != (None, None, None):
        raise ValueError("encoding, errors and newline are for text modes only")
    if mode[0] == "r":
        reader = _open_reader(file, threads, memory_limit, progress, keep_damaged, on_damage)
        if not is_text:
            return reader
        try:
            return io.TextIOWrapper(reader, encoding, errors, newline)
        except BaseException:  # such as an unknown encoding
            reader.close()
            raise
    params = make_params(method, level, context_bits, filter, hash_bits, chain_bits, block_mib)
    writer = QrxWriter(_RawWriter(file, params, Calls(progress), threads, SEAL if seal else 0,
                                  memory_limit, size))
    if not is_text:
        return writer
    try:
        return _TextWriter(writer, encoding, errors, newline)
    except BaseException:
        writer.discard()
        raise
