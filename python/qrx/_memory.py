"""Memory shared with the library without copies: views of buffers, and new bytes objects.

Both use the C interface of CPython.  Its functions are taken from pythonapi by subscript, which
makes new function objects, so setting their types doesn't affect other users of pythonapi.
"""

from __future__ import annotations

import ctypes
import mmap
import sys
from ctypes import POINTER, c_char_p, c_int, c_size_t, c_ssize_t, c_void_p, py_object
from types import TracebackType
from typing import TYPE_CHECKING, Any, List, Optional, Type

if TYPE_CHECKING:
    from _typeshed import ReadableBuffer

_WRITABLE = 1  # PyBUF_WRITABLE

_HUGE_PAGES = 14  # MADV_HUGEPAGE of Linux
_HUGE_SIZE = 4 << 20  # results of at least this many bytes get huge pages


class _PyBuffer(ctypes.Structure):
    """Py_buffer"""

    _fields_ = [
        ("buf", c_void_p),
        ("obj", c_void_p),
        ("len", c_ssize_t),
        ("itemsize", c_ssize_t),
        ("readonly", c_int),
        ("ndim", c_int),
        ("format", c_char_p),
        ("shape", POINTER(c_ssize_t)),
        ("strides", POINTER(c_ssize_t)),
        ("suboffsets", POINTER(c_ssize_t)),
        ("internal", c_void_p),
    ]


def _python_function(name: str, result: Any, arguments: List[Any]) -> Any:
    function = ctypes.pythonapi[name]
    function.restype = result
    function.argtypes = arguments
    return function


_get_buffer = _python_function("PyObject_GetBuffer", c_int,
                               [py_object, POINTER(_PyBuffer), c_int])
_release_buffer = _python_function("PyBuffer_Release", None, [POINTER(_PyBuffer)])
_new_bytes = _python_function("PyBytes_FromStringAndSize", c_void_p, [c_void_p, c_ssize_t])
_bytes_address = _python_function("PyBytes_AsString", c_void_p, [c_void_p])
_resize_bytes = _python_function("_PyBytes_Resize", c_int, [POINTER(c_void_p), c_ssize_t])
_release_object = _python_function("Py_DecRef", None, [c_void_p])


def _system_advice() -> Any:
    """Returns madvise() on Linux, otherwise None."""
    if sys.platform != "linux":
        return None
    function = getattr(ctypes.CDLL(None), "madvise", None)
    if function is not None:
        function.argtypes = [c_void_p, c_size_t, c_int]
    return function


_advise = _system_advice()


class View:
    """The memory of an object with a contiguous buffer, which stays in place in a with block."""

    __slots__ = ("_buffer", "address", "size")

    def __init__(self, data: ReadableBuffer, writable: bool = False) -> None:
        self._buffer = _PyBuffer()
        _get_buffer(data, self._buffer, _WRITABLE if writable else 0)  # raises what CPython raises
        self.address: Optional[int] = self._buffer.buf
        self.size: int = self._buffer.len

    def __enter__(self) -> View:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        _release_buffer(self._buffer)


class NewBytes:
    """A bytes object that the library fills.  It becomes visible to Python in finish()."""

    __slots__ = ("_object", "address")

    def __init__(self, size: int) -> None:
        if size > sys.maxsize - 64:  # leaves room for the object's header
            raise MemoryError(f"{size} bytes don't fit in a bytes object")
        self._object = c_void_p(_new_bytes(None, size))
        self.address: int = _bytes_address(self._object)
        if _advise is not None and size >= _HUGE_SIZE:
            # Page faults in new memory would take longer than a fast decoder.
            start = -(-self.address // mmap.PAGESIZE) * mmap.PAGESIZE
            whole = (self.address + size - start) // mmap.PAGESIZE * mmap.PAGESIZE
            _advise(start, whole, _HUGE_PAGES)

    def finish(self, size: int) -> bytes:
        """Returns the object, truncated to `size` bytes."""
        _resize_bytes(self._object, size)
        result: bytes = ctypes.cast(self._object, py_object).value
        return result

    def __enter__(self) -> NewBytes:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        if self._object:
            _release_object(self._object)  # the result holds its own reference
            self._object = c_void_p()
