"""Declarations of qrx.h for ctypes, and the search for the shared library.

Everything up to FUNCTIONS mirrors the header one to one; a test compares the two.
"""

from __future__ import annotations

import ctypes
import ctypes.util
import enum
import os
import sys
from ctypes import (
    CFUNCTYPE,
    POINTER,
    c_char_p,
    c_int,
    c_size_t,
    c_uint32,
    c_uint64,
    c_void_p,
)
from typing import Any, Dict, List, Sequence, Tuple, Type

# ------------------------------------------------------------------------------------- constants


class Status(enum.IntEnum):
    """The status codes of the library, with the names of the header without ``QRX_``."""

    OK = 0
    BAD_ARGUMENT = 1
    NO_MEMORY = 2
    NO_THREAD = 3
    OPEN_FAILED = 4
    READ_FAILED = 5
    WRITE_FAILED = 6
    NOT_QRX = 7
    TRUNCATED = 8
    CORRUPT = 9
    CHECKSUM_MISMATCH = 10
    OVER_LIMIT = 11
    CANCELLED = 12
    BUFFER_TOO_SMALL = 13
    BLOCK_SHORT = 14
    INEXACT_END = 15
    BLOCK_MISSING = 16
    BLOCK_REPEATED = 17
    TRAILING_BYTES = 18

    @classmethod
    def _missing_(cls, value: object) -> Status:
        """Gives a status of a newer library a name of its own."""
        if not isinstance(value, int):
            raise ValueError(f"{value!r} is not a status")
        status = int.__new__(cls, value)
        status._name_ = f"STATUS_{value}"
        status._value_ = value
        return status

    def __reduce_ex__(self, _protocol: object) -> Tuple[Type[Status], Tuple[int]]:
        return Status, (int(self),)  # by name, that of a newer library could not be unpickled


VERSION_MAJOR = 0
VERSION_MINOR = 94
VERSION_PATCH = 0
FILTER_NONE = 0
FILTER_X86 = 1
FILTER_DELTA = 2
MAX_THREADS = 256
SEAL = 1
KEEP_DAMAGED = 2
SEARCH = 4
NO_BLOCK = 2**64 - 1
UNKNOWN_SIZE = 2**64 - 1
CODEC_SLACK = 4096

# ------------------------------------------------------------------------------------ structures


class SizedStructure(ctypes.Structure):
    """A structure whose first field is its size."""

    struct_size: int

    def __init__(self, **values: Any) -> None:
        super().__init__(struct_size=ctypes.sizeof(type(self)), **values)


class Params(SizedStructure):
    """qrx_params"""

    _fields_ = [
        ("struct_size", c_size_t),
        ("method", c_uint32),
        ("level", c_uint32),
        ("context_bits", c_uint32),
        ("filter", c_uint32),
        ("hash_bits", c_uint32),
        ("chain_bits", c_uint32),
        ("block_mib", c_uint32),
        ("reserved", c_uint32),
    ]


ALLOCATE = CFUNCTYPE(c_void_p, c_void_p, c_size_t)
RELEASE = CFUNCTYPE(None, c_void_p, c_void_p, c_size_t)


class Allocator(ctypes.Structure):
    """qrx_allocator; left empty: a Python function must not run on a thread of the library."""

    _fields_ = [("allocate", ALLOCATE), ("release", RELEASE), ("context", c_void_p)]


class Event(SizedStructure):
    """qrx_event"""

    _fields_ = [
        ("struct_size", c_size_t),
        ("what", c_int),
        ("system_error", c_int),
        ("block", c_uint64),
        ("offset", c_uint64),
        ("wanted", c_uint64),
        ("got", c_uint64),
    ]


PROGRESS = CFUNCTYPE(c_int, c_void_p, c_uint64, c_uint64)
EVENT = CFUNCTYPE(None, c_void_p, POINTER(Event))


class Options(SizedStructure):
    """qrx_options"""

    _fields_ = [
        ("struct_size", c_size_t),
        ("threads", c_uint32),
        ("flags", c_uint32),
        ("memory_limit", c_uint64),
        ("allocator", Allocator),
        ("progress", PROGRESS),
        ("event", EVENT),
        ("context", c_void_p),
    ]


READ = CFUNCTYPE(c_int, c_void_p, c_uint64, c_void_p, c_size_t, POINTER(c_size_t))


class Source(SizedStructure):
    """qrx_source"""

    _fields_ = [
        ("struct_size", c_size_t),
        ("read", READ),
        ("size", c_uint64),
        ("context", c_void_p),
    ]


class RawInfo(SizedStructure):
    """qrx_info"""

    _fields_ = [
        ("struct_size", c_size_t),
        ("original_size", c_uint64),
        ("file_size", c_uint64),
        ("block_size", c_uint64),
        ("block_count", c_uint64),
        ("blocks_found", c_uint64),
        ("stored_blocks", c_uint64),
        ("is_sealed", c_uint32),
        ("seal", c_uint32),
        ("layout", c_int),
        ("reserved", c_uint32),
    ]


class RawBlockInfo(SizedStructure):
    """qrx_block_info"""

    _fields_ = [
        ("struct_size", c_size_t),
        ("original_offset", c_uint64),
        ("length", c_uint64),
        ("offset", c_uint64),
        ("payload_size", c_uint64),
        ("is_stored", c_uint32),
        ("is_found", c_uint32),
    ]


WRITE = CFUNCTYPE(c_int, c_void_p, c_uint64, c_void_p, c_size_t)


class Sink(SizedStructure):
    """qrx_sink"""

    _fields_ = [("struct_size", c_size_t), ("write", WRITE), ("context", c_void_p)]


# Structures of the header by name.
STRUCTURES: Dict[str, type] = {
    "qrx_params": Params,
    "qrx_allocator": Allocator,
    "qrx_event": Event,
    "qrx_options": Options,
    "qrx_source": Source,
    "qrx_info": RawInfo,
    "qrx_block_info": RawBlockInfo,
    "qrx_sink": Sink,
}

# ------------------------------------------------------------------------------------- functions

_HANDLE = c_void_p  # of a reader, writer or codec
_NEW_HANDLE = POINTER(c_void_p)
_PARAMS = POINTER(Params)
_OPTIONS = POINTER(Options)
_SIZE = POINTER(c_size_t)

# Result and argument types of every function of the header.
FUNCTIONS: Dict[str, Tuple[Any, Sequence[Any]]] = {
    "qrx_version": (c_char_p, []),
    "qrx_status_text": (c_char_p, [c_int]),
    "qrx_params_settle": (c_int, [_PARAMS]),
    "qrx_params_for_type": (c_int, [_PARAMS, c_void_p, c_size_t, c_char_p]),
    "qrx_compress_memory": (c_uint64, [_PARAMS, c_uint32]),
    "qrx_decompress_memory": (c_uint64, [_PARAMS, c_uint32]),
    "qrx_compress_bound": (c_size_t, [_PARAMS, c_size_t]),
    "qrx_compress": (
        c_int,
        [_PARAMS, _OPTIONS, c_void_p, c_size_t, c_void_p, c_size_t, _SIZE],
    ),
    "qrx_decompressed_size": (c_int, [c_void_p, c_size_t, POINTER(c_uint64)]),
    "qrx_decompress": (c_int, [_OPTIONS, c_void_p, c_size_t, c_void_p, c_size_t, _SIZE]),
    "qrx_reader_open": (c_int, [_NEW_HANDLE, c_char_p, _OPTIONS]),
    "qrx_reader_open_source": (c_int, [_NEW_HANDLE, POINTER(Source), _OPTIONS]),
    "qrx_reader_open_memory": (c_int, [_NEW_HANDLE, c_void_p, c_size_t, _OPTIONS]),
    "qrx_reader_info": (c_int, [_HANDLE, POINTER(RawInfo)]),
    "qrx_reader_params": (c_int, [_HANDLE, _PARAMS]),
    "qrx_reader_block_info": (c_int, [_HANDLE, c_uint64, POINTER(RawBlockInfo)]),
    "qrx_reader_read": (c_int, [_HANDLE, c_uint64, c_void_p, c_size_t, _SIZE]),
    "qrx_reader_block": (c_int, [_HANDLE, c_uint64, c_void_p, c_size_t, _SIZE]),
    "qrx_reader_payload": (c_int, [_HANDLE, c_uint64, c_void_p, c_size_t, _SIZE]),
    "qrx_reader_test": (c_int, [_HANDLE]),
    "qrx_reader_close": (None, [_HANDLE]),
    "qrx_writer_open": (c_int, [_NEW_HANDLE, c_char_p, c_uint64, _PARAMS, _OPTIONS]),
    "qrx_writer_open_sink": (c_int, [_NEW_HANDLE, POINTER(Sink), c_uint64, _PARAMS, _OPTIONS]),
    "qrx_writer_write": (c_int, [_HANDLE, c_void_p, c_size_t]),
    "qrx_writer_buffer": (c_int, [_HANDLE, POINTER(c_void_p), _SIZE]),
    "qrx_writer_advance": (c_int, [_HANDLE, c_size_t]),
    "qrx_writer_raw_block": (
        c_int,
        [_HANDLE, c_void_p, c_size_t, c_size_t, POINTER(c_uint32)],
    ),
    "qrx_writer_finish": (c_int, [_HANDLE]),
    "qrx_writer_close": (None, [_HANDLE]),
    "qrx_codec_new": (c_int, [_NEW_HANDLE, _PARAMS, _OPTIONS]),
    "qrx_codec_buffer": (c_int, [_HANDLE, c_size_t, POINTER(c_void_p)]),
    "qrx_codec_compress": (c_int, [_HANDLE, c_void_p, c_size_t, c_void_p, c_size_t, _SIZE]),
    "qrx_codec_decompress": (c_int, [_HANDLE, c_void_p, c_size_t, c_void_p, c_size_t]),
    "qrx_codec_free": (None, [_HANDLE]),
    "qrx_crc32": (c_uint32, [c_uint32, c_void_p, c_size_t]),
    "qrx_crc32_combine": (c_uint32, [c_uint32, c_uint32, c_uint64]),
}

# -------------------------------------------------------------------------------------- loading


def _candidates() -> List[str]:
    """Lists the file names to try, in order, where QRX_LIBRARY names none."""
    if sys.platform == "win32":
        names = ["libqrx-0.dll"]
    elif sys.platform == "darwin":
        names = ["libqrx.0.dylib"]
    else:
        names = ["libqrx.so.0"]
    package = os.path.dirname(os.path.abspath(__file__))
    found = [path for path in (os.path.join(package, name) for name in names)
             if os.path.exists(path)]
    if sys.platform == "win32":  # where a name alone is not looked up in PATH
        paths = (ctypes.util.find_library(name) for name in names)
        found += [path for path in paths if path]
    return found + names


def _open_library() -> ctypes.CDLL:
    named = os.environ.get("QRX_LIBRARY")
    if named:
        try:
            return ctypes.CDLL(named)
        except OSError as error:
            raise ImportError(f"the library named by QRX_LIBRARY can't be loaded: "
                              f"{error}") from error
    tried = []
    for name in _candidates():
        try:
            return ctypes.CDLL(name)
        except OSError as error:
            tried.append(str(error))
    other = ctypes.util.find_library("qrx")  # may run a compiler, so it comes last
    if other:
        try:
            return ctypes.CDLL(other)
        except OSError as error:
            tried.append(str(error))
    raise ImportError(
        "the shared library qrx was not found; install it, or set the environment variable "
        f"QRX_LIBRARY to its file name (tried: {'; '.join(tried)})"
    )


def _declare(library: ctypes.CDLL) -> ctypes.CDLL:
    """Sets the types of all functions.  ctypes releases the GIL while one of them runs."""
    for name, (result, arguments) in FUNCTIONS.items():
        try:
            function = getattr(library, name)
        except AttributeError as error:
            raise ImportError(f"{library._name} has no function {name}: "
                              "it is another library, or too old") from error
        function.restype = result
        function.argtypes = arguments
    version = library.qrx_version().decode("ascii")
    if version.split(".")[0] != str(VERSION_MAJOR):
        raise ImportError(f"{library._name} has version {version}, this package needs "
                          f"version {VERSION_MAJOR}.*")
    return library


lib = _declare(_open_library())
