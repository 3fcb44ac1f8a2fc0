"""Calls into the library: their callbacks, failures and handles.

A callback must not let an exception escape into C.  It stores the exception in the Calls object and
returns an error number, so that the library ends the call; then the exception is raised again.  For
Ctrl-C, Python would raise KeyboardInterrupt at the first instruction of a callback, where nothing
can catch it, so our own handler defers it while the library runs.
"""

from __future__ import annotations

import contextlib
import ctypes
import errno
import importlib
import os
import signal
import threading
import weakref
from types import FrameType, TracebackType
from typing import Any, Callable, Container, Iterator, List, Optional, Tuple, Type

from ._errors import DAMAGE, Damage, FileName, damage_of, make_error
from ._library import EVENT, MAX_THREADS, PROGRESS, Options, Status

try:  # the C part, which doesn't convert arguments to enumerations: saves 10 us a call
    _handlers: Any = importlib.import_module("_signal")
except ImportError:
    _handlers = signal
_SIGINT = int(signal.SIGINT)

Progress = Callable[[int, Optional[int]], object]
OnDamage = Callable[[Damage], object]


class Calls:
    """State of the calls of one handle: the events and exceptions of its callbacks."""

    def __init__(self, progress: Optional[Progress] = None,
                 on_damage: Optional[OnDamage] = None, name: FileName = None) -> None:
        self.progress = progress
        self.on_damage = on_damage
        self.name = name
        self.events: List[Damage] = []
        self.error: Optional[BaseException] = None
        self.interrupted = False
        self.in_callback = False
        self._previous_handler: Any = None

    def __enter__(self) -> None:
        """Begins a call."""
        self.events.clear()
        self.error = None
        self.interrupted = False
        self._previous_handler = None
        if threading.get_ident() == threading.main_thread().ident:
            handler = _handlers.getsignal(_SIGINT)
            if handler is signal.default_int_handler or isinstance(handler, _Interrupt):
                self._previous_handler = handler
                try:
                    _handlers.signal(_SIGINT, _Interrupt(self))
                except ValueError:  # not the main interpreter
                    self._previous_handler = None

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        """Ends a call.  Stores a KeyboardInterrupt if Ctrl-C came meanwhile."""
        if self._previous_handler is not None:
            handler, self._previous_handler = self._previous_handler, None
            _handlers.signal(_SIGINT, handler)
            if self.interrupted and self.error is None:
                self.error = KeyboardInterrupt()

    def check(self, status: int, accept: Container[int] = ()) -> Status:
        """Raises the exception of a callback, or that of the status unless it is in `accept`."""
        if self.error is not None:
            error, self.error = self.error, None
            try:
                raise error
            finally:
                del error  # it refers to this frame
        result = Status(status)
        if result != Status.OK and result not in accept:
            raise make_error(result, self.events, self.name)
        return result

    def callback(self, function: Callable[..., int]) -> Callable[..., int]:
        """Wraps a function for the library to call."""

        def call(*arguments: Any) -> int:
            if self.error is not None:  # the call is failing already
                return errno.ECANCELED
            try:
                self.in_callback = True
                if self.interrupted:
                    raise KeyboardInterrupt
                return function(*arguments)
            except BaseException as error:
                self.error = error
                return getattr(error, "errno", None) or errno.ECANCELED
            finally:
                self.in_callback = False

        return call

    def options(self, threads: int = 0, flags: int = 0, memory_limit: int = 0) -> Options:
        """Returns options with the callbacks of this object, which they keep alive."""
        return Options(
            threads=in_range("threads", threads, MAX_THREADS + 1),
            flags=flags,
            memory_limit=in_range("memory_limit", memory_limit, 2**64),
            progress=PROGRESS(self.callback(self._on_progress)),
            event=EVENT(self.callback(self._on_event)),
        )

    def _on_progress(self, _context: int, done: int, total: int) -> int:
        if self.progress is None:
            return 0
        return errno.ECANCELED if self.progress(done, total or None) is False else 0

    def _on_event(self, _context: int, event: Any) -> int:
        damage = damage_of(event.contents)
        self.events.append(damage)
        if self.on_damage is not None and damage.what in DAMAGE:
            self.on_damage(damage)
        return 0


class _Interrupt:
    """A SIGINT handler for the duration of one call."""

    def __init__(self, calls: Calls) -> None:
        self._calls = calls

    def __call__(self, _number: int, _frame: Optional[FrameType]) -> None:
        self._calls.interrupted = True
        if self._calls.in_callback:  # user code, which may be waiting for something
            raise KeyboardInterrupt


class Handle:
    """A handle of the library, with a lock: only one thread at a time may use it.

    It is closed once: by close(), when its owner is collected, or at exit, unless another thread is
    still in a call then.  A forked child never closes it.
    """

    def __init__(self, calls: Calls, close: Callable[[ctypes.c_void_p], None],
                 keep: Tuple[Any, ...]) -> None:
        self.calls = calls
        self._close = close
        self._keep = keep  # objects that the library refers to
        self._pointer: Optional[ctypes.c_void_p] = None
        self.lock = threading.RLock()
        self._is_busy = False
        self._process = os.getpid()

    def open(self, function: Callable[..., int], *arguments: Any) -> None:
        """Calls a function that creates the handle."""
        pointer = ctypes.c_void_p()
        with self.calls:
            status = function(ctypes.byref(pointer), *arguments)
        if pointer:
            self._pointer = pointer
        try:
            self.calls.check(status)
        except BaseException:
            self.close()
            raise

    def close_with(self, owner: object) -> None:
        """Closes the handle when `owner` is collected, if it is still open."""
        weakref.finalize(owner, self._close_if_idle)

    @property
    def is_open(self) -> bool:
        """False once the handle is closed."""
        return self._pointer is not None

    def call(self, function: Callable[..., int], *arguments: Any,
             accept: Container[int] = ()) -> Status:
        """Calls a function of the library with the handle, and raises its failures."""
        with self.lock:
            if self._is_busy:
                raise RuntimeError("a callback can't use the object whose call it belongs to")
            if self._pointer is None:
                raise ValueError("I/O operation on closed file")
            self._is_busy = True
            try:
                with self.calls:
                    status = function(self._pointer, *arguments)
            finally:
                self._is_busy = False
            return self.calls.check(status, accept)

    @contextlib.contextmanager
    def reserve(self) -> Iterator[None]:
        """Makes calls of this thread raise RuntimeError, while a callback runs between two calls.

        The caller must hold the lock, so that other threads wait.
        """
        self._is_busy = True
        try:
            yield
        finally:
            self._is_busy = False

    def close(self) -> None:
        """Closes the handle, if it is open, once no other thread is in a call."""
        with self.lock:
            if self._is_busy:
                raise RuntimeError("a callback can't close the object whose call it belongs to")
            pointer, self._pointer = self._pointer, None
            if pointer is not None and os.getpid() == self._process:
                self._close(pointer)
            self._keep = ()

    def _close_if_idle(self) -> None:
        if self.lock.acquire(blocking=False):
            try:
                if not self._is_busy:
                    self.close()
            finally:
                self.lock.release()


def in_range(name: str, value: int, end: int) -> int:
    """Returns a value from 0 to `end` - 1.  ctypes would truncate others silently."""
    if not 0 <= value < end:
        raise ValueError(f"{name} is out of range: {value}")
    return value
