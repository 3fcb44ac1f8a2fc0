"""verify: compares files with their originals."""

from qrx_files import records, with_garbage, with_size, without_seal
from qrx_schema import json_objects
from qrx_tool import MIB, QUARNEX, ToolTest, long_text, posix_only, run, text


class Verify(ToolTest):
    def make(self, name, content, *options):
        self.put(name, content)
        self.qrx("-q", "-f", "-b1", *options, name)
        return self.get(name + ".qrx")

    def object(self, *args, **options):
        found = json_objects(self.qrx("verify", "--json", *args, **options).stdout)
        self.assertEqual(len(found), 1)
        return found[0]

    def test_equal_files(self):
        self.make("one", long_text(2 * MIB + 5))
        self.make("two", b"")
        self.make("three", b"x")
        done = self.qrx("verify", "one.qrx", "two.qrx", "three.qrx")
        self.assertEqual(done.stdout, b"one.qrx: equal to one\ntwo.qrx: equal to two\n"
                                      b"three.qrx: equal to three\n")
        self.assertEqual(done.stderr, b"")
        self.assertEqual(self.qrx("verify", "-q", "one.qrx").stdout, b"")

    def test_json(self):
        self.make("plain", long_text(MIB + 5))
        self.assertEqual(self.object("plain.qrx"), {
            "command": "verify", "name": "plain.qrx", "original": "plain", "equal": True,
            "first_difference": None, "original_size": MIB + 5, "compared_size": MIB + 5,
            "sealed": True, "faults": []})

    def test_different_byte(self):
        content = long_text(3 * MIB)
        self.make("plain", content)
        for offset in (0, MIB, 2 * MIB + 12345, 3 * MIB - 1):
            changed = bytearray(content)
            changed[offset] ^= 1
            self.put("plain", bytes(changed))
            done = self.qrx("verify", "plain.qrx", status=2)
            self.assertEqual(done.stdout, b"")
            self.assertEqual(done.stderr, b"qrx: plain.qrx: differs from its original at byte "
                                          b"%d\n" % offset)
            found = self.object("plain.qrx", status=2)
            self.assertEqual((found["equal"], found["first_difference"]), (False, offset))

    def test_different_size(self):
        self.make("plain", text(1000))
        for content in (text(999), text(1001), b""):
            self.put("plain", content)
            done = self.qrx("verify", "plain.qrx", status=2)
            self.assertIn(b"differs from its original in size: 1000 and %d bytes" % len(content),
                          done.stderr)
            found = self.object("plain.qrx", status=2)
            self.assertEqual((found["equal"], found["compared_size"]), (False, len(content)))

    def test_other_original(self):
        self.make("plain", text(1000))
        self.put("copy", text(1000))
        self.put("other", text(1000, seed=2))
        self.assertEqual(self.qrx("verify", "plain.qrx", "--against", "copy").stdout,
                         b"plain.qrx: equal to copy\n")
        self.qrx("verify", "--against", "other", "plain.qrx", status=2)
        self.qrx("verify", "--against", "copy", "plain.qrx", "plain.qrx", status=1)

    def test_standard_input_is_the_original(self):
        content = long_text(MIB + 1000)
        self.make("plain", content)
        done = self.qrx("verify", "plain.qrx", "--against", "-", stdin=content)
        self.assertEqual(done.stdout, b"plain.qrx: equal to (standard input)\n")
        self.shell("qrx verify plain.qrx --against <(cat plain)")
        self.shell("qrx verify plain.qrx --against - < plain")
        self.shell("(cat plain; echo) | qrx verify plain.qrx --against -", status=2)

    def test_standard_input_is_compressed(self):
        image = self.make("plain", text(1000))
        found = self.object("-", "--against", "plain", stdin=image)
        self.assertEqual((found["name"], found["original"], found["equal"]), ("-", "plain", True))
        for args in (["-"], ["-", "--against", "-"]):
            done = self.qrx("verify", *args, stdin=image, status=1)
            self.assertIn(b"needs the name of its original", done.stderr)

    def test_damage(self):
        image = self.make("plain", long_text(3 * MIB))
        self.put("plain.qrx", with_garbage(image, 1))
        done = self.qrx("verify", "plain.qrx", status=2)
        self.assertEqual(done.stdout, b"")
        self.assertTrue(done.stderr.startswith(b"qrx: plain.qrx: "))
        self.assertFalse(self.object("plain.qrx", status=2)["equal"])
        self.put("plain.qrx", image[:records(image)[2][0]])
        found = self.object("plain.qrx", status=2)
        self.assertEqual((found["equal"], found["faults"][0]["block"]), (False, 2))

    def test_all_faults(self):
        content = long_text(6 * MIB)
        image = self.make("plain", content)
        damaged = bytearray(image)
        for block in (1, 4):
            offset, size = records(image)[block][:2]
            damaged[offset + size // 2] ^= 0x55
        self.put("plain.qrx", bytes(damaged) + b"trailing")
        tested = json_objects(self.qrx("test", "--json", "plain.qrx", status=2).stdout)[0]["faults"]
        self.assertGreaterEqual({fault.get("block") for fault in tested}, {1, 4})
        for original in (content, content[:-1], b"x" + content[1:]):
            self.put("plain", original)
            found = self.object("plain.qrx", status=2)
            self.assertEqual((found["equal"], found["faults"]), (False, tested))

    def test_wrong_seal(self):
        for content in (b"", text(1000)):
            image = self.make("plain", content)
            self.put("plain.qrx", image[:-1] + bytes([image[-1] ^ 1]))
            self.qrx("verify", "plain.qrx", status=2)

    def test_trailing_bytes(self):
        self.put("plain.qrx", self.make("plain", text(1000)) + b"0123456789")
        done = self.qrx("verify", "plain.qrx", status=2)
        self.assertEqual(done.stdout, b"plain.qrx: equal to plain\n")
        self.assertEqual(len(done.stderr.splitlines()), 1)
        found = self.object("plain.qrx", status=2)
        self.assertEqual((found["equal"], len(found["faults"])), (True, 1))

    def test_header_that_claims_2_to_the_32_blocks(self):
        self.put("plain.qrx", with_size(self.make("plain", text(1000)), (2**32 - 2) * MIB))
        self.qrx("verify", "plain.qrx", status=2, timeout=20)

    def test_unsealed_is_told_with_v_only(self):
        self.put("plain.qrx", without_seal(self.make("plain", text(1000))))
        self.assertEqual(self.qrx("verify", "plain.qrx").stderr, b"")
        self.assertEqual(self.qrx("verify", "-v", "plain.qrx").stderr,
                         b"qrx: plain.qrx: not sealed\n")

    def test_files_that_cannot_be_compared(self):
        self.make("plain", text(1000))
        self.put("lonely.qrx", self.get("plain.qrx"))
        self.put("other.qrx", b"not compressed")
        self.put("other", b"not compressed")
        (self.dir / "folder").mkdir()
        for args, status, text_part in (
                (["lonely.qrx"], 1, b"qrx: lonely: No such file"),
                (["missing.qrx"], 1, b"qrx: missing.qrx: No such file"),
                (["other.qrx"], 2, b"qrx: other.qrx: "),
                (["plain"], 1, b"qrx: plain: doesn't end in .qrx"),
                (["folder"], 1, b"qrx: folder: is a directory"),
                (["plain.qrx", "--against", "folder"], 1, b"qrx: folder: ")):
            done = self.qrx("verify", *args, status=status)
            self.assertEqual(done.stdout, b"")
            self.assertTrue(done.stderr.startswith(text_part), done.stderr)
        done = self.qrx("verify", "lonely.qrx", "other.qrx", "plain.qrx", status=2)
        self.assertEqual(done.stdout, b"plain.qrx: equal to plain\n")

    def test_directories(self):
        self.make_tree({"tree/a": b"a", "tree/b/c": b"c", "tree/b/other": b"other"})
        self.qrx("-q", "-r", "tree")
        done = self.qrx("verify", "-r", "tree")
        self.assertEqual(len(done.stdout.splitlines()), 3)
        self.put("tree/b/c", b"C")
        self.qrx("verify", "-r", "tree", status=2)

    @posix_only("names are any bytes")
    def test_names_that_a_terminal_misreads(self):
        name = b"a\x1b\n\xff"
        self.put(name, b"content")
        self.qrx(name)
        self.assertEqual(self.qrx("verify", name + b".qrx").stdout,
                         b"a\\x1b\\x0a\\xff.qrx: equal to a\\x1b\\x0a\\xff\n")
        self.assertEqual(self.object(name + b".qrx")["original"], "a\x1b\n\ufffd")

    def test_file_made_by_quarnex(self):
        self.put("plain", text(5000))
        self.assertEqual(run("-33", "plain", "made", program=QUARNEX, cwd=self.dir).returncode, 0)
        found = self.object("--against", "plain", "made/plain.qrx")
        self.assertEqual((found["equal"], found["sealed"]), (True, False))
