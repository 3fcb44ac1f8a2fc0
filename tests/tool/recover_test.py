"""Tests recover: damage loses only the blocks it touches."""

import os
import random
import shutil
import stat
import struct
import subprocess
import unittest

from qrx_files import HEAD, HEADER, extents, header
from qrx_schema import json_objects
from qrx_tool import (MIB, WORDS, ToolTest, is_32_bit, is_sanitized, posix_only, random_bytes, run,
                      text)

BLOCKS = 6
SIZE = (BLOCKS - 1) * MIB + 654321


def content():
    """Returns words that don't repeat: each part compresses equally well."""
    words = random.Random(1).choices(WORDS, k=SIZE // 3)
    return b" ".join(words)[:SIZE]


class RecoverTest(ToolTest):
    @classmethod
    def setUpClass(cls):
        cls.original = content()
        cls.files_of_methods = {}
        for method in range(1, 6):
            made = run("-cq", "-b1", f"--level={method}3", stdin=cls.original).stdout
            assert extents(made)[-1][1] == len(made) - 4
            cls.files_of_methods[method] = made

    def recover(self, damaged, *args):
        """Recovers a file; returns its JSON and the output."""
        self.put("x.qrx", damaged)
        done = run("recover", "--json", "-f", "--no-sync", *args, "x.qrx", cwd=self.dir)
        self.assertIn(done.returncode, (0, 2), done.stderr)
        found = json_objects(done.stdout)[0]
        self.assertEqual(found["damaged"], done.returncode != 0)
        output = self.get("x")
        self.assertEqual(len(output), found["original_size"])
        return found, output

    def check_lists(self, found):
        """Checks the form of the lost ranges; returns them."""
        lost = [(each["first"], each["last"]) for each in found["lost"]]
        position = -1
        for first, last in lost:
            self.assertTrue(position < first < last <= found["original_size"], lost)
            position = last
        self.assertEqual(found["recovered"],
                         found["original_size"] - sum(last - first for first, last in lost))
        return lost

    def check_same_outside(self, output, ranges):
        position = 0
        for first, last in [*ranges, (SIZE, SIZE)]:
            self.assertTrue(output[position:first] == self.original[position:first],
                            f"wrong bytes in {position}:{first}")
            position = last

    def check(self, damaged, touched):
        """Recovers a file whose damage touches the records of some blocks."""
        found, output = self.recover(damaged)
        self.assertEqual(found["original_size"], SIZE)
        lost = self.check_lists(found)
        extents = [(block * MIB, min((block + 1) * MIB, SIZE)) for block in sorted(touched)]
        for first, last in lost:
            for block in range(first // MIB, (last - 1) // MIB + 1):
                self.assertIn(block, touched, found)
        self.check_same_outside(output, extents)
        if output != self.original:
            # Damage inside a payload of methods 1 to 3 can give wrong bytes without a fault.
            is_unlike_seal = "the content doesn't match the seal" in \
                [fault["what"] for fault in found["faults"]]
            self.assertTrue(lost or is_unlike_seal, found)
        if not lost and output != self.original:
            self.assertTrue(found["damaged"])
        return found, output, lost

    def touched_by(self, records, first, last):
        return {block for block, (start, end) in enumerate(records)
                if start < last and first < end}

    def test_good_files(self):
        for method, compressed in self.files_of_methods.items():
            found, output, lost = self.check(compressed, set())
            self.assertEqual((lost, found["faults"], found["damaged"]), ([], [], False))
            self.assertEqual(output, self.original)

    def test_cut_files(self):
        for method, compressed in self.files_of_methods.items():
            records = extents(compressed)
            rng = random.Random(method)
            cuts = [rng.choice(records[1:])[0] + step for step in (1, 5, 6)]
            cuts += [rng.randrange(records[0][0] + 2000, records[-1][1]) for _ in range(3)]
            cuts += [records[2][0], records[2][1] - 1, records[-1][1] - 20]
            for cut in cuts:
                with self.subTest(method=method, cut=cut):
                    found, output = self.recover(compressed[:cut])
                    (first, last), = self.check_lists(found)
                    block = [start <= cut < end for start, end in records].index(True)
                    start, end = records[block]
                    self.assertEqual(last, SIZE)
                    self.assertGreaterEqual(first, block * MIB)
                    self.check_same_outside(output, [(first, last)])
                    self.assertEqual(output[first:], bytes(SIZE - first))
                    # The rest of the block's payload is used.
                    share = (cut - start) / (end - start)
                    length = min(MIB, SIZE - block * MIB)
                    self.assertGreater(first - block * MIB, (share - 0.02) * length)

    def test_cut_seal(self):
        for cut in range(1, 5):
            found, output, lost = self.check(self.files_of_methods[3][:-cut], set())
            self.assertEqual(output, self.original)
            self.assertEqual(found["damaged"], cut != 4) # then it is a file without a seal

    def test_overwritten_sectors(self):
        for method, compressed in self.files_of_methods.items():
            records = extents(compressed)
            rng = random.Random(method)
            heads = [start for start, _ in records[1:]]
            places = [rng.choice(heads) - rng.randrange(512) for _ in range(3)]
            places += [rng.randrange(HEADER, len(compressed) - 4096) for _ in range(3)]
            places += [heads[-1], heads[0] - 4, len(compressed) - 512]
            for place in places:
                size = rng.choice((512, 4096))
                end = min(place + size, len(compressed))
                sector = rng.choice((bytes(end - place), random_bytes(end - place, place)))
                with self.subTest(method=method, place=place, size=size):
                    damaged = compressed[:place] + sector + compressed[end:]
                    self.check(damaged, self.touched_by(records, place, end))

    def test_two_overwritten_sectors(self):
        # Inside payloads, each damage is independent of the others.
        for method in (4, 5):
            compressed = self.files_of_methods[method]
            records = extents(compressed)
            damaged = bytearray(compressed)
            for block in (1, 3):
                place = (records[block][0] + records[block][1]) // 2
                damaged[place:place + 512] = bytes(512)
            found, _, lost = self.check(damaged, {1, 3})
            self.assertEqual(lost, [(MIB, 2 * MIB), (3 * MIB, 4 * MIB)])
            faults = [fault for fault in found["faults"] if "block" in fault]
            self.assertEqual([fault["block"] for fault in faults], [1, 3])

    def test_lost_heads(self):
        for method in (1, 5):
            compressed = self.files_of_methods[method]
            records = extents(compressed)
            for block in (1, 3, BLOCKS - 1):
                start = records[block][0]
                for junk in (b"\xff" * HEAD, bytes(HEAD), b"\xff"):
                    with self.subTest(method=method, block=block, junk=junk):
                        damaged = compressed[:start] + junk + compressed[start + len(junk):]
                        self.check(damaged, {block})

    def test_sectors_over_the_header(self):
        for method, compressed in self.files_of_methods.items():
            damaged = random_bytes(512) + compressed[512:]
            with self.subTest(method=method):
                self.check(damaged, {0})

    def test_lost_headers(self):
        for method, compressed in self.files_of_methods.items():
            with self.subTest(method=method):
                found, output, lost = self.check(bytes(HEADER) + compressed[HEADER:], set())
                self.assertEqual(output, self.original)
                self.assertFalse(found["damaged"])

    def test_cut_file_with_a_wrong_size(self):
        # The header claims 2^50 bytes: more than the system can store, or a sparse file.
        # Methods 3 and 4 need the length of a block to decode it; method 5 doesn't.
        compressed = self.files_of_methods[5]
        damaged = compressed[:8] + bytes([0, 0, 4, 0]) + compressed[12:-100000]
        self.put("x.qrx", damaged)
        done = self.qrx("recover", "--json", "x.qrx", status=2)
        found = json_objects(done.stdout)[0]
        (first, last), = self.check_lists(found)
        self.assertEqual(last, found["original_size"])
        self.assertGreater(first, (BLOCKS - 1) * MIB)
        with open(self.dir / "x", "rb") as output:
            self.assertEqual(output.read(first), self.original[:first])

    def test_swapped_parts(self):
        for method in (2, 3, 5):
            compressed = self.files_of_methods[method]
            records = extents(compressed)
            first, second = records[1][0] + 1000, records[4][0] + 3000
            parts = [compressed[place:place + 4096] for place in (first, second)]
            damaged = bytearray(compressed)
            damaged[first:first + 4096] = parts[1]
            damaged[second:second + 4096] = parts[0]
            with self.subTest(method=method):
                self.check(damaged, {1, 4})

    def test_swapped_records(self):
        # Two whole records: all blocks decode, but in another order.
        compressed = self.files_of_methods[3]
        (a, b), (c, d) = extents(compressed)[1], extents(compressed)[3]
        damaged = compressed[:a] + compressed[c:d] + compressed[b:c] + compressed[a:b] + \
            compressed[d:]
        self.put("x.qrx", damaged)
        done = self.qrx("recover", "x.qrx", status=2)
        self.assertEqual(done.stderr,
                         b"qrx: x.qrx: all blocks decode, but the content doesn't match the seal: "
                         b"some bytes are wrong, position unknown\n")
        self.assertEqual(done.stdout, b"")
        self.assertEqual(self.get("x")[MIB:2 * MIB], self.original[3 * MIB:4 * MIB])

    def test_inserted_and_deleted_bytes(self):
        for method in (1, 3, 4):
            compressed = self.files_of_methods[method]
            records = extents(compressed)
            rng = random.Random(method)
            for size in (1, 77, 5000):
                # In the last block, missing bytes look like a cut.
                block = rng.randrange(1, BLOCKS - 1)
                start, end = records[block]
                place = rng.randrange(start + HEAD, end - size)
                with self.subTest(method=method, block=block, size=size, place=place):
                    inserted = compressed[:place] + random_bytes(size) + compressed[place:]
                    self.check(inserted, {block})
                    self.check(compressed[:place] + compressed[place + size:], {block})

    def test_trailing_bytes(self):
        found, output, lost = self.check(self.files_of_methods[3] + bytes(1000), set())
        self.assertEqual(output, self.original)
        self.assertTrue(found["damaged"]) # the seal can't be found

    def test_lost_ranges_as_text(self):
        compressed = self.files_of_methods[5]
        start, end = extents(compressed)[2]
        middle = (start + end) // 2
        damaged = compressed[:middle] + bytes(512) + compressed[middle + 512:]
        self.put("x.qrx", damaged)
        line = b"x.qrx: lost 2097152:3145728 (1.0 MiB)\n"
        done = self.qrx("recover", "x.qrx", status=2)
        self.assertEqual(done.stdout, line)
        self.assertRegex(done.stderr, rb"^qrx: x.qrx: block 2 \(bytes 2097152:3145728\): ")
        recovered = self.get("x")
        done = self.qrx("recover", "-o", "-", "x.qrx", status=2)
        self.assertEqual(done.stdout, recovered)
        self.assertIn(b"qrx: " + line, done.stderr)
        done = self.qrx("recover", "-", stdin=damaged, status=2)
        self.assertEqual(done.stdout, recovered)
        done = self.shell("cat x.qrx | qrx recover -o y -", status=2)
        self.assertEqual(self.get("y"), recovered)

    def test_lost_ranges_in_a_pipe(self):
        compressed = self.files_of_methods[3]
        start, _ = extents(compressed)[2]
        _, end = extents(compressed)[3]
        damaged = compressed[:start] + random_bytes(end - start) + compressed[end:]
        self.put("x.qrx", damaged)
        done = self.shell("qrx recover -o - x.qrx | cat", status=2)
        expected = bytearray(self.original)
        expected[2 * MIB:4 * MIB] = bytes(2 * MIB)
        self.assertTrue(done.stdout == expected)

    @posix_only("files have permissions")
    def test_names(self):
        compressed = self.files_of_methods[3]
        self.put("x.qrx", compressed)
        self.put("x", b"mine")
        done = self.qrx("recover", "x.qrx", status=1)
        self.assertEqual(done.stderr, b"qrx: x: exists (-f overwrites)\n")
        self.assertEqual(self.get("x"), b"mine")
        self.qrx("recover", "-f", "-o", "x.qrx", "x.qrx", status=1) # the input file
        self.assertEqual(self.get("x.qrx"), compressed)
        os.rename(self.dir / "x.qrx", self.dir / "disk.img")
        os.chmod(self.dir / "disk.img", 0o600)
        self.qrx("recover", "disk.img")
        self.qrx("recover", "-C", "out", "disk.img")
        for name in ("disk.img.recovered", "out/disk.img.recovered"):
            self.assertEqual(self.get(name), self.original)
            self.assertEqual(stat.S_IMODE(os.stat(self.dir / name).st_mode), 0o600)
        self.assertEqual(self.get("disk.img"), compressed)

    def test_hopeless_files(self):
        self.put("junk.qrx", random_bytes(100000))
        self.put("empty.qrx", b"")
        self.put("head.qrx", self.files_of_methods[3][:HEADER])
        self.qrx("recover", "missing.qrx", status=1)
        for name in ("junk.qrx", "empty.qrx", "head.qrx"):
            with self.subTest(name=name):
                self.qrx("recover", name, status=2)
        self.assertEqual(self.files(), ["empty.qrx", "head.qrx", "junk.qrx"])

    def test_headers_that_claim_huge_blocks(self):
        mib = 65535
        self.put("f.qrx", header(mib * MIB + 5, mib) + struct.pack("<IB", 5, 2) + b"hello")
        done = self.qrx("recover", "f.qrx", status=2)
        self.assertIn(b"lost 0:%d " % (mib * MIB), done.stdout)
        with open(self.dir / "f", "rb") as recovered:
            recovered.seek(mib * MIB)
            self.assertEqual(recovered.read(), b"hello")

    def test_cut_file_with_doubtful_parameters(self):
        """What only encoders use may be damaged, and doesn't count against the memory limit."""
        content = text(2 * MIB)
        for bits, options in ((58, []), (1, ["--memory-limit", "20M"])):
            image = self.compressed(content, "-39", "-b1")
            image = image[:24] + struct.pack("<I", bits) + image[28:-100000]
            self.put("f.qrx", image)
            done = self.qrx("recover", "-f", "-T1", *options, "f.qrx", status=2)
            self.assertNotIn(b"can't be saved", done.stderr)
            saved = self.get("f")
            self.assertEqual(saved[:MIB + 1000], content[:MIB + 1000])

    def test_empty_original(self):
        self.put("e.qrx", self.compressed(b""))
        self.qrx("recover", "e.qrx")
        self.assertEqual(self.get("e"), b"")

    def test_stored_and_filtered_blocks(self):
        # The x86 filter looks ahead, so the end of a cut block isn't taken.
        code = b"".join(b"\xe8" + bytes([number % 251, number % 7, 0, 0]) + text(9, number)
                        for number in range(120000))
        for name, data in (("a.exe", code), ("b.bin", random_bytes(2 * MIB + 5))):
            self.put(name, data)
            self.qrx("-b1", name)
            compressed = self.get(name + ".qrx")
            for cut in (400000, 300001, 250002):
                self.put("x.qrx", compressed[:cut])
                done = self.qrx("recover", "--json", "-f", "x.qrx", status=2)
                lost, = json_objects(done.stdout)[0]["lost"]
                output = self.get("x")
                self.assertEqual(output[:lost["first"]], data[:lost["first"]])
                self.assertGreater(lost["first"], cut // 2)

    SHIM = r"""
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdlib.h>
#include <unistd.h>
/* Fails like a bad sector in the bytes from BAD_FIRST to BAD_LAST. */
static int is_bad(size_t size, off64_t offset)
{
    const off64_t first = atoll(getenv("BAD_FIRST")), last = atoll(getenv("BAD_LAST"));
    if (offset >= last || first >= offset + (off64_t)size) return 0;
    errno = EIO;
    return 1;
}
ssize_t pread64(int file, void* dest, size_t size, off64_t offset)
{
    ssize_t (*next)(int, void*, size_t, off64_t) = dlsym(RTLD_NEXT, "pread64");
    return is_bad(size, offset) ? -1 : next(file, dest, size, offset);
}
ssize_t pread(int file, void* dest, size_t size, off_t offset)
{
    ssize_t (*next)(int, void*, size_t, off_t) = dlsym(RTLD_NEXT, "pread");
    return is_bad(size, offset) ? -1 : next(file, dest, size, offset);
}
"""

    @unittest.skipUnless(shutil.which("cc"), "there is no C compiler")
    @unittest.skipIf(is_sanitized(), "sanitizers must be loaded first")
    @posix_only("LD_PRELOAD makes reading fail")
    def test_read_errors(self):
        self.put("shim.c", self.SHIM.encode())
        bits = ["-m32"] if is_32_bit() else []
        subprocess.run(["cc", *bits, "-shared", "-fPIC", "-o", "shim.so", "shim.c", "-ldl"],
                       cwd=self.dir, check=True)
        stored = run("-cq", "-b1", stdin=random_bytes(2 * MIB)).stdout
        cases = []
        for method in (1, 3, 5):
            compressed = self.files_of_methods[method]
            records = extents(compressed)
            cases.append((compressed, self.original, records[2][0] + 20000, 512))
            cases.append((compressed, self.original, records[2][0] - 100, 512))
            cases.append((compressed, self.original, len(compressed) - 4, 4))
        cases.append((stored, random_bytes(2 * MIB), MIB + 300000, 5000))
        for compressed, original, place, size in cases:
            with self.subTest(place=place):
                self.check_read_error(compressed, original, place, place + size)

    def check_read_error(self, compressed, original, first, last):
        self.put("x.qrx", compressed)
        environment = dict(os.environ, LD_PRELOAD=str(self.dir / "shim.so"),
                           BAD_FIRST=str(first), BAD_LAST=str(last))
        done = self.qrx("recover", "--json", "-f", "x.qrx", status=2, env=environment)
        found = json_objects(done.stdout)[0]
        lost = self.check_lists(found)
        output = self.get("x")
        position = 0
        for start, end in [*lost, (len(original), len(original))]:
            self.assertTrue(output[position:start] == original[position:start])
            position = end
        if original != self.original: # stored: only the unreadable pages
            (start, end), = lost
            self.assertLessEqual(end - start, last - first + 2 * 4096)
        elif size_of(lost):
            self.assertLessEqual(size_of(lost), 2 * MIB)


def size_of(ranges):
    return sum(last - first for first, last in ranges)


if __name__ == "__main__":
    unittest.main()
