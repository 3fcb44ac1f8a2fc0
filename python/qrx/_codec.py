"""Single blocks, for other container formats."""

from __future__ import annotations

from ctypes import byref, c_size_t, c_ubyte, c_void_p
from types import TracebackType
from typing import TYPE_CHECKING, Callable, Optional, Type

from ._calls import Calls, Handle
from ._library import CODEC_SLACK, lib
from ._memory import NewBytes, View
from ._params import make_params, settle

if TYPE_CHECKING:
    from _typeshed import ReadableBuffer, WriteableBuffer


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
            self._check_length(source.size)
            return self._compress(source.address, source.size)

    def compress_from(self, fill: Callable[[memoryview], object], length: int) -> bytes:
        """Compresses a block of `length` bytes, written by fill(), and returns the payload.

        fill() gets the buffer of the codec, which saves a copy.  It must not keep a reference to
        the buffer or to a slice of it, and can't use the codec.
        """
        self._check_length(length)
        address = c_void_p()
        with self._handle.lock:
            self._handle.call(lib.qrx_codec_buffer, length, byref(address))
            array = (c_ubyte * length).from_address(address.value or 0)
            with memoryview(array) as whole, whole.cast("B") as block, self._handle.reserve():
                fill(block)
            return self._compress(address.value, length)

    def _compress(self, block: Optional[int], length: int) -> bytes:
        size = c_size_t()
        capacity = length + CODEC_SLACK
        with NewBytes(capacity) as payload:
            self._handle.call(lib.qrx_codec_compress, block, length, payload.address, capacity,
                              byref(size))
            return payload.finish(size.value)

    def decompress(self, payload: ReadableBuffer, length: int) -> bytes:
        """Decompresses a block, which has exactly `length` bytes.

        Raises CorruptError if the payload is found to be damaged; damage can also go unnoticed and
        give wrong bytes.
        """
        self._check_length(length)
        with View(payload) as source, NewBytes(length) as block:
            self._handle.call(lib.qrx_codec_decompress, source.address, source.size,
                              block.address, length)
            return block.finish(length)

    def decompress_into(self, payload: ReadableBuffer, block: WriteableBuffer) -> None:
        """Decompresses a block into `block`, a writable buffer of exactly its length.

        Raises the same exceptions as decompress(); the content of the buffer is then undefined.
        """
        with View(payload) as source, View(block, writable=True) as dest:
            self._check_length(dest.size)
            self._handle.call(lib.qrx_codec_decompress, source.address, source.size,
                              dest.address, dest.size)

    def _check_length(self, length: int) -> None:
        if not 1 <= length <= self._block_size:
            raise ValueError(f"a block has 1 to {self._block_size} bytes, not {length}")

    def close(self) -> None:
        """Frees the memory of the codec.  Later calls raise ValueError."""
        self._handle.close()

    def __enter__(self) -> Codec:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        self.close()
