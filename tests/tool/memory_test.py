"""Compares the peak memory of quarnex with the table in the README, and that of qrx with its limit.

The programs compress and restore blocks that hardly shrink and so fill all buffers.
"""

import os
import pathlib
import random
import re
import unittest

from qrx_files import extents
from qrx_tool import QRX, QUARNEX, ToolTest, is_32_bit, run

README = pathlib.Path(__file__).resolve().parents[2] / "README.md"
MIB = 1 << 20
TOLERANCE = 0.10

# What --memory-limit doesn't count: the program itself, and small buffers.
UNCOUNTED = 10 * MIB


def table_of_readme():
    """Returns a row for each level: peak memory in MiB with one and two workers."""
    rows = {}
    pattern = r"^\| compress at levels? ([\d ,to]+) \| (\d+) \| (\d+) \|"
    for levels, one, two in re.findall(pattern, README.read_text(), re.MULTILINE):
        first, last = levels[0], levels[-1]
        for level in range(int(first), int(last) + 1):
            rows[level] = (int(one), int(two))
    return rows


def peak_of(test, program, *arguments, stdin=os.devnull, status=0):
    """Runs a program in the directory of a test and returns its peak memory in bytes.

    The result is at least the memory of Python, which the process has before it runs the program.
    """
    child = os.fork()
    if child == 0:
        try:
            os.chdir(test.dir)
            os.dup2(stdin if isinstance(stdin, int) else os.open(stdin, os.O_RDONLY), 0)
            os.execv(program, [program, *arguments])
        finally:
            os._exit(127)
    _, wait_status, usage = os.wait4(child, 0)
    test.assertEqual(os.waitstatus_to_exitcode(wait_status), status, arguments)
    return usage.ru_maxrss * 1024


class MemoryTest(ToolTest):
    def peak(self, *arguments):
        """Runs quarnex and returns its peak memory in MiB."""
        return peak_of(self, QUARNEX, *arguments) / MIB

    def put_noise(self, blocks, block_size=32 * MIB):
        self.put("noise", random.Random(1).randbytes(blocks * block_size))
        for name in ("packed", "restored"):
            (self.dir / name).mkdir(exist_ok=True)

    def assert_close(self, measured, expected, what):
        difference = measured - expected
        if difference < 0 and is_32_bit(QUARNEX):
            return  # the README has the figures of 64-bit systems, whose tables are larger
        self.assertLessEqual(abs(difference), TOLERANCE * expected,
                             f"{what}: {measured:.0f} MiB, README: {expected} MiB")

    def test_every_level_is_in_the_table(self):
        self.assertEqual(sorted(table_of_readme()), list(range(10)))

    def check_levels(self, levels, workers):
        for level in levels:
            with self.subTest(level=level):
                measured = self.peak(f"-1{level}", f"-p{workers}", "noise", "packed")
                expected = table_of_readme()[level][workers - 1]
                self.assert_close(measured, expected, f"level {level}")

    def test_levels_0_to_3_with_two_workers(self):
        self.put_noise(7)
        self.check_levels(range(4), workers=2)

    def test_levels_4_to_7_with_two_workers(self):
        self.put_noise(7, 16 * MIB)
        self.check_levels(range(4, 8), workers=2)

    def test_levels_8_and_9_with_one_worker(self):
        self.put_noise(3)
        self.check_levels((8, 9), workers=1)

    def test_restoring(self):
        self.put_noise(7)
        self.peak("-10", "-p2", "noise", "packed")
        row = re.search(r"^\| decompress \| (\d+) \| (\d+) \|", README.read_text(), re.MULTILINE)
        for workers in (1, 2):
            with self.subTest(workers=workers):
                measured = self.peak("-d", f"-p{workers}", "packed/noise.qrx", "restored")
                self.assertLessEqual(measured, (1 + TOLERANCE) * int(row[workers]))
                self.assertGreater(measured, 32, "a block was decoded")


class MemoryLimitTest(ToolTest):
    """Each limit is little more than the library's bound for one thread and blocks of 12 MiB."""

    LIMIT = 37 * MIB  # to decompress: three blocks

    def setUp(self):
        super().setUp()
        # Bytes of seven random bits: a payload has seven eighths of the size of its block.
        halved = bytes(value & 0x7F for value in range(256))
        with open(self.dir / "noise", "wb") as noise:
            for seed in range(48):
                noise.write(random.Random(seed).randbytes(MIB).translate(halved))

    def check(self, limit, *arguments, piped=None, uncounted=UNCOUNTED, status=0):
        """Runs qrx, with a file piped to it, and checks that its memory comes close to the limit."""
        words = (*arguments, "-q", "-T1", f"--memory-limit={limit}")
        if piped is None:
            peak = peak_of(self, QRX, *words, status=status)
        else:
            with self.start(piped, program="/bin/cat") as cat:
                peak = peak_of(self, QRX, *words, stdin=cat.stdout.fileno(), status=status)
        what = f"{words}: {peak / MIB:.1f} MiB"
        self.assertLessEqual(peak, limit + uncounted, what)
        self.assertGreaterEqual(peak, 0.7 * limit, what)

    def make_compressed(self):
        self.qrx("-q", "-33", "-b12", "noise")

    def test_compressing_files_of_several_sizes(self):
        self.put("small", self.get("noise")[:MIB])
        self.check(177 * MIB, "-36", "-b12", "-C", "packed", "small", "noise")

    def test_compressing_with_verification(self):
        self.check(81 * MIB, "--verify", "-33", "-b12", "noise")

    def test_compressing_from_a_pipe(self):
        self.check(81 * MIB, "-o", "packed", "-33", "-b12", piped="noise")

    def test_a_pipe_of_more_than_the_limit(self):
        with self.start("noise", program="/bin/cat") as cat:
            peak = peak_of(self, QRX, "-q", "-b256", "-o", "packed", "--memory-limit=16M",
                           stdin=cat.stdout.fileno(), status=1)
        self.assertLessEqual(peak, 16 * MIB + UNCOUNTED)
        self.assertEqual(self.files(), ["noise"])

    def test_limits_that_leave_no_memory_for_the_index_of_blocks(self):
        blocks = 77
        self.put("zeros", bytes(blocks * MIB))
        self.qrx("-q", "-b1", "zeros")

        def errors(limit):
            done = run("cat", "-T1", "--range", "0:1", f"--memory-limit={limit}", "zeros.qrx",
                       cwd=self.dir)
            return done.stderr if done.returncode == 0 else None

        too_low, enough = MIB, 16 * MIB
        while enough - too_low > 1:
            limit = (too_low + enough) // 2
            if errors(limit) == b"":
                enough = limit
            else:
                too_low = limit
        for missing in (1, blocks * 8, blocks * 16 - 1):
            self.assertIn(b"uses no worker threads", errors(enough - missing) or b"failure")

    def test_decompressing(self):
        self.make_compressed()
        self.check(self.LIMIT, "-d", "-f", "noise.qrx")
        self.check(self.LIMIT, "-d", "-f", "--verify", "noise.qrx")
        self.check(self.LIMIT, "-t", "noise.qrx")

    def test_decompressing_from_a_pipe(self):
        self.make_compressed()
        self.check(self.LIMIT, "-d", "-o", "restored", piped="noise.qrx")
        self.check(self.LIMIT, "verify", "--against", "-", "noise.qrx", piped="noise")

    def test_splitting_joining_and_recovering(self):
        self.make_compressed()
        self.check(self.LIMIT, "split", "noise.qrx")
        pieces = ("noise.1of2.qrx", "noise.2of2.qrx")
        self.check(self.LIMIT, "join", "--verify", "-o", "joined.qrx", *pieces)
        self.assertEqual(self.get("joined.qrx"), self.get("noise.qrx"))
        self.check(self.LIMIT, "recover", "-o", "recovered", "noise.qrx")
        self.assertEqual(self.get("recovered"), self.get("noise"))

    def test_recovering_a_damaged_block(self):
        self.make_compressed()
        image = bytearray(self.get("noise.qrx"))
        start, end = extents(image)[1]
        image[(start + end) // 2] ^= 1
        self.put("noise.qrx", image)
        # The start of a damaged block may take up to three blocks more.
        self.check(self.LIMIT, "recover", "-o", "recovered", "noise.qrx",
                   uncounted=UNCOUNTED + 3 * 12 * MIB, status=2)
        noise, recovered = self.get("noise"), self.get("recovered")
        self.assertEqual(len(recovered), len(noise))
        self.assertEqual(recovered[:12 * MIB + 1], noise[:12 * MIB + 1])
        self.assertNotEqual(recovered, noise)
        self.assertEqual(recovered[24 * MIB:], noise[24 * MIB:])

    def test_decompressing_without_a_limit_needs_no_extra_block(self):
        self.make_compressed()
        peak = peak_of(self, QRX, "-d", "-f", "-q", "-T1", "noise.qrx")
        self.assertLessEqual(peak, self.LIMIT + UNCOUNTED)


if __name__ == "__main__":
    unittest.main()
