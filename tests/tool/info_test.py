"""info, with the map of the blocks."""

import struct

from qrx_files import HEADER, header, record, records, with_garbage, with_size, without_seal
from qrx_schema import json_objects
from qrx_tool import MIB, QUARNEX, ToolTest, long_text, posix_only, random_bytes, run, text


class Info(ToolTest):
    def make(self, name, content, *options):
        self.put(name, content)
        self.qrx("-q", "-f", "-b1", *options, name)
        return self.get(name + ".qrx")

    def fields(self, *args, **options):
        """Returns the fields of the text and the lines of the map."""
        lines = self.qrx("info", *args, **options).stdout.decode().splitlines()
        fields = {line[2:16].strip(): line[16:] for line in lines[1:]
                  if line.startswith("  ") and line[2:16].strip().isalpha() or "bits" in line
                  or "block size" in line}
        is_map = [line for line in lines if line == "*" or line[:12].strip().isdigit()]
        return fields, is_map

    def object(self, *args, **options):
        return json_objects(self.qrx("info", "--json", *args, **options).stdout)[0]

    def test_text(self):
        content = long_text(2 * MIB) + random_bytes(2 * MIB)
        image = self.make("plain.txt", content)
        crc = self.object("plain.txt.qrx")["crc32"]
        shown = self.qrx("info", "plain.txt.qrx").stdout.decode().splitlines()
        self.assertEqual(shown, [
            "plain.txt.qrx",
            f"  compressed    {len(image)} bytes ({len(image) / MIB:.1f} MiB)",
            "  original      4194304 bytes (4.0 MiB)",
            f"  ratio         {len(image) / len(content):.3f}",
            "  method        3: adaptive prefix codes",
            "  level         3: hash table of pairs, lazy parsing",
            "  context bits  8",
            "  filter        none",
            "  hash bits     23",
            "  chain bits    1",
            "  block size    1048576 bytes (1.0 MiB)",
            "  blocks        4, 2 of them stored, 0 missing",
            f"  seal          CRC-32 {crc}",
            "  layout        good",
            "  map           # compressed, = stored, . missing",
            "           0  ##=="])

    def test_methods_and_levels(self):
        for cell, method, level in (("10", "byte-aligned tokens", "hash table"),
                                    ("22", "static prefix codes", "hash table, lazy parsing"),
                                    ("44", "adaptive range coder", "ring table, lazy parsing"),
                                    ("58", "binary range coder", "suffix array, optimal parsing"),
                                    ("59", "binary range coder", "trie, optimal parsing")):
            self.put("cell.qrx", self.compressed(text(1000), "-" + cell))
            fields = self.fields("cell.qrx")[0]
            self.assertEqual(fields["method"], f"{cell[0]}: {method}")
            self.assertEqual(fields["level"], f"{cell[1]}: {level}")

    def test_json(self):
        image = self.make("plain", long_text(2 * MIB) + random_bytes(MIB + 1))
        found = self.object("plain.qrx")
        sizes = [size for _, size in sorted(records(image))]
        self.assertEqual((found["blocks"], found["stored_blocks"], found["tested"]), (4, 2, False))
        self.assertEqual(found["map"], [
            {"state": "compressed", "first_block": 0, "blocks": 2, "first": 0, "last": 2 * MIB,
             "payload_size": sum(sizes) - MIB - 1},
            {"state": "stored", "first_block": 2, "blocks": 2, "first": 2 * MIB,
             "last": 3 * MIB + 1, "payload_size": MIB + 1}])

    def test_empty_and_one_byte(self):
        self.make("empty", b"")
        fields, lines = self.fields("--test", "empty.qrx")
        self.assertEqual((fields["ratio"], fields["test"], lines), ("-", "good", []))
        self.assertEqual(self.object("empty.qrx")["map"], [])
        self.make("byte", b"x")
        self.assertEqual(self.fields("--test", "byte.qrx")[1], ["           0  ="])

    def test_damaged_blocks_are_marked_with_test(self):
        image = self.make("plain", long_text(5 * MIB), "-52")
        self.put("bad.qrx", with_garbage(image, 1, 3))
        self.assertEqual(self.fields("bad.qrx")[1], ["           0  #####"])
        fields, lines = self.fields("--test", "bad.qrx", status=2)
        self.assertEqual(lines, ["           0  #!#!#"])
        self.assertNotEqual(fields["test"], "good")
        found = self.object("--test", "bad.qrx", status=2)
        self.assertEqual([run["state"] for run in found["map"]],
                         ["compressed", "damaged", "compressed", "damaged", "compressed"])
        self.assertEqual([fault["block"] for fault in found["faults"] if "block" in fault], [1, 3])
        self.assertTrue(found["tested"])

    def test_test_of_good_files(self):
        image = self.make("plain", long_text(2 * MIB))
        self.put("open.qrx", without_seal(image))
        self.assertEqual(self.fields("--test", "plain.qrx")[0]["test"], "good")
        fields = self.fields("--test", "open.qrx")[0]
        self.assertEqual(fields["test"], "not sealed; no damage noticed")
        self.assertEqual(fields["seal"], "not sealed")

    def test_wrong_seal(self):
        image = self.make("plain", text(1000))
        self.put("bad.qrx", image[:-1] + bytes([image[-1] ^ 1]))
        self.qrx("info", "bad.qrx")
        fields, lines = self.fields("--test", "bad.qrx", status=2)
        self.assertEqual(lines, ["           0  #"])
        self.assertEqual(fields["layout"], "good")

    def test_cut_file(self):
        image = self.make("plain", long_text(3 * MIB))
        self.put("cut.qrx", image[:records(image)[2][0] + 1])
        fields, lines = self.fields("cut.qrx", status=2)
        self.assertEqual(fields["blocks"], "3, 0 of them stored, 1 missing")
        self.assertEqual(fields["layout"], "the file ends too early")
        self.assertEqual(lines, ["           0  ##."])

    def test_repeated_block_is_damaged(self):
        image = header(2 * MIB) + record(b"first") + record(b"again", 3) + b"seal"
        self.put("twice.qrx", image)
        found = self.object("--test", "twice.qrx", status=2)
        self.assertEqual([run["state"] for run in found["map"]], ["damaged", "missing"])

    def test_lines_of_the_map(self):
        """64 blocks to a line, which starts with the number of its first block."""
        parts = [record(b"%d" % block) for block in range(200)]
        self.put("many.qrx", header(200 * MIB) + b"".join(parts) + b"seal")
        self.assertEqual(self.fields("many.qrx")[1],
                         ["           0  " + "#" * 64, "*", "         192  " + "#" * 8])

    def test_map_of_100000_blocks(self):
        count = 100000
        parts = [record(b"payload")] * count
        parts[64 * 25] = record(bytes(MIB))
        content = header(count * MIB) + b"".join(parts[:count - 10])
        self.put("many.qrx", content)
        lines = self.fields("many.qrx", status=2)[1]
        self.assertEqual(lines, ["           0  " + "#" * 64,
                                 "        1600  =" + "#" * 63,
                                 "        3200  " + "#" * 64,
                                 "*",
                                 "       99200  " + "#" * 31 + "."])
        shown = self.qrx("info", "many.qrx", status=2).stdout
        self.assertIn(b"one character for 25 blocks", shown)
        runs = self.object("many.qrx", status=2)["map"]
        self.assertEqual([(run["state"], run["blocks"]) for run in runs],
                         [("compressed", 1600), ("stored", 1), ("compressed", 98389),
                          ("missing", 10)])

    def test_header_that_claims_2_to_the_32_blocks(self):
        image = self.make("plain", long_text(2 * MIB))
        self.put("liar.qrx", with_size(image, (2**32 - 1) * MIB))
        lines = self.fields("liar.qrx", status=2, timeout=20)[1]
        self.assertEqual(lines[1:], ["*"])
        found = self.object("--test", "liar.qrx", status=2, timeout=20)
        self.assertEqual([run["blocks"] for run in found["map"]], [2, 2**32 - 3])
        self.put("bare.qrx", header((2**32 - 1) * MIB))
        self.fields("--test", "bare.qrx", status=2, timeout=20)

    def test_header_that_claims_2_to_the_64_bytes(self):
        # The end of the last block, rounded up to whole blocks, would be past 2^64.
        image = bytearray(header(2**64 - 1))
        image[18:20] = struct.pack("<H", 65535)  # MiB of a block
        self.put("liar.qrx", bytes(image))
        found = self.object("liar.qrx", status=2, timeout=20)
        self.assertEqual([run["last"] for run in found["map"]], [2**64 - 1])
        self.assertEqual([fault["last"] for fault in found["faults"] if "block" in fault],
                         [2**64 - 1])

    def test_few_messages_for_many_faults(self):
        # Record n has block 2n, so every other block is missing.
        parts = [record(b"x", 2 * sequence) for sequence in range(120)]
        self.put("odd.qrx", header(1000 * MIB) + b"".join(parts))
        shown = self.qrx("info", "odd.qrx", status=2)
        self.assertEqual(len(shown.stderr.splitlines()), 11)
        self.assertIn(b"more faults (-v prints them all)", shown.stderr.splitlines()[-1])
        self.assertGreater(len(self.qrx("info", "-v", "odd.qrx", status=2).stderr.splitlines()),
                           100)

    @posix_only("names are any bytes")
    def test_standard_input_and_names(self):
        image = self.make("plain", text(1000))
        self.assertTrue(self.qrx("info", stdin=image).stdout.startswith(b"(standard input)\n"))
        self.assertEqual(self.object("-", stdin=image)["name"], "-")
        self.put(b"a\x1b\xff.qrx", image)
        self.assertTrue(self.qrx("info", b"a\x1b\xff.qrx").stdout.startswith(b"a\\x1b\\xff.qrx\n"))

    def test_files_that_cannot_be_described(self):
        self.put("other.qrx", b"not compressed")
        (self.dir / "folder").mkdir()
        for name, status in (("other.qrx", 2), ("missing.qrx", 1), ("folder", 1)):
            shown = self.qrx("info", name, status=status)
            self.assertEqual(shown.stdout, b"")
            self.assertTrue(shown.stderr.startswith(f"qrx: {name}: ".encode()))

    def test_file_made_by_quarnex(self):
        self.put("plain", text(5000))
        self.assertEqual(run("-33", "plain", "made", program=QUARNEX, cwd=self.dir).returncode, 0)
        found = self.object("--test", "made/plain.qrx")
        self.assertEqual((found["sealed"], found["crc32"], found["block_size"]),
                         (False, None, 32 * MIB))

    def test_unknown_method(self):
        """A file of stored blocks can have any method."""
        self.put("odd.qrx", header(4, method=77) + record(b"1234"))
        self.assertEqual(self.fields("odd.qrx")[0]["method"], "77: unknown")
        self.assertEqual(len(header(0)), HEADER)
        self.assertEqual(self.object("odd.qrx")["method"], 77)
