"""Single blocks."""

import gc
import unittest

import qrx
from common import MIB, noise, text


class Codecs(unittest.TestCase):
    def test_round_trip(self) -> None:
        for options in ({}, {"method": 1, "level": 0}, {"method": 5, "level": 8, "filter": "x86"}):
            with qrx.Codec(block_mib=1, **options) as codec:
                for block in (text(MIB), noise(1000), b"a", text(100), noise(MIB)):
                    payload = codec.compress(block)
                    self.assertLessEqual(len(payload), len(block))
                    self.assertEqual(codec.decompress(payload, len(block)), block)
                self.assertLess(len(codec.compress(text(MIB))), MIB // 2)

    def test_block_size(self) -> None:
        with qrx.Codec() as codec:
            self.assertEqual(codec.block_size, 32 * MIB)
        with qrx.Codec(block_mib=1) as codec:
            for block in (b"", bytes(MIB + 1)):
                with self.assertRaises(ValueError):
                    codec.compress(block)
            for length in (0, -1, MIB + 1):
                with self.assertRaises(ValueError):
                    codec.decompress(b"payload", length)

    def test_buffers_of_the_caller_and_of_the_codec(self) -> None:
        with qrx.Codec(block_mib=1, filter="x86") as codec:
            for block in (text(MIB), noise(1000), b"a"):
                payload = codec.compress_from(lambda buffer: buffer.__setitem__(slice(None), block),
                                              len(block))
                self.assertEqual(payload, codec.compress(block))
                restored = bytearray(len(block))
                codec.decompress_into(payload, restored)
                self.assertEqual(restored, block)
            for length in (0, MIB + 1):
                with self.assertRaises(ValueError):
                    codec.compress_from(self.fail, length)
                with self.assertRaises(ValueError):
                    codec.decompress_into(b"payload", bytearray(length))
            with self.assertRaises((TypeError, BufferError)):
                codec.decompress_into(payload, b"a")

    def test_a_failing_callback(self) -> None:
        with qrx.Codec(block_mib=1) as codec:
            kept = []
            with self.assertRaises(ZeroDivisionError):
                codec.compress_from(lambda buffer: kept.append(buffer) or 1 / 0, 100)
            with self.assertRaises(ValueError):  # it was released
                kept[0][0]
            for use in (codec.close, lambda: codec.compress(b"abc"),
                        lambda: codec.compress_from(self.fail, 5)):
                with self.assertRaises(RuntimeError):
                    codec.compress_from(lambda buffer: use(), 100)
            self.assertEqual(codec.decompress(codec.compress(b"abc"), 3), b"abc")

    def test_damage(self) -> None:
        with qrx.Codec(method=5, level=1, block_mib=1) as codec:
            payload = codec.compress(text(100_000))
            with self.assertRaises(qrx.CorruptError):
                codec.decompress(payload[:-500], 100_000)
            self.assertEqual(codec.decompress(payload, 100_000), text(100_000))

    def test_closed(self) -> None:
        codec = qrx.Codec(block_mib=1)
        codec.close()
        codec.close()
        with self.assertRaises(ValueError):
            codec.compress(b"abc")

    def test_collected(self) -> None:
        codec = qrx.Codec(block_mib=1)
        finalizers = gc.get_referrers(codec._handle)
        self.assertTrue(finalizers)
        handle = codec._handle
        del codec, finalizers
        gc.collect()
        self.assertFalse(handle.is_open)

    def test_arguments(self) -> None:
        with self.assertRaises(ValueError):
            qrx.Codec(level=11)
        with self.assertRaises(qrx.OverLimitError):
            qrx.Codec(memory_limit=1000).compress(b"abc")


if __name__ == "__main__":
    unittest.main()
