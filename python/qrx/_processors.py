"""A limit on the codecs that run at the same time on one machine, in all processes of a user."""

from __future__ import annotations

import builtins
import contextlib
import os
import random
import stat
import tempfile
import threading
import time
from typing import IO, Iterator, Optional

try:
    import fcntl
except ImportError:  # Windows
    fcntl = None  # type: ignore[assignment]

_POLL_TIME = 0.02  # seconds
_thread = threading.local()


@contextlib.contextmanager
def processor_slot() -> Iterator[None]:
    """Limits the codecs that run at the same time on this machine to one per processor.

    More would take up to 30 % longer: each has tables of many MiB, and they would evict each
    other's from the caches.  There is one lock file per processor, of which the caller holds one.
    The system unlocks it if the process is killed.  Without a safe folder for them, or without
    locks, there is no limit.  A thread that has a slot doesn't take another one.
    """
    if getattr(_thread, "has_slot", False):
        yield
        return
    folder = _slot_folder()
    file = None if folder is None else _take_slot(folder)
    _thread.has_slot = True
    try:
        yield
    finally:
        _thread.has_slot = False
        if file is not None:
            fcntl.flock(file, fcntl.LOCK_UN)  # for a child that was forked meanwhile, too
            file.close()


def _take_slot(folder: str) -> Optional[IO[bytes]]:
    """Waits for a slot and returns its locked file, or None if files can't be locked there."""
    if hasattr(os, "sched_getaffinity"):
        processors = list(os.sched_getaffinity(0))
    else:
        processors = list(range(os.cpu_count() or 1))
    while True:
        random.shuffle(processors)
        for number in processors:
            try:
                file = builtins.open(os.path.join(folder, str(number)), "ab")
            except OSError:
                return None
            try:
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
                return file
            except BlockingIOError:
                file.close()
            except OSError:
                file.close()
                return None
        time.sleep(_POLL_TIME)


def _slot_folder() -> Optional[str]:
    """Returns the folder of the lock files, which only this user can change, or None."""
    if fcntl is None:
        return None
    try:
        folder = os.path.join(tempfile.gettempdir(), f"qrx-processors-{os.getuid()}")
        with contextlib.suppress(FileExistsError):
            os.mkdir(folder, 0o700)
        traits = os.lstat(folder)
    except OSError:
        return None
    is_own = stat.S_ISDIR(traits.st_mode) and traits.st_uid == os.getuid()
    return folder if is_own and not traits.st_mode & 0o077 else None
