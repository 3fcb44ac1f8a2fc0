"""Compares the peak memory of quarnex with the table in the README.

quarnex compresses and restores incompressible blocks, which fill all of its buffers.
"""

import os
import pathlib
import random
import re
import unittest

from qrx_tool import ToolTest

README = pathlib.Path(__file__).resolve().parents[2] / "README.md"
MIB = 1 << 20
TOLERANCE = 0.10


def table_of_readme():
    """Returns a row for each level: peak memory in MiB with one and two workers."""
    rows = {}
    pattern = r"^\| compress at levels? ([\d ,to]+) \| (\d+) \| (\d+) \|"
    for levels, one, two in re.findall(pattern, README.read_text(), re.MULTILINE):
        first, last = levels[0], levels[-1]
        for level in range(int(first), int(last) + 1):
            rows[level] = (int(one), int(two))
    return rows


class MemoryTest(ToolTest):
    def peak(self, *arguments):
        """Runs quarnex and returns its peak memory in MiB."""
        program = os.environ["QUARNEX_PROGRAM"]
        child = os.fork()
        if child == 0:
            os.chdir(self.dir)
            os.execv(program, [program, *arguments])
        _, status, usage = os.wait4(child, 0)
        self.assertEqual(status, 0)
        return usage.ru_maxrss / 1024

    def put_noise(self, blocks, block_size=32 * MIB):
        self.put("noise", random.Random(1).randbytes(blocks * block_size))
        for name in ("packed", "restored"):
            (self.dir / name).mkdir(exist_ok=True)

    def assert_close(self, measured, expected, what):
        self.assertLessEqual(abs(measured - expected), TOLERANCE * expected,
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


if __name__ == "__main__":
    unittest.main()
