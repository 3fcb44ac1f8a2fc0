"""cat: files or ranges of them on standard output."""

import math
import os
import resource

from qrx_files import records, with_garbage, with_size, without_seal
from qrx_tool import MIB, QUARNEX, ToolTest, long_text, posix_only, random_bytes, run, text


class Cat(ToolTest):
    def make(self, name, content, *options):
        self.put(name, content)
        self.qrx("-q", "-f", "-b1", *options, name)
        return self.get(name + ".qrx")

    def range(self, text_of_range, *names, **options):
        return self.qrx("cat", "--range", text_of_range, *names, **options).stdout

    def test_whole_files(self):
        contents = [long_text(2 * MIB + 7), b"", b"x", random_bytes(3000)]
        for number, content in enumerate(contents):
            self.make(str(number), content)
        names = [f"{number}.qrx" for number in range(len(contents))]
        self.assertEqual(self.qrx("cat", *names).stdout, b"".join(contents))
        self.assertEqual(self.qrx("cat", "-T1", *names).stdout, b"".join(contents))
        self.assertEqual(self.qrx("cat", "--memory-limit", "20M", "-q", *names).stdout,
                         b"".join(contents))

    def test_ranges(self):
        content = long_text(4 * MIB + 100)
        self.make("plain", content)
        for first, last in ((0, 1), (0, MIB), (5, 5), (100, 2000), (MIB - 1, MIB + 1),
                            (MIB, 2 * MIB), (MIB + 17, 4 * MIB + 3), (3 * MIB, 4 * MIB + 100),
                            (4 * MIB + 99, 4 * MIB + 100), (0, 4 * MIB + 100)):
            for options in (["-T3"], ["-T1", "--memory-limit", "20M", "-q"]):
                found = self.range(f"{first}:{last}", "plain.qrx", *options)
                self.assertEqual(found, content[first:last], (first, last, options))

    def test_forms_of_ranges(self):
        content = text(100000)
        self.make("plain", content)
        for form, first, last in (("5:", 5, None), (":7", 0, 7), (":", 0, None), ("3+4", 3, 7),
                                  ("1K:2K", 1024, 2048), ("64K+10", 65536, 65546)):
            self.assertEqual(self.range(form, "plain.qrx"), content[first:last], form)
        for form in ("", "5", "7:5", "a:b", "-1:5", "1:2:3"):
            done = self.qrx("cat", f"--range={form}", "plain.qrx", status=1)
            self.assertEqual(done.stdout, b"", form)

    def test_ranges_past_the_end(self):
        content = long_text(MIB + 5)
        self.make("plain", content)
        for first, last in ((MIB, 2 * MIB), (MIB + 4, 2**64 - 1), (MIB + 5, MIB + 6),
                            (2**63, 2**64 - 1)):
            self.assertEqual(self.range(f"{first}:{last}", "plain.qrx"), content[first:last])
        self.make("empty", b"")
        self.assertEqual(self.range("0:10", "empty.qrx"), b"")
        self.assertEqual(self.range("5:10", "empty.qrx"), b"")

    def test_range_of_several_files(self):
        self.make("one", b"0123456789")
        self.make("two", b"abc")
        self.make("three", b"ABCDEFGH")
        self.assertEqual(self.range("2:5", "one.qrx", "two.qrx", "three.qrx"), b"234cCDE")

    def test_output_to_files(self):
        """At the current offset of a file, after what is there, and appended."""
        self.make("one", text(3000))
        self.make("two", text(4000, seed=2))
        expected = b"start\n" + text(3000) + text(4000, seed=2) + b"end\n"
        script = "echo start; qrx cat one.qrx two.qrx; echo end"
        self.shell(f"({script}) > together; ({script}) >> appended")
        self.assertEqual(self.get("together"), expected)
        self.assertEqual(self.get("appended"), expected)

    def test_other_blocks_may_be_garbage(self):
        content = long_text(6 * MIB)
        image = self.make("plain", content, "-52")
        self.put("bad.qrx", with_garbage(image, 0, 1, 3, 4, 5))
        for options in ([], ["-T1"], ["-T4"]):
            done = self.qrx("cat", "--range", "2M:3M", "bad.qrx", *options)
            self.assertEqual((done.stdout, done.stderr), (content[2 * MIB:3 * MIB], b""))
        self.assertEqual(self.range(f"{2 * MIB - 1}:3M", "bad.qrx", status=2), b"")
        self.assertEqual(self.range(f"{2 * MIB + 1}:3M", "bad.qrx"), content[2 * MIB + 1:3 * MIB])

    def test_bytes_before_damage_are_written(self):
        content = long_text(4 * MIB)
        image = self.make("plain", content)
        self.put("bad.qrx", with_garbage(image, 2))
        for options in ([], ["--range", "0:3M"], ["--range", ":4000000"]):
            done = self.qrx("cat", "bad.qrx", *options, status=2)
            self.assertEqual(done.stdout, content[:2 * MIB])
            self.assertTrue(done.stderr.startswith(
                b"qrx: bad.qrx: block 2 (bytes 2097152:3145728): "), done.stderr)
            self.assertEqual(len(done.stderr.splitlines()), 1)
        self.make("good", b"good")
        self.assertEqual(self.qrx("cat", "bad.qrx", "good.qrx", status=2).stdout,
                         content[:2 * MIB] + b"good")
        for command in ("cat", "-dc"):
            self.shell(f"qrx {command} bad.qrx good.qrx > out", status=2)
            self.assertEqual(self.get("out"), content[:2 * MIB] + b"good", command)

    def test_cut_file(self):
        content = long_text(4 * MIB)
        image = self.make("plain", content)
        self.put("cut.qrx", image[:records(image)[2][0] + 100])
        self.assertEqual(self.range("100:2M", "cut.qrx"), content[100:2 * MIB])
        self.assertEqual(self.range("100:3M", "cut.qrx", status=2), content[100:2 * MIB])
        self.assertEqual(self.qrx("cat", "cut.qrx", status=2).stdout, content[:2 * MIB])

    def test_layout_of_whole_files(self):
        image = self.make("plain", b"content")
        self.put("long.qrx", image + b"0123456789")
        done = self.qrx("cat", "long.qrx", status=2)
        self.assertEqual(done.stdout, b"content")
        self.assertIn(b"long.qrx: ", done.stderr)
        self.assertEqual(self.range("1:3", "long.qrx"), b"on")

    def test_seal_of_whole_files(self):
        for content, block in ((b"", "-b1"), (long_text(3 * MIB + 5), "-b4"),
                               (long_text(3 * MIB), "-b1")):
            image = self.make("plain", content, block)
            self.put("wrong.qrx", image[:-1] + bytes([image[-1] ^ 1]))
            for command in ("cat", "-dc"):
                for options in ([], ["-T1"], ["-T4"], ["--memory-limit=500M"]):
                    done = self.qrx(command, *options, "wrong.qrx", status=2)
                    self.assertEqual(done.stdout, content, (command, block, options))
                    self.assertEqual(len(done.stderr.splitlines()), 1)
        self.assertEqual(self.range("5:10", "wrong.qrx"), long_text(3 * MIB)[5:10])
        self.put("open.qrx", without_seal(self.get("plain.qrx")))
        self.assertEqual(self.qrx("cat", "open.qrx").stdout, long_text(3 * MIB))

    def test_header_that_claims_2_to_the_32_blocks(self):
        content = long_text(2 * MIB)
        self.put("liar.qrx", with_size(self.make("plain", content), (2**32 - 2) * MIB))
        self.assertEqual(self.range("1M:1025K", "liar.qrx", timeout=20),
                         content[MIB:MIB + 1024])
        self.assertEqual(self.qrx("cat", "liar.qrx", status=2, timeout=20).stdout, content)

    def cpu_seconds(self, *args):
        before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime
        with open(os.devnull, "wb") as nothing:
            self.qrx("cat", *args, stdout=nothing)
        return resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime - before

    def min_cpu_seconds(self, limit, *args):
        minimum = math.inf
        for _ in range(10):
            minimum = min(minimum, self.cpu_seconds(*args))
            if minimum < limit:
                break
        return minimum

    def test_only_the_blocks_of_the_range_are_decoded(self):
        # Literals of six bits take longest to decode.
        symbols = bytes(value & 63 | 32 for value in range(256))
        self.make("plain", random_bytes(8 * MIB).translate(symbols), "-51")
        whole = self.cpu_seconds("plain.qrx")
        for form, blocks in (("0:10", 1), ("5M+10", 1), (":2M", 2), ("3M+2M", 2), ("7M:", 1)):
            for options in ([], ["-q", "--memory-limit", "500M"]):
                # The minimum of several runs: other load on the machine only adds to the time.
                limit = whole * (blocks + 2) / 8
                taken = self.min_cpu_seconds(limit, "-T4", *options, "--range", form, "plain.qrx")
                self.assertLess(taken, limit, (form, options))

    def test_standard_input(self):
        content = long_text(2 * MIB)
        image = self.make("plain", content)
        self.assertEqual(self.qrx("cat", stdin=image).stdout, content)
        self.assertEqual(self.range("5:9", "-", stdin=image), content[5:9])
        self.shell("cat plain.qrx | qrx cat --range 1M:1025K | cmp - <(tail -c +1048577 plain | "
                   "head -c 1024)")

    def test_files_that_cannot_be_read(self):
        self.make("good", b"good")
        self.put("other.qrx", b"not compressed")
        (self.dir / "folder").mkdir()
        for name, status in (("other.qrx", 2), ("missing.qrx", 1), ("folder", 1)):
            done = self.qrx("cat", name, "good.qrx", status=status)
            self.assertEqual(done.stdout, b"good")
            self.assertTrue(done.stderr.startswith(f"qrx: {name}: ".encode()))

    @posix_only("names are any bytes")
    def test_names_that_a_terminal_misreads(self):
        self.put(b"a\x1b\xff", b"not compressed")
        self.assertTrue(self.qrx("cat", b"a\x1b\xff", status=2).stderr
                        .startswith(b"qrx: a\\x1b\\xff: "))

    def test_json_is_refused(self):
        self.make("plain", b"content")
        for args in (["cat", "--json"], ["-dc", "--json"]):
            done = self.qrx(*args, "plain.qrx", status=1)
            self.assertEqual(done.stdout, b"")

    def test_full_disk(self):
        self.make("plain", text(1000))
        with open("/dev/full", "wb") as full:
            done = self.qrx("cat", "plain.qrx", stdout=full, status=1)
        self.assertIn(b"No space left on device", done.stderr)

    def test_file_made_by_quarnex(self):
        content = text(5000)
        self.put("plain", content)
        self.assertEqual(run("-33", "plain", "made", program=QUARNEX, cwd=self.dir).returncode, 0)
        self.assertEqual(self.range("100:200", "made/plain.qrx"), content[100:200])
        self.assertEqual(self.qrx("cat", "made/plain.qrx").stdout, content)
