"""open() for reading, info(), blocks() and test()."""

import io
import os
import pathlib
import random
import threading
import unittest
from typing import List
from unittest import mock

import qrx
from common import (
    MIB, InFolder, image, noise, open_descriptors, records, text, with_short_block,
)
from qrx import _streams

SIZE = 3 * MIB + 1000
ORIGINAL = text(SIZE)


class Reading(InFolder):
    def setUp(self) -> None:
        super().setUp()
        self.file = qrx.open(self.path(content=image()))
        self.addCleanup(self.file.close)

    def test_read(self) -> None:
        self.assertEqual(self.file.read(), ORIGINAL)
        self.assertEqual(self.file.read(), b"")
        self.assertEqual(self.file.read(10), b"")
        self.assertEqual(self.file.tell(), SIZE)

    def test_pieces(self) -> None:
        for size in (1, 100, 4096, MIB, 2 * MIB + 1):
            self.file.seek(0)
            count = min(SIZE // size + 1, 2000)
            pieces = [self.file.read(size) for _ in range(count)]
            self.assertEqual(b"".join(pieces), ORIGINAL[:size * count])

    def test_any_range(self) -> None:
        source = random.Random(3)
        for _ in range(200):
            offset, size = source.randrange(SIZE), source.choice((1, 50, 300_000))
            self.assertEqual(self.file.seek(offset), offset)
            self.assertEqual(self.file.read(size), ORIGINAL[offset:offset + size])
            self.assertEqual(self.file.tell(), min(offset + size, SIZE))

    def test_seek(self) -> None:
        self.assertEqual(self.file.seek(-10, io.SEEK_END), SIZE - 10)
        self.assertEqual(self.file.read(), ORIGINAL[-10:])
        self.assertEqual(self.file.seek(5), 5)
        self.assertEqual(self.file.seek(10, io.SEEK_CUR), 15)
        self.assertEqual(self.file.read(3), ORIGINAL[15:18])
        self.assertEqual(self.file.seek(SIZE + 100), SIZE + 100)
        self.assertEqual(self.file.read(), b"")
        with self.assertRaises(ValueError):
            self.file.seek(-1)
        with self.assertRaises(ValueError):
            self.file.seek(0, 9)

    def test_readinto(self) -> None:
        buffer = bytearray(1000)
        self.file.seek(MIB - 500)
        self.assertEqual(self.file.readinto(buffer), 1000)
        self.assertEqual(buffer, ORIGINAL[MIB - 500:MIB + 500])
        with self.assertRaises(TypeError):
            self.file.readinto(b"constant")
        with self.assertRaises(BufferError):
            self.file.raw.readinto(b"constant")

    def test_only_the_buffer_is_written(self) -> None:
        for size in (SIZE, MIB, 2 * MIB, 1000):
            for threads in (0, 2):
                buffer = bytearray(b"+" * (size + 10_000))
                with qrx.open(self.path(), threads=threads) as file:
                    self.assertEqual(file.raw.readinto(memoryview(buffer)[:size]), size)
                self.assertEqual(buffer, ORIGINAL[:size] + b"+" * 10_000)

    def test_lines(self) -> None:
        self.assertEqual(list(self.file), ORIGINAL.splitlines(keepends=True))
        self.file.seek(0)
        self.assertEqual(self.file.readline(), ORIGINAL[:ORIGINAL.index(b"\n") + 1])

    def test_peek_and_read1(self) -> None:
        self.assertTrue(ORIGINAL.startswith(self.file.peek(10)))
        self.assertTrue(self.file.read1(100))

    def test_properties(self) -> None:
        self.assertEqual(self.file.size, SIZE)
        self.assertEqual(self.file.info.blocks, 4)
        self.assertEqual(self.file.name, self.path())
        self.assertEqual(self.file.mode, "rb")
        self.assertTrue(self.file.readable() and self.file.seekable())
        self.assertFalse(self.file.writable())
        self.assertEqual(self.file.damage, [])
        self.assertIsInstance(self.file, io.BufferedIOBase)

    def test_closed(self) -> None:
        self.file.close()
        self.file.close()
        self.assertTrue(self.file.closed)
        self.assertEqual(self.file.size, SIZE)  # known since it was opened
        for call in (self.file.read, self.file.tell, self.file.readline,
                     lambda: self.file.seek(0), lambda: list(self.file.blocks())):
            with self.assertRaises(ValueError):
                call()

    def test_writing_is_refused(self) -> None:
        with self.assertRaises(io.UnsupportedOperation):
            self.file.write(b"x")

    def test_threads(self) -> None:
        with qrx.open(self.path(), threads=2) as file:
            self.assertEqual(file.read(), ORIGINAL)
            file.seek(2 * MIB)
            self.assertEqual(file.read(10), ORIGINAL[2 * MIB:2 * MIB + 10])

    def test_progress(self) -> None:
        calls = []
        with qrx.open(self.path(), progress=lambda *call: calls.append(call)) as file:
            file.read()
        self.assertGreater(len(calls), 0)

    def test_exception_in_progress(self) -> None:
        def progress(done: int, total: int) -> None:
            raise LookupError("from progress")

        with qrx.open(self.path(), progress=progress) as file:
            with self.assertRaisesRegex(LookupError, "from progress"):
                file.read()

    def test_use_by_its_own_callback(self) -> None:
        with qrx.open(self.path(), progress=lambda *call: file.raw.close()) as file:
            with self.assertRaises(RuntimeError):
                file.read()

    def test_position_that_moves_while_all_is_read(self) -> None:
        for target in (0, SIZE - 10, SIZE + 5):
            with qrx.open(self.path(), progress=lambda *call: file.raw.seek(target)) as file:
                file.raw.seek(10)
                self.assertEqual(file.raw.readall(), ORIGINAL[10:])
                self.assertEqual(file.raw.tell(), SIZE)

    def test_seeking_in_another_thread(self) -> None:
        with qrx.open(self.path()) as file:
            end = threading.Event()

            def rewind() -> None:
                while not end.is_set():
                    file.raw.seek(0)

            other = threading.Thread(target=rewind)
            other.start()
            try:
                for _ in range(20):
                    file.raw.seek(SIZE - 10)
                    self.assertIn(len(file.raw.readall()), (10, SIZE))
            finally:
                end.set()
                other.join()


class Opening(InFolder):
    def test_kinds_of_paths(self) -> None:
        path = self.path("n\u00e4me.qrx", image())
        for name in (path, os.fsencode(path), pathlib.Path(path)):
            with qrx.open(name) as file:
                self.assertEqual(file.read(100), ORIGINAL[:100])

    def test_missing_file(self) -> None:
        with self.assertRaises(FileNotFoundError) as caught:
            qrx.open(self.path("missing.qrx"))
        self.assertEqual(caught.exception.filename, self.path("missing.qrx"))
        with self.assertRaises(OSError):
            qrx.open(self.folder)

    def test_bad_arguments(self) -> None:
        path = self.path(content=image())
        for mode in ("", "a", "r+", "x", "rbt", "U"):
            with self.assertRaises(ValueError):
                qrx.open(path, mode)
        with self.assertRaises(ValueError):
            qrx.open(path, "rb", encoding="utf-8")
        with self.assertRaises(ValueError):
            qrx.open("nul\0name")
        for file in (5, None, 3.5):
            with self.assertRaises(TypeError):
                qrx.open(file)
        with self.assertRaises(qrx.OverLimitError):
            with qrx.open(path, memory_limit=1000) as file:
                file.read()

    def test_names_through_file_objects(self) -> None:
        """As on Windows."""
        path = self.path(content=image())
        before = open_descriptors()
        with mock.patch.object(_streams, "names_pass_through", False):
            with qrx.open(path) as file:
                self.assertEqual(file.name, path)
                self.assertEqual(file.read(), ORIGINAL)
            with self.assertRaises(FileNotFoundError):
                qrx.open(self.path("missing.qrx"))
            with self.assertRaises(qrx.NotQrxError):
                qrx.open(self.path("other.qrx", text(1000)))
        self.assertEqual(open_descriptors(), before)

    def test_text(self) -> None:
        lines = ["first \u20ac", "second", "", "last"]
        path = self.path(content=qrx.compress("\r\n".join(lines).encode("utf-16")))
        with qrx.open(path, "rt", encoding="utf-16") as file:
            self.assertEqual(file.read().split("\n"), lines)
        with qrx.open(path, "rt", encoding="utf-16", newline="") as file:
            self.assertIn("\r\n", file.read())
        with self.assertRaises(UnicodeDecodeError):
            with qrx.open(path, "rt", encoding="ascii") as file:
                file.read()
        with qrx.open(path, "rt", encoding="ascii", errors="replace") as file:
            file.read()
        with self.assertRaises(LookupError):
            qrx.open(path, "rt", encoding="no such encoding")


class Sources(unittest.TestCase):
    def test_file_objects(self) -> None:
        class OnlyRead:
            """Has read(), not readinto(), and gives little at a time."""

            def __init__(self, data: bytes) -> None:
                self._file = io.BytesIO(data)
                self.seek, self.tell = self._file.seek, self._file.tell

            def read(self, size: int) -> bytes:
                return self._file.read(min(size, 10_000))

        for kind in (io.BytesIO, OnlyRead, lambda data: io.BufferedReader(io.BytesIO(data))):
            with qrx.open(kind(image())) as file:
                self.assertEqual(file.read(), ORIGINAL)

    def test_wrong_counts(self) -> None:
        class Wrong(io.BytesIO):
            count = 0

            def readinto(self, buffer: object) -> int:
                return self.count or super().readinto(buffer)

        class TooMuch:
            def __init__(self, data: bytes) -> None:
                self._file = io.BytesIO(data)
                self.seek, self.tell = self._file.seek, self._file.tell

            def read(self, size: int) -> bytes:
                return self._file.read(size) + bytes(100_000)

        for count in (-1, 2 * SIZE):
            source = Wrong(image())
            with qrx.open(source) as file:
                source.count = count
                with self.assertRaisesRegex(OSError, r"readinto\(\) of the file object"):
                    file.read()
        with self.assertRaisesRegex(OSError, r"read\(\) of the file object"):
            qrx.open(TooMuch(image()))

    def test_current_position(self) -> None:
        source = io.BytesIO(b"prefix" + image())
        source.seek(6)
        with qrx.open(source) as file:
            self.assertEqual(file.info.file_size, len(image()))
            self.assertEqual(file.read(), ORIGINAL)
        self.assertFalse(source.closed)

    def test_file_in_a_file(self) -> None:
        outer = qrx.compress(image(), block_mib=1)
        with qrx.open(io.BytesIO(outer)) as file, qrx.open(file) as inner:
            self.assertEqual(inner.read(), ORIGINAL)

    def test_exception_in_read(self) -> None:
        class Failing(io.BytesIO):
            fails = False

            def readinto(self, buffer: object) -> int:
                if self.fails:
                    raise error
                return super().readinto(buffer)

        for error in (OSError(5, "no luck"), ZeroDivisionError(), KeyboardInterrupt()):
            source = Failing(image())
            with qrx.open(source) as file:
                source.fails = True
                with self.assertRaises(type(error)) as caught:
                    file.read()
                self.assertIs(caught.exception, error)
                source.fails = False
                file.seek(0)
                self.assertEqual(file.read(MIB // 2), ORIGINAL[:MIB // 2])

    def test_text_file(self) -> None:
        with self.assertRaises((TypeError, AttributeError)):
            qrx.open(io.StringIO("text"))

    def test_memory_of_a_call_is_released(self) -> None:
        class Keeping(io.BytesIO):
            def readinto(self, buffer: memoryview) -> int:
                kept.append(buffer)
                return super().readinto(buffer)

        kept = []
        with qrx.open(Keeping(image())) as file:
            file.read(10)
        self.assertTrue(kept)


class Damaged(InFolder):
    def test_not_qrx(self) -> None:
        for file in (self.path(content=text(1000)), io.BytesIO(text(1000))):
            for call in (qrx.open, qrx.info, qrx.test, lambda file: list(qrx.blocks(file))):
                with self.assertRaises(qrx.NotQrxError):
                    call(file)
                if not isinstance(file, str):
                    file.seek(0)

    def test_message_has_the_name(self) -> None:
        path = self.path(content=text(1000))
        with self.assertRaisesRegex(qrx.NotQrxError, "file.qrx: "):
            qrx.open(path)

    def test_damage_in_the_middle(self) -> None:
        path = self.path(content=with_short_block(image(), 1))
        for threads in (0, 2):
            with qrx.open(path, threads=threads) as file:
                self.assertEqual(file.read(MIB), ORIGINAL[:MIB])
                file.seek(2 * MIB)
                self.assertEqual(file.read(MIB), ORIGINAL[2 * MIB:3 * MIB])
                file.seek(MIB)
                with self.assertRaises(qrx.CorruptError) as caught:
                    while file.read(1000):
                        pass
                self.assertEqual(caught.exception.status, qrx.Status.BLOCK_SHORT)
                with self.assertRaises(qrx.CorruptError):
                    file.read(1000)
                self.assertEqual([(fault.what, fault.block) for fault in file.damage],
                                 [(qrx.Status.BLOCK_SHORT, 1)])

    def test_bytes_before_damage_are_delivered(self) -> None:
        with qrx.open(self.path(content=with_short_block(image(), 1))) as file:
            done = bytearray()
            with self.assertRaises(qrx.CorruptError):
                while True:
                    done += file.read(5000)
        self.assertGreaterEqual(len(done), MIB - 5000)
        self.assertEqual(done, ORIGINAL[:len(done)])

    def test_keep_damaged(self) -> None:
        seen = []
        with qrx.open(self.path(content=with_short_block(image(), 1)), keep_damaged=True,
                      on_damage=seen.append) as file:
            data = file.read()
            self.assertEqual(file.damage, seen)
        self.assertEqual(len(data), SIZE)
        self.assertEqual(data[2 * MIB:], ORIGINAL[2 * MIB:])
        self.assertIn(qrx.Status.BLOCK_SHORT, [damage.what for damage in seen])

    def test_search(self) -> None:
        data = bytearray(image())
        head = records(data)[1].offset
        data[head:head + 5] = b"\xff" * 5
        path = self.path(content=data)
        with qrx.open(path) as file, self.assertRaises(qrx.CorruptError):
            file.read()
        with qrx.open(path, search=True) as file:
            self.assertEqual(file.read(), ORIGINAL)

    def test_search_notes_a_damaged_header(self) -> None:
        for offset, what in ((0, qrx.Status.NOT_QRX), (13, qrx.Status.CORRUPT)):
            data = bytearray(image())
            data[offset:offset + 3] = b"\xff" * 3
            seen: List[qrx.Damage] = []
            path = self.path(content=data)
            with qrx.open(path, search=True, on_damage=seen.append) as file:
                self.assertEqual(file.info.layout, what)
                self.assertEqual(file.read(), ORIGINAL)
                self.assertEqual([fault.what for fault in seen], [what])
                self.assertEqual(file.damage, seen)
            with self.assertRaises(qrx.QrxError):
                qrx.open(path, on_damage=seen.append)
            seen.clear()
            with self.assertRaises(qrx.NotQrxError):
                qrx.open(self.path(content=noise(5000)), search=True, on_damage=seen.append)
            self.assertEqual(seen, [])

    def test_wrong_seal_of_an_empty_file(self) -> None:
        sealed = bytearray(qrx.compress(b""))
        with qrx.open(self.path(content=sealed)) as file:
            self.assertEqual(file.read(), b"")
        sealed[-1] ^= 1
        path = self.path(content=sealed)
        for size in (-1, 1):
            with qrx.open(path) as file, self.assertRaises(qrx.ChecksumError):
                file.read(size)

    def test_checksum(self) -> None:
        data = bytearray(qrx.compress(noise(300_000)))
        data[5000] ^= 1
        path = self.path(content=data)
        with qrx.open(path) as file, self.assertRaises(qrx.ChecksumError):
            file.read()
        with qrx.open(path) as file, self.assertRaises(qrx.ChecksumError):
            for _ in range(3):
                file.read(100_000)

    def test_truncated(self) -> None:
        path = self.path(content=image()[:records(image())[2].payload + 100])
        with qrx.open(path) as file:
            self.assertEqual(file.info.layout, qrx.Status.TRUNCATED)
            self.assertEqual(file.read(2 * MIB), ORIGINAL[:2 * MIB])
            place = f"block 2, at byte {records(image())[2].offset} of the file"
            with self.assertRaisesRegex(qrx.TruncatedError, place):
                file.read(10)

    def test_missing_block_has_no_place(self) -> None:
        data = bytearray(image())
        data[records(image())[1].offset + 4] = 1 << 1  # the record of block 1 is for block 2
        with qrx.open(self.path(content=data)) as file:
            file.seek(MIB)
            with self.assertRaisesRegex(qrx.CorruptError, r"\(block 1\)$"):
                file.read(10)


class Information(InFolder):
    def test_info(self) -> None:
        data = qrx.compress(text(MIB) + noise(MIB), method=4, level=2, context_bits=3,
                            filter="delta", block_mib=1, hash_bits=12)
        for file in (self.path(content=data), io.BytesIO(data)):
            info = qrx.info(file)
            self.assertEqual(
                (info.size, info.file_size, info.method, info.level, info.context_bits,
                 info.filter, info.hash_bits, info.block_size, info.blocks, info.blocks_found,
                 info.stored_blocks, info.sealed, info.layout),
                (2 * MIB, len(data), 4, 2, 3, "delta", 12, MIB, 2, 2, 1, True, qrx.Status.OK))
            with self.assertRaises(AttributeError):
                info.size = 5

    def test_seal(self) -> None:
        import zlib
        self.assertEqual(qrx.info(io.BytesIO(image())).seal, zlib.crc32(ORIGINAL))
        plain = qrx.info(io.BytesIO(image(seal=False)))
        self.assertEqual((plain.sealed, plain.seal), (False, None))

    def test_empty(self) -> None:
        info = qrx.info(io.BytesIO(qrx.compress(b"")))
        self.assertEqual((info.size, info.blocks, info.layout), (0, 0, qrx.Status.OK))

    def test_blocks(self) -> None:
        blocks = list(qrx.blocks(io.BytesIO(image())))
        expected = records(image())
        self.assertEqual([block.index for block in blocks], [0, 1, 2, 3])
        self.assertEqual([block.original_offset for block in blocks],
                         [0, MIB, 2 * MIB, 3 * MIB])
        self.assertEqual([block.length for block in blocks], [MIB, MIB, MIB, 1000])
        self.assertEqual([block.offset for block in blocks], [r.payload for r in expected])
        self.assertEqual([block.payload_size for block in blocks], [r.size for r in expected])
        self.assertTrue(all(block.found for block in blocks))

    def test_missing_block(self) -> None:
        blocks = list(qrx.blocks(io.BytesIO(image()[:records(image())[1].end])))
        self.assertEqual([block.found for block in blocks], [True, True, False, False])
        self.assertEqual(blocks[3].offset, None)
        self.assertEqual(blocks[3].length, 1000)


class Test(InFolder):
    def test_sound(self) -> None:
        for threads in (0, 2):
            self.assertEqual(qrx.test(self.path(content=image()), threads=threads), [])
        self.assertEqual(qrx.test(io.BytesIO(qrx.compress(b""))), [])

    def test_all_faults_are_found(self) -> None:
        data = with_short_block(with_short_block(image(), 1), 2)
        faults = qrx.test(io.BytesIO(data))
        short = [fault for fault in faults if fault.what == qrx.Status.BLOCK_SHORT]
        self.assertEqual([fault.block for fault in short], [1, 2])
        self.assertEqual([fault.wanted for fault in short], [MIB, MIB])
        self.assertTrue(all("block" in fault.message for fault in short))

    def test_layout_faults(self) -> None:
        self.assertIn(qrx.Status.TRUNCATED,
                      [fault.what for fault in qrx.test(io.BytesIO(image()[:5000]))])
        data = image(seal=False) + b"more bytes"
        self.assertIn(qrx.Status.TRAILING_BYTES,
                      [fault.what for fault in qrx.test(io.BytesIO(data))])

    def test_checksum(self) -> None:
        data = bytearray(qrx.compress(noise(10_000)))
        data[5000] ^= 1
        self.assertEqual([fault.what for fault in qrx.test(io.BytesIO(data))],
                         [qrx.Status.CHECKSUM_MISMATCH])

    def test_what_raises(self) -> None:
        with self.assertRaises(FileNotFoundError):
            qrx.test(self.path("missing"))
        with self.assertRaises(qrx.TruncatedError):
            qrx.test(io.BytesIO(b"\0QR0"))
        with self.assertRaises(qrx.CancelledError):
            qrx.test(io.BytesIO(image()), progress=lambda done, total: False)

    def test_progress(self) -> None:
        calls = []
        qrx.test(io.BytesIO(image()), progress=lambda *call: calls.append(call))
        self.assertEqual(calls[-1], (SIZE, SIZE))


if __name__ == "__main__":
    unittest.main()
