"""qrx on Windows, through Wine: names, wildcards, outputs and standard streams.

The programs see self.dir as the current directory; Python, which runs on this machine, sees the
same files.
"""

import json
import os
import stat

from qrx_tool import MIB, QRXCAT, UNQRX, ToolTest, random_bytes, run, text, wait_until

NAMES = ["with space", "Umlaut \u00e4\u00f6", "\u6587\u4ef6", "emoji \U0001f4e6", "-9", "--rm", "%s%n", "a&b^c",
         "it's", ".hidden", "n" * 200]


class Names(ToolTest):
    def test_names_both_ways(self):
        for name in NAMES:
            self.put(name, name.encode())
        self.qrx("--rm", "--", *NAMES)
        self.assertEqual(self.files(), sorted(name + ".qrx" for name in NAMES))
        self.qrx("-d", "--rm", "--", *[name + ".qrx" for name in NAMES])
        self.assertEqual({name: self.get(name) for name in NAMES},
                         {name: name.encode() for name in NAMES})
        self.assertEqual(len(self.files()), len(NAMES))

    def test_messages_are_utf8(self):
        done = self.qrx("\u6587\u4ef6 \u00e4", status=1)
        self.assertIn("\u6587\u4ef6 \u00e4: No such file".encode(), done.stderr)

    def test_json_names_are_utf8(self):
        self.put("\u6587\u4ef6", b"content")
        self.qrx("\u6587\u4ef6")
        shown = json.loads(self.qrx("list", "--json", "\u6587\u4ef6.qrx").stdout)
        self.assertEqual(shown["name"], "\u6587\u4ef6.qrx")

    def test_quotes_in_arguments(self):
        self.put("a b", b"content")
        self.qrx("-o", "c d\\", "a b", status=1)
        self.qrx("-o", "c d.qrx", "a b")
        self.assertIn(b'"quoted"', self.qrx('--"quoted"', status=1).stderr)

    def test_wildcards(self):
        self.make_tree({"b.txt": b"b", "a.txt": b"a", "-9.txt": b"-9", "c.dat": b"c", "d/e.txt": b"e"})
        self.qrx("--rm", "*.txt", "d/*")
        self.assertEqual(self.files(), ["-9.txt.qrx", "a.txt.qrx", "b.txt.qrx", "c.dat", "d/e.txt.qrx"])
        listed = self.qrx("test", "?.txt.qrx").stdout.split(b"\n")
        self.assertEqual([line.split(b":")[0] for line in listed if line],
                         [b"a.txt.qrx", b"b.txt.qrx"])
        self.assertIn(b"*.none: No such file", self.qrx("*.none", status=1).stderr)

    def test_devices(self):
        self.put("f", b"content")
        self.qrx("f")
        self.assertIn(b"isn't a regular file", self.qrx("-f", "-o", "NUL", "f", status=1).stderr)
        self.assertEqual(self.original(self.qrx("-c", "NUL").stdout), b"")
        self.assertEqual(self.files(), ["f", "f.qrx"])

    def test_backslashes_and_drives(self):
        self.make_tree({"tree/a/f": b"one", "tree/g": b"two"})
        self.qrx("-r", "-C", "out", ".\\tree\\")
        self.assertEqual(self.files(), ["out/tree/a/f.qrx", "out/tree/g.qrx", "tree/a/f", "tree/g"])
        # Z: is the root of this machine in Wine, and has self.dir as its current directory.
        self.qrx("-dk", "Z:out\\tree\\g.qrx")
        self.assertEqual(self.get("out/tree/g"), b"two")
        absolute = "Z:" + str(self.dir / "out" / "tree" / "a" / "f.qrx").replace("/", "\\")
        self.qrx("-d", "-C", "back", absolute)
        self.assertEqual(self.get("back/f"), b"one")

    def test_outputs_that_differ_by_case(self):
        self.make_tree({"a/\u00c4.txt": b"one", "b/\u00e4.TXT": b"two"})
        done = self.qrx("-f", "-C", "out", "a/\u00c4.txt", "b/\u00e4.TXT", status=1)
        self.assertIn(b"has the same output as another source", done.stderr)
        self.assertEqual(self.original(self.get("out/\u00c4.txt.qrx")), b"one")

    def test_names_longer_than_260(self):
        directory = "/".join(["d" * 100] * 4)
        self.put(directory + "/f", text(5000))
        self.qrx("--rm", directory + "/f")
        self.assertEqual(self.files(), [directory + "/f.qrx"])
        self.qrx("-d", "-f", "--rm", directory.replace("/", "\\") + "\\f.qrx")
        self.assertEqual(self.get(directory + "/f"), text(5000))


class Outputs(ToolTest):
    def test_sizes_around_a_block(self):
        for size in (0, 1, MIB - 1, MIB, MIB + 1):
            content = (text(4096) * (size // 4096 + 1))[:size]
            self.put("f", content)
            self.qrx("-b1", "-1", "-f", "--verify", "f")
            self.qrx("test", "f.qrx")
            self.assertEqual(self.qrx("-dc", "f.qrx").stdout, content, size)

    def test_no_file_is_overwritten(self):
        self.make_tree({"f": b"content", "f.qrx": b"existing"})
        self.assertIn(b"f.qrx: exists", self.qrx("f", status=1).stderr)
        self.assertEqual(self.get("f.qrx"), b"existing")
        self.qrx("-f", "f")
        self.assertEqual(self.qrx("-dc", "f.qrx").stdout, b"content")
        self.assertIn(b"is the input file", self.qrx("-f", "-o", "F", "f", status=1).stderr)
        self.assertEqual(self.files(), ["f", "f.qrx"])

    def test_time_and_attribute_are_kept(self):
        name = self.put("f", text(3000))
        os.utime(name, ns=(10**18, 10**18 + 123456700))
        name.chmod(0o444)
        self.qrx("--rm", "f")
        made = (self.dir / "f.qrx").stat()
        self.assertEqual(made.st_mtime_ns, 10**18 + 123456700)
        self.assertFalse(made.st_mode & stat.S_IWUSR)
        self.qrx("-d", "--rm", "f.qrx")
        self.assertEqual((self.dir / "f").stat().st_mtime_ns, 10**18 + 123456700)
        self.assertFalse((self.dir / "f").stat().st_mode & stat.S_IWUSR)
        self.assertEqual(self.files(), ["f"])

    def test_read_only_file_is_replaced(self):
        self.put("f", b"content")
        self.put("f.qrx", b"existing").chmod(0o444)
        self.qrx("-f", "f")
        self.assertEqual(self.qrx("-dc", "f.qrx").stdout, b"content")
        self.assertTrue((self.dir / "f.qrx").stat().st_mode & stat.S_IWUSR)

    def test_other_program_names(self):
        self.put("f", text(3000))
        self.qrx("--rm", "f")
        self.assertEqual(run("f.qrx", program=QRXCAT, cwd=self.dir).stdout, text(3000))
        self.assertEqual(run("f.qrx", program=UNQRX, cwd=self.dir).returncode, 0)
        self.assertEqual(self.get("f"), text(3000))

    def test_damage_leaves_no_file(self):
        self.put("f.qrx", self.compressed(random_bytes(5000))[:-100])
        self.qrx("-d", "f.qrx", status=2)
        self.qrx("test", "f.qrx", status=2)
        self.assertEqual(self.files(), ["f.qrx"])

    def test_killed_program_leaves_no_file(self):
        process = self.start("-o", "f.qrx", "-b1", "-1", "-T1", "-")
        process.stdin.write(random_bytes(4 * MIB))
        process.stdin.flush()
        wait_until(lambda: [name for name in self.files() if name.startswith(".qrx-")])
        process.kill()
        process.wait()
        wait_until(lambda: self.files() == [])

    def test_exit_statuses(self):
        self.qrx("-V")
        self.qrx("--no-such-option", status=1)
        self.qrx("missing", status=1)
        self.put("f.qrx", b"not compressed")
        self.qrx("test", "f.qrx", status=2)


class Streams(ToolTest):
    def test_pipes_are_binary(self):
        content = bytes(range(256)) * 300 + b"\r\n\n\x1a" * 1000
        self.assertEqual(self.original(self.compressed(content)), content)

    def test_redirected_files(self):
        content = text(3 * MIB)
        self.put("f", content)
        for level in ("-1", "-9"):
            with open(self.dir / "f", "rb") as source, open(self.dir / "out", "wb") as dest:
                self.qrx("-b1", level, stdin=source, stdout=dest)
            with open(self.dir / "out", "rb") as source:
                self.assertEqual(self.qrx("-d", stdin=source).stdout, content)

    def test_output_after_what_a_file_has(self):
        content = text(2 * MIB)
        with open(self.dir / "out", "wb") as dest:
            dest.write(b"header")
            dest.flush()
            self.qrx("-b1", "-1", stdin=content, stdout=dest)
        self.assertEqual(self.get("out")[:6], b"header")
        self.assertEqual(self.original(self.get("out")[6:]), content)

    def test_closed_pipe(self):
        process = self.start("-c", "-b1", "-1", "-")
        process.stdout.close()
        try:
            process.stdin.write(random_bytes(4 * MIB))
            process.stdin.close()
        except BrokenPipeError:
            pass
        self.assertNotEqual(process.wait(timeout=60), 0)


class Commands(ToolTest):
    def setUp(self):
        super().setUp()
        self.content = text(3 * MIB - 5)
        self.put("f", self.content)
        self.qrx("-b1", "-1", "f")

    def test_info_and_list(self):
        info = json.loads(self.qrx("info", "--json", "f.qrx").stdout)
        listed = json.loads(self.qrx("list", "--json", "f.qrx").stdout)
        self.assertEqual((info["name"], listed["original_size"]), ("f.qrx", len(self.content)))
        self.assertIn(b"f.qrx", self.qrx("info", "f.qrx").stdout)

    def test_cat_of_a_range(self):
        self.assertEqual(self.qrx("cat", "--range", "1000000+100000", "f.qrx").stdout,
                         self.content[1000000:1100000])

    def test_verify(self):
        self.qrx("verify", "f.qrx")
        self.put("f", self.content[:-1] + b"!")
        self.assertNotEqual(run("verify", "f.qrx", cwd=self.dir).returncode, 0)

    def test_split_and_join(self):
        self.qrx("split", "--pieces", "3", "f.qrx")
        pieces = [name for name in self.files() if name not in ("f", "f.qrx")]
        self.assertEqual(len(pieces), 3)
        self.qrx("join", "-o", "joined.qrx", *pieces)
        self.assertEqual(self.qrx("-dc", "joined.qrx").stdout, self.content)

    def test_recover(self):
        damaged = bytearray(self.get("f.qrx"))
        middle = len(damaged) // 2
        damaged[middle:middle + 100] = bytes(100)
        self.put("f.qrx", bytes(damaged))
        (self.dir / "f").unlink()
        self.qrx("recover", "-o", "f", "f.qrx", status=2)
        self.assertEqual(self.get("f")[:MIB], self.content[:MIB])

    def test_bench(self):
        self.put("g", text(100000))
        done = self.qrx("bench", "--cells", "33", "--seconds", "0", "--json", "g")
        self.assertTrue(json.loads(done.stdout.split(b"\n")[0]))
