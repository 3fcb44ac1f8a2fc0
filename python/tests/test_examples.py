"""The programs in examples/python."""

import io
import os
import subprocess
import sys
import tarfile
import unittest

import qrx
from common import MIB, InFolder, image, text

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

    def test_usage(self) -> None:
        for name in sorted(os.listdir(EXAMPLES)):
            if name.endswith(".py"):
                result = self.run_example(name)
                self.assertEqual(result.returncode, 1)
                self.assertIn(b"Usage: " + name.encode(), result.stderr)


if __name__ == "__main__":
    unittest.main()
