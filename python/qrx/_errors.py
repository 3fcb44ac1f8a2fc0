"""Exceptions, and the faults that they carry."""

from __future__ import annotations

import errno
import os
from dataclasses import dataclass
from typing import Dict, Iterable, Optional, Type, Union

from ._library import NO_BLOCK, Event, Status, lib

FileName = Union[str, bytes, None]


@dataclass(frozen=True)
class Damage:
    """A fault in a .qrx file or a failure, and its place."""

    what: Status
    block: Optional[int]
    """Index of the block, or None if the fault isn't in a block."""
    offset: int
    """Offset of the record or bytes in question, in the .qrx file; 0 for a missing block."""
    wanted: int
    """Number of bytes expected, or 0; for some statuses another number: see qrx_event in qrx.h."""
    got: int
    """Number of bytes found, or 0; likewise."""
    message: str
    """A description in English, without a full stop."""
    system_error: int = 0
    """Error number of the system, or 0."""


class QrxError(Exception):
    """A failure reported by the library; ``status`` says which."""

    status: Status
    damage: Optional[Damage]
    """Where the fault is, if known."""

    def __init__(self, message: str, status: Status = Status.CORRUPT,
                 damage: Optional[Damage] = None) -> None:
        super().__init__(message)
        self.status = status
        self.damage = damage


class NotQrxError(QrxError):
    """The file is not a .qrx file."""


class TruncatedError(QrxError):
    """The file ends too early."""


class CorruptError(QrxError):
    """The header, a record or the content of a block is damaged."""


class ChecksumError(QrxError):
    """The content doesn't match the seal, the checksum at the end of the file."""


class OverLimitError(QrxError):
    """``memory_limit`` is too low."""


class CancelledError(QrxError):
    """The progress function returned False."""


_CLASSES: Dict[Status, Type[QrxError]] = {
    Status.NOT_QRX: NotQrxError,
    Status.TRUNCATED: TruncatedError,
    Status.CORRUPT: CorruptError,
    Status.CHECKSUM_MISMATCH: ChecksumError,
    Status.OVER_LIMIT: OverLimitError,
    Status.CANCELLED: CancelledError,
    Status.BLOCK_SHORT: CorruptError,
    Status.INEXACT_END: CorruptError,
    Status.BLOCK_MISSING: CorruptError,
    Status.BLOCK_REPEATED: CorruptError,
    Status.TRAILING_BYTES: CorruptError,
}

for _class in {QrxError, *_CLASSES.values()}:
    _class.__module__ = "qrx"  # where users import it from; tracebacks name it

_SYSTEM_FAILURES = {Status.OPEN_FAILED, Status.READ_FAILED, Status.WRITE_FAILED}

# Statuses that report damage to a file, as opposed to failures of the call.
DAMAGE = frozenset({
    Status.TRUNCATED,
    Status.CORRUPT,
    Status.CHECKSUM_MISMATCH,
    Status.BLOCK_SHORT,
    Status.INEXACT_END,
    Status.BLOCK_MISSING,
    Status.BLOCK_REPEATED,
    Status.TRAILING_BYTES,
})


def status_text(status: int) -> str:
    """Returns the library's description of a status."""
    text: bytes = lib.qrx_status_text(status)
    return text.decode("utf-8", "replace")


def damage_of(event: Event) -> Damage:
    """Copies an event, which is valid only during the callback."""
    what = Status(event.what)
    block = None if event.block == NO_BLOCK else int(event.block)
    message = status_text(what)
    if what in DAMAGE:
        places = [] if block is None else [f"block {block}"]
        if block is None or event.offset != 0:  # a missing block has no place
            places.append(f"at byte {event.offset} of the file")
        message += f" ({', '.join(places)})"
    return Damage(what, block, event.offset, event.wanted, event.got, message,
                  event.system_error)


def block_error(status: Status, block: int, offset: int, name: FileName) -> BaseException:
    """Returns the exception for a fault in a block whose payload is at `offset` of the file."""
    event = Event(what=status, block=block, offset=offset)
    return make_error(status, [damage_of(event)], name)


def make_error(status: Status, events: Iterable[Damage] = (),
               name: FileName = None) -> BaseException:
    """Returns the exception for the status of a call during which `events` were reported."""
    damage = next((event for event in events if event.what == status), None)
    message = damage.message if damage else status_text(status)
    if status in _SYSTEM_FAILURES:
        number = damage.system_error if damage else 0
        if number:
            return OSError(number, os.strerror(number), name)
        return OSError(errno.EIO, message, name)
    if status == Status.NO_MEMORY:
        return MemoryError(message)
    if status == Status.BAD_ARGUMENT:
        return ValueError(message)
    if name is not None:
        message = f"{os.fsdecode(name)}: {message}"
    return _CLASSES.get(status, QrxError)(message, status, damage)
