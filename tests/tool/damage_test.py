"""Damaged files are noticed, leave no output file, and send only correct bytes to standard output."""

import random

from qrx_tool import MIB, ToolTest, long_text, random_bytes, run, text

CELLS = [f"-{method}{level}" for method in range(1, 6) for level in (0, 5, 9)]


class Damage(ToolTest):
    def check_noticed(self, damaged, what):
        """Expects test and decompression to fail with status 2 and a message, and to leave no file."""
        self.put("bad.qrx", damaged)
        done = run("-t", "bad.qrx", cwd=self.dir)
        self.assertEqual(done.returncode, 2, what)
        self.assertTrue(done.stderr.startswith(b"qrx: bad.qrx: "), done.stderr)
        self.assertNotIn(b"good", done.stdout)
        self.assertEqual(run("-d", "bad.qrx", cwd=self.dir).returncode, 2, what)
        self.assertEqual(self.files(), ["bad.qrx"], what)

    def test_every_truncation(self):
        compressed = self.compressed(text(120))
        for size in range(len(compressed)):
            if size == len(compressed) - 4:
                continue  # without its seal, the file is one that never had a seal
            self.check_noticed(compressed[:size], size)

    def test_file_that_lost_its_seal_is_not_called_good(self):
        self.put("f.qrx", self.compressed(text(120))[:-4])
        self.assertEqual(self.qrx("-t", "f.qrx").stdout, b"f.qrx: not sealed; no damage noticed\n")

    def test_truncation_of_several_blocks(self):
        compressed = self.compressed(long_text(2 * MIB + 50000), "-b1")
        for size in sorted(random.Random(1).sample(range(len(compressed)), 12)):
            self.check_noticed(compressed[:size], size)

    def test_every_byte_changed(self):
        compressed = self.compressed(text(90))
        for index in range(len(compressed)):
            damaged = bytearray(compressed)
            damaged[index] ^= 1 << index % 8
            is_used = 0 < index < 13 or index >= 32  # decoders don't use the rest of the header
            done = run("-dc", stdin=damaged)
            if is_used or done.returncode != 0:
                self.check_noticed(damaged, index)
            else:
                self.assertEqual(done.stdout, text(90), index)

    def test_changes_in_several_methods(self):
        source = random.Random(2)
        for cell in CELLS:
            compressed = self.compressed(text(20000), cell)
            for index in source.sample(range(len(compressed)), 3):
                damaged = bytearray(compressed)
                damaged[index] ^= source.randrange(1, 256)
                self.check_noticed(damaged, (cell, index))

    def test_trailing_bytes(self):
        compressed = self.compressed(text(1000))
        for rest in (b"\0", b"\n", b"1234", b"\0" * 5, b"x" * 1000, random_bytes(70000)):
            self.check_noticed(compressed + rest, rest[:5])

    def test_unsealed_files_with_more_than_a_seal(self):
        compressed = self.compressed(text(1000), "--no-seal")
        self.check_noticed(compressed + b"x" * 5, 5)
        self.check_noticed(compressed + b"seal", 4)

    def test_concatenated_files(self):
        one = self.compressed(text(1000))
        other = self.compressed(text(2000, 2))
        for pair in (one + other, one + one, other + one):
            self.check_noticed(pair, len(pair))

    def test_other_files(self):
        for content in (b"", b"x", b"\x1f\x8b\x08" + bytes(100), bytes(1000), random_bytes(5000)):
            self.check_noticed(content, content[:10])

    def test_damaged_header_is_not_another_format(self):
        self.put("text", b"plain")
        self.put("bad.qrx", b"X" * 5 + self.compressed(text(1000))[5:])
        self.assertEqual(self.qrx("-dcf", "text").stdout, b"plain")
        self.assertEqual(self.qrx("-dcf", "bad.qrx", status=2).stdout, b"")

    def test_swapped_and_repeated_parts(self):
        compressed = self.compressed(random_bytes(3 * MIB), "-b1")
        part = len(compressed) // 3
        for order in ((1, 0, 2), (0, 2, 1), (0, 0, 2)):
            pieces = [compressed[index * part:(index + 1) * part] for index in order]
            self.check_noticed(b"".join(pieces) + compressed[3 * part:], order)


class GoodBytes(ToolTest):
    content = long_text(3 * MIB)

    def test_standard_output_gets_the_bytes_before_the_damage(self):
        compressed = bytearray(self.compressed(self.content, "-b1"))
        for index in (len(compressed) * 2 // 3 + 50, len(compressed) - 100):
            damaged = bytearray(compressed)
            damaged[index] ^= 0xFF
            self.put("bad.qrx", damaged)
            done = self.qrx("-dc", "bad.qrx", status=2)
            self.assertGreaterEqual(len(done.stdout), MIB)
            self.assertEqual(done.stdout[:MIB], self.content[:MIB])
            self.assertTrue(done.stderr.startswith(b"qrx: bad.qrx: "), done.stderr)

    def test_cut_file(self):
        self.put("cut.qrx", self.compressed(self.content, "-b1")[:-1000])
        done = self.qrx("-dc", "cut.qrx", status=2)
        self.assertEqual(done.stdout, self.content[:len(done.stdout)])
        self.assertGreaterEqual(len(done.stdout), 2 * MIB)

    def test_other_files_are_processed(self):
        good = self.compressed(text(5000))
        self.make_tree({"a.qrx": good, "b.qrx": good[:-50], "c.qrx": good})
        self.qrx("-d", "a.qrx", "b.qrx", "c.qrx", status=2)
        self.assertEqual(self.files(), ["a", "a.qrx", "b.qrx", "c", "c.qrx"])

    def test_source_of_a_failed_removal_stays(self):
        bad = self.compressed(text(5000))[:-50]
        self.put("b.qrx", bad)
        self.qrx("-d", "--rm", "-f", "b.qrx", status=2)
        self.assertEqual(self.files(), ["b.qrx"])
