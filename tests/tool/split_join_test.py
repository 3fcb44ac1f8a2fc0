"""Tests split, join and --like, also with GNU Parallel."""

import os
import shutil
import unittest
import zlib

from qrx_files import HEADER, header, payloads, record
from qrx_schema import json_objects
from qrx_tool import MIB, QUARNEX, ToolTest, long_text, posix_only, random_bytes, run

SIZE = 5 * MIB + 1234


def content(size=SIZE):
    """Returns blocks of text that differ, with one that can't be compressed."""
    blocks = [long_text(MIB, seed) for seed in range(1, size // MIB + 2)]
    blocks[1] = random_bytes(MIB)
    return b"".join(blocks)[:size]


class SplitTest(ToolTest):
    @classmethod
    def setUpClass(cls):
        cls.original = content()
        cls.sealed = run("-cq", "-b1", stdin=cls.original).stdout

    def setUp(self):
        super().setUp()
        self.put("a.tar.qrx", self.sealed)

    def names(self, ending):
        return [name for name in self.files() if name.endswith(ending)]

    @posix_only("files have permissions")
    def test_pieces_are_files_by_themselves(self):
        os.chmod(self.dir / "a.tar.qrx", 0o640)
        os.utime(self.dir / "a.tar.qrx", (1000000000, 1000000000))
        self.qrx("split", "-n", "4", "a.tar.qrx")
        names = self.names("of4.qrx")
        self.assertEqual(names, [f"a.tar.{number}of4.qrx" for number in range(1, 5)])
        self.assertEqual(b"".join(self.original_of(name) for name in names), self.original)
        for name in names:
            self.assertIn(b": good\n", self.qrx("test", name).stdout) # sealed
            status = os.stat(self.dir / name)
            self.assertEqual(status.st_mode & 0o777, 0o640)
            self.assertEqual(status.st_mtime, 1000000000)

    def original_of(self, name):
        return self.qrx("-dc", name).stdout

    def test_json(self):
        made = json_objects(self.qrx("split", "--json", "-n", "4", "a.tar.qrx").stdout)[0]
        self.assertEqual((made["command"], made["name"], made["original_size"], made["sealed"]),
                         ("split", "a.tar.qrx", SIZE, True))
        ranges = [(piece["first"], piece["last"]) for piece in made["pieces"]]
        self.assertEqual(ranges, [(0, 2 * MIB), (2 * MIB, 4 * MIB), (4 * MIB, 5 * MIB),
                                  (5 * MIB, SIZE)])
        for piece in made["pieces"]:
            self.assertEqual(piece["compressed_size"], len(self.get(piece["name"])))
        args = ("-f", "-o", "b.qrx", *self.names("of4.qrx"))
        joined = json_objects(self.qrx("join", "--json", *args).stdout)[0]
        self.assertEqual(joined, {"command": "join", "output": "b.qrx", "original_size": SIZE,
                                  "compressed_size": len(self.sealed), "sealed": True,
                                  "verified": False, "pieces": self.names("of4.qrx")})

    def test_join_gives_the_same_file(self):
        for args in (["-n", "1"], [], ["-n", "4"], ["--blocks", "1"], ["--blocks", "4"]):
            with self.subTest(args=args):
                self.qrx("split", *args, "-C", "pieces", "a.tar.qrx")
                names = self.names("of1.qrx") + self.names("of2.qrx") + self.names("of4.qrx") + \
                    self.names("of6.qrx")
                self.qrx("join", "--verify", "-f", "-o", "b.qrx", *names)
                self.assertEqual(self.get("b.qrx"), self.sealed)
                shutil.rmtree(self.dir / "pieces")

    def test_join_to_standard_output(self):
        self.qrx("split", "a.tar.qrx")
        joined = self.shell("qrx join -o - a.tar.?of2.qrx | cat").stdout
        self.assertEqual(joined, self.sealed)

    def test_unsealed_files(self):
        unsealed = self.compressed(self.original, "-b1", "--no-seal")
        self.put("b.qrx", unsealed)
        self.qrx("split", "b.qrx")
        self.qrx("split", "--no-seal", "a.tar.qrx")
        for stem in ("a.tar", "b"):
            names = self.names("of2.qrx")
            self.assertEqual(len(names), 4)
            done = self.qrx("join", "-f", "-o", "c.qrx", f"{stem}.1of2.qrx", f"{stem}.2of2.qrx")
            self.assertEqual(done.stderr, b"")
            self.assertEqual(self.get("c.qrx"), unsealed)

    def test_partly_sealed_pieces(self):
        self.qrx("split", "a.tar.qrx")
        self.put("end.qrx", self.get("a.tar.2of2.qrx")[:-4])
        done = self.qrx("join", "-o", "b.qrx", "a.tar.1of2.qrx", "end.qrx")
        self.assertEqual(done.stderr, b"qrx: b.qrx: not sealed, because not all pieces are\n")
        self.assertEqual(self.get("b.qrx"), self.sealed[:-4])

    def test_empty_file(self):
        empty = self.compressed(b"")
        self.put("e.qrx", empty)
        done = self.qrx("split", "-n", "3", "e.qrx")
        self.assertEqual(done.stderr, b"qrx: e.qrx: has 0 blocks: 1 piece\n")
        self.assertEqual(self.get("e.1of1.qrx"), empty)
        self.qrx("join", "-f", "-o", "f.qrx", "e.1of1.qrx", "e.1of1.qrx", status=1)
        self.put("x.qrx", empty)
        self.qrx("join", "-o", "f.qrx", "x.qrx", "a.tar.qrx", "x.qrx")
        self.assertEqual(self.get("f.qrx"), self.sealed)
        self.qrx("join", "--verify", "-f", "-o", "f.qrx", "x.qrx", "x.qrx")
        self.assertEqual(self.get("f.qrx"), empty)

    def test_more_pieces_than_blocks(self):
        done = self.qrx("split", "-n", "1000", "a.tar.qrx")
        self.assertEqual(done.stderr, b"qrx: a.tar.qrx: has 6 blocks: 6 pieces\n")
        self.assertEqual(len(self.names("of6.qrx")), 6)

    def test_number_of_pieces_without_a_space(self):
        self.qrx("split", "-n3", "a.tar.qrx")
        self.assertEqual(len(self.names("of3.qrx")), 3)

    def test_names_sort(self):
        self.put("b", long_text(11 * MIB))
        self.qrx("-1", "-b1", "b")
        self.qrx("split", "--blocks", "1", "-o", "c.x", "b.qrx")
        self.assertEqual(self.names("of11.qrx"), [f"c.x.{n:02}of11.qrx" for n in range(1, 12)])

    def test_pieces_need_a_name(self):
        done = self.qrx("split", "-o", "d/", "a.tar.qrx", status=1)
        self.assertIn(b"pieces need a name", done.stderr)
        self.assertFalse((self.dir / "d").exists())

    def test_existing_pieces_stay(self):
        self.put("a.tar.2of2.qrx", b"mine")
        done = self.qrx("split", "a.tar.qrx", status=1)
        self.assertEqual(done.stderr, b"qrx: a.tar.2of2.qrx: exists (-f overwrites)\n")
        self.assertEqual(self.files(), ["a.tar.2of2.qrx", "a.tar.qrx"])
        self.qrx("split", "-f", "a.tar.qrx")
        self.assertEqual(b"".join(map(self.original_of, self.names("of2.qrx"))), self.original)

    def test_full_disk_leaves_complete_pieces(self):
        done = self.shell("ulimit -f 700; qrx split --blocks 1 a.tar.qrx", status=1)
        self.assertIn(b"only 1 of 6 pieces written, up to a.tar.1of6.qrx\n", done.stderr)
        self.assertEqual(self.files(), ["a.tar.1of6.qrx", "a.tar.qrx"])
        self.qrx("test", "a.tar.1of6.qrx")

    def test_damaged_files_are_refused(self):
        middle = len(self.sealed) // 2
        byte = bytes([self.sealed[middle] ^ 1])
        damaged = {
            "cut": self.sealed[:-100],
            "payload": self.sealed[:middle] + byte + self.sealed[middle + 1:],
            "seal": self.sealed[:-1] + bytes([self.sealed[-1] ^ 1]),
            "junk": random_bytes(1000),
        }
        for name, data in damaged.items():
            with self.subTest(name=name):
                self.put(f"{name}.qrx", data)
                self.qrx("split", f"{name}.qrx", status=2)
                self.assertEqual(self.names("of2.qrx"), [])

    def test_empty_payloads_are_refused(self):
        for blocks in ([b""], [bytes(MIB), b""]):
            with self.subTest(blocks=len(blocks)):
                size = (len(blocks) - 1) * MIB + 100
                self.put("e.qrx", header(size) + b"".join(record(block) for block in blocks))
                last = len(blocks) - 1
                expected = f"block {last} (bytes {last * MIB}:{size}): the header or a record head is invalid"
                for command in (("split", "e.qrx"), ("join", "-o", "whole.qrx", "e.qrx")):
                    ended = self.qrx(*command, status=2)
                    self.assertIn(expected.encode(), ended.stderr)
                self.assertEqual(self.files(), ["a.tar.qrx", "e.qrx"])

    def test_wrong_seals_of_empty_files_are_refused(self):
        self.put("e.qrx", header(0) + record(b"") + b"\1\0\0\0")
        for command in (("split", "e.qrx"), ("join", "-o", "whole.qrx", "e.qrx", "a.tar.qrx")):
            ended = self.qrx(*command, status=2)
            self.assertIn(b"e.qrx: the content doesn't match the seal", ended.stderr)
        self.assertEqual(self.files(), ["a.tar.qrx", "e.qrx"])

    def test_order_and_completeness(self):
        self.qrx("split", "-n", "3", "a.tar.qrx")
        one, two, three = self.names("of3.qrx")
        cases = [
            ((one, two), b"a.tar.3of3.qrx: is missing"),
            ((one, three), b"a.tar.2of3.qrx: is missing"),
            ((two, three), b"a.tar.1of3.qrx: is missing"),
            ((one, two, two, three), b"a.tar.2of3.qrx: is given more than once"),
        ]
        for names, message in cases:
            with self.subTest(names=names):
                done = self.qrx("join", "-o", "b.qrx", *names, status=1)
                self.assertEqual(done.stderr, b"qrx: " + message + b"\n")
                self.assertNotIn("b.qrx", self.files())
        done = self.qrx("join", "-v", "-o", "b.qrx", three, one, two)
        self.assertIn(b"pieces sorted", done.stderr)
        self.assertEqual(self.get("b.qrx"), self.sealed)

    def test_foreign_pieces(self):
        self.qrx("split", "a.tar.qrx")
        shutil.copy(self.dir / "a.tar.1of2.qrx", self.dir / "first.qrx")
        last = self.original[3 * MIB:]
        others = {
            "method": (("--level=13",), b"the method is 1, not "),
            "level": (("--level=31",), b"the level is 1, not "),
            "block": (("-b2",), b"the block size in MiB is 2, not 1"),
        }
        for name, (args, message) in others.items():
            with self.subTest(name=name):
                self.put(f"{name}.qrx", self.compressed(last, "-b1", *args))
                done = self.qrx("join", "-o", "b.qrx", "first.qrx", f"{name}.qrx", status=1)
                self.assertIn(b"doesn't belong to first.qrx: " + message, done.stderr)
        shutil.copy(self.dir / "a.tar.2of2.qrx", self.dir / "b.2of2.qrx")
        done = self.qrx("join", "-o", "b.qrx", "a.tar.1of2.qrx", "b.2of2.qrx", status=1)
        self.assertIn(b"is a piece of another file", done.stderr)
        done = self.qrx("join", "-o", "b.qrx", "b.2of2.qrx", "first.qrx", status=1)
        self.assertIn(b"isn't a multiple of the block size", done.stderr)
        self.assertNotIn("b.qrx", self.files())

    def test_pieces_are_not_overwritten(self):
        self.qrx("split", "a.tar.qrx")
        names = self.names("of2.qrx")
        for name in names:
            before = self.get(name)
            self.qrx("join", "-f", "-o", name, *names, status=1)
            self.assertEqual(self.get(name), before)

    def test_damaged_pieces(self):
        self.qrx("split", "a.tar.qrx")
        piece = bytearray(self.get("a.tar.2of2.qrx"))
        self.put("a.tar.2of2.qrx", piece[:-50])
        self.qrx("join", "-o", "b.qrx", "a.tar.1of2.qrx", "a.tar.2of2.qrx", status=2)
        piece[len(piece) // 2] ^= 1 # only decoding notices it
        self.put("a.tar.2of2.qrx", piece)
        self.qrx("join", "--verify", "-o", "b.qrx", "a.tar.1of2.qrx", "a.tar.2of2.qrx", status=2)
        self.assertNotIn("b.qrx", self.files())
        self.qrx("join", "-o", "b.qrx", "a.tar.1of2.qrx", "a.tar.2of2.qrx")
        self.qrx("test", "b.qrx", status=2) # the seal tells

    def test_seals_combine(self):
        # Any division of the blocks gives the CRC-32 of the whole.
        for first in range(1, 6):
            for name, part in (("x", self.original[:first * MIB]),
                               ("y", self.original[first * MIB:])):
                self.put(f"{name}.qrx", self.compressed(part, "-b1"))
            self.qrx("join", "-f", "-o", "b.qrx", "x.qrx", "y.qrx")
            seal = int.from_bytes(self.get("b.qrx")[-4:], "little")
            self.assertEqual(seal, zlib.crc32(self.original))
            self.assertEqual(self.get("b.qrx"), self.sealed)

    @unittest.skipUnless(os.path.exists(QUARNEX), "the program quarnex isn't there")
    def test_files_of_quarnex(self):
        self.put("q.bin", self.original)
        (self.dir / "out").mkdir()
        done = run("-33", "-b1", "-p4", "q.bin", "out", program=QUARNEX, cwd=self.dir)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.qrx("split", "-n", "3", "out/q.bin.qrx")
        names = self.names("of3.qrx")
        self.assertEqual(b"".join(map(self.original_of, names)), self.original)
        self.qrx("join", "-o", "r.qrx", *names)
        self.assertEqual(self.original_of("r.qrx"), self.original)
        done = run("-d", *names, "out", program=QUARNEX, cwd=self.dir)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.assertEqual(b"".join(self.get(f"out/q.bin.{n}of3") for n in (1, 2, 3)),
                         self.original)

    def test_records_out_of_order(self):
        unsealed = self.compressed(self.original, "-b1", "--no-seal")
        blocks, _ = payloads(unsealed)
        order = [2, 0, 1, 5, 4, 3]
        moved = unsealed[:HEADER]
        for sequence, block in enumerate(order):
            distance = block - sequence
            moved += record(blocks[block], 2 * abs(distance) + (distance < 0))
        self.assertEqual(payloads(moved), payloads(unsealed))
        self.put("m.qrx", moved)
        self.qrx("split", "-n", "4", "m.qrx")
        names = self.names("of4.qrx")
        self.assertEqual(b"".join(map(self.original_of, names)), self.original)
        self.qrx("join", "-o", "n.qrx", *names)
        self.assertEqual(self.get("n.qrx"), unsealed) # in order again

    @unittest.skipUnless(shutil.which("parallel"), "GNU Parallel isn't installed")
    def test_parallel_decompression(self):
        self.shell("qrx split --blocks 1 a.tar.qrx && "
                   "parallel --will-cite -j2 qrx -d -q ::: a.tar.?of6.qrx && "
                   "cat a.tar.?of6 > all")
        self.assertEqual(self.get("all"), self.original)

    @unittest.skipUnless(shutil.which("parallel"), "GNU Parallel isn't installed")
    def test_parallel_compression(self):
        self.put("big", self.original)
        self.shell("parallel --will-cite -j2 --pipepart -a big --block 2M --recend '' "
                   "'qrx -q -b1 > part.{#}.qrx' && qrx join --verify -o big.qrx part.?.qrx")
        self.assertEqual(self.get("big.qrx"), self.sealed)


class LikeTest(ToolTest):
    """--like: the parameters of an existing file."""

    def setUp(self):
        super().setUp()
        self.put("more", long_text(MIB + 1000, 9))

    def parameters(self, name):
        header = self.get(name)[:32]
        return header[12:28]

    def test_all_parameters_are_those_of_the_file(self):
        # The name selects the filter for x86 code, and text would select other context bits.
        self.put("a.exe", random_bytes(2 * MIB))
        self.qrx("-q", "-44", "-b1", "a.exe")
        self.qrx("-q", "--like", "a.exe.qrx", "more")
        self.qrx("-q", "-44", "-b1", "-o", "own.qrx", "more")
        self.assertEqual(self.parameters("more.qrx"), self.parameters("a.exe.qrx"))
        self.assertNotEqual(self.parameters("more.qrx"), self.parameters("own.qrx"))
        self.assertEqual(self.original(self.get("more.qrx")), self.get("more"))

    def test_table_sizes_are_those_of_the_file(self):
        like = bytearray(self.compressed(b"", "-33"))
        like[20:28] = (12).to_bytes(4, "little") + (3).to_bytes(4, "little")
        self.put("like.qrx", like)
        self.qrx("-q", "--like=like.qrx", "more")
        self.assertEqual(self.parameters("more.qrx"), bytes(like[12:28]))
        self.assertEqual(self.original(self.get("more.qrx")), self.get("more"))

    def test_append_to_a_file(self):
        whole = random_bytes(MIB) + self.get("more")
        self.put("whole.exe", whole)
        self.put("start.exe", whole[:MIB])
        self.qrx("-q", "-b1", "start.exe", "whole.exe")
        self.qrx("-q", "-b1", "-o", "other.qrx", "more")
        done = self.qrx("join", "-o", "all.qrx", "start.exe.qrx", "other.qrx", status=1)
        self.assertIn(b"doesn't belong to start.exe.qrx: the filter is 0, not 1", done.stderr)
        self.qrx("-q", "--like", "start.exe.qrx", "more")
        self.qrx("join", "-o", "all.qrx", "start.exe.qrx", "more.qrx")
        self.assertEqual(self.get("all.qrx"), self.get("whole.exe.qrx"))

    def test_standard_input(self):
        self.put("a.exe", random_bytes(1000))
        self.qrx("-q", "-25", "-b1", "a.exe")
        self.put("made.qrx", self.qrx("-cq", "--like", "a.exe.qrx", stdin=self.get("more")).stdout)
        self.assertEqual(self.parameters("made.qrx"), self.parameters("a.exe.qrx"))

    @posix_only("a pipe as a file")
    def test_header_from_a_pipe(self):
        self.put("a.qrx", self.compressed(b"a", "-25", "-b1"))
        self.shell("qrx -q --like <(head -c 32 a.qrx) more")
        self.assertEqual(self.parameters("more.qrx"), self.parameters("a.qrx"))

    def test_only_the_header_has_to_be_intact(self):
        whole = self.compressed(self.get("more"), "-21", "-b1")
        for name, data in (("header", whole[:32]), ("cut", whole[:-10]),
                           ("damaged", whole[:40] + b"damaged" + whole[47:])):
            with self.subTest(name=name):
                self.put("like.qrx", data)
                self.qrx("-qf", "--like", "like.qrx", "more")
                self.assertEqual(self.get("more.qrx"), whole)

    def test_unusable_files(self):
        header = self.compressed(b"", "-33")[:32]
        level_5_block_of_32_mib = header[:13] + b"\x05" + header[14:]
        chain_bits = header[:24] + b"\x09" + header[25:]
        unusable = b"its header has parameters that can't be used"
        cases = [(None, 1, b"No such file or directory"),
                 (b"", 2, b"not a .qrx file"),
                 (header[:31], 2, b"the file ends too early"),
                 (random_bytes(100), 2, b"not a .qrx file"),
                 (header[:12] + b"\x06" + header[13:], 2, unusable),
                 (level_5_block_of_32_mib, 2, unusable),
                 (chain_bits, 2, unusable)]
        before = self.files()
        for data, status, message in cases:
            with self.subTest(message=message):
                if data is not None:
                    self.put("like.qrx", data)
                done = self.qrx("--like", "like.qrx", "more", "missing", status=status)
                self.assertEqual(done.stderr, b"qrx: like.qrx: " + message + b"\n")
                (self.dir / "like.qrx").unlink(missing_ok=True)
                self.assertEqual(self.files(), before)

    def test_refused_combinations(self):
        self.put("a.qrx", self.compressed(b"a", "-25", "-b1"))
        cases = [(("-9",), b"--like excludes presets and --level"),
                 (("--level=33",), b"--like excludes presets and --level"),
                 (("-b1",), b"--like excludes -b"),
                 (("-d",), b"--like applies only to compression"),
                 (("-t",), b"--like applies only to compression")]
        before = self.files()
        for args, message in cases:
            with self.subTest(args=args):
                done = self.qrx(*args, "--like", "a.qrx", "more", status=1)
                self.assertEqual(done.stderr, b"qrx: " + message + b" (qrx -h prints help)\n")
        done = self.qrx("--like", "-", "more", stdin=self.get("a.qrx"), status=1)
        self.assertIn(b"qrx: --like takes the name of a file, not -", done.stderr)
        self.assertEqual(self.files(), before)


if __name__ == "__main__":
    unittest.main()
