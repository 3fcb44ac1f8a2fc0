"""Parameters of compression, from keyword arguments to the structure of the library and back."""

from __future__ import annotations

import ctypes
import os
from typing import Dict, Optional, Union

from ._calls import in_range
from ._errors import make_error
from ._library import FILTER_DELTA, FILTER_NONE, FILTER_X86, Params, Status, lib

Name = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]

FILTERS: Dict[Optional[str], int] = {None: FILTER_NONE, "x86": FILTER_X86, "delta": FILTER_DELTA}
_FILTER_NAMES = {number: name for name, number in FILTERS.items()}

SAMPLE_SIZE = 1 << 20  # bytes at the start of a file that the detection of its type uses


def make_params(method: int, level: int, context_bits: int, filter: Optional[str],
                hash_bits: int, chain_bits: int, block_mib: int) -> Params:
    """Returns parameters.  Raises ValueError if one is out of range."""
    if filter not in FILTERS:
        raise ValueError(f"filter must be None, 'x86' or 'delta', not {filter!r}")
    numbers = {"method": method, "level": level, "context_bits": context_bits,
               "hash_bits": hash_bits, "chain_bits": chain_bits, "block_mib": block_mib}
    if method == 0:  # the library would use method 3 at level 3
        raise ValueError("method must be 1 to 5")
    params = Params(filter=FILTERS[filter],
                    **{name: in_range(name, value, 2**32) for name, value in numbers.items()})
    settle(params)
    return params


def settle(params: Params) -> Params:
    """Returns a copy with the values in effect.  Raises ValueError if a field is out of range."""
    settled = Params.from_buffer_copy(params)
    status = Status(lib.qrx_params_settle(ctypes.byref(settled)))
    if status == Status.BAD_ARGUMENT:
        fields = ", ".join(f"{field[0]}={getattr(params, field[0])}"
                           for field in params._fields_[1:-1])
        raise ValueError(f"a parameter is out of range: {fields}")
    if status != Status.OK:
        raise make_error(status)
    return settled


def use_type(params: Params, address: Optional[int], size: int, name: Name) -> None:
    """Sets context bits and filter, unless set, by the content and name of a file."""
    chosen = params.filter
    status = lib.qrx_params_for_type(ctypes.byref(params), address, min(size, SAMPLE_SIZE),
                                     os.fsencode(name))
    if status != Status.OK:
        raise make_error(Status(status))
    if chosen != FILTER_NONE:
        params.filter = chosen


def filter_name(number: int) -> Optional[str]:
    """Returns the name of a filter, or None for no filter."""
    return _FILTER_NAMES.get(number, str(number))
