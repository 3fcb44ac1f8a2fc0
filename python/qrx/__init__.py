"""Compress and decompress .qrx files, buffers and single blocks.

    compress(), decompress()    whole buffers
    open()                      a file object that reads (any range) or writes a .qrx file
    info(), blocks(), test()    describe a file, and check it for damage
    Codec                       single blocks, for other container formats

The package calls the shared library libqrx through ctypes.  It looks for the library at
the path in the environment variable QRX_LIBRARY, then in its own directory, then where the system
searches.

Functions release the GIL while the library works, so threads run in parallel.  An object may be
used by several threads; their calls take turns.  Callbacks run on the thread that made the call.
An exception raised by a callback ends the call and propagates unchanged.
"""

from ._buffers import compress, decompress
from ._codec import Codec
from ._errors import (
    CancelledError,
    ChecksumError,
    CorruptError,
    Damage,
    NotQrxError,
    OverLimitError,
    QrxError,
    TruncatedError,
)
from ._files import blocks, info, open, test
from ._library import MAX_THREADS, Status, lib
from ._reader import BlockInfo, Info, QrxFile
from ._version import __version__
from ._writer import QrxWriter

__all__ = [
    "MAX_THREADS", "BlockInfo", "CancelledError", "ChecksumError", "Codec", "CorruptError",
    "Damage", "Info", "NotQrxError", "OverLimitError", "QrxError", "QrxFile", "QrxWriter",
    "Status", "TruncatedError", "__version__", "blocks", "compress", "decompress", "info",
    "library_version", "open", "test",
]


def library_version() -> str:
    """Returns the version of the library in use, such as "0.94.0"."""
    version: bytes = lib.qrx_version()
    return version.decode("ascii")
