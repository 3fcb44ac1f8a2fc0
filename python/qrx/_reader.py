"""Reading any range of .qrx files."""

from __future__ import annotations

import builtins
import io
from ctypes import byref, c_size_t
from dataclasses import dataclass
from typing import IO, TYPE_CHECKING, Dict, Iterator, List, Optional

from ._calls import Calls, Handle, OnDamage, Progress
from ._errors import DAMAGE, Damage, make_error
from ._library import KEEP_DAMAGED, SEARCH, Params, RawBlockInfo, RawInfo, Status, lib
from ._memory import NewBytes, View
from ._params import filter_name
from . import _streams
from ._streams import BUFFER_SIZE, File, c_name, is_path, make_source, name_of

if TYPE_CHECKING:
    from _typeshed import WriteableBuffer


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
    """OK, or the first fault: TRUNCATED, CORRUPT, BLOCK_MISSING, BLOCK_REPEATED, TRAILING_BYTES; with
    open(search=True) also NOT_QRX, a damaged header that was reconstructed."""


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


class RawReader(io.RawIOBase):
    """A reader of the library as an unbuffered file object."""

    mode = "rb"

    def __init__(self, file: File, calls: Calls, threads: int, flags: int, memory_limit: int,
                 owned: Optional[IO[bytes]] = None) -> None:
        super().__init__()
        self._position = 0
        self._owned = owned
        self.name = name_of(file)
        try:
            options = calls.options(threads, flags, memory_limit)
            if is_path(file):
                calls.name = self.name
                if not _streams.names_pass_through:
                    self._owned = file = builtins.open(self.name, "rb")
            if is_path(file):
                self._handle = Handle(calls, lib.qrx_reader_close, (options,))
                self._handle.close_with(self)
                self._handle.open(lib.qrx_reader_open, c_name(self.name), byref(options))
            else:
                source = make_source(file, calls)
                self._handle = Handle(calls, lib.qrx_reader_close, (options, source))
                self._handle.close_with(self)
                self._handle.open(lib.qrx_reader_open_source, byref(source), byref(options))
            # Of a file that opens, this is a fault of its header: the others have been noted.
            for event in list(calls.events):
                if event.what == Status.NOT_QRX and calls.on_damage is not None:
                    calls.on_damage(event)
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
        with self._handle.lock:
            starts = {io.SEEK_SET: 0, io.SEEK_CUR: self._position, io.SEEK_END: self.info.size}
            if whence not in starts:
                raise ValueError(f"invalid whence: {whence}")
            position = starts[whence] + offset
            if position < 0:
                raise ValueError(f"negative seek position: {position}")
            self._position = position
            return position

    def readinto(self, buffer: WriteableBuffer) -> int:
        self._check_open()
        with View(buffer, writable=True) as view, self._handle.lock:
            return self._read(self._position, view.address, view.size)

    def readall(self) -> bytes:
        self._check_open()
        # A callback, which the lock doesn't stop, can move the position.
        with self._handle.lock:
            start = self._position
            size = max(self.info.size - start, 0)
            with NewBytes(size) as result:
                done = 0
                while True:
                    got = self._read(start + done, result.address + done, size - done)
                    if got == 0:
                        return result.finish(done)
                    done += got

    def _read(self, position: int, dest: Optional[int], size: int) -> int:
        """Reads up to damage, which the next call raises because it reads no byte."""
        self._check_open()
        # Reading an empty file checks its seal.
        if self.info.size != 0 and (position >= self.info.size or size == 0):
            return 0
        got = c_size_t()
        status = self._handle.call(lib.qrx_reader_read, position, dest, size, byref(got),
                                   accept=DAMAGE)
        if status != Status.OK and (got.value == 0 or status == Status.CHECKSUM_MISMATCH):
            raise make_error(status, self._handle.calls.events, self._handle.calls.name)
        self._position = position + got.value
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

    raw: RawReader

    def __init__(self, raw: RawReader, damage: Dict[Damage, None]) -> None:
        """Use open()."""
        super().__init__(raw, BUFFER_SIZE)
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
        return list(self._damage)

    def blocks(self) -> Iterator[BlockInfo]:
        """Iterates over the blocks of the file."""
        for index in range(self.raw.info.blocks):
            yield self.raw.block_info(index)

    def __enter__(self) -> QrxFile:
        super().__enter__()
        return self


def open_reader(file: File, threads: int, memory_limit: int, progress: Optional[Progress],
                keep_damaged: bool = False, on_damage: Optional[OnDamage] = None,
                search: bool = False, owned: Optional[IO[bytes]] = None,
                name: Optional[str] = None) -> QrxFile:
    """Opens a file for reading; see open().

    owned: a file object that is closed with the file, or if opening fails.
    name: the name of a file object in messages.
    """
    damage: Dict[Damage, None] = {}  # an ordered set

    def note(fault: Damage) -> None:
        if fault not in damage:  # else a call came to it again
            damage[fault] = None
            if on_damage is not None:
                on_damage(fault)

    calls = Calls(progress, note, name)
    flags = (KEEP_DAMAGED if keep_damaged else 0) | (SEARCH if search else 0)
    return QrxFile(RawReader(file, calls, threads, flags, memory_limit, owned), damage)
