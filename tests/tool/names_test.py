"""Names, links and directories: which files are processed, and where outputs go."""

import os
import shutil
import stat

from qrx_tool import MIB, QRXCAT, UNQRX, ToolTest, run, text

STRANGE = [b"with space", b"new\nline", b"control\x1b[31m\x07\x7f", b"invalid\xff\xc3", b"-9", b"--rm",
           b"\xe2\x80\xaereversed", b"quote'\"$(id)`", b"*", b"trailing ", b"%s%n", b".hidden",
           b"[]", b"[a,b]", b"[[*]]", b"{}", b"%%",
           "Umlaut \u00e4\u00f6".encode(), b"\\x41", b"n" * 250]


class Names(ToolTest):
    def test_strange_names_both_ways(self):
        for name in STRANGE:
            self.put(os.fsdecode(name), name)
        self.qrx("--rm", "--", *STRANGE)
        self.assertEqual(self.files(), sorted(os.fsdecode(name) + ".qrx" for name in STRANGE))
        self.qrx("-d", "--rm", "--", *[name + b".qrx" for name in STRANGE])
        self.assertEqual({name: self.get(name) for name in STRANGE},
                         {name: name for name in STRANGE})
        self.assertEqual(len(self.files()), len(STRANGE))

    def check_messages(self, output, lines):
        """Messages are valid UTF-8 in whole lines without control characters."""
        shown = output.decode()
        self.assertEqual(shown.count("\n"), lines, shown)
        self.assertFalse([char for char in shown.replace("\n", "") if not char.isprintable()], shown)

    def test_messages_show_names_safely(self):
        names = [name for name in STRANGE if len(name) < 200]
        self.check_messages(self.qrx("--", *names, status=1).stderr, len(names))
        for name in names:
            self.put(os.fsdecode(name), name)
        self.check_messages(self.qrx("-v", "--", *names).stderr, len(names))
        self.check_messages(self.qrx("--", *names, status=1).stderr, len(names))
        self.check_messages(self.qrx("-t", "--", *names, status=2).stderr, len(names))
        done = self.qrx("-t", "--", *[name + b".qrx" for name in names])
        self.check_messages(done.stdout, len(names))
        self.check_messages(self.qrx("--bad\x1b[31m\noption", status=1).stderr, 1)

    def test_names_in_brackets_are_no_lists(self):
        self.make_tree({"[a,b]": b"brackets", "a": b"a", "b": b"b", "[d]/a": b"in d", "{}": b"braces"})
        self.qrx("--rm", "[a,b]", "{}")
        self.assertEqual(self.files(), ["[a,b].qrx", "[d]/a", "a", "b", "{}.qrx"])
        self.qrx("-r", "-o", "[a,b]", "-df", "[a,b].qrx")
        self.assertEqual(self.get("[a,b]"), b"brackets")
        self.qrx("-r", "[d]")
        self.assertEqual(self.qrx("cat", "[d]/a.qrx", "{}.qrx").stdout, b"in dbraces")
        self.assertIn(b"[]: No such file", self.qrx("[]", status=1).stderr)

    def test_name_that_gets_too_long(self):
        self.put("n" * 252, b"content")
        done = self.qrx("n" * 252, status=1)
        self.assertIn(b"File name too long", done.stderr)
        self.assertEqual(self.files(), ["n" * 252])

    def test_dash_is_standard_input(self):
        self.put("./-", b"a file called -")
        self.assertEqual(self.original(self.qrx("-", stdin=b"input").stdout), b"input")
        self.qrx("./-")
        self.assertEqual(self.original(self.get("-.qrx")), b"a file called -")

    def test_sizes_around_a_block(self):
        for size in (0, 1, MIB - 1, MIB, MIB + 1, 2 * MIB):
            content = text(4096) * (size // 4096) + text(size % 4096)
            self.put("f", content)
            self.qrx("-b1", "-1", "-f", "--verify", "f")
            self.qrx("-t", "f.qrx")
            self.assertEqual(self.qrx("-dc", "f.qrx").stdout, content, size)

    def test_other_program_names(self):
        self.put("f", text(3000))
        self.qrx("--rm", "f")
        self.assertEqual(run("f.qrx", program=QRXCAT, cwd=self.dir).stdout, text(3000))
        self.assertEqual(run("f.qrx", program=UNQRX, cwd=self.dir).returncode, 0)
        self.assertEqual(self.get("f"), text(3000))

    def test_suffix_decides(self):
        self.make_tree({"a.qrx": self.compressed(b"a"), "b": b"b", ".qrx": b"hidden"})
        self.assertIn(b"already ends in .qrx", self.qrx("a.qrx", status=1).stderr)
        self.assertIn(b"doesn't end in .qrx", self.qrx("-d", "b", status=1).stderr)
        self.qrx(".qrx")
        self.qrx("-f", "a.qrx")
        self.assertEqual(self.files(), [".qrx", ".qrx.qrx", "a.qrx", "a.qrx.qrx", "b"])


class Links(ToolTest):
    def setUp(self):
        super().setUp()
        self.put("real", b"content")
        os.symlink("real", self.dir / "link")

    def test_symbolic_link_is_followed(self):
        self.qrx("link")
        self.assertEqual(self.original(self.get("link.qrx")), b"content")

    def test_links_are_never_removed(self):
        self.qrx("--rm", "link", status=1)
        os.link(self.dir / "real", self.dir / "second")
        self.assertIn(b"hard links", self.qrx("--rm", "real", status=1).stderr)
        self.assertEqual(self.files(), ["link", "real", "second"])

    def test_compressed_links_are_never_removed(self):
        self.put("kept.qrx", self.compressed(b"content"))
        os.symlink("kept.qrx", self.dir / "other.qrx")
        self.assertIn(b"is a symbolic link", self.qrx("-d", "--rm", "other.qrx", status=1).stderr)
        os.link(self.dir / "kept.qrx", self.dir / "second.qrx")
        self.assertIn(b"hard links", self.qrx("-d", "--rm", "kept.qrx", status=1).stderr)
        self.assertEqual(self.files(), ["kept.qrx", "link", "other.qrx", "real", "second.qrx"])

    def test_output_replaces_a_link_and_not_its_target(self):
        self.put("precious", b"precious")
        os.symlink("precious", self.dir / "real.qrx")
        self.qrx("real", status=1)
        self.qrx("-f", "real")
        self.assertEqual(self.get("precious"), b"precious")
        self.assertFalse((self.dir / "real.qrx").is_symlink())

    def test_dangling_link_is_an_existing_file(self):
        os.symlink("nowhere", self.dir / "real.qrx")
        self.qrx("real", status=1)
        self.assertEqual(self.files(), ["link", "real", "real.qrx"])

    def test_output_is_the_input(self):
        os.symlink("real", self.dir / "real.qrx")
        self.assertIn(b"is the input file", self.qrx("-f", "real", status=1).stderr)
        self.assertIn(b"is the input file", self.qrx("-f", "-o", "real", "real", status=1).stderr)
        self.assertEqual(self.get("real"), b"content")

    def test_links_found_in_directories_are_skipped(self):
        self.put("d/file", b"x")
        os.symlink("../real", self.dir / "d/link")
        os.symlink("..", self.dir / "d/up")
        os.mkfifo(self.dir / "d/pipe")
        self.assertEqual(self.qrx("-rv", "d").stderr.count(b"not a regular file, skipped"), 3)
        self.assertEqual(sorted(os.listdir(self.dir / "d")), ["file", "file.qrx", "link", "pipe", "up"])


class Directories(ToolTest):
    tree = {"d/a": b"a", "d/e/b": b"b" * 1000, "d/e/f/c": b"", "d/-": b"dash", "d/done.qrx": b"done"}

    def setUp(self):
        super().setUp()
        self.make_tree(self.tree)

    def test_without_r_is_an_error(self):
        self.assertIn(b"is a directory", self.qrx("d", status=1).stderr)

    def test_recursive_both_ways(self):
        self.qrx("-r", "--rm", "d")
        expected = sorted(name if name.endswith(".qrx") else name + ".qrx" for name in self.tree)
        self.assertEqual(self.files(), expected)
        self.put("d/done.qrx", self.compressed(b"done"))
        self.qrx("-dr", "--rm", "d")
        self.assertEqual(self.get("d/e/b"), self.tree["d/e/b"])
        self.assertEqual(self.files(), sorted(name.replace(".qrx", "") for name in self.tree))

    def test_force_compresses_no_compressed_file_again(self):
        self.qrx("-rf", "d")
        self.qrx("-rf", "d")
        self.assertEqual(self.files(), sorted({*self.tree, "d/a.qrx", "d/e/b.qrx", "d/e/f/c.qrx",
                                               "d/-.qrx"}))

    def test_recursive_into_another_directory(self):
        for operand, prefix in (("d", "d/"), ("d/", "d/"), (".", "d/"), ("./d/e/..", "d/"),
                                (str(self.dir / "d"), "d/")):
            out = self.dir.parent / (self.dir.name + "-out")
            self.qrx("-r", "-C", str(out), operand)
            made = sorted(str(name.relative_to(out)) for name in out.rglob("*") if name.is_file())
            self.assertEqual(made, sorted(prefix + name for name in
                                          ("a.qrx", "e/b.qrx", "e/f/c.qrx", "-.qrx")), operand)
            self.shell(f"rm -r '{out}'")

    def test_output_never_leaves_its_directory(self):
        self.qrx("-r", "-C", "../../out", "../..", cwd=self.dir / "d/e/f", status=0)
        self.assertEqual(self.original(self.get("d/out/e/b.qrx")), self.tree["d/e/b"])

    def test_other_directory_for_files(self):
        self.qrx("-C", "new/deep", "d/a", "d/e/b")
        self.qrx("-d", "-C", "back", "new/deep/a.qrx", "new/deep/b.qrx")
        self.assertEqual((self.get("back/a"), self.get("back/b")), (b"a", b"b" * 1000))

    def test_files_that_meet_in_one_output_are_refused(self):
        self.put("x/a", b"other")
        done = self.qrx("-f", "--rm", "-C", "out", "d/a", "x/a", status=1)
        self.assertIn(b"same output", done.stderr)
        self.assertEqual(self.original(self.get("out/a.qrx")), b"a")
        self.assertEqual(self.get("x/a"), b"other")

    def test_files_that_meet_are_not_overwritten_by_other_commands(self):
        self.make_tree({"x/f.qrx": self.compressed(b"first"), "y/f.qrx": self.compressed(b"other")})
        for command in (["recover"], ["split", "-n1"]):
            done = self.qrx(*command, "-f", "-C", "out", "x/f.qrx", "y/f.qrx", status=1)
            self.assertIn(b"y/f.qrx: has the same output", done.stderr)
        self.assertEqual(self.get("out/f"), b"first")
        self.assertEqual(self.original(self.get("out/f.1of1.qrx")), b"first")

    def test_directory_excludes_other_outputs(self):
        self.put("f", b"content")
        for options in (["-c"], ["-o", "other"]):
            self.assertIn(b"-C excludes", self.qrx("-C", "out", *options, "f", status=1).stderr)
        self.assertFalse((self.dir / "out").exists() or (self.dir / "other").exists())

    def test_values_are_not_taken_for_presets(self):
        self.put("f", b"content")
        self.qrx("-o", "-9", "f")
        self.qrx("-fC", "-33v", "f")
        self.qrx("--output", "-1x", "f")
        for name in ("-9", "-33v/f.qrx", "-1x"):
            self.assertEqual(self.original(self.get(name)), b"content")

    def test_empty_name_is_refused(self):
        self.put("f", b"content")
        for option in ("-o", "-C"):
            self.assertIn(b"name is empty", self.qrx(option, "", "f", status=1).stderr)
        for words in (["-f", "--output=", "f", "g"], ["-f", "--output=", "f"], ["--directory=", "f"],
                      ["recover", "-f", "--output=", "f", "f.qrx"], ["bench", "-f", "--plot=", "f"]):
            self.assertIn(b"name is empty", self.qrx(*words, status=1).stderr)
        self.assertIn(b"not a preset", self.qrx("--level=", "9", "f", status=1).stderr)
        self.assertIn(b"is not a number", self.qrx("--threads=", "1", "f", status=1).stderr)
        self.assertEqual(self.get("f"), b"content")
        self.assertFalse((self.dir / "f.qrx").exists())

    def test_directory_needs_names(self):
        for words in (["-C", "out"], ["-C", "out", "-", "d/a"], ["-dC", "out"],
                      ["recover", "-C", "out", "-"]):
            self.assertIn(b"-C needs the names of files", self.qrx(*words, status=1).stderr)
        self.assertFalse((self.dir / "out").exists())

    def test_directories_stay_private(self):
        for mode in (0o700, 0o750, 0o500, 0o1777):
            os.chmod(self.dir / "d", 0o755)
            os.chmod(self.dir / "d/e", mode)
            self.qrx("-r", "-C", "out/deep", "d")
            self.qrx("-dr", "-C", "back", "out/deep/")
            for name, expected in (("out/deep/d/e", mode & 0o777 | 0o700), ("out/deep/d", 0o755),
                                   ("back/deep/d/e", mode & 0o777 | 0o700)):
                found = os.stat(self.dir / name).st_mode
                self.assertEqual(oct(stat.S_IMODE(found)), oct(expected), name)
            self.assertEqual(self.get("back/deep/d/e/b"), b"b" * 1000)
            shutil.rmtree(self.dir / "out")
            shutil.rmtree(self.dir / "back")

    def test_one_output_for_a_directory_is_refused(self):
        self.qrx("-rc", "d", status=1)
        self.qrx("-r", "-o", "out", "d", status=1)
        self.qrx("-dr", "-o", "out", "d", status=1)
        self.assertFalse((self.dir / "out").exists())

    def test_test_of_a_directory(self):
        self.qrx("-t", "-r", "d", status=2)
        self.put("d/done.qrx", self.compressed(b"done"))
        self.assertEqual(self.qrx("-t", "-r", "d").stdout, b"d/done.qrx: good\n")

    def test_directory_that_cannot_be_read(self):
        rights = self.unprivileged()
        for name in ("d", "d/e", "d/e/f"):
            os.chmod(self.dir / name, 0o777)
        os.chmod(self.dir / "d/e", 0o300)
        self.put("d/z", b"z")
        done = self.qrx("-r", "d", status=1, **rights)
        os.chmod(self.dir / "d/e", 0o700)
        self.assertIn(b"d/e: Permission denied", done.stderr)
        self.assertEqual(self.original(self.get("d/z.qrx")), b"z")
