"""list and -l: the table of compressed files."""

import os
import zlib

from qrx_files import header, records, with_garbage, with_size, without_seal
from qrx_schema import json_objects
from qrx_tool import MIB, QUARNEX, ToolTest, long_text, posix_only, random_bytes, run, text

HEADER = b" Compressed   Original Ratio Cell Blocks Sealed  Name"


class List(ToolTest):
    def make(self, name, content, *options):
        self.put(name, content)
        self.qrx("-q", "-f", "-b1", *options, name)
        return self.get(name + ".qrx")

    def lines(self, *args, **options):
        return self.qrx(*args, **options).stdout.splitlines()

    def test_one_file(self):
        size = len(self.make("plain", text(900)))
        lines = self.lines("list", "plain.qrx")
        self.assertEqual(lines[0], HEADER)
        self.assertEqual(lines[1].decode().split(), [str(size), "B", "900", "B",
                                                     f"{size / 900:.3f}", "-33", "1", "yes",
                                                     "plain.qrx"])
        self.assertEqual(len(lines), 2)
        self.assertEqual(self.lines("-l", "plain.qrx"), lines)

    def test_columns_and_totals(self):
        first = len(self.make("first", text(700)))
        second = len(self.make("second", random_bytes(2 * MIB), "-10", "--no-seal"))
        lines = self.lines("list", "-v", "first.qrx", "second.qrx")
        rows = [line.decode().split() for line in lines]
        self.assertEqual(rows[0], ["Compressed", "Original", "Ratio", "Cell", "Blocks", "Sealed",
                                   "Stored", "Block", "Filter", "CRC-32", "Name"])
        crc = f"{zlib.crc32(text(700)):08x}"
        self.assertEqual(rows[1], [str(first), "700", f"{first / 700:.3f}", "-33", "1", "yes", "0",
                                   "1.0", "MiB", "none", crc, "first.qrx"])
        self.assertEqual(rows[2], [str(second), str(2 * MIB), "1.000", "-10", "2", "no", "2",
                                   "1.0", "MiB", "none", "-", "second.qrx"])
        total = first + second
        self.assertEqual(rows[3], [str(total), str(2 * MIB + 700),
                                   f"{total / (2 * MIB + 700):.3f}", "3", "some", "2", "2",
                                   "files"])
        self.assertEqual([line.rindex(b"  ") for line in lines], [lines[0].rindex(b"  ")] * 4)

    def test_empty_and_one_byte(self):
        empty = len(self.make("empty", b""))
        self.assertEqual(self.lines("list", "empty.qrx")[1].decode().split()[:8],
                         [str(empty), "B", "0", "B", "-", "-33", "0", "yes"])
        self.make("byte", b"x")
        self.assertEqual(self.lines("list", "byte.qrx")[1].decode().split()[2:4], ["1", "B"])
        found = json_objects(self.qrx("list", "--json", "empty.qrx", "byte.qrx").stdout)
        self.assertEqual([each["ratio"] for each in found], [None, 42.0])
        self.assertEqual([each["blocks"] for each in found], [0, 1])

    def test_json(self):
        content = long_text(3 * MIB)
        image = self.make("plain", content, "-21")
        self.assertEqual(json_objects(self.qrx("list", "--json", "plain.qrx").stdout), [{
            "command": "list", "name": "plain.qrx", "original_size": 3 * MIB,
            "compressed_size": len(image), "ratio": len(image) / (3 * MIB), "method": 2, "level": 1,
            "context_bits": 8, "filter": "none", "block_size": MIB, "blocks": 3, "blocks_found": 3,
            "stored_blocks": 0, "sealed": True, "crc32": f"{zlib.crc32(content):08x}",
            "faults": []}])

    def test_standard_input(self):
        image = self.make("plain", text(1000))
        for args in (["-l"], ["list"], ["list", "-"], ["-l", "-"]):
            lines = self.lines(*args, stdin=image)
            self.assertTrue(lines[1].endswith(b"(standard input)"), lines)
        with open(self.dir / "plain.qrx", "rb") as file:
            found = json_objects(self.qrx("list", "--json", stdin=file).stdout)
        self.assertEqual((found[0]["name"], found[0]["original_size"]), ("-", 1000))

    def test_compressed_data_from_a_terminal(self):
        controller, terminal = os.openpty()
        self.addCleanup(os.close, controller)
        with os.fdopen(terminal, "rb", buffering=0) as keyboard:
            failed = self.qrx("list", stdin=keyboard, status=1)
        self.assertIn(b"compressed data isn't read from a terminal", failed.stderr)

    @posix_only("names are any bytes")
    def test_names_that_a_terminal_misreads(self):
        name = b"a\x1b[31m\n\xff\xc3\xa4.qrx"
        self.put(name, self.compressed(b"content"))
        line = self.lines("list", name)[1]
        self.assertTrue(line.endswith(b"  a\\x1b[31m\\x0a\\xff\xc3\xa4.qrx"), line)
        found = json_objects(self.qrx("list", "--json", name).stdout)
        self.assertEqual(found[0]["name"], "a\x1b[31m\n\ufffdä.qrx")

    def test_file_made_by_quarnex(self):
        self.put("plain", text(5000))
        self.assertEqual(run("-33", "plain", "made", program=QUARNEX, cwd=self.dir).returncode, 0)
        row = self.lines("list", "made/plain.qrx")[1].decode().split()
        self.assertEqual(row[-4:], ["-33", "1", "no", "made/plain.qrx"])

    def test_cut_file_has_a_line_and_a_message(self):
        image = self.make("plain", long_text(3 * MIB))
        self.put("cut.qrx", image[:records(image)[1][0] + 10])
        listed = self.qrx("list", "cut.qrx", status=2)
        self.assertTrue(listed.stdout.splitlines()[1].endswith(b"3     no  cut.qrx"))
        self.assertEqual(listed.stderr.splitlines(), [
            b"qrx: cut.qrx: the file ends too early",
            b"qrx: cut.qrx: blocks 1 to 2 (bytes 1048576:3145728): a block has no record"])
        found = json_objects(self.qrx("list", "--json", "cut.qrx", status=2).stdout)[0]
        self.assertEqual((found["blocks"], found["blocks_found"], found["sealed"]), (3, 1, False))
        self.assertEqual(found["faults"], [
            {"what": "the file ends too early"},
            {"what": "a block has no record", "block": 1, "first": MIB, "last": 3 * MIB}])

    def test_trailing_bytes(self):
        self.put("long.qrx", self.make("plain", text(1000)) + b"0123456789")
        listed = self.qrx("list", "long.qrx", status=2)
        self.assertEqual(len(listed.stdout.splitlines()), 2)
        self.assertEqual(len(listed.stderr.splitlines()), 1)

    def test_files_that_cannot_be_listed(self):
        good = self.make("good", text(1000))
        self.put("other.qrx", b"not compressed")
        self.put("short.qrx", good[:20])
        self.put("nothing.qrx", b"")
        (self.dir / "folder").mkdir()
        for name, status in (("other.qrx", 2), ("short.qrx", 2), ("nothing.qrx", 2),
                             ("missing.qrx", 1), ("folder", 1)):
            listed = self.qrx("list", name, status=status)
            self.assertEqual(listed.stdout, b"", name)
            self.assertTrue(listed.stderr.startswith(f"qrx: {name}: ".encode()), listed.stderr)
            self.assertEqual(self.qrx("list", "--json", name, status=status).stdout, b"")
        listed = self.qrx("list", "missing.qrx", "good.qrx", "other.qrx", status=2)
        self.assertEqual(len(listed.stdout.splitlines()), 2)
        self.assertEqual(len(listed.stderr.splitlines()), 2)

    @posix_only("names have slashes")
    def test_directories(self):
        self.make_tree({"tree/a.qrx": self.compressed(b"a"), "tree/b/c.qrx": self.compressed(b"c"),
                        "tree/plain": b"skipped"})
        for args in (["-lr"], ["list", "-r"]):
            lines = self.lines(*args, "tree")
            self.assertEqual(sorted(line.split()[-1] for line in lines[1:-1]),
                             [b"tree/a.qrx", b"tree/b/c.qrx"])

    def test_any_name(self):
        self.put("name.bin", self.compressed(b"content"))
        self.assertEqual(len(self.lines("-l", "name.bin")), 2)

    def test_payloads_are_not_read(self):
        """Listing a sparse file of 200 GiB takes no time."""
        block = 2047 * MIB
        with open(self.dir / "sparse.qrx", "wb") as file:
            file.write(header(100 * block, block_mib=2047))
            for _ in range(100):
                file.write(block.to_bytes(4, "little") + b"\0")
                file.seek(block, os.SEEK_CUR)
            file.write(b"seal")
        found = json_objects(self.qrx("list", "--json", "sparse.qrx", timeout=20).stdout)[0]
        self.assertEqual((found["stored_blocks"], found["crc32"]), (100, "6c616573"))

    def test_damaged_payloads_are_not_noticed(self):
        self.put("bad.qrx", with_garbage(self.make("plain", long_text(2 * MIB)), 0, 1))
        self.assertEqual(self.qrx("list", "bad.qrx").stderr, b"")

    def test_header_that_claims_2_to_the_32_blocks(self):
        image = self.make("plain", text(1000))
        self.put("liar.qrx", with_size(image, (2**32 - 2) * MIB))
        found = json_objects(self.qrx("list", "--json", "liar.qrx", status=2, timeout=20).stdout)[0]
        self.assertEqual((found["blocks"], found["blocks_found"]), (2**32 - 2, 1))
        self.put("again.qrx", self.get("liar.qrx"))
        self.qrx("list", "liar.qrx", "again.qrx", status=2)

    def test_unsealed(self):
        self.put("open.qrx", without_seal(self.make("plain", text(1000))))
        listed = self.qrx("list", "open.qrx")
        self.assertEqual(listed.stdout.splitlines()[1].split()[-2:], [b"no", b"open.qrx"])
        self.assertEqual(listed.stderr, b"")
