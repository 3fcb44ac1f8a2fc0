"""Extracts whole records from blocks, whose boundaries can be in the middle of a record.

The records of block i extend from the first cut in the block (in block 0, from its start) to the
first cut in a later block.  A cut is the end of a delimiter.  It depends only on the bytes of its
own block, so the two tasks that share a boundary find the same cut.
"""

from __future__ import annotations

import contextlib
import io
import re
from typing import Any, List, Mapping, Optional

from ._reader import BlockInfo
from ._tasks import Location, Params, decode
from .fsspec import open_original

_FIRST_ROW = re.compile(rb"\s*[^\n]*")  # with the blank lines before it


def load(source: Location, params: Params, block: BlockInfo) -> bytes:
    """Decompresses a block."""
    return decode(source, params, [block])[0][0]


def first_cut(block: bytes, delimiter: bytes) -> Optional[int]:
    """Returns the end of the first delimiter in a block, or None if there is none.

    Skips a delimiter if an earlier one, which may start in the preceding block, could overlap it.
    In "\\n\\n\\n", whether the first or the last two bytes are the delimiter "\\n\\n" depends on
    the bytes before them.
    """
    length = len(delimiter)
    free_from = length - 1  # no delimiter is known to start less than this before it
    start = block.find(delimiter)
    while start >= 0:
        if start >= free_from:
            return start + length
        free_from = max(free_from, start + length)
        start = block.find(delimiter, start + 1)
    return None


def before_first_cut(block: bytes, delimiter: bytes) -> Optional[bytes]:
    """Returns the part of a block before its first cut, or None if it has no cut."""
    cut = first_cut(block, delimiter)
    return None if cut is None else block[:cut]


def whole_records(source: Location, number: int, delimiter: bytes, block: bytes,
                  following: Optional[bytes]) -> bytes:
    """Returns the records of a block.

    number: of the block.
    following: before_first_cut() of the next block; empty for the last block.
    """
    cut = 0 if number == 0 else first_cut(block, delimiter)
    if cut is None:
        return b""
    start = memoryview(block)[cut:]
    if following is None:
        following = _read_to_cut(source, number + 1, delimiter)
    return b"".join((start, following))


def _read_to_cut(source: Location, number: int, delimiter: bytes) -> bytes:
    """Returns the bytes from the start of a block to the next cut, or to the end of the file."""
    pieces = []
    with open_original(source.open()) as file:
        file.seek(file.raw.block_info(number).original_offset)
        while block := file.read(file.info.block_size):
            cut = first_cut(block, delimiter)
            pieces.append(block[:cut])
            if cut is not None:
                break
    return b"".join(pieces)


# ---------------------------------------------------------------------------------- lines, rows


def lines(data: bytes, encoding: str, errors: str) -> List[str]:
    """Returns the lines of a text, with their line ends."""
    return list(io.StringIO(data.decode(encoding, errors), newline="\n"))


def first_rows(sample: bytes, csv_options: Mapping[str, Any]) -> Any:
    """Returns an empty data frame with the columns of a sample, which is the start of a file."""
    import pandas
    from dask.dataframe.utils import clear_known_categories

    # The parts may have different categories.
    return clear_known_categories(pandas.read_csv(io.BytesIO(sample), **csv_options).iloc[:0])


def surplus_fields(content: bytes, header_size: int,
                   csv_options: Mapping[str, Any]) -> Optional[int]:
    """Returns how many more fields than the header the first row of a CSV file has.

    None: there is no row.

    pandas accepts this number in all rows, and takes the first fields as an index, or drops the
    last ones with index_col=False.  With usecols= too, it accepts any number: this returns 0.
    """
    import pandas

    if csv_options.get("index_col") is False and csv_options.get("usecols") is not None:
        return 0
    row = _FIRST_ROW.match(content, header_size)
    assert row is not None
    frame = pandas.read_csv(io.BytesIO(content[:row.end()]), **{**csv_options, "index_col": None})
    if len(frame) == 0:
        return None
    return 0 if isinstance(frame.index, pandas.RangeIndex) else frame.index.nlevels


def rows(data: bytes, is_first: bool, header: bytes, surplus: int, meta: Any,
         csv_options: Mapping[str, Any]) -> Any:
    """Parses records of a CSV file into a data frame.

    is_first: whether they are at the start of the file, and so include the header, if any.
    header: the header line of the file; empty if it has none.
    surplus: surplus_fields() of the file, which has rows.
    meta: an empty data frame with the expected columns.
    """
    import pandas

    content = data if is_first else header + data
    if not content:
        return meta
    found = surplus_fields(content, len(header), csv_options)
    if found is not None and found != surplus:
        raise ValueError(f"a row has {found} more fields than the header, but the first row of the "
                         f"file has {surplus} more: to ignore them, pass usecols= and "
                         "index_col=False")
    frame = pandas.read_csv(io.BytesIO(content), **csv_options)
    if list(frame.columns) != list(meta.columns):
        raise ValueError(f"the columns are {list(frame.columns)}, not {list(meta.columns)}")
    for name, expected in meta.dtypes.items():
        if str(frame.dtypes[name]) != str(expected):
            frame[name] = _converted(frame[name], expected)
    return frame


def _converted(column: Any, expected: Any) -> Any:
    """Returns a column with another type, if that loses nothing."""
    is_widened = expected.kind == "f" and column.dtype.kind in "iu"
    with contextlib.suppress(ValueError, TypeError):
        if is_widened or column.isna().all():
            return column.astype(expected)
    raise ValueError(f"column {column.name!r} needs type {column.dtype}, but its first rows have "
                     f"type {expected}: pass dtype= or parse_dates= for it")
