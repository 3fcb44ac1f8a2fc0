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
    """Compresses a buffer into the image of a .qrx file.

    `data` is any object with a contiguous buffer: bytes, bytearray, memoryview, mmap, a NumPy
    array.  It is not copied, and must not change meanwhile.

    method: 1 to 5, the entropy coder, from the fastest to the smallest result.
    level: 0 to 9, the effort of the search for matches.
    context_bits: 0 to 8, the literal context bits of method 4.
    filter: None, "x86" for x86 machine code, "delta" for records of three bytes.
    hash_bits, chain_bits: sizes of the search tables, as powers of two; 0: by level.
    block_mib: size of a block in MiB, up to 2047; 0: 32.  At most 16 at levels 4 to 7.
    threads: number of threads that code blocks; 0: the calling thread does.
    seal: whether the result ends with a checksum of the original.
    memory_limit: bytes that the library may allocate, in addition to the result; 0: any.
    progress: called as progress(done, total) after each block, with bytes of the original.  It
        cancels the call by returning False or by raising an exception.
    for_name: a file name; sets context_bits and filter by its extension and the content, where
        they are not given.
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
    """Restores the image of a .qrx file, and checks all that can be checked.

    `data` is any object with a contiguous buffer, as for compress().

    threads: number of threads that decode blocks; 0: the calling thread does.
    memory_limit: bytes that the library may allocate, in addition to the result; 0: any.
    keep_damaged: return what can be decoded, with zeros for the rest, where damage would raise
        an exception otherwise.
    progress: called as progress(done, total) after each block, as for compress().
    on_damage: called with a Damage for each fault that is found.
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
    """Makes room for the original.  If that fails, the header may be damaged."""
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
