"""Open .qrx files by name in fsspec and its users, such as pandas and Dask.

Importing this module registers with fsspec

- the compression "qrx" for names that end in .qrx:

      fsspec.open("s3://bucket/x.csv.qrx", "rt", compression="infer")

- the file system "qrx", which shows the original of one .qrx file as the only file of an archive:

      fsspec.open("qrx://x.csv::s3://bucket/x.csv.qrx")

Both read any range, and decode only the blocks that contain it.

The compression can also write.  If the with block of fsspec.open() ends by an exception, the file
is not completed: in an object store no file appears; elsewhere a file without a header remains.

The workers of a Dask cluster must be registered too: see register_workers().
"""

from __future__ import annotations

import ctypes
import errno
import io
import os
import posixpath
import shutil
import sys
import tempfile
import threading
from dataclasses import dataclass
from types import FrameType
from typing import IO, TYPE_CHECKING, Any, Callable, Dict, List, Optional, Union
from urllib.parse import urlsplit

import fsspec
from fsspec.archive import AbstractArchiveFileSystem
from fsspec.caching import BaseCache, BytesCache, ReadAheadCache
from fsspec.compression import register_compression
from fsspec.core import OpenFile
from fsspec.spec import AbstractBufferedFile
from fsspec.utils import tokenize

from ._calls import Calls, in_range
from ._container import HEADER_SIZE
from ._errors import make_error
from ._library import MAX_THREADS, SEAL, Status, lib
from ._params import make_params
from ._reader import QrxFile, open_reader
from ._streams import can_seek
from ._writer import QrxWriter, RawWriter

if TYPE_CHECKING:
    from _typeshed import WriteableBuffer

__all__ = ["Compression", "QrxFileSystem", "register", "register_workers"]

# ---------------------------------------------------------------------------------------- reading


class RecordCache(BaseCache):  # type: ignore[misc]  # fsspec has no types
    """A cache that reads ahead only while reads are close together, as in files of small records.

    Opening a .qrx file reads 5 bytes of each record.  For each of them, the caches of fsspec fetch
    several MiB, in total up to the whole file; without a cache, each takes one request.  This cache
    doubles its read-ahead as long as the transfer is faster than another request.
    """

    name = "qrx"

    FIRST = 1 << 16  # bytes of the first request
    MIN = 1 << 12  # bytes read ahead far from the previous read
    MAX = 1 << 20  # bytes that a connection transfers in about the latency of a request
    NEAR = MAX // 4  # maximum distance from the previous read at which reading ahead pays

    size: int

    def __init__(self, blocksize: int, fetcher: Callable[[int, int], bytes], size: int) -> None:
        super().__init__(blocksize, fetcher, size)
        self._start = 0  # of the window
        self._data = b""
        self._previous = 0  # end of the previous read
        self._ahead = self.FIRST // 2

    def _fetch(self, start: Optional[int], stop: Optional[int]) -> bytes:
        return self._range(start or 0, self.size if stop is None else min(stop, self.size))

    def _range(self, start: int, stop: int) -> bytes:
        if start >= stop:
            return b""
        distance, self._previous = start - self._previous, stop
        end = self._start + len(self._data)
        if self._start <= start and stop <= end:
            return self._data[start - self._start:stop - self._start]
        self._ahead = min(2 * self._ahead, self.MAX) if 0 <= distance < self.NEAR else self.MIN
        found = self._data[start - self._start:] if self._start <= start < end else b""
        start += len(found)
        data: bytes = self.fetcher(start, min(max(stop, start + self._ahead), self.size))
        result = data[:stop - start]
        # Of a large payload, keep only what follows it.
        drop = stop - start if len(data) > self.MAX else 0
        self._start, self._data = start + drop, data[drop:]
        return found + result if found else result


def _use_record_cache(file: Any) -> None:
    """Replaces the cache of an fsspec file, if it is a read-ahead cache."""
    if isinstance(file, AbstractBufferedFile):
        cache = getattr(file, "cache", None)
        if cache is not None and type(cache) in (BytesCache, ReadAheadCache):
            file.cache = RecordCache(file.blocksize, cache.fetcher, file.size)


def _name_of(file: Any) -> Optional[str]:
    """Returns the URL or path of an fsspec file for messages, or None."""
    path = getattr(file, "path", None)
    unstrip = getattr(getattr(file, "fs", None), "unstrip_protocol", None)
    if isinstance(path, str):
        return str(unstrip(path)) if unstrip else path
    name = getattr(file, "name", None)
    return name if isinstance(name, str) else None


def open_original(file: IO[bytes], threads: int = 0, memory_limit: int = 0) -> QrxFile:
    """Opens the original of an fsspec file, which is closed with it."""
    _use_record_cache(file)
    return open_reader(file, threads, memory_limit, None, owned=file, name=_name_of(file))


# ---------------------------------------------------------------------------------------- writing


class _Writer(QrxWriter):
    """Writes a .qrx file to an fsspec file, which is closed with it."""

    def __init__(self, raw: RawWriter, file: Any, spool: Optional[IO[bytes]]) -> None:
        super().__init__(raw)
        self._file = file
        self._spool = spool
        self._is_complete = False
        self._is_removed = False

    def close(self) -> None:
        """Completes the file, unless it is discarded or a with block of fsspec failed."""
        if self.closed:
            return
        if _closes_after_exception(self):
            self.raw.discard()
        try:
            super().close()
            if self._spool is not None and not self.raw.is_discarded:
                self._spool.seek(0)
                shutil.copyfileobj(self._spool, self._file, 1 << 20)
            self._is_complete = not self.raw.is_discarded
        finally:
            if self._spool is not None:
                self._spool.close()
            if not self._is_complete:
                _abandon(self._file)
            self._file.close()

    def commit(self) -> None:
        """Gives a file in a transaction its final name, if it is complete."""
        if self._is_complete:
            self._file.commit()
        else:
            self.discard()

    def discard(self) -> None:
        """Closes the file without completing it, or removes a complete one in a transaction."""
        if not self.closed:
            super().discard()
        if not self._is_removed and not getattr(self._file, "autocommit", True):
            self._is_removed = True
            self._file.discard()


def _open_writer(file: Any, options: Compression) -> _Writer:
    spool: Optional[IO[bytes]] = None
    try:
        if not can_seek(file):
            # The header has the size of the original, and comes first.
            spool = tempfile.TemporaryFile(prefix="qrx-")
        params = options.params()
        raw = RawWriter(spool or file, params, Calls(name=_name_of(file)), options.threads,
                        SEAL if options.seal else 0, options.memory_limit, None)
        return _Writer(raw, file, spool)
    except BaseException:
        if spool is not None:
            spool.close()
        _abandon(file)
        file.close()
        raise


def _abandon(file: Any) -> None:
    """Cancels an incomplete upload, where closing a file would make it appear."""
    if isinstance(file, AbstractBufferedFile) and not file.closed:
        try:
            file.discard()
        finally:
            file.closed = True


def _closes_after_exception(file: object) -> bool:
    """True if an OpenFile closes `file` because its with block ended by an exception.

    OpenFile.__exit__() receives the exception but doesn't pass it to close(), so this function
    looks for its frame on the stack: it is the caller's caller, or up to two frames above.
    """
    frame: Optional[FrameType] = sys._getframe(2)
    for _ in range(3):
        if frame is None:
            break
        if frame.f_code is OpenFile.__exit__.__code__:
            values = frame.f_locals
            owner, arguments = values.get("self"), values.get("args", ())
            return (any(part is file for part in getattr(owner, "fobjects", ()))
                    and any(isinstance(value, BaseException) for value in arguments))
        frame = frame.f_back
    return False


# ------------------------------------------------------------------------------------ compression


@dataclass(frozen=True)
class Compression:
    """A compression for fsspec: opens the original of a file object.

    The fields are the arguments of qrx.compress(); reading uses the first two.
    """

    threads: int = 0
    memory_limit: int = 0
    method: int = 3
    level: int = 3
    context_bits: int = 0
    filter: Optional[str] = None
    hash_bits: int = 0
    chain_bits: int = 0
    block_mib: int = 0
    seal: bool = True

    def __post_init__(self) -> None:
        in_range("threads", self.threads, MAX_THREADS + 1)
        in_range("memory_limit", self.memory_limit, 2**64)
        self.params()

    def params(self) -> Any:
        """Returns the parameters of the library.  Raises ValueError if one is out of range."""
        return make_params(self.method, self.level, self.context_bits, self.filter,
                           self.hash_bits, self.chain_bits, self.block_mib)

    def __call__(self, infile: Any, mode: str = "rb",
                 **_options: Any) -> Union[QrxFile, QrxWriter]:
        """Opens the original of `infile` to read ("r", "rb") or write ("w", "wb").

        `infile` is closed with the result.  If it can't seek, the compressed data goes to a
        temporary file, and is copied when the result is closed.
        """
        if mode in ("r", "rb"):
            return open_original(infile, self.threads, self.memory_limit)
        if mode in ("w", "wb"):
            return _open_writer(infile, self)
        _abandon(infile)
        infile.close()
        raise ValueError(f"a .qrx file can be read or written, not opened with mode {mode!r}")


class _Name(str):
    """The name of the compression.  Unpickling it imports this module, which registers "qrx".

    fsspec infers this object from the suffix, and stores it in the OpenFile objects that Dask
    sends.
    """

    def __reduce__(self) -> Any:
        return _get_name, ()


_NAME = _Name("qrx")


def _get_name() -> str:
    return _NAME


def register(*, threads: int = 0, memory_limit: int = 0, method: int = 3, level: int = 3,
             context_bits: int = 0, filter: Optional[str] = None, hash_bits: int = 0,
             chain_bits: int = 0, block_mib: int = 0, seal: bool = True) -> None:
    """Registers compression and file system "qrx" with fsspec in this process.

    Importing the module does so with the defaults.  Later calls replace the options of the
    compression: those of qrx.compress(), of which reading uses `threads` and `memory_limit`.
    """
    compression = Compression(threads, memory_limit, method, level, context_bits, filter,
                              hash_bits, chain_bits, block_mib, seal)
    register_compression(_NAME, compression, "qrx", force=True)
    fsspec.register_implementation("qrx", QrxFileSystem, clobber=True)


def register_workers(client: Any, **options: Any) -> None:
    """Registers "qrx" in all worker processes of a Dask cluster, including those that join later.

    client: a distributed.Client.
    options: as for register().

    Without this call, tasks can use the file system "qrx" and compression="infer": unpickling these
    registers "qrx".  With compression="qrx", workers can't unpickle the task; with distributed
    2022.12, they end and are restarted again and again.

    The workers need this package.  If the scheduler has the package, it is registered too, since
    newer schedulers unpickle task graphs, which name the compression.
    """
    from distributed import WorkerPlugin

    Compression(**options)  # raises ValueError here rather than on the workers

    class Registration(WorkerPlugin):
        """Runs on each worker when it starts."""

        name = "qrx-fsspec"

        def setup(self, worker: Any) -> None:
            import qrx.fsspec

            qrx.fsspec.register(**options)

    def register_scheduler() -> None:
        try:
            import qrx.fsspec
        except ImportError:
            return
        qrx.fsspec.register(**options)

    client.run_on_scheduler(register_scheduler)
    if hasattr(client, "register_plugin"):  # since distributed 2023.9
        client.register_plugin(Registration())
    else:
        client.register_worker_plugin(Registration())


# ------------------------------------------------------------------------------------ file system


class QrxFileSystem(AbstractArchiveFileSystem):  # type: ignore[misc]
    """The original of one .qrx file as the only file of a read-only archive.

    Its name is that of the .qrx file without ".qrx"; the empty name opens it, too.  Each open file
    has its own position and decoder.  Opening reads 5 bytes of each record of the .qrx file.
    An instance holds no open file, and can be pickled if `fo` can.
    """

    root_marker = ""
    protocol = "qrx"
    cachable = False

    def __init__(self, fo: Any = "", mode: str = "r", target_protocol: Optional[str] = None,
                 target_options: Optional[Dict[str, Any]] = None, threads: int = 0,
                 memory_limit: int = 0, **kwargs: Any) -> None:
        """
        fo: URL of the .qrx file, an OpenFile, or a binary file object that can seek.  A file object
            is used from its current position, and must not be used elsewhere meanwhile.
        mode: "r".
        target_protocol, target_options: protocol and options of the file system of the URL.
        threads, memory_limit: as for qrx.open().
        """
        super().__init__(**kwargs)
        if mode not in ("r", "rb"):
            raise io.UnsupportedOperation(_READ_ONLY)
        self._threads = in_range("threads", threads, MAX_THREADS + 1)
        self._memory_limit = in_range("memory_limit", memory_limit, 2**64)
        if isinstance(fo, os.PathLike) and not hasattr(fo, "seek"):
            fo = os.fspath(fo)
        if isinstance(fo, str):
            if not fo:
                raise ValueError("a qrx:// URL needs the URL of the .qrx file: "
                                 "qrx://NAME::file:///FOLDER/NAME.qrx")
            fo = fsspec.open(fo, "rb", protocol=target_protocol, **(target_options or {}))
        self.fo = fo
        self._shared = None if isinstance(fo, OpenFile) else _SharedFile(fo)
        self._name = _member_name(getattr(fo, "path", None) or getattr(fo, "name", None))
        self.dir_cache: Optional[Dict[str, Dict[str, Any]]] = None

    @classmethod
    def _strip_protocol(cls, path: Any) -> Any:
        stripped = super()._strip_protocol(path)
        if isinstance(stripped, list):
            return stripped
        return stripped.lstrip("/")

    def _open_target(self) -> Any:
        if self._shared is not None:
            return self._shared.view()
        file = self.fo.fs.open(self.fo.path, "rb")
        _use_record_cache(file)
        return file

    def _get_dirs(self) -> None:
        if self.dir_cache is None:
            with self._open_target() as file:
                size = _original_size(file)
            self.dir_cache = {self._name: {"name": self._name, "size": size, "type": "file"}}

    def invalidate_cache(self, path: Optional[str] = None) -> None:
        """Makes the next ls() or info() read the size again."""
        self.dir_cache = None

    def info(self, path: str, **kwargs: Any) -> Dict[str, Any]:
        """Describes the original, or the root."""
        result: Dict[str, Any] = super().info(path, **kwargs)
        if result["type"] == "directory":  # with size 0, Dask would treat it as an empty file
            return {**result, "size": None}
        return result

    def ukey(self, path: str) -> str:
        """Returns a key that changes with the .qrx file."""
        target = self.fo.fs.ukey(self.fo.path) if self._shared is None else id(self.fo)
        return str(tokenize(target, self.protocol, self._strip_protocol(path)))

    def _open(self, path: str, mode: str = "rb", block_size: Optional[int] = None,
              autocommit: bool = True, cache_options: Optional[Dict[str, Any]] = None,
              **kwargs: Any) -> QrxFile:
        if mode != "rb":
            raise io.UnsupportedOperation(_READ_ONLY)
        if self._strip_protocol(path) not in ("", self._name):
            raise FileNotFoundError(errno.ENOENT, f"the archive has only {self._name!r}", path)
        file = open_original(self._open_target(), self._threads, self._memory_limit)
        file.raw.name = self._name  # others infer the type from it
        return file

    def cat_ranges(self, paths: List[str], starts: Any, ends: Any,
                   max_gap: Optional[int] = None, on_error: str = "return",
                   **kwargs: Any) -> List[Any]:
        """Returns ranges of the original.  Opens it once, and reads the ranges in file order."""
        if not isinstance(paths, list):
            raise TypeError("paths must be a list")
        starts = starts if isinstance(starts, list) else [starts] * len(paths)
        ends = ends if isinstance(ends, list) else [ends] * len(paths)
        if not len(paths) == len(starts) == len(ends):
            raise ValueError("paths, starts and ends differ in length")
        results: List[Any] = [b""] * len(paths)
        with self.open("", "rb") as file:
            ranges = [slice(start, end).indices(file.size)[:2]
                      for start, end in zip(starts, ends)]
            for index in sorted(range(len(paths)), key=lambda index: ranges[index]):
                try:
                    self.info(paths[index])  # or FileNotFoundError
                    start, end = ranges[index]
                    file.seek(start)
                    results[index] = file.read(max(end - start, 0))
                except Exception as error:
                    if on_error != "return":
                        raise
                    results[index] = error
        return results


_READ_ONLY = "qrx:// is read-only; to write, open the .qrx file with compression=\"qrx\""


def _member_name(path: Any) -> str:
    """Returns the base name of a path or URL without .qrx."""
    text = path if isinstance(path, str) else ""
    if "://" in text:  # as in the paths of HTTP, which can have a query
        text = urlsplit(text).path
    name = posixpath.basename(text.replace(os.sep, "/"))
    if name.lower().endswith(".qrx"):
        name = name[:-len(".qrx")]
    return name or "original"


def _original_size(file: Any) -> int:
    header = file.read(HEADER_SIZE)
    size = ctypes.c_uint64()
    status = Status(lib.qrx_decompressed_size(header, len(header), ctypes.byref(size)))
    if status != Status.OK:
        raise make_error(status, (), _name_of(file))
    return size.value


class _SharedFile:
    """A file object used through views, each with its own position."""

    def __init__(self, file: Any) -> None:
        self.file = file
        self.start: int = file.tell()
        self.lock = threading.Lock()
        _use_record_cache(file)

    def view(self) -> _View:
        return _View(self)


class _View(io.RawIOBase):
    """A view of a shared file, which stays open."""

    def __init__(self, shared: _SharedFile) -> None:
        super().__init__()
        self._shared = shared
        self._position = 0
        self.path = _name_of(shared.file)

    def readable(self) -> bool:
        return True

    def seekable(self) -> bool:
        return True

    def tell(self) -> int:
        return self._position

    def seek(self, offset: int, whence: int = io.SEEK_SET) -> int:
        with self._shared.lock:
            file, start = self._shared.file, self._shared.start
            if whence == io.SEEK_END:
                file.seek(0, io.SEEK_END)
                offset += file.tell() - start
            elif whence == io.SEEK_CUR:
                offset += self._position
        self._position = max(offset, 0)
        return self._position

    def readinto(self, buffer: WriteableBuffer) -> int:
        with memoryview(buffer).cast("B") as memory, self._shared.lock:
            self._shared.file.seek(self._shared.start + self._position)
            data = self._shared.file.read(len(memory))
            memory[:len(data)] = data
        self._position += len(data)
        return len(data)


register()
