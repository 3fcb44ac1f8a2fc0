"""Assembles files from blocks that were coded separately: header, record heads, seal, CRC-32.

A file consists of header(), record_head() and payload of each block, and seal().
docs/formats/container.md describes the format.
"""

from __future__ import annotations

import struct
from typing import TYPE_CHECKING, Any, Mapping

from ._buffers import compress
from ._library import lib
from ._memory import View

if TYPE_CHECKING:
    from _typeshed import ReadableBuffer

HEADER_SIZE = 32
_SIZE_OFFSET = 4  # in the header: where the size of the original is
_RECORD_HEAD = struct.Struct("<IB")  # size of the payload, displacement


def header(params: Mapping[str, Any], size: int) -> bytes:
    """Returns the header of a file.

    params: keyword arguments of compress().
    size: bytes of the original.
    """
    made = bytearray(compress(b"", **params)[:HEADER_SIZE])
    struct.pack_into("<Q", made, _SIZE_OFFSET, size)
    return bytes(made)


def record_head(payload_size: int) -> bytes:
    """Returns the head of a record, in a file whose records are in the order of their blocks.

    An empty file has one record without a payload.
    """
    return _RECORD_HEAD.pack(payload_size, 0)


def seal(crc: int) -> bytes:
    """Returns the end of a sealed file.

    crc: CRC-32 of the original.
    """
    return struct.pack("<I", crc)


def crc32(data: ReadableBuffer, crc: int = 0) -> int:
    """Returns the CRC-32 of the bytes whose CRC-32 is `crc`, followed by `data`."""
    with View(data) as view:
        return int(lib.qrx_crc32(crc, view.address, view.size))


def crc32_combine(first: int, second: int, second_size: int) -> int:
    """Returns the CRC-32 of two pieces concatenated, from theirs and the size of the second."""
    return int(lib.qrx_crc32_combine(first, second, second_size))
