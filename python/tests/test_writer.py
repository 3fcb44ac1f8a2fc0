"""open() for writing."""

import gc
import io
import os
import unittest
import warnings
from unittest import mock

import qrx
from common import MIB, InFolder, image, noise, open_descriptors, text
from qrx import _streams

ORIGINAL = text(3 * MIB + 1000)


class Writing(InFolder):
    def test_same_file_as_compress(self) -> None:
        with qrx.open(self.path(), "wb", block_mib=1, level=1) as file:
            self.assertEqual(file.write(ORIGINAL), len(ORIGINAL))
        with open(self.path(), "rb") as file:
            self.assertEqual(file.read(), image())

    def test_pieces(self) -> None:
        for size in (7, 5000, MIB - 1, MIB, 2 * MIB):
            with qrx.open(self.path(), "w", block_mib=1, level=1) as file:
                original = ORIGINAL if size > 7 else ORIGINAL[:70_000]
                for start in range(0, len(original), size):
                    file.write(memoryview(original)[start:start + size])
                self.assertEqual(file.tell(), len(original))
            with qrx.open(self.path()) as file:
                self.assertEqual(file.read(), original)

    def test_empty(self) -> None:
        qrx.open(self.path(), "wb").close()
        self.assertEqual(qrx.info(self.path()).size, 0)

    def test_options(self) -> None:
        with qrx.open(self.path(), "wb", method=5, level=2, block_mib=2, seal=False, threads=2,
                      filter="x86") as file:
            file.write(ORIGINAL)
        info = qrx.info(self.path())
        self.assertEqual((info.method, info.level, info.block_size, info.sealed, info.filter),
                         (5, 2, 2 * MIB, False, "x86"))
        self.assertEqual(qrx.test(self.path()), [])

    def test_appears_when_closed(self) -> None:
        file = qrx.open(self.path(), "wb")
        file.write(noise(100))
        file.flush()
        self.assertFalse(os.path.exists(self.path()))
        file.close()
        self.assertEqual(os.listdir(self.folder), ["file.qrx"])
        file.close()
        with self.assertRaises(ValueError):
            file.write(b"more")

    def test_properties(self) -> None:
        with qrx.open(self.path(), "wb") as file:
            self.assertTrue(file.writable())
            self.assertFalse(file.readable() or file.seekable())
            self.assertEqual((file.name, file.mode), (self.path(), "wb"))
            for call in (file.read, lambda: file.seek(0)):
                with self.assertRaises(io.UnsupportedOperation):
                    call()
            with self.assertRaises(TypeError):
                file.write("text")

    def test_text(self) -> None:
        with qrx.open(self.path(), "wt", encoding="utf-16", newline="\r\n") as file:
            file.write("\u20ac\nsecond\n")
        with qrx.open(self.path()) as file:
            self.assertEqual(file.read(), "\u20ac\r\nsecond\r\n".encode("utf-16"))

    def test_progress(self) -> None:
        calls = []
        with qrx.open(self.path(), "wb", block_mib=1, level=1,
                      progress=lambda *call: calls.append(call)) as file:
            file.write(ORIGINAL)
        self.assertEqual(calls[-1][0], len(ORIGINAL))
        self.assertEqual(len(calls), 4)

    def test_detached(self) -> None:
        with mock.patch("sys.unraisablehook") as hook:
            file = qrx.open(self.path(), "wb")
            raw = file.detach()
            del file
            gc.collect()
            raw.write(b"detached")
            raw.close()
        hook.assert_not_called()
        with qrx.open(self.path()) as made:
            self.assertEqual(made.read(), b"detached")

    def test_size(self) -> None:
        with qrx.open(self.path(), "wb", size=10) as file:
            file.write(b"0123456789")
        for data in (b"012345678", b"0123456789+"):
            with self.assertRaises(ValueError):
                with qrx.open(self.path("other"), "wb", size=10) as file:
                    file.write(data)
            self.assertFalse(os.path.exists(self.path("other")))
        for size in (-1, 2**64 - 1, 2**64 + 5):
            with self.assertRaisesRegex(ValueError, "size is out of range"):
                qrx.open(self.path("other"), "wb", size=size)


class Discarding(InFolder):
    """Nothing appears under the name, and an existing file is untouched."""

    def setUp(self) -> None:
        super().setUp()
        self.path(content=b"old")

    def tearDown(self) -> None:
        self.assertEqual(os.listdir(self.folder), ["file.qrx"])
        with open(self.path(), "rb") as file:
            self.assertEqual(file.read(), b"old")

    def test_exception_in_with_block(self) -> None:
        for mode, data in (("wb", ORIGINAL), ("wt", "text")):
            with self.assertRaises(KeyError):
                with qrx.open(self.path(), mode) as file:
                    file.write(data)
                    raise KeyError("unrelated")
            self.assertTrue(file.closed)

    def test_discard(self) -> None:
        file = qrx.open(self.path(), "wb")
        file.write(ORIGINAL)
        file.discard()
        file.discard()
        self.assertTrue(file.closed)

    def test_collected(self) -> None:
        for mode, data in (("wb", ORIGINAL), ("wt", "text")):
            with warnings.catch_warnings(record=True) as caught:
                warnings.simplefilter("always")
                qrx.open(self.path(), mode).write(data)
                gc.collect()
            self.assertEqual({warning.category for warning in caught}, {ResourceWarning})

    def test_exception_in_progress(self) -> None:
        def progress(done: int, total: int) -> None:
            raise LookupError("from progress")

        for threads in (0, 2):
            with self.assertRaises(LookupError):
                with qrx.open(self.path(), "wb", block_mib=1, level=1, threads=threads,
                              progress=progress) as file:
                    file.write(ORIGINAL)
            file = qrx.open(self.path(), "wb", block_mib=1, level=1, progress=progress)
            for call in (lambda: file.write(ORIGINAL), lambda: file.write(b"more" * MIB),
                         file.close):
                with self.assertRaises(LookupError):
                    call()
            self.assertTrue(file.closed)
            file.close()

    def test_exception_in_progress_of_close(self) -> None:
        def progress(done: int, total: int) -> None:
            raise LookupError("from progress")

        file = qrx.open(self.path(), "wb", progress=progress)
        file.write(b"little")
        with self.assertRaises(LookupError):
            file.close()
        self.assertTrue(file.closed)

    def test_unknown_encoding(self) -> None:
        with self.assertRaises(LookupError):
            qrx.open(self.path(), "wt", encoding="no such encoding")

    def test_bad_parameters(self) -> None:
        for options in ({"level": 10}, {"method": 0}, {"threads": 1000}, {"filter": "none"}):
            with self.assertRaises(ValueError):
                qrx.open(self.path(), "wb", **options)

    def test_memory_limit(self) -> None:
        with self.assertRaises(qrx.OverLimitError):
            with qrx.open(self.path(), "wb", memory_limit=1000) as file:
                file.write(ORIGINAL)

    def test_names_through_file_objects(self) -> None:
        with mock.patch.object(_streams, "names_pass_through", False):
            with self.assertRaises(KeyError):
                with qrx.open(self.path(), "wb") as file:
                    file.write(ORIGINAL)
                    raise KeyError
            qrx.open(self.path(), "wb").discard()
            with self.assertRaises(ValueError):
                with qrx.open(self.path(), "wb", size=10) as file:
                    file.write(b"1")


class Paths(InFolder):
    def test_missing_folder(self) -> None:
        for pass_through in (True, False):
            with mock.patch.object(_streams, "names_pass_through", pass_through):
                with self.assertRaises(FileNotFoundError):
                    qrx.open(self.path("missing/file.qrx"), "wb")

    def test_names_through_file_objects(self) -> None:
        """As on Windows."""
        before = open_descriptors()
        with mock.patch.object(_streams, "names_pass_through", False):
            with qrx.open(self.path(), "wb", block_mib=1, level=1) as file:
                file.write(ORIGINAL)
                self.assertFalse(os.path.exists(self.path()))
        self.assertEqual(os.listdir(self.folder), ["file.qrx"])
        self.assertEqual(open_descriptors(), before)
        with open(self.path(), "rb") as file:
            self.assertEqual(file.read(), image())


class Pipe(io.RawIOBase):
    """Can't seek, and takes few bytes at a time."""

    def __init__(self) -> None:
        super().__init__()
        self.content = bytearray()

    def writable(self) -> bool:
        return True

    def write(self, data: object) -> int:
        taken = bytes(data)[:100_000]
        self.content += taken
        return len(taken)


class Sinks(unittest.TestCase):
    def test_seekable(self) -> None:
        sink = io.BytesIO()
        sink.write(b"prefix")
        with qrx.open(sink, "wb", block_mib=1, level=1) as file:
            file.write(ORIGINAL)
        self.assertFalse(sink.closed)
        sink.write(b"suffix")
        self.assertEqual(sink.getvalue(), b"prefix" + image() + b"suffix")

    def test_pipe_needs_the_size(self) -> None:
        with self.assertRaisesRegex(ValueError, "size"):
            qrx.open(Pipe(), "wb")

    def test_pipe(self) -> None:
        for threads in (0, 2):
            pipe = Pipe()
            with qrx.open(pipe, "wb", size=len(ORIGINAL), block_mib=1, level=1,
                          threads=threads) as file:
                file.write(ORIGINAL)
            self.assertEqual(pipe.content, image())

    def test_pipe_of_the_system(self) -> None:
        reading, writing = os.pipe()
        with open(reading, "rb") as source, open(writing, "wb") as sink:
            with qrx.open(sink, "wb", size=1000) as file:
                file.write(text(1000))
            sink.close()
            self.assertEqual(qrx.decompress(source.read()), text(1000))

    def test_wrong_size(self) -> None:
        for data in (b"123", b"12345"):
            with self.assertRaises(ValueError):
                with qrx.open(Pipe(), "wb", size=4) as file:
                    file.write(data)

    def test_exception_in_write(self) -> None:
        class Failing(io.BytesIO):
            def write(self, data: bytes) -> int:
                raise error

        for error in (OSError(28, "full"), ZeroDivisionError(), KeyboardInterrupt()):
            with self.assertRaises(type(error)) as caught:
                with qrx.open(Failing(), "wb", block_mib=1, level=1) as file:
                    file.write(ORIGINAL)
            self.assertIs(caught.exception, error)

    def test_appending_file(self) -> None:
        import tempfile
        with tempfile.NamedTemporaryFile() as folder_entry:
            folder_entry.write(b"prefix")
            folder_entry.flush()
            with open(folder_entry.name, "ab") as sink:
                with self.assertRaisesRegex(ValueError, "size"):
                    qrx.open(sink, "wb")
                with qrx.open(sink, "wb", size=1000) as file:
                    file.write(text(1000))
            with open(folder_entry.name, "rb") as source:
                source.seek(6)
                self.assertEqual(qrx.open(source).read(), text(1000))

    def test_wrong_counts(self) -> None:
        class Wrong(io.BytesIO):
            def write(self, data: bytes) -> int:
                return count

        for count in (-1, 0, 2**20):
            file = qrx.open(Wrong(), "wb")
            file.write(noise(1000))
            with self.assertRaisesRegex(OSError, r"write\(\) of the file object"):
                file.close()

    def test_sink_may_keep_what_it_gets(self) -> None:
        class Keeping:
            def __init__(self) -> None:
                self.pieces = []

            def write(self, data: bytes) -> None:
                self.pieces.append(data)

        sink = Keeping()
        with qrx.open(sink, "wb", size=len(ORIGINAL), block_mib=1, level=1) as file:
            file.write(ORIGINAL)
        self.assertEqual(b"".join(sink.pieces), image())


if __name__ == "__main__":
    unittest.main()
