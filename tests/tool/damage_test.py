"""Damaged files are noticed, leave no output file, and send only correct bytes to standard output."""

import collections
import csv
import importlib.machinery
import importlib.util
import pathlib
import random
import sys
import types
import unittest

from qrx_files import extents
from qrx_tool import MIB, QRX, ToolTest, long_text, random_bytes, run, text

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts/check_damage"


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


def load_script():
    """Returns scripts/check_damage as a module."""
    loader = importlib.machinery.SourceFileLoader("check_damage", str(SCRIPT))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
    loader.exec_module(module)
    return module


class RandomEdits(ToolTest):
    """scripts/check_damage, which edits files of all methods and formats at random."""

    script = load_script()

    def check(self, formats, edits):
        """Returns the number of each verdict, and the failures."""
        arguments = types.SimpleNamespace(edits=edits, seed=1, timeout=120, keep=self.dir / "kept")
        counts, failures = self.script.check(formats, arguments, self.dir)
        return sum(counts.values(), collections.Counter()), failures

    def test_sealed_files(self):
        sealed = [form for form in self.script.make_formats(QRX)
                  if form.name == "qrx" and form.is_sealed]
        counts, failures = self.check(sealed, 5)
        self.assertEqual(failures, [])
        self.assertEqual(sum(counts.values()), 5 * 6)
        self.assertEqual(set(counts) - {"noticed", "harmless"}, set())

    def test_silence_about_a_sealed_file_fails(self):
        sealed = self.script.make_formats(QRX)[0]
        sealed.test = ["true"]
        counts, failures = self.check([sealed], 5)
        self.assertGreaterEqual(counts["silent"], 3)
        self.assertEqual(len(failures), counts["silent"])
        self.assertIn("qrx -1, sealed, level 0, bit 0: silent", failures)
        self.assertEqual(len(list((self.dir / "kept").iterdir())), counts["silent"])

    def test_results(self):
        done = run(SCRIPT, "--edits", "10", "--formats", "gz", "--timeout", "120", "--csv", "damage.csv",
                   QRX, program=sys.executable, cwd=self.dir)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.assertIn(b"| gz | | yes | 10 | 10 | 0 | 0 | 0 | 0 |\n", done.stdout)
        rows = list(csv.DictReader(self.get("damage.csv").decode().splitlines()))
        self.assertEqual([row["edit"] for row in rows],
                         ["bit", "byte", "sector", "cut", "swapped chunks"])
        for row in rows:
            self.assertEqual(list(row.values()),
                             ["gz", "", "yes", row["edit"], "2", "2", "0", "0", "0", "0"])


class Verdicts(ToolTest):
    original = b"the original"

    def verdict(self, test, restored=original, name="any", timeout=120):
        form = load_script().Format(name, [], ["sh", "-c", test], ["cat", "{file}"], True)
        return form.judge(restored, self.original, self.dir, timeout)

    def test_verdicts(self):
        self.assertEqual(self.verdict("exit 0"), "harmless")
        self.assertEqual(self.verdict("exit 0", b"other bytes"), "silent")
        self.assertEqual(self.verdict("exit 1"), "noticed")
        self.assertEqual(self.verdict("kill -SEGV $$"), "crashed")
        self.assertEqual(self.verdict("exec sleep 100", timeout=0.1), "hung")

    def test_statuses_of_qrx(self):
        self.assertEqual(self.verdict("exit 2", name="qrx"), "noticed")
        self.assertEqual(self.verdict("exit 1", name="qrx"), "crashed")

    def test_verdicts_about_quarnex(self):
        script = load_script()
        cases = [("cp {file} {folder}/damaged", "harmless"), ("echo other >{folder}/damaged", "silent"),
                 ("exit 0", "silent"), ("echo message", "noticed"), ("echo message >&2", "noticed"),
                 ("echo quarnex: f: error 103: read error >&2; kill -ABRT $$", "noticed"),
                 ("kill -ABRT $$", "crashed"), ("kill -SEGV $$", "crashed"), ("exit 1", "crashed")]
        for command, verdict in cases:
            form = script.Quarnex("qrx (quarnex)", [], None, ["sh", "-c", command], False, 1)
            self.assertEqual(form.judge(self.original, self.original, self.dir, 120), verdict,
                             command)


class Edits(unittest.TestCase):
    script = load_script()

    def edited(self, edit, content, index):
        damaged = bytearray(content)
        self.script.EDITS[edit](damaged, random.Random(f"1 {edit} {index}"))
        return bytes(damaged)

    def test_edits_change_what_they_name(self):
        content = random_bytes(5 * 4096 + 100)
        for index in range(50):
            for edit, size in (("bit", 1), ("byte", 1), ("sector", 512)):
                damaged = self.edited(edit, content, index)
                changed = [at for at in range(len(content)) if damaged[at] != content[at]]
                self.assertEqual(len(damaged), len(content))
                self.assertGreater(len(changed), 0, edit)
                self.assertEqual(changed[0] // size, changed[-1] // size, edit)
            damaged = self.edited("cut", content, index)
            self.assertTrue(content.startswith(damaged) and len(damaged) < len(content))
            damaged = self.edited("swapped chunks", content, index)
            self.assertNotEqual(damaged, content)
            self.assertEqual(sorted(self.chunks(damaged)), sorted(self.chunks(content)))

    @staticmethod
    def chunks(content):
        return [content[start:start + 4096] for start in range(0, len(content), 4096)]

    def test_same_relative_position_in_all_files(self):
        for edit in ("bit", "byte"):
            for index in range(20):
                places = [self.edited(edit, bytes(size), index) for size in (1000, 300_000)]
                first, second = (len(content) - len(content.lstrip(b"\0")) for content in places)
                self.assertAlmostEqual(first / 1000, second / 300_000, delta=0.001)

    def test_swapped_records(self):
        image = bytearray(run("-q", "-c", "-b1", stdin=self.script.repetitive_sample()).stdout)
        records = extents(image)
        self.assertEqual(len(records), 5)
        parts = [bytes(image[start:end]) for start, end in records]
        self.script.swap_records(image, (1, 4))
        self.assertEqual(bytes(image[32:-4]), b"".join(parts[index] for index in (0, 4, 2, 3, 1)))
