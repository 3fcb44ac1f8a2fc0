#!/usr/bin/env python3
"""Prints the mean of each numeric column of a .csv.qrx file, for each value of COLUMN.

Usage: dask_csv.py FILE COLUMN
"""

import sys

from distributed import Client

import qrx.dask


def main() -> None:
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    name, column = sys.argv[1:]
    with Client(dashboard_address=None):  # or Client("scheduler:8786")
        rows = qrx.dask.read_csv(name)
        numeric = rows.select_dtypes("number").columns
        print(rows.groupby(column)[[key for key in numeric if key != column]].mean().compute())


if __name__ == "__main__":
    main()
