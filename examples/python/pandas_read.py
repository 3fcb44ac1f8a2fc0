#!/usr/bin/env python3
"""Counts values and distinct values in each column of a compressed CSV file, piece by piece.

Usage: pandas_read.py FILE.csv.qrx|URL [RESULT.csv.qrx|URL]

Needs pandas and fsspec.  URLs are those of fsspec, such as s3://BUCKET/FILE.csv.qrx.
"""

import sys


def main() -> None:
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    import fsspec
    import pandas

    import qrx.fsspec  # registers .qrx with fsspec

    values: "dict[str, set[object]]" = {}
    counts: "dict[str, int]" = {}
    try:
        # The empty name in qrx://:: is that of the only file in the archive.
        with pandas.read_csv("qrx://::" + sys.argv[1], chunksize=100_000) as pieces:
            for piece in pieces:
                for column in piece:
                    counts[column] = counts.get(column, 0) + int(piece[column].count())
                    values.setdefault(column, set()).update(piece[column].dropna())
    except qrx.QrxError as error:
        sys.exit(str(error))
    table = pandas.DataFrame({"column": list(counts), "count": list(counts.values()),
                              "distinct": [len(values[column]) for column in counts]})
    if len(sys.argv) == 2:
        table.to_csv(sys.stdout, index=False)
        return
    with fsspec.open(sys.argv[2], "wt", compression="infer", newline="") as result:
        table.to_csv(result, index=False)


if __name__ == "__main__":
    main()
