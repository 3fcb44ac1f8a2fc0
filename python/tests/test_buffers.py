"""compress() and decompress()."""

import array
import mmap
import pickle
import tempfile
import unittest

import qrx
from common import HEADER_SIZE, MIB, image, need_packages, noise, records, text, with_short_block


class RoundTrip(unittest.TestCase):
    def check(self, data: bytes, **options: object) -> bytes:
        packed = qrx.compress(data, **options)
        self.assertIs(type(packed), bytes)
        self.assertEqual(qrx.decompress(packed), data)
        return packed

    def test_sizes(self) -> None:
        for size in (0, 1, 2, 100, MIB - 1, MIB, MIB + 1):
            for content in (text, noise):
                with self.subTest(size=size, content=content.__name__):
                    self.check(content(size), block_mib=1, level=1)

    def test_methods_and_levels(self) -> None:
        data = text(100_000)
        for method in range(1, 6):
            for level in (0, 3, 5, 9):
                with self.subTest(method=method, level=level):
                    packed = self.check(data, method=method, level=level, hash_bits=16)
                    self.assertLess(len(packed), len(data))

    def test_filters(self) -> None:
        for name in (None, "x86", "delta"):
            self.check(text(10_000) + noise(10_000), filter=name)

    def test_threads_give_the_same_image(self) -> None:
        self.assertEqual(qrx.compress(text(5 * MIB), block_mib=1, level=1, threads=2),
                         qrx.compress(text(5 * MIB), block_mib=1, level=1))
        self.assertEqual(qrx.decompress(image(), threads=2), text(3 * MIB + 1000))

    def test_seal_adds_a_checksum(self) -> None:
        sealed, plain = qrx.compress(b"abc"), qrx.compress(b"abc", seal=False)
        self.assertGreater(len(sealed), len(plain))
        self.assertEqual(qrx.decompress(plain), b"abc")

    def test_type_of_file(self) -> None:
        code = qrx.compress(noise(1000), for_name="a.exe")
        self.assertEqual(code[17], 1)  # the filter in the header
        self.assertEqual(qrx.compress(noise(1000), for_name="a.exe", filter="delta")[17], 2)
        self.assertEqual(qrx.compress(noise(1000))[17], 0)
        self.assertEqual(qrx.compress(text(1000), for_name="x")[16], 8)  # context bits of text


class Input(unittest.TestCase):
    def test_kinds_of_buffers(self) -> None:
        data = text(50_000)
        packed = qrx.compress(data)
        for kind in (bytearray, memoryview):
            self.assertEqual(qrx.compress(kind(data)), packed)
            self.assertEqual(qrx.decompress(kind(packed)), data)
        self.assertEqual(qrx.compress(array.array("H", data)), packed)
        self.assertEqual(qrx.compress(memoryview(data).cast("I")), packed)

    def test_mmap(self) -> None:
        with tempfile.TemporaryFile() as file:
            file.write(text(50_000))
            file.flush()
            with mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as memory:
                self.assertEqual(qrx.compress(memory), qrx.compress(text(50_000)))

    def test_numpy(self) -> None:
        need_packages("numpy")
        import numpy

        values = numpy.arange(10_000, dtype=numpy.int32)
        self.assertEqual(qrx.decompress(qrx.compress(values)), values.tobytes())
        with self.assertRaises(ValueError):
            qrx.compress(values[::2])  # not contiguous

    def test_other_objects(self) -> None:
        for value in ("text", 5, None, [1]):
            with self.assertRaises(TypeError):
                qrx.compress(value)
            with self.assertRaises(TypeError):
                qrx.decompress(value)

    def test_buffer_is_released(self) -> None:
        data = bytearray(text(1000))
        qrx.compress(data)
        data.append(0)  # raises BufferError if a view is left


class Arguments(unittest.TestCase):
    def test_out_of_range(self) -> None:
        for options in ({"method": 0}, {"method": 6}, {"level": 10}, {"level": -1},
                        {"level": 2**32 + 3}, {"context_bits": 9}, {"hash_bits": 9},
                        {"hash_bits": 31}, {"chain_bits": 9}, {"block_mib": 2048},
                        {"filter": "arm"}, {"threads": 257}, {"threads": -1},
                        {"memory_limit": -1}):
            with self.subTest(options=options), self.assertRaises(ValueError) as caught:
                qrx.compress(b"abc", **options)
            self.assertTrue(str(caught.exception))

    def test_message_names_the_parameter(self) -> None:
        with self.assertRaisesRegex(ValueError, "level=10"):
            qrx.compress(b"abc", level=10)
        with self.assertRaisesRegex(ValueError, "threads"):
            qrx.compress(b"abc", threads=-1)

    def test_memory_limit(self) -> None:
        for call in (lambda: qrx.compress(text(1000), memory_limit=1000),
                     lambda: qrx.decompress(image(), memory_limit=1000)):
            with self.assertRaises(qrx.OverLimitError) as caught:
                call()
            self.assertEqual(caught.exception.status, qrx.Status.OVER_LIMIT)


class Progress(unittest.TestCase):
    def test_calls(self) -> None:
        data, calls = text(3 * MIB), []
        packed = qrx.compress(data, block_mib=1, level=1,
                              progress=lambda done, total: calls.append((done, total)))
        expected = [(MIB, 3 * MIB), (2 * MIB, 3 * MIB), (3 * MIB, 3 * MIB)]
        self.assertEqual(calls, expected)
        calls.clear()
        qrx.decompress(packed, progress=lambda done, total: calls.append((done, total)))
        self.assertEqual(calls, expected)

    def test_false_cancels(self) -> None:
        for call in (lambda **more: qrx.compress(text(3 * MIB), block_mib=1, level=1, **more),
                     lambda **more: qrx.decompress(image(), **more)):
            with self.assertRaises(qrx.CancelledError) as caught:
                call(progress=lambda done, total: done < MIB)
            self.assertEqual(caught.exception.status, qrx.Status.CANCELLED)
            call(progress=lambda done, total: 1)
            call(progress=lambda done, total: None)

    def test_exception_is_raised_unchanged(self) -> None:
        class Stop(Exception):
            pass

        stop, calls = Stop("enough"), []

        def progress(done: int, total: int) -> None:
            calls.append(done)
            raise stop

        for threads in (0, 2):
            calls.clear()
            with self.assertRaises(Stop) as caught:
                qrx.decompress(image(), progress=progress, threads=threads)
            self.assertIs(caught.exception, stop)
            self.assertEqual(len(calls), 1)


class Damaged(unittest.TestCase):
    def check(self, data: bytes, kind: type, status: qrx.Status) -> qrx.QrxError:
        with self.assertRaises(kind) as caught:
            qrx.decompress(data)
        self.assertIs(type(caught.exception), kind)
        self.assertEqual(caught.exception.status, status)
        return caught.exception

    def test_not_qrx(self) -> None:
        for data in (b"", text(1000)):
            self.check(data, qrx.NotQrxError, qrx.Status.NOT_QRX)

    def test_truncated(self) -> None:
        for size in (10, HEADER_SIZE - 1, HEADER_SIZE + 3, 5000, len(image()) // 2):
            with self.subTest(size=size):
                self.check(image()[:size], qrx.TruncatedError, qrx.Status.TRUNCATED)

    def test_header_with_an_impossible_size(self) -> None:
        data = bytearray(image())
        data[4:12] = b"\xff" * 8
        with self.assertRaises((qrx.QrxError, MemoryError)):
            qrx.decompress(data)

    def test_short_block(self) -> None:
        error = self.check(with_short_block(image(), 1), qrx.CorruptError, qrx.Status.BLOCK_SHORT)
        self.assertEqual(error.damage.block, 1)
        self.assertEqual(error.damage.wanted, MIB)
        self.assertLess(error.damage.got, MIB)
        self.assertIn("block 1", str(error))

    def test_checksum(self) -> None:
        data = bytearray(qrx.compress(noise(10_000)))  # a stored block
        data[5000] ^= 1
        self.check(bytes(data), qrx.ChecksumError, qrx.Status.CHECKSUM_MISMATCH)

    def test_trailing_bytes(self) -> None:
        data = qrx.compress(text(1000), seal=False)
        self.check(data + b"more bytes", qrx.CorruptError, qrx.Status.TRAILING_BYTES)

    def test_missing_and_repeated_block(self) -> None:
        data = image(seal=False)
        first, second = records(data)[:2]
        again = bytearray(data)
        again[second.offset + 4] = 3  # displacement -1: block 0 once more
        with self.assertRaises(qrx.CorruptError) as caught:
            qrx.decompress(again)
        self.assertIn(caught.exception.status,
                      (qrx.Status.BLOCK_REPEATED, qrx.Status.BLOCK_MISSING))

    def test_keep_damaged(self) -> None:
        original, found = text(3 * MIB + 1000), []
        restored = qrx.decompress(with_short_block(image(), 1), keep_damaged=True,
                                  on_damage=found.append)
        self.assertEqual(len(restored), len(original))
        self.assertEqual(restored[:MIB], original[:MIB])
        self.assertEqual(restored[2 * MIB:], original[2 * MIB:])
        self.assertEqual(restored[2 * MIB - 10:2 * MIB], bytes(10))
        self.assertEqual((found[0].what, found[0].block), (qrx.Status.BLOCK_SHORT, 1))

    def test_keep_truncated(self) -> None:
        data = image()[:records(image())[1].payload + 100]
        restored = qrx.decompress(data, keep_damaged=True)
        self.assertEqual(restored[:MIB], text(3 * MIB + 1000)[:MIB])
        self.assertEqual(restored[2 * MIB:], bytes(MIB + 1000))

    def test_exception_in_on_damage(self) -> None:
        def raise_it(damage: qrx.Damage) -> None:
            raise KeyError(damage.block)

        with self.assertRaises(KeyError):
            qrx.decompress(with_short_block(image(), 1), keep_damaged=True, on_damage=raise_it)

    def test_errors_can_be_pickled(self) -> None:
        error = self.check(with_short_block(image(), 1), qrx.CorruptError, qrx.Status.BLOCK_SHORT)
        copy = pickle.loads(pickle.dumps(error))
        self.assertEqual((str(copy), copy.status, copy.damage),
                         (str(error), error.status, error.damage))


if __name__ == "__main__":
    unittest.main()
