"""Compression of whole buffers."""

from __future__ import annotations

import ctypes
from ctypes import byref, c_size_t, c_uint64
from typing import TYPE_CHECKING, Optional

from ._calls import Calls, OnDamage, Progress
from ._errors import make_error
from ._library import KEEP_DAMAGED, SEAL, RawInfo, Status, lib
from ._memory import NewBytes, View
from ._params import Name, make_params, use_type

if TYPE_CHECKING:
    from _typeshed import ReadableBuffer


def compress(data: ReadableBuffer, *, method: int = 3, level: int = 3, context_bits: int = 0,
             filter: Optional[str] = None, hash_bits: int = 0, chain_bits: int = 0,
             block_mib: int = 0, threads: int = 0, seal: bool = True, memory_limit: int = 0,
             progress: Optional[Progress] = None, for_name: Optional[Name] = None) -> bytes:
    """Compresses a buffer and returns an image: the content of a .qrx file.

    `data` is any object that exports a contiguous buffer: bytes, bytearray, memoryview, mmap, a
    NumPy array.  It is not copied, and must not change during the call.

    method: 1 to 5, the entropy coder, from the fastest to the strongest.
    level: 0 to 9, the match finder, from the fastest to optimal parsing.
    context_bits: 0 to 8, the literal context bits of method 4.
    filter: None, "x86" for x86 machine code, "delta" for three-byte records.
    hash_bits: log2 of the hash table's entries, 10 to 30; 0: by level.
    chain_bits: log2 of the candidates per hash value, 1 to 8; 0: by level.
    block_mib: block size in MiB, 1 to 2047; 0: 32.  Capped at 16 at levels 4 to 7.
    threads: worker threads, at most MAX_THREADS; 0: the calling thread does the work.
    seal: ends the result with a CRC-32 of the original.
    memory_limit: bytes that the library may allocate in addition to the result; 0: unlimited.
    progress: called as progress(done, total) after each block, with bytes of the original.  It
        cancels the call by returning False or by raising an exception.
    for_name: a file name; detects context_bits and filter from it and the content, unless they
        are given.
    """
    params = make_params(method, level, context_bits, filter, hash_bits, chain_bits, block_mib)
    calls = Calls(progress)
    options = calls.options(threads, SEAL if seal else 0, memory_limit)
    with View(data) as source:
        if for_name is not None:
            use_type(params, source.address, source.size, for_name)
        capacity: int = lib.qrx_compress_bound(byref(params), source.size)
        if capacity == 0:
            raise MemoryError("the result may have more bytes than can be addressed")
        size = c_size_t()
        with NewBytes(capacity) as result:
            with calls:
                status = lib.qrx_compress(byref(params), byref(options), source.address,
                                          source.size, result.address, capacity, byref(size))
            calls.check(status)
            return result.finish(size.value)


def decompress(data: ReadableBuffer, *, threads: int = 0, memory_limit: int = 0,
               keep_damaged: bool = False, progress: Optional[Progress] = None,
               on_damage: Optional[OnDamage] = None) -> bytes:
    """Decompresses an image, and makes all checks of test().

    `data` is any object that exports a contiguous buffer, as for compress().

    threads, memory_limit: as for compress().
    keep_damaged: replaces what can't be decoded with zeros, instead of raising an exception.
    progress: called as progress(done, total) after each block, as for compress().
    on_damage: called with a Damage for each fault found.
    """
    calls = Calls(progress, on_damage)
    options = calls.options(threads, KEEP_DAMAGED if keep_damaged else 0, memory_limit)
    with View(data) as image:
        size = c_uint64()
        status = lib.qrx_decompressed_size(image.address, image.size, byref(size))
        if status != Status.OK:
            raise make_error(Status(status))
        with _new_original(image, size.value) as result:
            got = c_size_t()
            with calls:
                status = lib.qrx_decompress(byref(options), image.address, image.size,
                                            result.address, size.value, byref(got))
            calls.check(status)
            return result.finish(size.value)


def _new_original(image: View, size: int) -> NewBytes:
    """Allocates the result.  Without memory, raises the fault of the layout if there is one."""
    try:
        return NewBytes(size)
    except MemoryError:
        layout = _layout(image)
        if layout != Status.OK:
            raise make_error(layout) from None
        raise


def _layout(image: View) -> Status:
    reader = ctypes.c_void_p()
    status: int = lib.qrx_reader_open_memory(byref(reader), image.address, image.size, None)
    if status == Status.OK:
        info = RawInfo()
        status = lib.qrx_reader_info(reader, byref(info)) or info.layout
    lib.qrx_reader_close(reader)
    return Status(status)
