"""Compress, decompress and read .qrx files with a Dask cluster.

    compress(), decompress()    code one file on all workers
    read_bytes()                returns the blocks of a file as delayed objects
    read_text(), read_csv()     return a bag of its lines, a data frame of its rows

Files are paths or fsspec URLs, such as "s3://bucket/big.csv".  The workers need access to the
source, this package and its library.
"""

from __future__ import annotations

import contextlib
import errno
import os
import time
from collections import deque
from functools import partial
from itertools import islice
from typing import Any, Callable, Deque, Dict, Iterable, List, Mapping, Optional, Tuple, Union

import dask
import distributed
from dask.base import tokenize
from distributed import Client, Future
from distributed.worker import thread_state
from fsspec.core import url_to_fs

from . import _records, _tasks
from ._container import crc32_combine, header, seal
from ._errors import make_error
from ._library import Status
from ._params import FILTERS, SAMPLE_SIZE, filter_name, make_params, settle, use_type
from ._reader import BlockInfo, Info
from ._memory import View
from ._targets import Target, result_of
from ._tasks import Location, Params
from .fsspec import open_original

__all__ = ["compress", "decompress", "read_bytes", "read_csv", "read_text"]

Url = Union[str, "os.PathLike[str]"]
Options = Optional[Mapping[str, Any]]

_MIB = 1 << 20
_MAX_TASK_SIZE = 128 * _MIB  # of the original, by default
_TASKS_PER_THREAD = 4  # at least, if there are enough blocks: no worker is idle until near the end
_MAX_TASKS = 2000  # unless that exceeds _MAX_TASK_SIZE; the scheduler takes about 1 ms for each
_WINDOW = 4  # tasks per thread that are submitted before the oldest of them is finished
_MAX_BLOCK_MIB = 2047
_ACCESS_TIMES = {"time", "atime", "accessTime", "last_accessed_on"}  # change when a file is read
_WHOLE_FILE_OPTIONS = {"chunksize", "comment", "compression", "dialect", "index_col", "iterator",
                       "lineterminator", "nrows", "skipfooter", "skiprows", "squeeze"}


# ------------------------------------------------------------------------------------ whole files


def compress(source: Url, target: Url, *, cell: Union[str, int] = "33", block_mb: int = 0,
             task_mb: Optional[int] = None, client: Optional[Client] = None,
             source_options: Options = None, target_options: Options = None) -> None:
    """Compresses a file with the workers of a cluster.

    The result is the same, byte for byte, as that of the program qrx on one machine.  It gets its
    name when it is complete, and then replaces an existing file.  A failure raises an exception and
    leaves an existing target unchanged.  Tasks of lost workers are repeated.

    source, target: URLs or paths.  If all workers see the target under the same path, they write
        to it directly; otherwise all results pass through the client.
    cell: method and level, two digits.
    block_mb: block size in MiB, 1 to 2047; 0: 32.  Capped at 16 at levels 4 to 7.
    task_mb: MiB of the original per task, rounded up to whole blocks.  By default, at most 128, and
        less if there would be fewer than 4 tasks per worker thread.
    client: a distributed.Client; by default the current one.
    source_options, target_options: options of the file systems, as for fsspec.open().
    """
    client = _client(client)
    input, output = _locate_both(source, source_options, target, target_options)
    before = _version(input)
    size = int(before["size"])
    params = _settled_params(cell, block_mb, input, size)
    block_size = params["block_mib"] * _MIB
    step = _task_blocks(client, -(-size // block_size), block_size, task_mb) * block_size
    ranges = ((start, min(start + step, size)) for start in range(0, max(size, 1), step))
    with Target(client, output, input) as file:
        file.write(header(params, size))
        crc = _run_all(client, file, ((_tasks.code, input, params, *each) for each in ranges))
        file.write(seal(crc))
        _check_version(input, before)
        file.complete()


def decompress(source: Url, target: Url, *, task_mb: Optional[int] = None,
               client: Optional[Client] = None, source_options: Options = None,
               target_options: Options = None) -> None:
    """Decompresses a file with the workers of a cluster, and checks it.

    Arguments, target and failures are as for compress().  Damage raises an exception, as in
    qrx.decompress().
    """
    client = _client(client)
    input, output = _locate_both(source, source_options, target, target_options)
    before = _version(input)
    info, blocks = _index(input)
    step = _task_blocks(client, len(blocks), info.block_size, task_mb)
    params = _params_of(info)
    ranges = (blocks[first:first + step] for first in range(0, len(blocks), step))
    with Target(client, output, input) as file:
        if file.is_shared:  # the index has the offset of each block
            crc = _run_all(client, file, ((_tasks.restore, input, params, each, file.path)
                                          for each in ranges), writes=True)
        else:
            crc = _run_all(client, file, ((_tasks.decode, input, params, each)
                                          for each in ranges))
        if info.sealed and crc != info.seal:
            raise make_error(Status.CHECKSUM_MISMATCH, (), input.path)
        _check_version(input, before)
        file.complete()


def _run_all(client: Client, file: Target, tasks: Iterable[Tuple[Any, ...]],
             writes: bool = False) -> int:
    """Runs tasks, and appends their results in order.  Returns the CRC-32 of the original.

    Submits a limited number of tasks at a time, which bounds the memory of the scheduler and of the
    results on the workers.

    writes: whether the tasks write to the file themselves and return only a summary.
    """
    crc = 0
    remaining = iter(tasks)
    waiting: Deque[Tuple[Future, Future]] = deque()
    window = _Window(client)
    try:
        while True:
            for task in islice(remaining, max(window.size() - len(waiting), 0)):
                part = client.submit(*task, pure=False)
                waiting.append((part, part if writes else client.submit(
                    _tasks.get_summary, part, pure=False, priority=1)))
            if not waiting:
                return crc
            part, known = waiting[0]  # stays there if it fails, to be cancelled
            summary = result_of(known.result)
            if writes:
                file.advance(summary.size)
            else:
                file.append(part, summary, window.size())
            crc = crc32_combine(crc, summary.crc, summary.original_size)
            waiting.popleft()
    finally:
        with contextlib.suppress(Exception):  # the scheduler may be lost
            client.cancel([future for pair in waiting for future in pair])
        waiting.clear()


class _Window:
    """Maximum number of submitted tasks, in proportion to the number of worker threads."""

    _PERIOD = 5.0  # seconds between queries of the number of threads

    def __init__(self, client: Client) -> None:
        self._client = client
        self._size = 0
        self._end = 0.0

    def size(self) -> int:
        if time.monotonic() >= self._end:
            self._size = _WINDOW * max(_thread_count(self._client), 1)
            self._end = time.monotonic() + self._PERIOD
        return self._size


def _client(client: Optional[Client]) -> Client:
    if client is None and getattr(thread_state, "key", None) is not None:
        raise ValueError("called by a task, which would wait for other tasks: use "
                         "distributed.worker_client(), and pass client=")
    if client is None:
        try:
            client = distributed.get_client()
        except ValueError:
            raise ValueError("there is no Dask client: create a distributed.Client, or pass "
                             "client=") from None
    if client.asynchronous:
        raise ValueError("an asynchronous client is not supported")
    if client.status == "closed":
        raise ValueError("the client is closed")
    return client


def _thread_count(client: Client) -> int:
    return sum(client.nthreads().values())


def _task_blocks(client: Client, blocks: int, block_size: int, task_mb: Optional[int]) -> int:
    """Returns the number of blocks per task."""
    if task_mb is not None:
        if task_mb < 1:
            raise ValueError(f"task_mb is out of range: {task_mb}")
        return -(-task_mb * _MIB // block_size)
    threads = max(_thread_count(client), 1)
    size = max(blocks // (_TASKS_PER_THREAD * threads), blocks // _MAX_TASKS, 1)
    return min(size, max(_MAX_TASK_SIZE // block_size, 1))


def _locate(url: Url, options: Options) -> Location:
    name = os.fspath(url)
    if not isinstance(name, str):
        raise TypeError(f"a file is a URL or a path of characters, not {name!r}")
    return Location(*url_to_fs(name, **(options or {})), name)


def _locate_both(source: Url, source_options: Options, target: Url,
                 target_options: Options) -> Tuple[Location, Location]:
    first, second = _locate(source, source_options), _locate(target, target_options)
    if second.url.endswith(("/", os.sep)):  # which fsspec removes
        raise IsADirectoryError(errno.EISDIR, os.strerror(errno.EISDIR), second.url)
    same = type(first.fs) is type(second.fs) and first.path == second.path
    if first.is_local and second.is_local:
        with contextlib.suppress(OSError):  # such as a target that doesn't exist
            same = os.path.samefile(first.path, second.path)
    if same:
        raise ValueError(f"source and target are the same file: {first.path}")
    return first, second


def _version(location: Location) -> Dict[str, Any]:
    """Returns the size of a file, and the attributes that show a change of its content."""
    location.fs.invalidate_cache()
    info = location.fs.info(location.path)
    size = info["size"]
    if info["type"] != "file" or size is None or size == 0 and _has_content(location):
        raise OSError(f"{location.path or location.url}: not a file of known size")
    if location.is_local:  # times and permissions may change without the content
        return {key: info[key] for key in ("size", "mtime", "ino")}
    return {key: value for key, value in info.items() if key not in _ACCESS_TIMES}


def _has_content(location: Location) -> bool:
    """True if a local file isn't empty.  Files in /proc report size 0."""
    if not location.is_local:
        return False
    with open(location.path, "rb") as file:
        return bool(file.read(1))


def _check_version(location: Location, before: Dict[str, Any]) -> None:
    if _version(location) != before:
        raise OSError(f"{location.path}: the file changed while it was read")


def _settled_params(cell: Union[str, int], block_mb: int, input: Location,
                    size: int) -> Dict[str, Any]:
    """Returns the parameters that qrx would choose, by the first MiB of a file and its name."""
    digits = str(cell)
    if len(digits) != 2 or not digits.isdecimal():
        raise ValueError(f"a cell has two digits, method and level, not {cell!r}")
    params = settle(make_params(int(digits[0]), int(digits[1]), 0, None, 0, 0, block_mb))
    sample = input.read(0, min(size, SAMPLE_SIZE)) if size else b""
    with View(sample) as view:
        use_type(params, view.address, view.size, input.path)
    return {"method": params.method, "level": params.level, "context_bits": params.context_bits,
            "filter": filter_name(params.filter), "hash_bits": params.hash_bits,
            "chain_bits": params.chain_bits, "block_mib": params.block_mib}


def _index(location: Location) -> Tuple[Info, List[BlockInfo]]:
    """Reads the header and the record heads of a file.  Raises the first fault of the layout."""
    with open_original(location.open()) as file:
        info = file.info
        if info.layout != Status.OK:
            raise make_error(info.layout, (), location.path)
        return info, list(file.blocks())


def _params_of(info: Info) -> Params:
    """Returns the parameters that a decoder needs, in the ranges of an encoder's."""
    return {"method": info.method, "level": _decoder_level(info.level),
            "context_bits": info.context_bits if info.method == 4 else 0,
            "filter": info.filter if info.filter in FILTERS else None,
            "block_mib": min(info.block_size // _MIB, _MAX_BLOCK_MIB)}


def _decoder_level(level: int) -> int:
    """Returns a level of the same decoder that allows blocks of any size."""
    return 3 if 4 <= level <= 7 else level


# --------------------------------------------------------------------------- blocks, lines, rows


def read_bytes(source: Url, delimiter: Optional[bytes] = None, *,
               storage_options: Options = None) -> List[Any]:
    """Returns the blocks of a file as delayed bytes, which any Dask scheduler can compute.

    Their concatenation is the original.  Decoding a damaged block raises CorruptError.  Blocks have
    no checksums, so damage can go undetected; qrx.test() checks the whole file.

    source: a path or URL.
    delimiter: ends a record.  Each result then consists of whole records: it ends with the record
        that contains the first byte of the following block, and starts where the previous one ends.
        Each record is in exactly one result, even if it spans several blocks; a result is empty if
        its block is inside one record.
    storage_options: options of the file system, as for fsspec.open().
    """
    if delimiter is not None and len(delimiter) == 0:
        raise ValueError("the delimiter is empty")
    location = _locate(source, storage_options)
    token = tokenize(location.fs, location.path, _version(location))
    info, index = _index(location)
    params = _params_of(info)
    blocks = [_delayed("qrx-block", (token, block.index),
                       partial(_records.load, location, params, block)) for block in index]
    if delimiter is None:
        return blocks
    heads = [_delayed("qrx-head", (token, delimiter, number),
                      partial(_records.before_first_cut, delimiter=delimiter), block)
             for number, block in enumerate(blocks)]
    return [_delayed("qrx-records", (token, delimiter, number),
                     partial(_records.whole_records, location, number, delimiter), block, following)
            for number, (block, following) in enumerate(zip(blocks, [*heads[1:], b""]))]


def _delayed(name: str, parts: Tuple[Any, ...], function: Callable[..., Any],
             *arguments: Any) -> Any:
    """Returns a delayed call whose key consists of a name and the token of `parts`."""
    call = dask.delayed(function, name=name, pure=True)
    return call(*arguments, dask_key_name=f"{name}-{tokenize(*parts)}")


def read_text(source: Url, encoding: str = "utf-8", errors: str = "strict", *,
              storage_options: Options = None) -> Any:
    """Returns a dask.bag of the lines of a file, one partition per block.  Lines keep their "\\n".

    source, storage_options: as for read_bytes().
    encoding: one in which "\\n" is the byte 0A and no other character contains it, such as UTF-8.
    errors: as for bytes.decode().
    """
    import dask.bag

    _check_encoding(encoding)
    parts = read_bytes(source, b"\n", storage_options=storage_options)
    lines = partial(_records.lines, encoding=encoding, errors=errors)
    return dask.bag.from_delayed([_delayed("qrx-lines", (part.key, encoding, errors), lines, part)
                                  for part in parts])


def read_csv(source: Url, *, sample_size: int = 256 << 10, storage_options: Options = None,
             **csv_options: Any) -> Any:
    """Returns a dask.dataframe of the rows of a CSV file, one partition per block.

    pandas infers the column types from the first rows.  If a later row needs another type, the
    computation raises a ValueError that names the column; then pass dtype=.  Rows end with "\\n",
    which fields must not contain.

    source, storage_options: as for read_bytes().
    sample_size: bytes at the start of the original from which names and types are inferred.
    csv_options: arguments of pandas.read_csv() that apply to each row, such as sep, names, usecols,
        dtype and parse_dates; and index_col=False.
    """
    import dask.dataframe

    _check_csv_options(csv_options)
    if sample_size < 1:
        raise ValueError(f"sample_size is out of range: {sample_size}")
    location = _locate(source, storage_options)
    with open_original(location.open()) as file:
        sample = file.read(sample_size)
        sample += file.readline()
    header_line = _header_line(sample, csv_options)
    meta = _records.first_rows(sample, csv_options)
    surplus = _records.surplus_fields(sample, len(header_line), csv_options) or 0
    rows = partial(_records.rows, header=header_line, surplus=surplus, meta=meta,
                   csv_options=csv_options)
    parts = read_bytes(source, b"\n", storage_options=storage_options)
    token = tokenize(header_line, surplus, meta, csv_options)
    return dask.dataframe.from_delayed(
        [_delayed("qrx-rows", (part.key, token), partial(rows, is_first=number == 0), part)
         for number, part in enumerate(parts)], meta=meta, verify_meta=False)


def _check_csv_options(csv_options: Mapping[str, Any]) -> None:
    refused = {name for name, value in csv_options.items()
               if name in _WHOLE_FILE_OPTIONS and not (name == "index_col" and value is False)}
    if refused:
        raise ValueError(f"not supported for parts of a file: {', '.join(sorted(refused))}")
    if csv_options.get("header", "infer") not in ("infer", 0, None):
        raise ValueError("the header must be the first line: header=0 or None")
    _check_encoding(csv_options.get("encoding") or "utf-8")


def _check_encoding(encoding: str) -> None:
    if "x\n".encode(encoding)[-2:] != b"x\n":
        raise ValueError(f"line ends are not single bytes in {encoding}")


def _header_line(sample: bytes, csv_options: Mapping[str, Any]) -> bytes:
    """Returns the line that precedes the rows of each part; empty if the file has no header."""
    header = csv_options.get("header", "infer")
    if header is None or (header == "infer" and csv_options.get("names") is not None):
        return b""
    line = sample[:sample.find(b"\n") + 1]
    if line and (not line.strip() or b"\r" in line.rstrip(b"\r\n")):
        raise ValueError("the first line must be the header; line ends are \\n or \\r\\n")
    return line
