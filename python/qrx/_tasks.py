"""Tasks for the workers of a cluster: code and decode ranges of blocks, and write them to a file.

Arguments and results can be pickled.  This module doesn't need Dask.
"""

from __future__ import annotations

import contextlib
import io
import os
from dataclasses import dataclass
from typing import (
    Any, Callable, ContextManager, Iterator, List, Mapping, NamedTuple, Tuple, TypeVar,
)

from fsspec.implementations.local import LocalFileSystem

from ._codec import Codec
from ._container import crc32, record_head
from ._errors import QrxError, block_error, make_error
from ._library import Status
from ._processors import processor_slot
from ._reader import BlockInfo

Result = TypeVar("Result")

Params = Mapping[str, Any]
"""Parameters of compression, as keyword arguments of Codec."""


@dataclass(frozen=True)
class Location:
    """A file of an fsspec file system."""

    fs: Any
    path: str
    url: str
    """What the caller passed: a URL or a path."""

    @property
    def is_local(self) -> bool:
        """Whether the file is in a file system of the operating system."""
        return isinstance(self.fs, LocalFileSystem)

    def open(self) -> Any:
        """Opens the file to read it."""
        return self.fs.open(self.path, "rb")

    def read(self, offset: int, size: int) -> bytes:
        """Reads `size` bytes at an offset; fewer only at the end of the file."""
        data: bytes = self.fs.cat_file(self.path, start=offset, end=offset + size)
        return data

    def read_into(self, offset: int, buffer: memoryview) -> int:
        """Reads as many bytes as fit in a buffer; fewer only at the end of the file."""
        if not self.is_local:  # one request for the whole range
            data = self.read(offset, len(buffer))
            buffer[:len(data)] = data
            return len(data)
        done = 0
        with self.open() as file:
            file.seek(offset)
            while done < len(buffer) and (count := file.readinto(buffer[done:])):
                done += count
        return done


class Summary(NamedTuple):
    """Sizes and checksum of the result of a task, which the client gets instead of the result."""

    size: int
    """Bytes of the result."""
    crc: int
    """CRC-32 of the task's range of the original."""
    original_size: int
    """Bytes of that range."""


Part = Tuple[List[bytes], Summary]
"""The result of a task.  Its bytes stay in pieces, since joining them would copy them."""


def code(source: Location, params: Params, start: int, end: int) -> Part:
    """Compresses a range of whole blocks of the original, and returns its records."""
    pieces: List[bytes] = []
    crc = 0
    with _slot_of_task(source), Codec(**params) as codec:
        for offset in range(start, end, codec.block_size):
            with contextlib.ExitStack() as slot:

                def fill(block: memoryview) -> None:
                    nonlocal crc
                    if source.read_into(offset, block) != len(block):
                        raise OSError(f"{source.path}: the file became shorter during compression")
                    slot.enter_context(processor_slot())
                    crc = crc32(block, crc)

                payload = codec.compress_from(fill, min(codec.block_size, end - offset))
            pieces += (record_head(len(payload)), payload)
    if start == end:  # the original is empty
        pieces.append(record_head(0))
    return pieces, Summary(sum(map(len, pieces)), crc, end - start)


def decode(source: Location, params: Params, blocks: List[BlockInfo]) -> Part:
    """Decompresses consecutive blocks and returns the bytes of the original."""
    pieces: List[bytes] = []
    crc = 0
    with _slot_of_task(source), Codec(**params) as codec:
        for block in blocks:
            pieces.append(_decode(source, block, codec.decompress, block.length))
            crc = crc32(pieces[-1], crc)
    size = sum(map(len, pieces))
    return pieces, Summary(size, crc, size)


def restore(source: Location, params: Params, blocks: List[BlockInfo], path: str) -> Summary:
    """Decompresses consecutive blocks and writes them at their offset in an existing file."""
    crc = size = 0
    with _slot_of_task(source), Codec(**params) as codec, \
            _open_at(path, blocks[0].original_offset) as file, \
            memoryview(bytearray(max(block.length for block in blocks))) as buffer:
        for block in blocks:
            content = buffer[:block.length]
            _decode(source, block, codec.decompress_into, content)
            crc = crc32(content, crc)
            size += len(content)
            with naming(path):
                _write_all(file, content)
        with naming(path):
            os.fsync(file.fileno())
    return Summary(size, crc, size)


def _slot_of_task(source: Location) -> ContextManager[None]:
    """Returns a processor slot for a task that copies local files, which takes a processor too.

    While another source is read, which takes time but no processor, the slot is free for others.
    """
    return processor_slot() if source.is_local else contextlib.nullcontext()


def _decode(source: Location, block: BlockInfo, decoder: Callable[[bytes, Any], Result],
            argument: Any) -> Result:
    """Reads a payload and returns decoder(payload, argument).  Exceptions name the block."""
    assert block.offset is not None and block.payload_size is not None
    payload = source.read(block.offset, block.payload_size)
    try:
        if len(payload) != block.payload_size:
            raise make_error(Status.TRUNCATED)
        with processor_slot():
            return decoder(payload, argument)
    except QrxError as error:
        raise block_error(error.status, block.index, block.offset, source.path) from None


def get_summary(part: Part) -> Summary:
    """Returns the summary of a result."""
    return part[1]


def write_result(path: str, offset: int, part: Part) -> None:
    """Writes a result at an offset of an existing local file.

    Idempotent: the scheduler may run it twice, even at the same time.
    """
    with naming(path), _open_at(path, offset) as file:
        for piece in part[0]:
            _write_all(file, memoryview(piece))
        os.fsync(file.fileno())


def _open_at(path: str, offset: int) -> io.FileIO:
    number = os.open(path, os.O_WRONLY | getattr(os, "O_BINARY", 0))  # doesn't create it
    file = io.FileIO(number, "wb")
    file.seek(offset)
    return file


def _write_all(file: io.FileIO, data: memoryview) -> None:
    while data:
        data = data[file.write(data):]


@contextlib.contextmanager
def naming(path: str) -> Iterator[None]:
    """Adds a path to errors of the operating system that name no file, as those of writes."""
    try:
        yield
    except OSError as error:
        if error.errno is not None and error.filename is None:
            error.filename = path
        raise
