"""The programs in examples/python."""

import io
import os
import subprocess
import sys
import tarfile
import unittest

import qrx
from common import MIB, InFolder, image, need_packages, text

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "examples",
                        "python")


class Examples(InFolder):
    def run_example(self, name: str, *arguments: str) -> "subprocess.CompletedProcess[bytes]":
        return subprocess.run([sys.executable, os.path.join(EXAMPLES, name), *arguments],
                              capture_output=True, timeout=60)

    def output(self, name: str, *arguments: str) -> bytes:
        result = self.run_example(name, *arguments)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout

    def test_range(self) -> None:
        path = self.path(content=image())
        original = text(3 * MIB + 1000)
        self.assertEqual(self.output("range.py", path, str(MIB - 50), "100"),
                         original[MIB - 50:MIB + 50])
        self.assertEqual(self.output("range.py", path, str(3 * MIB), "99999999"),
                         original[3 * MIB:])

    def test_tar_read(self) -> None:
        with qrx.open(self.path("a.tar.qrx"), "wb") as file:
            with tarfile.open(fileobj=file, mode="w") as tar:
                for name in ("one", "two"):
                    entry = tarfile.TarInfo(name)
                    entry.size = 1000
                    tar.addfile(entry, io.BytesIO(text(1000, ord(name[0]))))
        self.assertEqual(self.output("tar_read.py", self.path("a.tar.qrx")).split(),
                         [b"1000", b"one", b"1000", b"two"])
        self.assertEqual(self.output("tar_read.py", self.path("a.tar.qrx"), "two"),
                         text(1000, ord("t")))
        missing = self.run_example("tar_read.py", self.path("a.tar.qrx"), "three")
        self.assertEqual(missing.returncode, 1)
        self.assertIn(b"three", missing.stderr)

    def test_progress(self) -> None:
        source = self.path("source", text(3 * MIB))
        for threads in ("0", "2"):
            result = self.run_example("progress.py", source, self.path(), threads)
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertIn(b"100 %", result.stderr)
            self.assertIn(b"3145728 bytes to ", result.stdout)
            with qrx.open(self.path()) as file:
                self.assertEqual(file.read(), text(3 * MIB))

    def test_pandas_read(self) -> None:
        need_packages("fsspec", "pandas")
        lines = "".join(f"{number},{number % 3}\n" for number in range(1000))
        path = self.path("x.csv.qrx", qrx.compress(b"id,group\n" + lines.encode()))
        for source in (path, "file://" + path):
            self.assertEqual(self.output("pandas_read.py", source).splitlines(),
                             [b"column,count,distinct", b"id,1000,1000", b"group,1000,3"])
        copy = self.path("copy.csv.qrx")
        self.output("pandas_read.py", path, "file://" + copy)
        with qrx.open(copy, "rt") as file:
            self.assertEqual(file.read(), "column,count,distinct\nid,1000,1000\ngroup,1000,3\n")
        damaged = self.run_example("pandas_read.py", self.path("y.csv.qrx", b"id,group\n" * 9))
        self.assertEqual(damaged.returncode, 1)
        self.assertIn(b"not a .qrx file", damaged.stderr)

    def test_dask(self) -> None:
        need_packages("dask.bag", "dask.dataframe", "distributed", "pandas")
        lines = "".join(f"g{number % 3},{number},word word\n" for number in range(90_000))
        path = self.path("x.csv.qrx", qrx.compress(b"group,n,w\n" + lines.encode(), block_mib=1))
        self.assertEqual(self.output("dask_csv.py", path, "group").split(),
                         b"n group g0 44998.5 g1 44999.5 g2 45000.5".split())
        self.assertEqual(self.output("dask_text.py", path, "1").split(), [b"90000", b"word"])

    def test_usage(self) -> None:
        for name in sorted(os.listdir(EXAMPLES)):
            if name.endswith(".py"):
                result = self.run_example(name)
                self.assertEqual(result.returncode, 1)
                self.assertIn(b"Usage: " + name.encode(), result.stderr)


if __name__ == "__main__":
    unittest.main()
