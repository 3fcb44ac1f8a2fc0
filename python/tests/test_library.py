"""The search for the shared library, and statuses."""

import os
import pickle
import subprocess
import sys
import unittest

import qrx
from common import InFolder
from qrx import _errors, _library


class Library(InFolder):
    def import_with(self, library: str) -> str:
        result = subprocess.run([sys.executable, "-c", "import qrx"], capture_output=True,
                                text=True, env={**os.environ, "QRX_LIBRARY": library})
        self.assertNotEqual(result.returncode, 0)
        return result.stderr.splitlines()[-1]

    def test_missing_file(self) -> None:
        message = self.import_with("/missing/libqrx.so.0")
        self.assertRegex(message, "ImportError: the library named by QRX_LIBRARY .*/missing/")

    def test_other_library(self) -> None:
        import ctypes.util
        other = ctypes.util.find_library("m") or ctypes.util.find_library("c")
        self.assertRegex(self.import_with(other), "ImportError: .* has no function qrx_")

    def test_no_library(self) -> None:
        environment = {name: value for name, value in os.environ.items()
                       if name not in ("QRX_LIBRARY", "LD_LIBRARY_PATH")}
        result = subprocess.run([sys.executable, "-c", "import qrx"], capture_output=True,
                                text=True, env=environment)
        if result.returncode == 0:
            self.skipTest("the library is installed on this machine")
        self.assertIn("ImportError: the shared library qrx was not found; ", result.stderr)
        self.assertIn("QRX_LIBRARY", result.stderr)

    def test_library_in_the_library_path(self) -> None:
        named = os.environ.get("QRX_LIBRARY")
        if not named:
            self.skipTest("QRX_LIBRARY is not set")
        os.symlink(os.path.abspath(named), self.path("libqrx.so.0"))
        environment = {**os.environ, "LD_LIBRARY_PATH": self.folder}
        del environment["QRX_LIBRARY"]
        subprocess.run([sys.executable, "-c", "import qrx"], check=True, env=environment)

    def test_versions(self) -> None:
        self.assertEqual(qrx.library_version().split(".")[0], qrx.__version__.split(".")[0])
        self.assertEqual(qrx.__version__, ".".join(map(str, (
            _library.VERSION_MAJOR, _library.VERSION_MINOR, _library.VERSION_PATCH))))

    def test_public_names(self) -> None:
        for name in qrx.__all__:
            self.assertTrue(hasattr(qrx, name), name)
        for name in ("QrxFile", "compress", "open", "Codec", "Info"):
            self.assertTrue(getattr(qrx, name).__doc__)


class Errors(unittest.TestCase):
    def test_every_status_has_an_exception(self) -> None:
        kinds = {
            "BAD_ARGUMENT": ValueError, "NO_MEMORY": MemoryError, "NO_THREAD": qrx.QrxError,
            "OPEN_FAILED": OSError, "READ_FAILED": OSError, "WRITE_FAILED": OSError,
            "NOT_QRX": qrx.NotQrxError, "TRUNCATED": qrx.TruncatedError,
            "CORRUPT": qrx.CorruptError, "CHECKSUM_MISMATCH": qrx.ChecksumError,
            "OVER_LIMIT": qrx.OverLimitError, "CANCELLED": qrx.CancelledError,
            "BUFFER_TOO_SMALL": qrx.QrxError, "BLOCK_SHORT": qrx.CorruptError,
            "INEXACT_END": qrx.CorruptError, "BLOCK_MISSING": qrx.CorruptError,
            "BLOCK_REPEATED": qrx.CorruptError, "TRAILING_BYTES": qrx.CorruptError,
        }
        self.assertEqual(set(kinds) | {"OK"}, {status.name for status in qrx.Status})
        texts = set()
        for name, kind in kinds.items():
            error = _errors.make_error(qrx.Status[name])
            self.assertIs(type(error), kind)
            texts.add(str(error))
        self.assertEqual(len(texts), len(kinds))

    def test_system_errors(self) -> None:
        event = qrx.Damage(qrx.Status.OPEN_FAILED, None, 0, 0, 0, "", 13)
        error = _errors.make_error(qrx.Status.OPEN_FAILED, [event], "name")
        self.assertIsInstance(error, PermissionError)
        self.assertEqual((error.errno, error.filename), (13, "name"))

    def test_status_of_a_newer_library(self) -> None:
        status = qrx.Status(77)
        self.assertEqual((status, status.name), (77, "STATUS_77"))
        self.assertIs(type(_errors.make_error(status)), qrx.QrxError)
        for each in (status, qrx.Status.CORRUPT):
            copy = pickle.loads(pickle.dumps(each))
            self.assertEqual((copy, copy.name, type(copy)), (each, each.name, qrx.Status))


if __name__ == "__main__":
    unittest.main()
