"""Files: open(), information and test."""

from __future__ import annotations

import io
from typing import Iterator, List, Literal, Optional, Union, overload

from ._calls import Calls, OnDamage, Progress
from ._errors import Damage
from ._library import SEAL
from ._params import make_params
from ._reader import BlockInfo, Info, QrxFile, open_reader
from ._streams import File
from ._writer import QrxWriter, RawWriter, TextWriter


def info(file: File) -> Info:
    """Returns what the header and the record heads of a .qrx file say.

    `file` is a path or a binary file object that can seek, as for open().
    """
    with open_reader(file, 0, 0, None) as reader:
        return reader.info


def blocks(file: File) -> Iterator[BlockInfo]:
    """Iterates over the blocks of a .qrx file.

    `file` is a path or a binary file object that can seek, as for open().
    """
    with open_reader(file, 0, 0, None) as reader:
        yield from reader.blocks()


def test(file: File, *, threads: int = 0, memory_limit: int = 0,
         progress: Optional[Progress] = None) -> List[Damage]:
    """Decodes a .qrx file, checks everything that can be checked, and returns the faults found.

    The result is empty if the file is intact.  Raises an exception only if the test can't be done:
    the file can't be opened or read, its header isn't that of a .qrx file, memory is exhausted, or
    `progress` cancels.  The arguments are those of open().
    """
    with open_reader(file, threads, memory_limit, progress) as reader:
        return reader.raw.test()


test.__test__ = False  # type: ignore[attr-defined]  # or pytest would collect it


@overload
def open(file: File, mode: Literal["r", "rb"] = "rb", *, threads: int = 0, memory_limit: int = 0,
         progress: Optional[Progress] = None, keep_damaged: bool = False,
         on_damage: Optional[OnDamage] = None, search: bool = False) -> QrxFile: ...


@overload
def open(file: File, mode: Literal["w", "wb"], *, threads: int = 0, memory_limit: int = 0,
         progress: Optional[Progress] = None, size: Optional[int] = None, method: int = 3,
         level: int = 3, context_bits: int = 0, filter: Optional[str] = None, hash_bits: int = 0,
         chain_bits: int = 0, block_mib: int = 0, seal: bool = True) -> QrxWriter: ...


@overload
def open(file: File, mode: Literal["rt", "wt"], *, threads: int = 0, memory_limit: int = 0,
         progress: Optional[Progress] = None, keep_damaged: bool = False,
         on_damage: Optional[OnDamage] = None, search: bool = False, size: Optional[int] = None,
         method: int = 3, level: int = 3, context_bits: int = 0, filter: Optional[str] = None,
         hash_bits: int = 0, chain_bits: int = 0, block_mib: int = 0, seal: bool = True,
         encoding: Optional[str] = None, errors: Optional[str] = None,
         newline: Optional[str] = None) -> io.TextIOWrapper: ...


def open(file: File, mode: str = "rb", *, threads: int = 0, memory_limit: int = 0,
         progress: Optional[Progress] = None, keep_damaged: bool = False,
         on_damage: Optional[OnDamage] = None, search: bool = False, size: Optional[int] = None,
         method: int = 3, level: int = 3, context_bits: int = 0, filter: Optional[str] = None,
         hash_bits: int = 0, chain_bits: int = 0, block_mib: int = 0, seal: bool = True,
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
    search: searches for the records after damage.

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
        reader = open_reader(file, threads, memory_limit, progress, keep_damaged, on_damage,
                             search)
        if not is_text:
            return reader
        try:
            return io.TextIOWrapper(reader, encoding, errors, newline)
        except BaseException:  # such as an unknown encoding
            reader.close()
            raise
    params = make_params(method, level, context_bits, filter, hash_bits, chain_bits, block_mib)
    writer = QrxWriter(RawWriter(file, params, Calls(progress), threads, SEAL if seal else 0,
                                 memory_limit, size))
    if not is_text:
        return writer
    try:
        return TextWriter(writer, encoding, errors, newline)
    except BaseException:
        writer.discard()
        raise
