"""Single blocks, for other container formats."""

from __future__ import annotations

from ctypes import byref, c_size_t
from types import TracebackType
from typing import TYPE_CHECKING, Optional, Type

from ._calls import Calls, Handle
from ._library import CODEC_SLACK, lib
from ._memory import NewBytes, View
from ._params import make_params, settle

if TYPE_CHECKING:
    from _typeshed import ReadableBuffer


class Codec:
    """Compresses and decompresses single blocks, and reuses its memory from block to block.

    The parameters are those of compress().  A payload contains neither its parameters nor the
    length of its block: decompress it with a codec that has the same parameters, and pass the
    length.
    """

    def __init__(self, *, method: int = 3, level: int = 3, context_bits: int = 0,
                 filter: Optional[str] = None, hash_bits: int = 0, chain_bits: int = 0,
                 block_mib: int = 0, memory_limit: int = 0) -> None:
        params = make_params(method, level, context_bits, filter, hash_bits, chain_bits, block_mib)
        self._block_size: int = settle(params).block_mib << 20
        calls = Calls()
        options = calls.options(memory_limit=memory_limit)
        self._handle = Handle(calls, lib.qrx_codec_free, (options,))
        self._handle.close_with(self)
        self._handle.open(lib.qrx_codec_new, byref(params), byref(options))

    @property
    def block_size(self) -> int:
        """Maximum length of a block, in bytes."""
        return self._block_size

    def compress(self, block: ReadableBuffer) -> bytes:
        """Returns the payload of a block of 1 byte to block_size bytes.

        It is at most as long as the block.  If it is as long, the block is stored: the payload is
        the (filtered) block itself.
        """
        with View(block) as source:
            if not 1 <= source.size <= self._block_size:
                raise ValueError(f"a block has 1 to {self._block_size} bytes, not {source.size}")
            size = c_size_t()
            capacity = source.size + CODEC_SLACK
            with NewBytes(capacity) as payload:
                self._handle.call(lib.qrx_codec_compress, source.address, source.size,
                                  payload.address, capacity, byref(size))
                return payload.finish(size.value)

    def decompress(self, payload: ReadableBuffer, length: int) -> bytes:
        """Decompresses a block, which has exactly `length` bytes.

        Raises CorruptError if the payload is found to be damaged; damage can also go unnoticed and
        give wrong bytes.
        """
        if not 1 <= length <= self._block_size:
            raise ValueError(f"a block has 1 to {self._block_size} bytes, not {length}")
        with View(payload) as source, NewBytes(length) as block:
            self._handle.call(lib.qrx_codec_decompress, source.address, source.size,
                              block.address, length)
            return block.finish(length)

    def close(self) -> None:
        """Frees the memory of the codec.  Later calls raise ValueError."""
        self._handle.close()

    def __enter__(self) -> Codec:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        self.close()
