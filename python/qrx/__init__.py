"""Compresses and restores .qrx files, in files, buffers and blocks.

    compress(), decompress()    whole buffers
    open()                      a file object that reads (at any position) or writes a .qrx file
    info(), blocks(), test()    what a file is and whether it is sound
    Codec                       single blocks, for formats of your own

The package calls the shared library libqrx through ctypes.  It looks for the library where the
environment variable QRX_LIBRARY says, then beside the package, then where the system looks.

Functions release the GIL while the library works, so threads run in parallel.  An object may be
used by several threads; their calls take turns.  Callbacks run on the thread that made the call.
An exception that a callback raises ends the call and reaches its caller unchanged.
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
