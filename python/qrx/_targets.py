"""Files written by a client and the workers of its cluster."""

from __future__ import annotations

import contextlib
import errno
import functools
import glob
import os
import uuid
from collections import deque
from concurrent.futures import CancelledError
from types import TracebackType
from typing import Any, Callable, Deque, Optional, Type

from distributed import Client, Future
from fsspec.spec import AbstractFileSystem

from ._tasks import Location, Summary, naming, write_result

_CREATE = os.O_WRONLY | os.O_CREAT | os.O_EXCL | getattr(os, "O_BINARY", 0)


class Target:
    """A file written sequentially, under a temporary name; a context manager.

    complete() renames it to its final name.  If complete() isn't called, the end of the with block
    removes the file.

    If all workers see the file under the same local path, the worker that has a result writes it at
    its offset.  Otherwise results pass through the client.

    path: the temporary path.
    is_shared: whether workers write to the file.
    """

    def __init__(self, client: Client, final: Location, source: Location) -> None:
        """
        final: the file's final name.
        source: a file whose permissions the file gets if both are local.
        """
        folder, separator, _ = final.path.rpartition("/")
        self._client = client
        self._final = final
        self._mode: Optional[int] = None
        if final.is_local and source.is_local:
            self._mode = os.stat(source.path).st_mode & 0o777
        self.path = f"{folder}{separator}.qrx-{uuid.uuid4().hex[:12]}"
        self.is_shared = False
        self._file: Any = None
        self._size = 0
        self._is_complete = False
        self._pending: Deque[Future] = deque()  # results that workers are writing

    def __enter__(self) -> Target:
        self._check_final()
        try:
            self._file = self._open()
            self.is_shared = self._final.is_local and _is_seen_by_all(self._client, self.path)
        except BaseException as error:
            self.__exit__(type(error), error, error.__traceback__)
            raise
        return self

    def _check_final(self) -> None:
        """Raises OSError if an existing target isn't a regular file."""
        path = self._final.path
        if self._final.fs.isdir(path):
            raise IsADirectoryError(errno.EISDIR, os.strerror(errno.EISDIR), path)
        if self._final.is_local and os.path.exists(path) and not os.path.isfile(path):
            raise OSError(errno.EINVAL, "not a regular file", path)
        has_generic_mv = type(self._final.fs).mv is AbstractFileSystem.mv  # which expands patterns
        if has_generic_mv and not self._final.is_local and glob.has_magic(self.path):
            raise ValueError(f"{path}: a folder whose name has *, ? or [ is not supported here")

    def _open(self) -> Any:
        if not self._final.is_local:
            return self._final.fs.open(self.path, "wb")
        if getattr(self._final.fs, "auto_mkdir", False):
            os.makedirs(os.path.dirname(self.path), exist_ok=True)
        mode = 0o666 if self._mode is None else 0o600
        return os.fdopen(os.open(self.path, _CREATE, mode), "wb")

    def write(self, data: bytes) -> None:
        """Appends bytes."""
        with naming(self.path):
            if self.is_shared:
                self._file.seek(self._size)
            self._file.write(data)
        self._size += len(data)

    def append(self, part: Future, summary: Summary, max_pending: int) -> None:
        """Appends the result of a task.

        max_pending: maximum number of results that workers still have to write.
        """
        if not self.is_shared:
            gather = functools.partial(self._client.gather, part, direct=True)
            for piece in result_of(gather)[0]:
                self.write(piece)
            return
        self._pending.append(self._client.submit(
            write_result, self.path, self._size, part, pure=False, priority=2))
        self._size += summary.size
        while len(self._pending) > max_pending or self._pending and self._pending[0].done():
            self._end_oldest_write()

    def _end_oldest_write(self) -> None:
        result_of(self._pending[0].result)  # stays in the queue if it fails, to be cancelled
        self._pending.popleft()

    def advance(self, size: int) -> None:
        """Advances the position past bytes that a worker has written."""
        self._size += size

    def complete(self) -> None:
        """Renames the file to its final name, replacing an existing file."""
        while self._pending:
            self._end_oldest_write()
        with naming(self.path):
            self._close()
        if self._final.is_local:
            os.replace(self.path, self._final.path)
        else:
            self._final.fs.mv(self.path, self._final.path)
            self._check_renamed()
        self._is_complete = True

    def _close(self) -> None:
        if self._final.is_local:
            self._file.flush()
            if self._mode is not None:
                os.chmod(self.path, self._mode)
            os.fsync(self._file.fileno())
        self._file.close()

    def _check_renamed(self) -> None:
        """Raises OSError if a file system didn't rename the file, and didn't say so."""
        fs, path = self._final.fs, self._final.path
        fs.invalidate_cache()
        if fs.info(path)["size"] != self._size or fs.exists(self.path):
            raise OSError(f"{path}: the file system can't replace it by {self.path}")

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        if not self._is_complete:
            self._remove()
        if isinstance(error, OSError) and (error.filename, error.filename2) == (self.path, None):
            error.filename = self._final.path

    def _remove(self) -> None:
        """Removes the file.  Failures are ignored, because another one is the reason."""
        with contextlib.suppress(Exception):
            self._client.cancel(list(self._pending))
        self._pending.clear()
        if self._file is None:
            return
        with contextlib.suppress(Exception):
            self._file.close()
        with contextlib.suppress(Exception):
            self._final.fs.rm(self.path)


def result_of(wait: Callable[[], Any]) -> Any:
    """Returns what `wait` returns, the result of a task.  Makes failures of the cluster clear."""
    try:
        return wait()
    except CancelledError as error:
        raise ConnectionError("the scheduler is lost, or tasks were cancelled") from error
    except FileNotFoundError as error:
        raise FileNotFoundError(error.errno, "a worker can't find the file, which all must see",
                                error.filename or str(error)) from error


def _is_seen_by_all(client: Client, path: str) -> bool:
    """True if all workers can write to a local file of the client under the same path."""
    try:
        seen = client.run(os.access, path, os.W_OK)
    except Exception:  # for example, a worker was lost during the call
        return False
    return bool(seen) and all(seen.values())
