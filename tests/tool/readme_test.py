"""The commands of the README print what it shows.

Each block marked `sh` runs, in order and in one directory; a block marked `text` after it is its output.  Lines are
compared in any order, because standard output and standard error are separate streams, and without numbers that depend
on the machine: speeds, and fractions (archives contain the time).
"""

import pathlib
import re
import shutil
import unittest

from qrx_tool import ToolTest, run

README = pathlib.Path(__file__).resolve().parents[2] / "README.md"
BLOCK = re.compile(r"^```sh\n(.*?)^```$(?:\n+^```text\n(.*?)^```$)?", re.MULTILINE | re.DOTALL)


def comparable(text):
    """The lines of a text, sorted, without speeds and fractions and with single spaces."""
    return sorted(re.sub(r"\d+\.\d+|\d+(?= MB/s)", "N", " ".join(line.split()))
                  for line in text.splitlines())


class ReadmeTest(ToolTest):
    def test_every_block_of_the_tour_prints_what_the_readme_says(self):
        for tool in ("jq", "tar", "xargs"):
            if shutil.which(tool) is None:
                self.skipTest(f"{tool} isn't installed")
        blocks = BLOCK.findall(README.read_text(encoding="utf-8"))
        self.assertGreaterEqual(len(blocks), 10)
        for commands, expected in blocks:
            with self.subTest(commands=commands):
                done = run("-eu", "-c", "exec 2>&1\n" + commands, cwd=self.dir,
                           program="/bin/bash")
                printed = done.stdout.decode()
                self.assertEqual(done.returncode, 0, printed)
                self.assertEqual(comparable(printed), comparable(expected))


if __name__ == "__main__":
    unittest.main()
